// The collector's HTTP server under bad input: every bad request gets a 4xx
// answer and a log line, and the server keeps serving good batches.

#include <gtest/gtest.h>
#include <httplib.h>

#include <mutex>
#include <string>
#include <vector>

#include "CollectorServer.h"

namespace tav::collector {
namespace {

TEST(CollectorServer, AnswersBadRequestsWith4xxLogsThemAndKeepsServing) {
  Collector collector;
  std::mutex mutex;
  std::vector<std::string> logLines;
  std::size_t batchesSeen = 0;
  CollectorServer::Options options;
  options.port = 0;
  options.maxBodyBytes = 64 * 1024;
  options.log = [&](const std::string& line) {
    const std::lock_guard lock(mutex);
    logLines.push_back(line);
  };
  options.onBatch = [&](const IngestResult&, const BatchInfo&, std::size_t) {
    const std::lock_guard lock(mutex);
    ++batchesSeen;
  };
  CollectorServer server(collector, options);
  ASSERT_TRUE(server.start());

  httplib::Client client("127.0.0.1", server.port());
  client.set_read_timeout(10, 0);
  const auto post = [&](const std::string& body) {
    const auto response = client.Post("/", body, "application/json");
    return response ? response->status : -1;
  };
  EXPECT_EQ(post("{\"events\": [ {\"e\": \"viewstart\""), 400);  // truncated JSON
  EXPECT_EQ(post("{\"events\": \"all of them\"}"), 400);         // wrong member type
  EXPECT_EQ(post("{\"events\": [[]]}"), 400);                    // beacon not an object
  EXPECT_EQ(post(std::string(200 * 1024, '{')), 413);            // over the size limit
  const auto unknown = client.Get("/beacons");
  ASSERT_TRUE(unknown);
  EXPECT_EQ(unknown->status, 404);

  const std::string good =
      R"({"events": [{"e": "viewstart", "xid": "V", "xsqno": "1", "psqno": "1",
          "pinid": "P", "uti": "1", "tapve": "2.1", "xwati": "0"}]})";
  EXPECT_EQ(post(good), 200);
  const auto report = client.Get("/report");
  ASSERT_TRUE(report);
  const auto json = nlohmann::json::parse(report->body);
  EXPECT_EQ(json["totals"]["beacons"], 1);
  EXPECT_EQ(json["totals"]["rejectedBatches"], 4);
  EXPECT_EQ(json["views"][0]["viewId"], "V");
  const auto text = client.Get("/report.txt");
  ASSERT_TRUE(text);
  EXPECT_NE(text->body.find("1 beacons"), std::string::npos);

  server.stop();
  const std::lock_guard lock(mutex);
  EXPECT_EQ(batchesSeen, 4u);      // the handler saw the three malformed and the good one
  EXPECT_GE(logLines.size(), 5u);  // three rejections, the 413, the 404
}

TEST(CollectorServer, RefusesToStartOnAPortInUse) {
  Collector collector;
  CollectorServer::Options options;
  options.port = 0;
  options.log = [](const std::string&) {};
  CollectorServer first(collector, options);
  ASSERT_TRUE(first.start());
  options.port = first.port();
  CollectorServer second(collector, options);
  EXPECT_FALSE(second.start());
}

}  // namespace
}  // namespace tav::collector
