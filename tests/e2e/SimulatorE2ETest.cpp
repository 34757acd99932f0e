// The main job end to end: bundled scenarios run through the real library,
// posted by the real transport to a real collector, and checked against its
// report; a recorded session replays to the same metrics.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "CollectorServer.h"
#include "Simulate.h"
#include "core/CoreState.h"
#include "transport/TransportOverrides.h"

namespace tav::simulate {
namespace {

namespace fs = std::filesystem;

class SimulatorE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    detail::resetCoreStateForTesting();
    server = startCollector(collector);
  }
  void TearDown() override {
    server->stop();
    detail::resetCoreStateForTesting();
    detail::setTransportOverrides({});
    for (const auto& file : temporaries)
      fs::remove(file);
  }

  static std::unique_ptr<collector::CollectorServer> startCollector(collector::Collector& c) {
    collector::CollectorServer::Options options;
    options.port = 0;
    auto s = std::make_unique<collector::CollectorServer>(c, options);
    EXPECT_TRUE(s->start());
    return s;
  }

  /// Runs the simulator against `port`; answers its exit status and its output.
  static std::pair<int, std::string> run(SimulateOptions options, int port) {
    options.collectorPort = port;
    options.run.speed = 0;
    options.run.progress = false;
    std::FILE* out = std::tmpfile();
    options.out = out;
    const int status = simulate(options);
    std::string text(static_cast<std::size_t>(std::ftell(out)), '\0');
    std::rewind(out);
    text.resize(std::fread(text.data(), 1, text.size(), out));
    std::fclose(out);
    return {status, text};
  }

  std::string temporary(const std::string& name) {
    const auto path =
        fs::temp_directory_path() / ("tav-sim-" + std::to_string(::getpid()) + "-" + name);
    fs::remove(path);
    temporaries.push_back(path);
    return path.string();
  }

  static std::string scenario(const std::string& name) {
    return std::string(TAV_SCENARIO_DIR) + "/" + name + ".json";
  }

  collector::Collector collector;
  std::unique_ptr<collector::CollectorServer> server;
  std::vector<fs::path> temporaries;
};

TEST_F(SimulatorE2E, BundledScenariosPassThroughTheLibraryIntoTheCollector) {
  SimulateOptions options;
  options.scenarioFiles = {scenario("rebuffering"), scenario("two-players"),
                           scenario("long-pause")};
  const auto [status, output] = run(options, server->port());
  EXPECT_EQ(status, 0) << output;
  EXPECT_NE(output.find("every batch delivered"), std::string::npos) << output;
  EXPECT_EQ(output.find("FAIL"), std::string::npos) << output;

  // What the collector received, independently of the simulator's checks.
  const auto report = collector.report();
  EXPECT_EQ(report["views"].size(), 5u);  // rebuffering 1, two players 2, long pause 2
  EXPECT_EQ(report["totals"]["violations"], 0) << report["violations"].dump(2);
  EXPECT_EQ(report["totals"]["rejectedBatches"], 0);
  for (const auto& player : report["players"]) {
    EXPECT_TRUE(player["sequence"]["missing"].empty()) << player.dump();
  }
}

TEST_F(SimulatorE2E, AFailedExpectationFailsTheRun) {
  auto document = nlohmann::json::parse(std::ifstream(scenario("seeking")));
  document["expect"]["sim-seek-1"]["metrics"]["seekCount"] = 4;
  const std::string file = temporary("wrong.json");
  std::ofstream(file) << document.dump();
  SimulateOptions options;
  options.scenarioFiles = {file};
  const auto [status, output] = run(options, server->port());
  EXPECT_EQ(status, 1) << output;
  EXPECT_NE(output.find("seekCount"), std::string::npos);
  EXPECT_NE(output.find("FAIL"), std::string::npos);
}

TEST_F(SimulatorE2E, ARecordedSessionReplaysToTheSameMetrics) {
  const std::string log = temporary("calls.jsonl");
  SimulateOptions options;
  options.scenarioFiles = {scenario("adaptive-bitrate"), scenario("preroll-slow-start")};
  options.recordFile = log;
  ASSERT_EQ(run(options, server->port()).first, 0);
  const auto original = collector.report()["views"];
  ASSERT_EQ(original.size(), 2u);

  // A fresh library state and a fresh collector, fed only from the log.
  detail::resetCoreStateForTesting();
  collector::Collector replayed;
  auto second = startCollector(replayed);
  SimulateOptions replay;
  replay.replayFile = log;
  const auto [status, output] = run(replay, second->port());
  EXPECT_EQ(status, 0) << output;
  const auto views = replayed.report()["views"];
  ASSERT_EQ(views.size(), original.size());
  for (std::size_t i = 0; i < views.size(); ++i) {
    EXPECT_EQ(views[i]["videoId"], original[i]["videoId"]);
    EXPECT_EQ(views[i]["metrics"], original[i]["metrics"]) << views[i]["videoId"];
    EXPECT_EQ(views[i]["events"], original[i]["events"]) << views[i]["videoId"];
  }
  second->stop();
}

TEST_F(SimulatorE2E, RefusesBadScenariosAndAnAbsentCollector) {
  const std::string file = temporary("bad.json");
  std::ofstream(file) << R"({"name": "bad", "players": [{"videos": [{"id": "v",
      "timeline": [{"action": "dance"}]}]}]})";
  SimulateOptions options;
  options.scenarioFiles = {file};
  const auto [status, output] = run(options, server->port());
  EXPECT_EQ(status, 2);

  options.scenarioFiles = {scenario("clean-playback")};
  const int port = server->port();
  server->stop();
  EXPECT_EQ(run(options, port).first, 1);
}

}  // namespace
}  // namespace tav::simulate
