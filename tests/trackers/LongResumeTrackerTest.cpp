// Long resume through the facade with the virtual clock: after an hour
// without events the view restarts in place (new view id, numbering from 1,
// same trackers), keeps its video and customer metadata, and replays the start
// of playback when it was playing.

#include <algorithm>
#include <string>
#include <vector>

#include "support/PipelineFixture.h"

namespace tav::test {
namespace {

constexpr std::int64_t kHour = TAVSDKLongResumeTracker::kLongResumeMs;
constexpr std::int64_t kTick = 250;

class LongResumeTest : public PipelineTest {
 protected:
  /// "viewinit", the video and customer metadata, "play", "playing" and a few
  /// "timeupdate"s.
  void startPlaying() {
    send<TAVSDKViewInitEvent>("p1", 0);
    auto data = std::make_shared<TAVSDKDataEvent>();
    auto video = std::make_shared<TAVSDKVideoData>();
    video->setVideoSourceUrl(kSourceUrl);
    auto customerVideo = std::make_shared<TAVSDKCustomerVideoData>();
    customerVideo->setVideoTitle(kTitle);
    auto customerView = std::make_shared<TAVSDKCustomerViewData>();
    customerView->setViewSessionId(kSessionId);
    auto custom = std::make_shared<TAVSDKCustomData>();
    custom->setCustomData1(kDimension);
    data->setVideoData(video);
    data->setCustomerVideoData(customerVideo);
    data->setCustomerViewData(customerView);
    data->setCustomData(custom);
    TAVSDKCore::dispatchEventForPlayer(data, "p1");
    send<TAVSDKPlayEvent>("p1", playhead);
    send<TAVSDKPlayingEvent>("p1", playhead);
    for (int i = 0; i < 4; ++i)
      tick();
  }
  void tick() {
    advance(kTick);
    playhead += kTick;
    send<TAVSDKTimeUpdateEvent>("p1", playhead);
  }
  std::shared_ptr<TAVSDKCoreView> view() { return TAVSDKCore::playerNamed("p1")->view(); }
  /// The beacons captured from index `from` on.
  [[nodiscard]] std::vector<CapturedBeacon> since(std::size_t from) const {
    return {captured->beacons.begin() + static_cast<std::ptrdiff_t>(from), captured->beacons.end()};
  }
  static std::vector<std::string> typesOf(const std::vector<CapturedBeacon>& beacons) {
    std::vector<std::string> out;
    for (const auto& b : beacons)
      out.push_back(b.type);
    return out;
  }
  /// Every beacon of `beacons` belongs to one view other than `oldViewId`,
  /// numbered on from `firstNumber`, and carries the metadata given before the restart.
  void expectNewViewWithSameMetadata(const std::vector<CapturedBeacon>& beacons,
                                     const std::string& oldViewId, std::size_t firstNumber = 1) {
    ASSERT_FALSE(beacons.empty());
    const Json newViewId = beacons.front().query.at(VIEW_ID);
    EXPECT_NE(newViewId, oldViewId);
    EXPECT_EQ(newViewId.get<std::string>().size(), 36U);
    for (std::size_t i = 0; i < beacons.size(); ++i) {
      const Json& q = beacons[i].query;
      SCOPED_TRACE(beacons[i].type);
      EXPECT_EQ(q.at(VIEW_ID), newViewId);
      EXPECT_EQ(q.at(VIEW_SEQUENCE_NUMBER), std::to_string(firstNumber + i));
      EXPECT_EQ(q.at(VIDEO_TITLE), kTitle);
      EXPECT_EQ(q.at(VIDEO_SOURCE_URL), kSourceUrl);
      EXPECT_EQ(q.at(VIEW_SESSION_ID), kSessionId);
      EXPECT_EQ(q.at(CUSTOM_DATA_1), kDimension);
    }
  }

