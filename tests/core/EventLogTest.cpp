// Recording facade calls and replaying them: a replayed session produces the
// same beacons as the original, apart from the random identifiers.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "support/PipelineFixture.h"

namespace tav::test {
namespace {

class MemoryRecorder : public TAVSDKCallRecorder {
 public:
  void record(const Json& call) override { calls.push_back(call); }
  std::vector<Json> calls;
};

/// A beacon without the keys that are random per run.
Json withoutIdentifiers(Json beacon) {
  for (const char* key : {VIEW_ID, PLAYER_INSTANCE_ID, SESSION_ID})
    beacon.erase(key);
  return beacon;
}

class EventLog : public PipelineTest {
 protected:
  /// A short view with every kind of event an integration sends.
  void playView() {
    auto global = std::make_shared<TAVSDKDataEvent>();
    auto viewer = std::make_shared<TAVSDKViewerData>();
    viewer->setViewerOsFamily("Linux");
    global->setViewerData(viewer);
    TAVSDKCore::dispatchGlobalDataEvent(global);
    TAVSDKCore::setBeaconDomainForPlayer("example.test", "p");
    send<TAVSDKViewInitEvent>("p", 0, true);
    auto metadata = std::make_shared<TAVSDKDataEvent>();
    metadata->setCustomerPlayerData(TAVSDKCustomerPlayerData::initWithEnvironmentKey("abc"));
    auto source = std::make_shared<TAVSDKVideoData>();
    source->setVideoSourceWidth(1280);
    source->setVideoSourceHeight(720);
    source->setVideoSourceAdvertisedBitrate(Json(2500000));
    metadata->setVideoData(source);
    metadata->setVideoChange(true);
    TAVSDKCore::dispatchEventForPlayer(metadata, "p");
    auto session = std::make_shared<TAVSDKSessionDataEvent>();
    session->setSessionData({{"video_title", "Recorded"}, {"custom_1", "c"}});
    TAVSDKCore::dispatchEventForPlayer(session, "p");
    send<TAVSDKPlayEvent>("p", 0);
    advance(900);
    send<TAVSDKPlayingEvent>("p", 0);
    for (std::int64_t playhead = 250; playhead <= 12000; playhead += 250) {
      advance(250);
      send<TAVSDKTimeUpdateEvent>("p", playhead);
    }
    auto request = std::make_shared<TAVSDKRequestBandwidthEvent>(
        TAVSDKPlaybackEventRequestBandwidthEventCompleteType);
    auto bandwidth = std::make_shared<TAVSDKBandwidthMetricData>();
    bandwidth->setRequestStart(clock->now() - 300);
    bandwidth->setRequestResponseStart(clock->now() - 250);
    bandwidth->setRequestResponseEnd(clock->now());
    bandwidth->setRequestBytesLoaded(400000);
    bandwidth->setRequestRenditionLists(std::vector<Rendition>{Rendition(640, 360, 800000)});
    request->setBandwidthMetricData(bandwidth);
    TAVSDKCore::dispatchEventForPlayer(request, "p");
    send<TAVSDKRenditionChangeEvent>("p", 12000);
    send<TAVSDKEndedEvent>("p", 12000, true);
    TAVSDKCore::destroyPlayer("p");
  }
};

TEST_F(EventLog, AReplayedRecordingGivesTheSameBeacons) {
  auto recorder = std::make_shared<MemoryRecorder>();
  TAVSDKCore::setCallRecorder(recorder);
  playView();
  TAVSDKCore::setCallRecorder(nullptr);
  const auto original = captured->beacons;
  ASSERT_GE(original.size(), 6u);  // viewstart, play, playing, hb, request, rendition, ended
  ASSERT_EQ(recorder->calls.front()["call"], "dispatchGlobalDataEvent");
  EXPECT_EQ(recorder->calls.back()["call"], "destroyPlayer");
  EXPECT_EQ(recorder->calls.front()["t"], kStart);

  // A fresh process state and a clock that follows the recording.
  detail::resetCoreStateForTesting();
  captured = std::make_shared<CapturingHandler>();
  TAVSDKCore::setClientHandler(captured);
  for (const auto& call : recorder->calls) {
    // Through text, as a log file carries it.
    const Json line = Json::parse(call.dump());
    clock->set(line["t"].get<std::int64_t>());
    EXPECT_TRUE(TAVSDKEventLog::replayCall(line)) << line.dump();
  }
  ASSERT_EQ(captured->beacons.size(), original.size());
  for (std::size_t i = 0; i < original.size(); ++i) {
    EXPECT_EQ(captured->beacons[i].type, original[i].type);
    EXPECT_EQ(withoutIdentifiers(captured->beacons[i].query), withoutIdentifiers(original[i].query))
        << "beacon " << i << " (" << original[i].type << ")";
  }
}

TEST_F(EventLog, MalformedCallsAndEventsAreRefusedWithoutEffect) {
  EXPECT_FALSE(TAVSDKEventLog::replayCall(Json::array()));
  EXPECT_FALSE(TAVSDKEventLog::replayCall({{"call", "format"}, {"player", "p"}}));
  EXPECT_FALSE(TAVSDKEventLog::replayCall({{"call", "destroyPlayer"}, {"player", 3}}));
  // Names of the wrong type (found by fuzzing: they used to throw out of the replayer).
  EXPECT_FALSE(TAVSDKEventLog::replayCall({{"call", nullptr}, {"player", "p"}}));
  EXPECT_FALSE(TAVSDKEventLog::replayCall({{"call", 7}, {"player", "p"}}));
  EXPECT_FALSE(TAVSDKEventLog::replayCall(
      {{"call", "dispatchEventForPlayer"}, {"player", "p"}, {"event", {{"kind", 1}}}}));
  EXPECT_EQ(TAVSDKEventLog::decodeEvent({{"kind", Json::array()}, {"type", "pause"}}), nullptr);
  EXPECT_FALSE(TAVSDKEventLog::replayCall(
      {{"call", "dispatchEventForPlayer"}, {"player", "p"}, {"event", {{"kind", "playback"}}}}));
  EXPECT_FALSE(TAVSDKEventLog::replayCall({{"call", "dispatchEventForPlayer"},
                                           {"player", "p"},
                                           {"event", {{"kind", "playback"}, {"type", "hb2"}}}}));
  // A data event is not a playback event: the global call takes data events only.
  EXPECT_FALSE(TAVSDKEventLog::replayCall(
      {{"call", "dispatchGlobalDataEvent"}, {"event", {{"kind", "sessiondata"}}}}));
  EXPECT_EQ(TAVSDKCore::playerNamed("p"), nullptr);
  // Records that are not objects are left unset.
  const auto event = TAVSDKEventLog::decodeEvent(
      {{"kind", "playback"}, {"type", "pause"}, {"playerData", "pphti=3"}});
  ASSERT_NE(event, nullptr);
  EXPECT_EQ(event->getType(), "pause");
  EXPECT_EQ(std::static_pointer_cast<TAVSDKPlaybackEvent>(event)->playerData(), nullptr);
}

TEST_F(EventLog, TheJsonLinesRecorderAppendsOneParsableLinePerCall) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("tav-event-log-" + std::to_string(::getpid()) + ".jsonl");
  std::filesystem::remove(path);
  auto memory = std::make_shared<MemoryRecorder>();
  {
    // Both see every call: the file must hold exactly what the memory holds.
    struct Tee : TAVSDKCallRecorder {
      std::vector<std::shared_ptr<TAVSDKCallRecorder>> to;
      void record(const Json& call) override {
        for (const auto& r : to)
          r->record(call);
      }
    };
    auto file = std::make_shared<TAVSDKJsonLinesRecorder>(path.string());
    ASSERT_TRUE(file->isOpen());
    auto tee = std::make_shared<Tee>();
    tee->to = {file, memory};
    TAVSDKCore::setCallRecorder(tee);
    playView();
    TAVSDKCore::setCallRecorder(nullptr);
  }
  std::ifstream in(path);
  std::string line;
  std::size_t lines = 0;
  while (std::getline(in, line)) {
    ASSERT_LT(lines, memory->calls.size());
    EXPECT_EQ(Json::parse(line), memory->calls[lines]) << line;
    ++lines;
  }
  EXPECT_EQ(lines, memory->calls.size());
  std::filesystem::remove(path);
  EXPECT_FALSE(TAVSDKJsonLinesRecorder("/nonexistent-dir/log.jsonl").isOpen());
}

}  // namespace
}  // namespace tav::test
