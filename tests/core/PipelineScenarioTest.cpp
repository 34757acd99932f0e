// Whole views through the facade, with a virtual clock and a capturing global
// client handler: beacon sequence, numbering, time metrics, heartbeats,
// sessions, several players and failure isolation.

#include <stdexcept>

#include "support/PipelineFixture.h"

namespace tav::test {
namespace {

class PlaybackViewTest : public PipelineTest {};

TEST_F(PlaybackViewTest, WholeViewGivesBeaconsNumbersAndTimeMetrics) {
  send<TAVSDKViewInitEvent>("p1", 0);
  advance(100);
  const std::int64_t play1 = clock->now();
  send<TAVSDKPlayEvent>("p1", 0);
  advance(400);
  send<TAVSDKPlayingEvent>("p1", 0);
  std::int64_t playhead = 0;
  for (int i = 0; i < 8; ++i) {
    advance(250);
    playhead += 250;
    send<TAVSDKTimeUpdateEvent>("p1", playhead);
  }
  advance(250);
  const std::int64_t pause = clock->now();
  const std::int64_t playheadAtPause = playhead;
  send<TAVSDKPauseEvent>("p1", playhead, true);
  advance(5000);
  const std::int64_t play2 = clock->now();
  send<TAVSDKPlayEvent>("p1", playhead);
  for (int i = 0; i < 4; ++i) {
    advance(250);
    playhead += 250;
    send<TAVSDKTimeUpdateEvent>("p1", playhead);
  }
  advance(250);
  const std::int64_t ended = clock->now();
  send<TAVSDKEndedEvent>("p1", playhead);
  send<TAVSDKViewEndEvent>("p1", playhead);

  const auto& b = captured->beacons;
  ASSERT_EQ(captured->types(), (std::vector<std::string>{"viewstart", "play", "playing", "pause",
                                                         "play", "ended", "viewend"}));
  const std::string viewId = b[0].query.at(VIEW_ID);
  EXPECT_EQ(viewId.size(), 36U);
  for (std::size_t i = 0; i < b.size(); ++i) {
    SCOPED_TRACE(b[i].type);
    EXPECT_EQ(b[i].query.at(PLAYER_SEQUENCE_NUMBER), text(static_cast<std::int64_t>(i) + 1));
    EXPECT_EQ(b[i].query.at(VIEW_SEQUENCE_NUMBER), text(static_cast<std::int64_t>(i) + 1));
    EXPECT_EQ(b[i].query.at(VIEW_ID), viewId);
    EXPECT_EQ(b[i].query.at(TAV_API_VERSION), "2.1");
  }
  // The viewstart of the first play carries the time of that play and no watch time yet.
  EXPECT_EQ(b[0].query.at(VIEWER_TIME), text(play1));
  EXPECT_EQ(b[0].query.at(VIEW_WATCH_TIME), "0");
  // Watch time counts the two playing stretches on the event clock.
  EXPECT_EQ(b[3].query.at(VIEW_WATCH_TIME), text(pause - play1));
  EXPECT_EQ(b[5].query.at(VIEW_WATCH_TIME), text((pause - play1) + (ended - play2)));
  // Playback time counts the playhead progress between heartbeats, not the pause.
  EXPECT_EQ(b[3].query.at(VIEW_PLAYING_TIME), text(playheadAtPause));
  EXPECT_EQ(b[5].query.at(VIEW_PLAYING_TIME), text(playhead));
  EXPECT_EQ(b[5].query.at(VIEW_MAX_PLAYHEAD_POSITION), text(playhead));
}

TEST_F(PlaybackViewTest, HeartbeatOnlyAfterMoreThanTenSecondsWithoutBeacons) {
  send<TAVSDKViewInitEvent>("p1", 0);
  send<TAVSDKPlayEvent>("p1", 0);
  send<TAVSDKPlayingEvent>("p1", 0);
  // One timeupdate per second; the last beacon ("playing") was at t = 0.
  for (int s = 1; s <= 10; ++s) {
    advance(1000);
    send<TAVSDKTimeUpdateEvent>("p1", s * 1000);
  }
  EXPECT_EQ(captured->types().back(), "playing") << "exactly 10 s must not send hb";
  advance(500);
  send<TAVSDKTimeUpdateEvent>("p1", 10500);
  ASSERT_EQ(captured->types().back(), "hb");
  const auto hbCount = [&] {
    const auto t = captured->types();
    return std::count(t.begin(), t.end(), "hb");
  };
  // Beacons every 4 s keep the heartbeat away.
  for (int i = 0; i < 6; ++i) {
    advance(4000);
    send<TAVSDKPauseEvent>("p1", 10500, true);
    send<TAVSDKPlayEvent>("p1", 10500);
  }
  EXPECT_EQ(hbCount(), 1);
  // Paused: no heartbeat however long the silence.
  send<TAVSDKPauseEvent>("p1", 10500, true);
  advance(60000);
  send<TAVSDKTimeUpdateEvent>("p1", 10500);
  EXPECT_EQ(hbCount(), 1);
}

TEST_F(PlaybackViewTest, PlayersNumberIndependentlyAndShareGlobalRecords) {
  auto global = std::make_shared<TAVSDKDataEvent>();
  auto viewer = std::make_shared<TAVSDKViewerData>();
  viewer->setViewerApplicationName("demo-app");
  global->setViewerData(viewer);
  TAVSDKCore::dispatchGlobalDataEvent(global);

  for (const char* p : {"a", "b"})
    send<TAVSDKViewInitEvent>(p, 0);
  send<TAVSDKPlayEvent>("a", 0);
  send<TAVSDKPauseEvent>("a", 0, true);
  send<TAVSDKPlayEvent>("b", 0);

  const auto a = TAVSDKCore::playerNamed("a");
  const auto b = TAVSDKCore::playerNamed("b");
  ASSERT_TRUE(a && b);
  const std::string idA = *a->playerData()->playerInstanceId();
  const std::string idB = *b->playerData()->playerInstanceId();
  EXPECT_NE(idA, idB);
  EXPECT_EQ(captured->types(idA), (std::vector<std::string>{"viewstart", "play", "pause"}));
  EXPECT_EQ(captured->types(idB), (std::vector<std::string>{"viewstart", "play"}));
  const auto& beacons = captured->beacons;
  const auto& lastOfB = beacons.back().query;
  EXPECT_EQ(lastOfB.at(PLAYER_SEQUENCE_NUMBER), "2");
  EXPECT_NE(lastOfB.at(VIEW_ID), beacons.front().query.at(VIEW_ID));
  for (const auto& beacon : beacons) {
    EXPECT_EQ(beacon.query.at(VIEWER_APPLICATION_NAME), "demo-app");
    EXPECT_EQ(beacon.query.at(SESSION_ID), beacons.front().query.at(SESSION_ID));
  }
}

TEST_F(PlaybackViewTest, SessionSlidesAndRenewsAfterTwentyFiveMinutesOfSilence) {
  send<TAVSDKViewInitEvent>("p1", 0);
  send<TAVSDKPlayEvent>("p1", 0);
  const std::string first = captured->beacons.back().query.at(SESSION_ID);
  advance(TAVSDKSession::kSessionLengthMs);
  send<TAVSDKPauseEvent>("p1", 0, true);
  EXPECT_EQ(captured->beacons.back().query.at(SESSION_ID), first);
  EXPECT_EQ(captured->beacons.back().query.at(SESSION_START), text(kStart));
  advance(TAVSDKSession::kSessionLengthMs + 1);
  send<TAVSDKPlayEvent>("p1", 0);
  const auto& q = captured->beacons.back().query;
  EXPECT_NE(q.at(SESSION_ID), first);
  EXPECT_EQ(q.at(SESSION_START), text(clock->now()));
  EXPECT_EQ(q.at(SESSION_EXPIRES), text(clock->now() + TAVSDKSession::kSessionLengthMs));
}

class ThrowingHandler : public TAVSDKEventHandling {
 public:
  void handle(const std::shared_ptr<TAVSDKBaseEvent>& /*event*/) override {
    ++calls;
    throw TAVSDKFailure("boom");
  }
  int calls = 0;
};

TEST_F(PlaybackViewTest, FailingHandlerDisablesOnlyItsPlayer) {
  std::vector<std::string> logged;
  TAVSDKLog::setHandler([&](std::string_view m) { logged.emplace_back(m); });
  TAVSDKCore::setSentryEnabled(false);
  send<TAVSDKViewInitEvent>("bad", 0);
  send<TAVSDKViewInitEvent>("good", 0);
  auto thrower = std::make_shared<ThrowingHandler>();
  TAVSDKCore::playerNamed("bad")->addHandler(thrower);

  EXPECT_NO_THROW(send<TAVSDKPlayEvent>("bad", 0));
  EXPECT_TRUE(TAVSDKCore::playerNamed("bad")->isDestroyed());
  EXPECT_EQ(thrower->calls, 1) << "the beacons after the failure must be dropped";
  // Later events of the disabled player, a new view included, produce nothing.
  const auto before = captured->beacons.size();
  send<TAVSDKViewInitEvent>("bad", 0);
  send<TAVSDKPlayEvent>("bad", 0);
  EXPECT_EQ(captured->beacons.size(), before);
  EXPECT_EQ(thrower->calls, 1);

  send<TAVSDKPlayEvent>("good", 0);
  EXPECT_FALSE(TAVSDKCore::playerNamed("good")->isDestroyed());
  EXPECT_EQ(captured->beacons.back().type, "play");
  TAVSDKLog::setHandler(nullptr);
}

}  // namespace
}  // namespace tav::test
