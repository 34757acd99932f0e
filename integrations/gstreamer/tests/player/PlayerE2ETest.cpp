// Real playback: the local HLS fixture played in real time by GStreamer's
// playbin (fake sinks that keep time), the integration attached, the beacons
// posted by the library's transport to a collector on a loopback port, and the
// collector's report of the view checked against what the test saw the
// pipeline do. One player per process (each test runs in its own).

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <Collector.h>
#include <CollectorServer.h>
#include <tav/TavCore.h>
#include <tav/gstreamer/PlaybinMonitor.h>

#include "HlsFixture.h"
#include "PlaybinSession.h"
#include "support/ScopedTransportOverrides.h"

namespace tav::test {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

struct PlayResult {
  play::SessionOutcome outcome;
  Json report;
  Json view;  // the only view, or null

  [[nodiscard]] double metric(const char* name) const {
    const auto& metrics = view["metrics"];
    return metrics.contains(name) ? metrics[name].get<double>() : std::nan("");
  }
  /// A count metric; the core reports none while it is 0.
  [[nodiscard]] double count(const char* name) const { return view["metrics"].value(name, 0.0); }
  [[nodiscard]] int events(const char* type) const { return view["events"].value(type, 0); }
};

class PlayerE2E : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    gst_init(nullptr, nullptr);
    fixture = hlsFixture();
  }

  void SetUp() override {
    collector::CollectorServer::Options options;
    options.port = 0;
    server = std::make_unique<collector::CollectorServer>(collector, options);
    ASSERT_TRUE(server->start());
    overrides = std::make_unique<ScopedTransportOverrides>(
        [port = server->port()](detail::TransportOverrides& o) { o.localPort = port; });
    segments = std::make_unique<SegmentServer>(fixture);
  }

  void TearDown() override {
    overrides.reset();
    server->stop();
  }

  /// Plays the fixture through a monitored playbin, delivers the beacons and
  /// reads the collector's report.
  PlayResult play(play::SessionOptions options) {
    options.headless = true;
    options.limit = 60s;
    PlayResult result;
    play::PlaybinSession session(segments->url("master.m3u8"), options);
    EXPECT_NE(session.playbin(), nullptr);
    gstreamer::PlaybinMetadata metadata;
    metadata.customerPlayerData = TAVSDKCustomerPlayerData::initWithEnvironmentKey("local");
    metadata.customerVideoData = std::make_shared<TAVSDKCustomerVideoData>();
    metadata.customerVideoData->setVideoId("fixture-3x8s");
    metadata.customerVideoData->setVideoTitle("Test pattern");
    auto monitor = gstreamer::PlaybinMonitor::attach(session.playbin(), "e2e-player", metadata);
    EXPECT_NE(monitor, nullptr);
    result.outcome = session.run();
    monitor->detach();
    EXPECT_TRUE(TAVSDKCore::shutdown(30s)) << "every beacon delivered";
    result.report = collector.report();
    const auto& views = result.report["views"];
    EXPECT_EQ(views.size(), 1U) << result.report.dump(1);
    if (views.size() == 1) result.view = views[0];
    std::printf(
        "[ player ] played %lld ms, paused %lld ms, longest freeze %lld ms\n"
        "[ player ] metrics %s\n[ player ] violations %s\n",
        static_cast<long long>(result.outcome.playingWallMs),
        static_cast<long long>(result.outcome.pausedWallMs),
        static_cast<long long>(result.outcome.longestFreezeMs()),
        result.view["metrics"].dump().c_str(), result.report["violations"].dump().c_str());
    return result;
  }

  static inline std::string fixture;
  collector::Collector collector;
  std::unique_ptr<collector::CollectorServer> server;
  std::unique_ptr<ScopedTransportOverrides> overrides;
  std::unique_ptr<SegmentServer> segments;
};

TEST_F(PlayerE2E, CleanPlaybackIsOneCompleteView) {
  const auto r = play({});
  ASSERT_TRUE(r.outcome.ended) << r.outcome.error.value_or("not ended");
  ASSERT_FALSE(r.view.is_null());

  EXPECT_EQ(r.view["playerName"], "e2e-player");
  EXPECT_EQ(r.view["videoId"], "fixture-3x8s");
  EXPECT_EQ(r.view["firstEvent"], "viewstart");
  EXPECT_EQ(r.events("viewstart"), 1);
  EXPECT_EQ(r.events("play"), 1);
  EXPECT_EQ(r.events("playing"), 1);
  EXPECT_EQ(r.events("ended"), 1);
  EXPECT_EQ(r.events("viewend"), 1);
  EXPECT_EQ(r.events("pause"), 0);
  EXPECT_EQ(r.events("error"), 0);
  EXPECT_TRUE(r.view["sequence"]["missing"].empty()) << r.view["sequence"].dump();
  EXPECT_TRUE(r.report["violations"].empty()) << r.report["violations"].dump();

  EXPECT_GT(r.metric("timeToFirstFrameMs"), 0);
  const auto played = static_cast<double>(r.outcome.playingWallMs);
  EXPECT_NEAR(r.metric("watchTimeMs"), played, played * 0.10)
      << "watch time follows the wall-clock time from the play request to the end";
  EXPECT_EQ(r.count("rebufferCount"), 0);

  // One request per segment downloaded and one for the master playlist.
  EXPECT_GE(r.events("requestcompleted"), 5);
  EXPECT_GT(r.metric("minRequestThroughputBps"), 0);
  EXPECT_GE(r.metric("averageRequestThroughputBps"), r.metric("minRequestThroughputBps"));
  EXPECT_GE(r.metric("maxRequestLatencyMs"), 0);
  EXPECT_GE(r.metric("averageRequestLatencyMs"), 0);

  // The rendition last shown, with the bitrate its variant advertises.
  const auto& state = r.view["state"];
  ASSERT_TRUE(state.contains("vsowd") && state.contains("vsoht") && state.contains("vsobi"))
      << state.dump();
  const auto renditions = fixtureRenditions(fixture);
  const auto shown = std::find_if(renditions.begin(), renditions.end(), [&](const auto& rr) {
    return std::to_string(rr.width) == state["vsowd"].get<std::string>() &&
           std::to_string(rr.height) == state["vsoht"].get<std::string>();
  });
  ASSERT_NE(shown, renditions.end()) << state.dump();
  EXPECT_EQ(state["vsobi"], Json(shown->bandwidth));
  EXPECT_EQ(state.value("pswnm", ""), "GStreamer");
  EXPECT_EQ(state.value("ptvpinm", ""), gstreamer::kPluginName);
  EXPECT_EQ(state.value("ake", ""), "local");
}

