// Seeks through the facade with the virtual clock: scrubbing yields one
// "seeking", the latency runs from the last "internalseeking" to "seeked", and
// the count, total and longest seek accumulate over the view.

#include <algorithm>
#include <string>
#include <vector>

#include "support/PipelineFixture.h"

namespace tav::test {
namespace {

class SeekingViewTest : public PipelineTest {
 protected:
  void startPlaying() {
    send<TAVSDKViewInitEvent>("p1", 0);
    send<TAVSDKPlayEvent>("p1", 0);
    send<TAVSDKPlayingEvent>("p1", 0);
  }
  /// A seek from the current time: "internalseeking" at each of `scrubs`
  /// (offsets from now, ascending), then "seeked" at `seekedAt`; returns the
  /// time of the last "internalseeking" and the time of "seeked".
  std::pair<std::int64_t, std::int64_t> seek(const std::vector<std::int64_t>& scrubs,
                                             std::int64_t seekedAt, bool paused = false) {
    const std::int64_t base = clock->now();
    std::int64_t last = 0;
    for (const std::int64_t at : scrubs) {
      clock->set(base + at);
      last = clock->now();
      send<TAVSDKInternalSeekingEvent>("p1", at * 10, paused);
    }
    clock->set(base + seekedAt);
    send<TAVSDKSeekedEvent>("p1", seekedAt * 10, paused);
    return {last, clock->now()};
  }
};

TEST_F(SeekingViewTest, ScrubbingYieldsOneSeekingTimedFromTheLastInternalSeeking) {
  startPlaying();
  advance(5000);
  const std::int64_t firstScrub = clock->now() + 1000;
  const auto [lastScrub, seeked] = seek({1000, 1500}, 2300);

  EXPECT_EQ(captured->types(),
            (std::vector<std::string>{"viewstart", "play", "playing", "seeking", "seeked"}));
  // The "seeking" goes out at the first signal; "internalseeking" never does.
  EXPECT_EQ(last("seeking").at(VIEWER_TIME), text(firstScrub));
  EXPECT_FALSE(last("seeking").contains(VIEW_SEEK_COUNT)) << "metrics come with the seeked";
  const Json& q = last("seeked");
  EXPECT_EQ(q.at(VIEW_SEEK_COUNT), "1");
  EXPECT_EQ(q.at(VIEW_SEEK_DURATION), text(seeked - lastScrub));
  EXPECT_EQ(q.at(VIEW_MAX_SEEK_TIME), text(seeked - lastScrub));
}

TEST_F(SeekingViewTest, SeeksAccumulateCountTotalAndLongestAndAStraySeekedChangesNothing) {
  startPlaying();
  advance(2000);
  // A "seeked" without a seek: no metric and no "seeking".
  send<TAVSDKSeekedEvent>("p1", 2000);
  EXPECT_EQ(captured->types().back(), "seeked");
  EXPECT_FALSE(last("seeked").contains(VIEW_SEEK_COUNT));
  advance(1000);
  const auto [s1, e1] = seek({0}, 300);
  advance(4000);
  const auto [s2, e2] = seek({0, 200, 400}, 1300);
  advance(4000);
  // A shorter seek while paused does not lower the longest one.
  send<TAVSDKPauseEvent>("p1", 20'000, true);
  advance(1000);
  const auto [s3, e3] = seek({0}, 150, /*paused=*/true);
  EXPECT_EQ(count("seeking"), 3);
  // A closed seek is not reopened by a second "seeked".
  advance(100);
  send<TAVSDKSeekedEvent>("p1", 4000, true);

  const std::int64_t total = (e1 - s1) + (e2 - s2) + (e3 - s3);
  const Json& q = last("seeked");
  EXPECT_EQ(q.at(VIEW_SEEK_COUNT), "3");
  EXPECT_EQ(q.at(VIEW_SEEK_DURATION), text(total));
  EXPECT_EQ(q.at(VIEW_MAX_SEEK_TIME), text(std::max({e1 - s1, e2 - s2, e3 - s3})));
  // The values stay on the view: a later beacon carries them unchanged.
  advance(2000);
  send<TAVSDKPlayEvent>("p1", 1500);
  EXPECT_EQ(last("play").at(VIEW_SEEK_COUNT), "3");
  EXPECT_EQ(last("play").at(VIEW_SEEK_DURATION), text(total));
}

TEST_F(SeekingViewTest, SeekingRunsTheHeartbeatAndOnlyAPausedSeekedEndsIt) {
  startPlaying();
  advance(1000);
  send<TAVSDKTimeUpdateEvent>("p1", 1000);
  // Seeking while playing keeps the watch time running through the seek.
  seek({0}, 500);
  advance(500);
  send<TAVSDKPauseEvent>("p1", 5500, true);
  const std::int64_t watchAtPause = clock->now() - kStart;
  EXPECT_EQ(last("pause").at(VIEW_WATCH_TIME), text(watchAtPause));
  // Seeking while paused starts the heartbeat, so the seek itself is watched;
  // the paused "seeked" ends it again.
  advance(1000);
  const auto [s, e] = seek({0}, 700, /*paused=*/true);
  EXPECT_EQ(last("seeked").at(VIEW_WATCH_TIME), text(watchAtPause + (e - s)));
  EXPECT_EQ(last("seeked").at(VIEW_SEEK_COUNT), "2");
  EXPECT_EQ(last("seeked").at(VIEW_MAX_SEEK_TIME), text(e - s));
  advance(5000);
  send<TAVSDKTimeUpdateEvent>("p1", 7000);
  send<TAVSDKPlayEvent>("p1", 7000);
  EXPECT_EQ(last("play").at(VIEW_WATCH_TIME), text(watchAtPause + (e - s)));
}

}  // namespace
}  // namespace tav::test
