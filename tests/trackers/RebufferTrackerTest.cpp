// Rebuffering detected from the playhead: whole views through the facade with
// the virtual clock (stalls, hidden stalls, seeks, ad breaks, non-finite
// ratios), and the tracker alone on a recording bus for what the events it
// dispatches carry.

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "support/PipelineFixture.h"

namespace tav::test {
namespace {

constexpr std::int64_t kTick = 250;  // the integration's "timeupdate" pace

class RebufferViewTest : public PipelineTest {
 protected:
  /// "viewinit", then "play" and "playing" at the current time; returns the
  /// time of the "play" (from which watch time counts).
  std::int64_t startPlaying() {
    send<TAVSDKViewInitEvent>("p1", 0);
    advance(100);
    const std::int64_t play = clock->now();
    send<TAVSDKPlayEvent>("p1", playhead);
    advance(100);
    send<TAVSDKPlayingEvent>("p1", playhead);
    return play;
  }
  /// One "timeupdate" kTick later, the playhead having moved by `progress`.
  void tick(std::int64_t progress) {
    advance(kTick);
    playhead += progress;
    send<TAVSDKTimeUpdateEvent>("p1", playhead);
  }
  [[nodiscard]] const CapturedBeacon* first(const std::string& type) const {
    for (const auto& b : captured->beacons) {
      if (b.type == type) return &b;
    }
    return nullptr;
  }