TEST_F(PlayerE2E, DelayedSegmentIsMeasuredAsRebuffering) {
  // The demuxer fetches ahead: the third segment, late by 6 s, is needed before
  // it arrives (a late second one would only delay the start).
  segments->delay(R"(/seg2\.ts$)", 6s);
  const auto r = play({});
  ASSERT_TRUE(r.outcome.ended) << r.outcome.error.value_or("not ended");
  const auto freeze = static_cast<double>(r.outcome.longestFreezeMs());
  ASSERT_GE(freeze, 1500) << "the delay froze the playhead";

  EXPECT_GE(r.metric("rebufferCount"), 1);
  EXPECT_NEAR(r.metric("rebufferDurationMs"), freeze, freeze * 0.30);
  EXPECT_EQ(r.events("pause"), 0) << "waiting for data is no pause";
  EXPECT_EQ(r.events("rebufferstart"), r.events("rebufferend"));
}

TEST_F(PlayerE2E, SeekIsCountedWithItsLatency) {
  play::SessionOptions options;
  options.seekAtMs = 2000;
  options.seekToMs = 6000;
  const auto r = play(options);
  ASSERT_TRUE(r.outcome.seeked);
  ASSERT_TRUE(r.outcome.ended) << r.outcome.error.value_or("not ended");

  EXPECT_EQ(r.metric("seekCount"), 1);
  EXPECT_GT(r.metric("maxSeekLatencyMs"), 0);
  EXPECT_EQ(r.events("seeking"), 1) << "one seek, one \"seeking\"";
  EXPECT_EQ(r.events("seeked"), 1);
  EXPECT_EQ(r.events("pause"), 0) << "the seek's flush is no pause";
  // The content skipped by the seek is not played time.
  EXPECT_LT(r.metric("contentPlaybackTimeMs"), 6000);
}

TEST_F(PlayerE2E, SegmentFailingEveryRetryEndsInAnError) {
  segments->fail(R"(/seg1\.ts$)", 404);
  const auto r = play({});
  ASSERT_TRUE(r.outcome.error) << "the pipeline gives up";
  ASSERT_FALSE(r.view.is_null());

  EXPECT_EQ(r.events("error"), 1);
  EXPECT_EQ(r.view["errorCode"], "resource:3") << "GST_RESOURCE_ERROR_NOT_FOUND";
  EXPECT_EQ(r.view["errorMessage"], "Not Found");
  // Every 404 the server sent is one failed request (but the last, which the
  // pipeline may tear down before it reports it).
  const int refused = segments->answered(R"(/seg1\.ts$)", 404);
  EXPECT_GE(refused, 2) << "the demuxer retries";
  EXPECT_LE(r.events("requestfailed"), refused);
  EXPECT_GE(r.events("requestfailed"), refused - 1);
  EXPECT_EQ(r.view["state"].value("qercd", ""), "404");
}

TEST_F(PlayerE2E, PauseIsExcludedFromWatchTime) {
  play::SessionOptions options;
  options.pauseAtMs = 2000;
  options.pauseFor = 2500ms;
  const auto r = play(options);
  ASSERT_TRUE(r.outcome.ended) << r.outcome.error.value_or("not ended");
  ASSERT_GE(r.outcome.pausedWallMs, 2500);

  EXPECT_EQ(r.events("pause"), 1);
  EXPECT_EQ(r.events("play"), 2);
  EXPECT_EQ(r.events("viewstart"), 1);
  const auto played = static_cast<double>(r.outcome.playingWallMs);
  EXPECT_NEAR(r.metric("watchTimeMs"), played, played * 0.10);
  EXPECT_LT(r.metric("watchTimeMs"), played + static_cast<double>(r.outcome.pausedWallMs) / 2.0)
      << "the pause is not watched";
  EXPECT_EQ(r.count("rebufferCount"), 0) << "a pause is no stall";
}

}  // namespace
}  // namespace tav::test