  /// Plays, then sends an event of class E after an hour without events, the
  /// player having played on meanwhile (so that no stall shows); returns the
  /// beacons that follow and the old view id.
  template <class E>
  std::pair<std::vector<CapturedBeacon>, std::string> resumeAfterAnHourWith() {
    startPlaying();
    const std::string oldViewId = captured->beacons.back().query.at(VIEW_ID);
    const std::size_t before = captured->beacons.size();
    advance(kHour);
    playhead += kHour;
    send<E>("p1", playhead);
    return {since(before), oldViewId};
  }
  static constexpr const char* kTitle = "Evening news";
  static constexpr const char* kSourceUrl = "https://media.example.test/news.m3u8";
  static constexpr const char* kSessionId = "customer-session-7";
  static constexpr const char* kDimension = "gold";
  std::int64_t playhead = 0;
};

TEST_F(LongResumeTest, PlayAfterAnHourPausedStartsANewViewWithTheSameMetadata) {
  startPlaying();
  send<TAVSDKInternalSeekingEvent>("p1", playhead);
  advance(400);
  send<TAVSDKSeekedEvent>("p1", playhead);
  send<TAVSDKPauseEvent>("p1", playhead, true);
  const std::string oldViewId = captured->beacons.back().query.at(VIEW_ID);
  const auto viewBefore = view();
  const auto trackersBefore = viewBefore->handlers();
  const std::size_t before = captured->beacons.size();

  advance(kHour);
  send<TAVSDKPlayEvent>("p1", playhead);
  send<TAVSDKPlayingEvent>("p1", playhead);
  // Paused for the hour, so nothing is replayed: the "play" itself starts the view.
  const auto after = since(before);
  EXPECT_EQ(typesOf(after), (std::vector<std::string>{"viewstart", "play", "playing"}));
  expectNewViewWithSameMetadata(after, oldViewId);
  EXPECT_EQ(after.front().query.at(PLAYER_SEQUENCE_NUMBER), std::to_string(before + 1))
      << "the player's numbering runs on";

  // Restarted in place: the same view object with the same fourteen trackers,
  // which keep their state (this is the view's second seek).
  EXPECT_EQ(view(), viewBefore);
  EXPECT_EQ(view()->handlers(), trackersBefore);
  send<TAVSDKInternalSeekingEvent>("p1", playhead);
  advance(300);
  send<TAVSDKSeekedEvent>("p1", playhead);
  EXPECT_EQ(captured->beacons.back().query.at(VIEW_SEEK_COUNT), "2");
  EXPECT_EQ(captured->beacons.back().query.at(VIEW_SEEK_DURATION), std::to_string(400 + 300));
}

TEST_F(LongResumeTest, LessThanAnHourKeepsTheView) {
  startPlaying();
  send<TAVSDKPauseEvent>("p1", playhead, true);
  const Json oldViewId = captured->beacons.back().query.at(VIEW_ID);
  const std::size_t before = captured->beacons.size();
  advance(kHour - 1);
  send<TAVSDKPlayEvent>("p1", playhead);
  // Every event restarts the hour, so a second near-hour gap keeps it too.
  send<TAVSDKPauseEvent>("p1", playhead, true);
  advance(kHour - 1);
  send<TAVSDKPlayEvent>("p1", playhead);
  const auto after = since(before);
  EXPECT_EQ(typesOf(after), (std::vector<std::string>{"play", "pause", "play"}));
  for (std::size_t i = 0; i < after.size(); ++i) {
    EXPECT_EQ(after[i].query.at(VIEW_ID), oldViewId);
    EXPECT_EQ(after[i].query.at(VIEW_SEQUENCE_NUMBER), std::to_string(before + i + 1));
  }
  // Exactly one hour restarts.
  send<TAVSDKPauseEvent>("p1", playhead, true);
  advance(kHour);
  send<TAVSDKPlayEvent>("p1", playhead);
  EXPECT_NE(captured->beacons.back().query.at(VIEW_ID), oldViewId);
  EXPECT_EQ(captured->beacons.back().query.at(VIEW_SEQUENCE_NUMBER), "2");
}

TEST_F(LongResumeTest, EventAfterAnHourPlayingReplaysPlayAndPlaying) {
  const auto [after, oldViewId] = resumeAfterAnHourWith<TAVSDKTimeUpdateEvent>();
  ASSERT_EQ(typesOf(after), (std::vector<std::string>{"hb", "viewstart", "play", "playing"}));
  // The "hb" that opens the resumed view is sent while its synthetic "viewinit"
  // passes the trackers (playing, and silent for more than 10 s), before the
  // metadata is carried over: new view, first number, no metadata yet.
  const Json& hb = after.front().query;
  EXPECT_EQ(hb.at(VIEW_ID), after[1].query.at(VIEW_ID));
  EXPECT_EQ(hb.at(VIEW_SEQUENCE_NUMBER), "1");
  EXPECT_FALSE(hb.contains(VIDEO_TITLE));
  expectNewViewWithSameMetadata({after.begin() + 1, after.end()}, oldViewId, 2);
  for (const auto& b : after) {
    EXPECT_EQ(b.query.at(VIEWER_TIME), std::to_string(clock->now()));
    EXPECT_EQ(b.query.at(PLAYER_PLAYHEAD_TIME), std::to_string(playhead));
  }
}

TEST_F(LongResumeTest, PlayAfterAnHourPlayingIsPrecededByAReplayedPlayAnyway) {
  // The replayed "play" is not skipped when the event is itself a "play".
  const auto [after, oldViewId] = resumeAfterAnHourWith<TAVSDKPlayEvent>();
  ASSERT_EQ(typesOf(after),
            (std::vector<std::string>{"hb", "viewstart", "play", "playing", "play"}));
  expectNewViewWithSameMetadata({after.begin() + 1, after.end()}, oldViewId, 2);
}

TEST_F(LongResumeTest, PlayingAfterAnHourPlayingReplaysOnlyThePlay) {
  const auto [after, oldViewId] = resumeAfterAnHourWith<TAVSDKPlayingEvent>();
  ASSERT_EQ(typesOf(after), (std::vector<std::string>{"hb", "viewstart", "play", "playing"}));
  expectNewViewWithSameMetadata({after.begin() + 1, after.end()}, oldViewId, 2);
}

TEST_F(LongResumeTest, ViewInitAfterAnHourNeverResumes) {
  startPlaying();
  const std::string oldViewId = captured->beacons.back().query.at(VIEW_ID);
  const std::size_t before = captured->beacons.size();
  advance(kHour);
  // A "viewinit" passing the existing view restarts its records by itself;
  // the long-resume tracker must not restart it again and replay the start.
  auto init = std::make_shared<TAVSDKViewInitEvent>();
  view()->dispatch(init);
  const std::string newViewId = *view()->getViewData()->viewId();
  EXPECT_NE(newViewId, oldViewId);
  EXPECT_EQ(typesOf(since(before)), (std::vector<std::string>{"hb"}));
  send<TAVSDKPlayEvent>("p1", playhead);
  const auto after = since(before);
  EXPECT_EQ(typesOf(after), (std::vector<std::string>{"hb", "viewstart", "play"}));
  for (const auto& b : after)
    EXPECT_EQ(b.query.at(VIEW_ID), newViewId);
}

}  // namespace
}  // namespace tav::test