  std::int64_t playhead = 0;
};

TEST_F(RebufferViewTest, StallOpensAtOneSecondAndClosesWhenThePlayheadMoves) {
  const std::int64_t play = startPlaying();
  for (int i = 0; i < 4; ++i)
    tick(kTick);
  const std::int64_t lastMove = clock->now();
  // Stalled for 250, 500 and 750 ms: not yet a rebuffering.
  for (int i = 0; i < 3; ++i)
    tick(0);
  EXPECT_EQ(count("rebufferstart"), 0);
  tick(0);
  const std::int64_t start = clock->now();
  ASSERT_EQ(count("rebufferstart"), 1);
  tick(0);
  tick(0);
  EXPECT_EQ(count("rebufferend"), 0) << "still stalled";
  tick(kTick);
  const std::int64_t end = clock->now();
  ASSERT_EQ(count("rebufferend"), 1);
  for (int i = 0; i < 4; ++i)
    tick(kTick);
  advance(kTick);
  const std::int64_t pause = clock->now();
  send<TAVSDKPauseEvent>("p1", playhead + kTick, true);

  EXPECT_EQ(captured->types(), (std::vector<std::string>{"viewstart", "play", "playing",
                                                         "rebufferstart", "rebufferend", "pause"}));
  // At the start the whole second since the playhead last moved counts.
  const Json& s = first("rebufferstart")->query;
  const auto watchAtStart = static_cast<double>(start - play);
  EXPECT_EQ(s.at(VIEW_REBUFFER_COUNT), "1");
  EXPECT_EQ(s.at(VIEW_REBUFFER_DURATION), text(start - lastMove));
  EXPECT_EQ(s.at(VIEW_WATCH_TIME), text(start - play));
  EXPECT_DOUBLE_EQ(number(s, VIEW_REBUFFER_FREQUENCY), 1.0 / watchAtStart);
  EXPECT_DOUBLE_EQ(number(s, VIEW_REBUFFER_PERCENTAGE), 1000.0 / watchAtStart);
  EXPECT_EQ(s.at(VIEWER_TIME), text(start));
  // Each later check adds the time since the previous one, up to the move.
  const std::int64_t duration = (start - lastMove) + (end - start);
  const Json& e = first("rebufferend")->query;
  const auto watchAtEnd = static_cast<double>(end - play);
  EXPECT_EQ(e.at(VIEW_REBUFFER_COUNT), "1");
  EXPECT_EQ(e.at(VIEW_REBUFFER_DURATION), text(duration));
  EXPECT_DOUBLE_EQ(number(e, VIEW_REBUFFER_FREQUENCY), 1.0 / watchAtEnd);
  EXPECT_DOUBLE_EQ(number(e, VIEW_REBUFFER_PERCENTAGE), static_cast<double>(duration) / watchAtEnd);
  // Ratios follow the growing watch time; the duration no longer grows.
  const Json& p = first("pause")->query;
  const auto watchAtPause = static_cast<double>(pause - play);
  EXPECT_EQ(p.at(VIEW_WATCH_TIME), text(pause - play));
  EXPECT_EQ(p.at(VIEW_REBUFFER_DURATION), text(duration));
  EXPECT_DOUBLE_EQ(number(p, VIEW_REBUFFER_FREQUENCY), 1.0 / watchAtPause);
  EXPECT_DOUBLE_EQ(number(p, VIEW_REBUFFER_PERCENTAGE),
                   static_cast<double>(duration) / watchAtPause);
}

TEST_F(RebufferViewTest, SmoothPlaybackAndPausedStandstillReportNoRebufferMetrics) {
  startPlaying();
  for (int i = 0; i < 12; ++i)
    tick(kTick);
  send<TAVSDKPauseEvent>("p1", playhead, true);
  // Paused: the playhead should not progress, however long it stands still.
  for (int i = 0; i < 12; ++i)
    tick(0);
  send<TAVSDKPlayEvent>("p1", playhead);
  EXPECT_EQ(count("rebufferstart"), 0);
  for (const auto& b : captured->beacons) {
    SCOPED_TRACE(b.type);
    EXPECT_FALSE(b.query.contains(VIEW_REBUFFER_COUNT)) << "no metric while nothing happened";
    EXPECT_FALSE(b.query.contains(VIEW_REBUFFER_DURATION));
  }
}

TEST_F(RebufferViewTest, HiddenStallBetweenHeartbeatsIsReportedAfterTheFact) {
  const std::int64_t play = startPlaying();
  tick(kTick);
  // 1000 ms pass while the playhead moves 900 ms: 100 ms is not a stall.
  advance(1000);
  playhead += 900;
  send<TAVSDKTimeUpdateEvent>("p1", playhead);
  EXPECT_EQ(count("rebufferstart"), 0);
  // 1000 ms pass while the playhead moves 800 ms: 200 ms went unseen.
  advance(1000);
  playhead += 800;
  const std::int64_t seen = clock->now();
  send<TAVSDKTimeUpdateEvent>("p1", playhead);
  const std::int64_t hidden = 1000 - 800;

  ASSERT_EQ(captured->types(), (std::vector<std::string>{"viewstart", "play", "playing",
                                                         "rebufferstart", "rebufferend"}));
  const Json& s = first("rebufferstart")->query;
  const Json& e = first("rebufferend")->query;
  const auto watch = static_cast<double>(seen - play);
  for (const Json* q : {&s, &e}) {
    EXPECT_EQ(q->at(VIEW_REBUFFER_COUNT), "1");
    EXPECT_EQ(q->at(VIEW_REBUFFER_DURATION), text(hidden));
    EXPECT_DOUBLE_EQ(number(*q, VIEW_REBUFFER_FREQUENCY), 1.0 / watch);
    EXPECT_DOUBLE_EQ(number(*q, VIEW_REBUFFER_PERCENTAGE), static_cast<double>(hidden) / watch);
    EXPECT_EQ(q->at(PLAYER_PLAYHEAD_TIME), text(playhead));
  }
  // The back-dated record is merged into the view on dispatch; the view's
  // viewer-time stamp of the "rebufferstart" itself then wins in its beacon.
  EXPECT_EQ(s.at(VIEWER_TIME), text(seen));
  EXPECT_EQ(e.at(VIEWER_TIME), text(seen));
  // The stale number in the copied record does not leak into the numbering.
  EXPECT_EQ(s.at(VIEW_SEQUENCE_NUMBER), "4");
  EXPECT_EQ(e.at(VIEW_SEQUENCE_NUMBER), "5");
}

TEST_F(RebufferViewTest, SeekEndsARebufferingAndSuspendsDetectionUntilReanchored) {
  const std::int64_t play = startPlaying();
  for (int i = 0; i < 4; ++i)
    tick(kTick);
  for (int i = 0; i < 5; ++i)
    tick(0);  // rebuffering since the fourth of these
  ASSERT_EQ(count("rebufferstart"), 1);
  const std::int64_t lastCheck = clock->now();
  advance(100);
  const std::int64_t seek = clock->now();
  send<TAVSDKInternalSeekingEvent>("p1", playhead);
  ASSERT_EQ(count("rebufferend"), 1);
  const Json& e = first("rebufferend")->query;
  const std::int64_t firstDuration = 1000 + kTick + (seek - lastCheck);
  EXPECT_EQ(e.at(VIEW_REBUFFER_DURATION), text(firstDuration));
  // Watch time moves only at heartbeats: the seek reads the last one's.
  EXPECT_EQ(e.at(VIEW_WATCH_TIME), text(lastCheck - play));
  EXPECT_DOUBLE_EQ(number(e, VIEW_REBUFFER_FREQUENCY), 1.0 / static_cast<double>(lastCheck - play));

  // Heartbeats keep coming while seeking; the playhead stands still for 2 s.
  for (int i = 0; i < 8; ++i)
    tick(0);
  EXPECT_EQ(count("rebufferstart"), 1) << "no detection while seeking";
  playhead = 60'000;
  send<TAVSDKSeekedEvent>("p1", playhead);
  // The first heartbeat after the seek only anchors: a stall needs 1000 ms from it.
  tick(0);
  const std::int64_t anchor = clock->now();
  for (int i = 0; i < 3; ++i)
    tick(0);
  EXPECT_EQ(count("rebufferstart"), 1);
  tick(0);
  ASSERT_EQ(count("rebufferstart"), 2);
  const Json& second = captured->beacons.back().query;
  EXPECT_EQ(captured->beacons.back().type, "rebufferstart");
  EXPECT_EQ(second.at(VIEW_REBUFFER_COUNT), "2");
  EXPECT_EQ(second.at(VIEW_REBUFFER_DURATION), text(firstDuration + (clock->now() - anchor)));
  EXPECT_DOUBLE_EQ(number(second, VIEW_REBUFFER_FREQUENCY),
                   2.0 / static_cast<double>(clock->now() - play));
}

TEST_F(RebufferViewTest, AdBreakDoesNotSuppressDetection) {
  startPlaying();
  for (int i = 0; i < 4; ++i)
    tick(kTick);
  const std::int64_t lastMove = clock->now();
  send<TAVSDKAdBreakStartEvent>("p1", playhead);
  for (int i = 0; i < 4; ++i)
    tick(0);
  const auto types = captured->types();
  const auto ad = std::find(types.begin(), types.end(), "adbreakstart");
  ASSERT_NE(ad, types.end());
  ASSERT_NE(std::find(ad, types.end(), "rebufferstart"), types.end())
      << "a stall inside an ad break is still a rebuffering";
  const Json& s = first("rebufferstart")->query;
  EXPECT_EQ(s.at(VIEW_REBUFFER_DURATION), text(clock->now() - lastMove));
}

TEST_F(RebufferViewTest, ZeroWatchTimeGivesInfiniteRatiosReportedAsTheyAre) {
  // "play", "playing" and a first heartbeat all at the same instant: the
  // watch time stays 0 when a hidden stall is found on the seek 1 s later.
  send<TAVSDKViewInitEvent>("p1", 0);
  send<TAVSDKPlayEvent>("p1", 0);
  send<TAVSDKPlayingEvent>("p1", 0);
  send<TAVSDKTimeUpdateEvent>("p1", 0);
  advance(1000);
  send<TAVSDKInternalSeekingEvent>("p1", 500);
  ASSERT_EQ(captured->types(), (std::vector<std::string>{"viewstart", "play", "playing", "seeking",
                                                         "rebufferstart", "rebufferend"}));
  const Json& s = first("rebufferstart")->query;
  EXPECT_EQ(s.at(VIEW_WATCH_TIME), "0");
  EXPECT_EQ(s.at(VIEW_REBUFFER_DURATION), text(1000 - 500));
  const double frequency = number(s, VIEW_REBUFFER_FREQUENCY);
  const double percentage = number(s, VIEW_REBUFFER_PERCENTAGE);
  EXPECT_TRUE(std::isinf(frequency) && frequency > 0) << s.at(VIEW_REBUFFER_FREQUENCY);
  EXPECT_TRUE(std::isinf(percentage) && percentage > 0) << s.at(VIEW_REBUFFER_PERCENTAGE);
}

// The tracker alone: what the events it dispatches carry at the moment of dispatch.
class RecordingBus : public TAVSDKEventBus {
 public:
  struct Dispatched {
    std::string type;
    Json view;  // snapshot of the event's view record when dispatched
    bool hasPlayer = false;
  };
  void dispatch(const TAVSDKEventPtr& event) override {
    Dispatched d{event->getType(), Json::object(), false};
    if (const auto* p = dynamic_cast<const TAVSDKPlaybackEvent*>(event.get())) {
      if (p->viewData()) d.view = p->viewData()->toQuery();
      d.hasPlayer = p->playerData() != nullptr;
    } else if (const auto* m = dynamic_cast<const TAVSDKViewMetricEvent*>(event.get())) {
      if (m->viewData()) d.view = m->viewData()->toQuery();
    }
    events.push_back(std::move(d));
  }
  std::vector<Dispatched> events;
};

template <class E>
std::shared_ptr<E> event(std::int64_t viewerTime, std::int64_t watchTime, std::int64_t playhead) {
  auto e = std::make_shared<E>();
  auto view = std::make_shared<TAVSDKViewData>();
  view->setViewerTime(viewerTime);
  view->setViewWatchTime(watchTime);
  view->setViewId("V");
  auto player = std::make_shared<TAVSDKPlayerData>();
  player->setPlayerPlayheadTime(playhead);
  e->setViewData(view);
  e->setPlayerData(player);
  return e;
}

TEST(RebufferTrackerUnit, HiddenStallDispatchesABackDatedStartAndACurrentEnd) {
  RecordingBus bus;
  TAVSDKRebufferTracker tracker(&bus);
  constexpr std::int64_t t0 = 5'000'000;
  tracker.handle(event<TAVSDKPlayingEvent>(t0, 0, 0));
  tracker.handle(event<TAVSDKInternalHeartbeatEvent>(t0, 0, 0));
  EXPECT_TRUE(bus.events.empty()) << "anchoring reports nothing";
  tracker.handle(event<TAVSDKInternalHeartbeatEvent>(t0 + 1000, 1000, 800));

  ASSERT_EQ(bus.events.size(), 3U);
  // The metrics go first (their values are checked on the view's beacons).
  EXPECT_EQ(bus.events[0].type, TAVSDKViewMetricEventType);
  EXPECT_EQ(bus.events[0].view.at(VIEW_REBUFFER_DURATION), "200");
  const auto& start = bus.events[1];
  const auto& end = bus.events[2];
  EXPECT_EQ(start.type, "rebufferstart");
  EXPECT_EQ(start.view.at(VIEWER_TIME), text(t0 + 1000 - 200));
  EXPECT_EQ(end.type, "rebufferend");
  EXPECT_EQ(end.view.at(VIEWER_TIME), text(t0 + 1000));
  for (const auto* d : {&start, &end}) {
    EXPECT_TRUE(d->hasPlayer);
    EXPECT_EQ(d->view.at(VIEW_ID), "V") << "a copy of the whole view record";
    EXPECT_EQ(d->view.at(VIEW_WATCH_TIME), "1000");
  }
}

TEST(RebufferTrackerUnit, ReplacesTheAdBreakHandlingSoTheFlagStaysFalse) {
  RecordingBus bus;
  TAVSDKRebufferTracker tracker(&bus);
  tracker.handle(event<TAVSDKAdBreakStartEvent>(1000, 0, 0));
  EXPECT_FALSE(tracker.isAdBreak());
  // A stall in the break is detected; its end carries no player record.
  tracker.handle(event<TAVSDKPlayingEvent>(1000, 0, 0));
  tracker.handle(event<TAVSDKInternalHeartbeatEvent>(1000, 0, 0));
  tracker.handle(event<TAVSDKInternalHeartbeatEvent>(2000, 1000, 0));
  EXPECT_TRUE(tracker.isRebuffering());
  tracker.handle(event<TAVSDKInternalHeartbeatEndEvent>(2500, 1500, 0));
  EXPECT_FALSE(tracker.isRebuffering());
  ASSERT_FALSE(bus.events.empty());
  EXPECT_EQ(bus.events.back().type, "rebufferend");
  EXPECT_FALSE(bus.events.back().hasPlayer);
  EXPECT_EQ(tracker.rebufferCount(), 1);
  EXPECT_EQ(tracker.rebufferDuration(), 1500);
  EXPECT_DOUBLE_EQ(tracker.rebufferPercentage(), 1500.0 / 1500.0);
}

}  // namespace
}  // namespace tav::test
