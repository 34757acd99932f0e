// The collector's view rebuild and validation against crafted batches, and its
// storage round trip.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "BeaconStore.h"
#include "Collector.h"

namespace tav::collector {
namespace {

using Json = nlohmann::json;

/// A beacon with the keys that the library always sends.
Json beacon(const std::string& e, const std::string& view, int viewSeq, int playerSeq,
            Json extra = Json::object()) {
  Json b = {{"e", e},
            {"xid", view},
            {"xsqno", std::to_string(viewSeq)},
            {"psqno", std::to_string(playerSeq)},
            {"pinid", "PLAYER-A"},
            {"uti", std::to_string(1'700'000'000'000 + viewSeq)},
            {"tapve", "2.1"}};
  b.update(extra);
  return b;
}

std::string batch(const std::vector<Json>& beacons) {
  Json document = {{"events", Json::array()}, {"metadata", {{"transmission_timestamp", 1}}}};
  for (const auto& b : beacons)
    document["events"].push_back(b);
  return document.dump(2);
}

const Json& viewNamed(const Json& report, const std::string& id) {
  for (const auto& view : report["views"]) {
    if (view["viewId"] == id) return view;
  }
  throw std::runtime_error("no view " + id);
}

std::vector<std::string> kindsOf(const Json& report) {
  std::vector<std::string> kinds;
  for (const auto& v : report["violations"])
    kinds.push_back(v["kind"]);
  return kinds;
}

TEST(Collector, RebuildsAViewFromDeduplicatedBeaconsInSequenceOrderWhateverTheArrivalOrder) {
  Collector collector;
  // The later batch arrives first (a retried earlier batch, say).
  const auto late = collector.ingestBatch(
      batch({beacon("rebufferstart", "V1", 3, 3, {{"xwati", "9000"}, {"xreco", "1"}}),
             beacon("hb", "V1", 4, 4, {{"xredu", "1500"}, {"xrepe", "0.25"}})}),
      {"127.0.0.1", 2});
  const auto early = collector.ingestBatch(
      batch({beacon("viewstart", "V1", 1, 1,
                    {{"vtt", "Title"},
                     {"vid", "video-1"},
                     {"pnm", "main"},
                     {"xwati", "0"},
                     {"xreco", "0"}}),
             beacon("play", "V1", 2, 2, {{"xwati", "1200"}, {"xtitofifr", "1200"}})}),
      {"127.0.0.1", 1});
  EXPECT_EQ(late.status, 200);
  EXPECT_EQ(early.beacons, 2u);
  EXPECT_EQ(early.events, (std::vector<std::string>{"viewstart", "play"}));

  const Json report = collector.report();
  const Json& view = viewNamed(report, "V1");
  // Values carried forward from earlier beacons; later sequence numbers win
  // although they arrived first.
  EXPECT_EQ(view["videoTitle"], "Title");
  EXPECT_EQ(view["playerName"], "main");
  EXPECT_EQ(view["state"]["xwati"], "9000");
  EXPECT_EQ(view["state"]["e"], "hb");
  EXPECT_EQ(view["metrics"]["watchTimeMs"], 9000);
  EXPECT_EQ(view["metrics"]["timeToFirstFrameMs"], 1200);
  EXPECT_EQ(view["metrics"]["rebufferCount"], 1);
  EXPECT_EQ(view["metrics"]["rebufferDurationMs"], 1500);
  EXPECT_DOUBLE_EQ(view["metrics"]["rebufferPercentage"].get<double>(), 25.0);
  EXPECT_EQ(view["firstEvent"], "viewstart");
  EXPECT_EQ(view["beacons"], 4);
  EXPECT_EQ(view["batches"], 2);
  EXPECT_EQ(view["sequence"]["last"], 4);
  EXPECT_TRUE(view["sequence"]["missing"].empty());
  EXPECT_EQ(report["totals"]["violations"], 0) << report["violations"].dump();
  EXPECT_EQ(report["totals"]["beacons"], 4);
}

TEST(Collector, CountsAndListsViolationsWithoutRefusingTheBatch) {
  Collector collector;
  Json noE = beacon("x", "V2", 2, 2);
  noE.erase("e");
  Json numericE = beacon("x", "V2", 3, 3);
  numericE["e"] = 7;
  Json noPlayhead = beacon("pause", "V2", 4, 4);
  noPlayhead.erase("uti");
  const auto result = collector.ingestBatch(
      batch({beacon("play", "V2", 1, 1), noE, numericE, noPlayhead,
             beacon("renditionchange", "V2", 7, 7, {{"vsoht", "720"}, {"vsowd", "1280"}}),
             beacon("eventrateexceeded", "V2", 8, 8), beacon("eventrateexceeded", "V2", 8, 8),
             beacon("hb", "V2", 6, 6), beacon("pause", "V3", 0, 9)}),
      {"", 1});
  EXPECT_EQ(result.status, 200);
  EXPECT_EQ(result.beacons, 9u);

  const Json report = collector.report();
  const Json& view = viewNamed(report, "V2");
  EXPECT_EQ(view["sequence"]["missing"], Json::array({Json::array({5, 5})}));
  EXPECT_EQ(view["sequence"]["duplicates"], 1);
  EXPECT_EQ(view["firstEvent"], "play");
  const Json& byKind = report["totals"]["violationsByKind"];
  EXPECT_EQ(byKind["missing-e"], 1);
  EXPECT_EQ(byKind["e-not-text"], 1);
  EXPECT_EQ(byKind["missing-key"], 3);     // "uti", then "vsobi" and "vsofp"
  EXPECT_EQ(byKind["sequence-order"], 1);  // 6 after 8 in one batch
  EXPECT_EQ(byKind["bad-sequence"], 1);    // "xsqno" "0"
  EXPECT_EQ(byKind["sequence-gap"], 1);
  EXPECT_EQ(byKind["no-viewstart"], 1);
  EXPECT_EQ(byKind["player-sequence-gap"], 1);  // psqno 5 never came
  EXPECT_EQ(result.violations, 7u);             // the per-beacon findings of this batch
  const auto kinds = kindsOf(report);
  EXPECT_EQ(std::count(kinds.begin(), kinds.end(), "missing-key"), 3);
  EXPECT_EQ(report["totals"]["violations"], 10);
}

TEST(Collector, PlayerSequenceRunsAcrossViewsAndExposesLostBeacons) {
  Collector collector;
  collector.ingestBatch(batch({beacon("viewstart", "A", 1, 1), beacon("viewend", "A", 2, 2)}),
                        {"", 1});
  // Player beacon 3 (the second view's first) was lost.
  collector.ingestBatch(batch({beacon("play", "B", 2, 4), beacon("ended", "B", 3, 5)}), {"", 2});
  const Json report = collector.report();
  ASSERT_EQ(report["players"].size(), 1u);
  const Json& player = report["players"][0];
  EXPECT_EQ(player["views"], Json::array({"A", "B"}));
  EXPECT_EQ(player["sequence"]["missing"], Json::array({Json::array({3, 3})}));
  EXPECT_EQ(viewNamed(report, "B")["sequence"]["missing"], Json::array({Json::array({1, 1})}));
  // A view whose first beacon is missing cannot be blamed for not starting with "viewstart".
  EXPECT_EQ(report["totals"]["violationsByKind"].count("no-viewstart"), 0u);
}

TEST(Collector, RejectsMalformedBatchesWholeAndKeepsTheRest) {
  Collector collector;
  for (const char* body :
       {"", "{", "[]", "{\"events\": {}}", "{\"events\": [1]}", "{\"metadata\": {}}",
        "{\"events\": [], \"metadata\": 3}", "\xff\xfe{\"events\": []}"}) {
    const auto result = collector.ingestBatch(body, {"", 1});
    EXPECT_EQ(result.status, 400) << body;
    EXPECT_FALSE(result.error.empty()) << body;
  }
  EXPECT_EQ(collector.ingestBatch(batch({beacon("viewstart", "V", 1, 1)}), {"", 2}).status, 200);
  const Json report = collector.report();
  EXPECT_EQ(report["totals"]["rejectedBatches"], 8);
  EXPECT_EQ(report["totals"]["batches"], 1);
  EXPECT_EQ(report["views"].size(), 1u);
}

TEST(Collector, StoredBatchesRebuildTheSameReport) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("tav-collector-test-" + std::to_string(::getpid()) + ".db");
  std::filesystem::remove(path);
  Json original;
  {
    Collector collector(std::make_unique<BeaconStore>(path.string()));
    collector.ingestBatch(batch({beacon("viewstart", "V", 1, 1, {{"xwati", "0"}, {"vtt", "T"}}),
                                 beacon("hb", "V", 2, 2, {{"xwati", "10500"}})}),
                          {"127.0.0.1", 5});
    collector.ingestBatch("not json", {"127.0.0.1", 6});
    collector.ingestBatch(batch({beacon("viewend", "V", 3, 3)}), {"127.0.0.1", 7});
    original = collector.report();
  }
  Collector rebuilt;
  std::size_t batches = 0;
  BeaconStore(path.string())
      .forEachBatch([&](const BatchInfo& info, std::size_t bytes, const Json& doc) {
        ++batches;
        EXPECT_EQ(info.remote, "127.0.0.1");
        EXPECT_EQ(doc["metadata"]["transmission_timestamp"], 1);
        rebuilt.ingestDocument(doc, info, bytes);
      });
  EXPECT_EQ(batches, 2u);
  EXPECT_EQ(rebuilt.report()["views"], original["views"]);
  std::filesystem::remove(path);
  std::filesystem::remove(path.string() + "-wal");
  std::filesystem::remove(path.string() + "-shm");
}

}  // namespace
}  // namespace tav::collector
