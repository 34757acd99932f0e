// Time to first frame and scaling through the facade with the virtual clock:
// the watch time at the first content or pre-roll frame (and where the
// pre-roll position ends for it and for ad requests), and the up- and
// down-scaling of the source into the player, weighted by content time.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "support/PipelineFixture.h"

namespace tav::test {
namespace {

constexpr std::int64_t kTick = 250;  // the integration's "timeupdate" pace

class StartupViewTest : public PipelineTest {
 protected:
  /// Dispatches a playback event of class E at the current playhead, with the
  /// player's display size when one is set.
  template <class E>
  void emit() {
    auto event = std::make_shared<E>();
    auto data = std::make_shared<TAVSDKPlayerData>();
    data->setPlayerPlayheadTime(playhead);
    data->setPlayerIsPaused(false);
    if (playerSize) {
      data->setPlayerWidth(playerSize->first);
      data->setPlayerHeight(playerSize->second);
    }
    event->setPlayerData(data);
    TAVSDKCore::dispatchEventForPlayer(event, "p1");
  }
  /// The video's source size, as the integration reports it (a data event).
  void source(std::int32_t width, std::int32_t height) {
    auto data = std::make_shared<TAVSDKDataEvent>();
    auto video = std::make_shared<TAVSDKVideoData>();
    video->setVideoSourceWidth(width);
    video->setVideoSourceHeight(height);
    data->setVideoData(video);
    TAVSDKCore::dispatchEventForPlayer(data, "p1");
  }
  /// `n` "timeupdate"s kTick apart, the playhead moving by `step` each time.
  void ticks(int n, std::int64_t step = kTick) {
    for (int i = 0; i < n; ++i) {
      advance(kTick);
      playhead += step;
      emit<TAVSDKTimeUpdateEvent>();
    }
  }
  /// "viewinit", then "play"; returns the time of the "play".
  std::int64_t initAndPlay() {
    playhead = 0;
    emit<TAVSDKViewInitEvent>();
    advance(100);
    const std::int64_t play = clock->now();
    emit<TAVSDKPlayEvent>();
    return play;
  }

  std::int64_t playhead = 0;
  std::optional<std::pair<std::int32_t, std::int32_t>> playerSize;
};

// --- time to first frame ---------------------------------------------------

TEST_F(StartupViewTest, ContentStartTakesTheWatchTimeAtPlayingOnce) {
  const std::int64_t play = initAndPlay();
  EXPECT_FALSE(last("viewstart").contains(VIEW_TIME_TO_FIRST_FRAME));
  EXPECT_FALSE(last("play").contains(VIEW_TIME_TO_FIRST_FRAME));
  advance(1350);
  const std::int64_t firstFrame = clock->now();
  emit<TAVSDKPlayingEvent>();
  const Json& q = last("playing");
  EXPECT_EQ(q.at(VIEW_TIME_TO_FIRST_FRAME), text(firstFrame - play));
  EXPECT_EQ(q.at(VIEW_WATCH_TIME), q.at(VIEW_TIME_TO_FIRST_FRAME)) << "measured as watch time";

  // Neither a later "playing" nor a mid-roll after content has played moves it.
  ticks(12);
  emit<TAVSDKPauseEvent>();
  advance(4000);
  emit<TAVSDKPlayEvent>();
  advance(700);
  emit<TAVSDKPlayingEvent>();
  EXPECT_EQ(last("playing").at(VIEW_TIME_TO_FIRST_FRAME), text(firstFrame - play));
  ticks(4);
  emit<TAVSDKAdBreakStartEvent>();
  emit<TAVSDKAdPlayEvent>();
  advance(300);
  emit<TAVSDKAdPlayingEvent>();
  EXPECT_GT(std::stoll(last("adplaying").at(VIEW_PLAYING_TIME).get<std::string>()), 1000);
  EXPECT_EQ(last("adplaying").at(VIEW_TIME_TO_FIRST_FRAME), text(firstFrame - play));
}

TEST_F(StartupViewTest, PrerollAfterABriefContentStartReplacesTheTimeForGood) {
  const std::int64_t play = initAndPlay();
  advance(1200);
  emit<TAVSDKPlayingEvent>();
  EXPECT_EQ(last("playing").at(VIEW_TIME_TO_FIRST_FRAME), text(1200));
  ticks(2);  // 500 ms of content
  advance(100);
  emit<TAVSDKAdBreakStartEvent>();
  emit<TAVSDKAdPlayEvent>();
  const std::int64_t adFrame = clock->now();
  emit<TAVSDKAdPlayingEvent>();
  const Json& q = last("adplaying");
  EXPECT_EQ(q.at(VIEW_PLAYING_TIME), text(2 * kTick));
  EXPECT_EQ(q.at(VIEW_TIME_TO_FIRST_FRAME), text(adFrame - play));

  // A second pre-roll ad and the content's return keep the pre-roll's value.
  ticks(8, 0);
  emit<TAVSDKAdEndedEvent>();
  advance(200);
  emit<TAVSDKAdPlayEvent>();
  advance(300);
  emit<TAVSDKAdPlayingEvent>();
  EXPECT_EQ(last("adplaying").at(VIEW_TIME_TO_FIRST_FRAME), text(adFrame - play));
  ticks(4, 0);
  emit<TAVSDKAdEndedEvent>();
  emit<TAVSDKAdBreakEndEvent>();
  emit<TAVSDKPlayEvent>();
  advance(100);
  emit<TAVSDKPlayingEvent>();
  EXPECT_EQ(last("playing").at(VIEW_TIME_TO_FIRST_FRAME), text(adFrame - play));
}

TEST_F(StartupViewTest, OneSecondOfContentEndsThePrerollPositionButNotTheStartUp) {
  // Less than 1000 ms of content makes an ad request a pre-roll one, exactly
  // 1000 does not; yet only more than 1000 ms makes an ad's first frame a mid-roll's.
  for (const std::int64_t contentMs : {750, 1000, 1250}) {
    const std::int64_t play = initAndPlay();
    advance(500);
    emit<TAVSDKPlayingEvent>();
    const std::int64_t atPlaying = clock->now() - play;
    ticks(static_cast<int>(contentMs / kTick));
    emit<TAVSDKAdBreakStartEvent>();
    emit<TAVSDKAdRequestEvent>();
    const Json& request = last("adrequest");
    ASSERT_EQ(request.at(VIEW_PLAYING_TIME), text(contentMs));
    EXPECT_EQ(request.at(VIEW_AD_REQUEST_COUNT), "1");
    EXPECT_EQ(request.contains(VIEW_PREROLL_REQUESTED), contentMs < 1000) << contentMs;
    EXPECT_EQ(request.contains(VIEW_PREROLL_REQUEST_COUNT), contentMs < 1000) << contentMs;
    emit<TAVSDKAdPlayEvent>();
    advance(400);
    const std::int64_t atAdFrame = clock->now() - play;
    emit<TAVSDKAdPlayingEvent>();
    EXPECT_EQ(last("adplaying").at(VIEW_TIME_TO_FIRST_FRAME),
              text(contentMs <= 1000 ? atAdFrame : atPlaying))
        << contentMs << " ms of content";
  }
}

// --- scaling ---------------------------------------------------------------

TEST_F(StartupViewTest, RenditionChangeFrom720pTo1080pIsWeightedByContentTime) {
  playerSize = {1920, 1080};
  initAndPlay();
  source(1280, 720);
  advance(400);
  emit<TAVSDKPlayingEvent>();
  const std::int64_t opened = playhead;
  ticks(40);
  const std::int64_t at720 = playhead - opened;
  const double up720 = std::min(1920.0 / 1280.0, 1080.0 / 720.0) - 1.0;

  source(1920, 1080);
  emit<TAVSDKRenditionChangeEvent>();
  const Json& change = last("renditionchange");
  EXPECT_EQ(change.at(VIDEO_SOURCE_HEIGHT), "1080");
  EXPECT_EQ(change.at(VIEW_TOTAL_CONTENT_PLAYBACK_TIME), text(at720));
  EXPECT_DOUBLE_EQ(number(change, VIEW_TOTAL_UPSCALING), up720 * static_cast<double>(at720));
  EXPECT_DOUBLE_EQ(number(change, VIEW_MAX_UPSCALE_PERCENTAGE), up720);
  EXPECT_DOUBLE_EQ(number(change, VIEW_MAX_DOWNSCALE_PERCENTAGE), 0.0);

  // The interval open at the change belongs to the size noted when it opened.
  ticks(20);
  const std::int64_t upscaled = at720 + kTick;
  advance(100);
  emit<TAVSDKPauseEvent>();
  const Json& q = last("pause");
  const std::int64_t total = playhead - opened;
  EXPECT_EQ(q.at(VIEW_TOTAL_CONTENT_PLAYBACK_TIME), text(total));
  EXPECT_DOUBLE_EQ(number(q, VIEW_TOTAL_UPSCALING), up720 * static_cast<double>(upscaled));
  EXPECT_DOUBLE_EQ(number(q, VIEW_TOTAL_DOWNSCALING), 0.0);
  EXPECT_DOUBLE_EQ(number(q, VIEW_MAX_UPSCALE_PERCENTAGE), up720);

  // After the pause content time counts on at the new size, without upscaling.
  advance(5000);
  emit<TAVSDKTimeUpdateEvent>();
  emit<TAVSDKPlayEvent>();
  emit<TAVSDKPlayingEvent>();
  ticks(4);
  emit<TAVSDKPauseEvent>();
  EXPECT_EQ(last("pause").at(VIEW_TOTAL_CONTENT_PLAYBACK_TIME), text(total + 4 * kTick));
  EXPECT_DOUBLE_EQ(number(last("pause"), VIEW_TOTAL_UPSCALING),
                   up720 * static_cast<double>(upscaled));
}

TEST_F(StartupViewTest, AspectPreservingFitGivesDownscalingAndNoScalingWhenLetterboxed) {
  playerSize = {640, 360};
  initAndPlay();
  source(1920, 1080);
  emit<TAVSDKPlayingEvent>();
  ticks(12);
  emit<TAVSDKPauseEvent>();
  const double down = 1.0 - std::min(640.0 / 1920.0, 360.0 / 1080.0);
  const Json& small = last("pause");
  EXPECT_EQ(small.at(VIEW_TOTAL_CONTENT_PLAYBACK_TIME), text(12 * kTick));
  EXPECT_NEAR(number(small, VIEW_MAX_DOWNSCALE_PERCENTAGE), down, 1e-12);
  EXPECT_NEAR(number(small, VIEW_TOTAL_DOWNSCALING), down * 12 * kTick, 1e-9);
  EXPECT_DOUBLE_EQ(number(small, VIEW_MAX_UPSCALE_PERCENTAGE), 0.0);
  EXPECT_DOUBLE_EQ(number(small, VIEW_TOTAL_UPSCALING), 0.0);

  // A new view: 1280x1000 showing 1280x720 fits the width exactly (ratios 1.0
  // and 1.39): content time counts, scaling does not.
  playerSize = {1280, 1000};
  initAndPlay();
  source(1280, 720);
  emit<TAVSDKPlayingEvent>();
  ticks(8);
  emit<TAVSDKPauseEvent>();
  const Json& boxed = last("pause");
  EXPECT_EQ(boxed.at(VIEW_TOTAL_CONTENT_PLAYBACK_TIME), text(8 * kTick));
  EXPECT_DOUBLE_EQ(number(boxed, VIEW_MAX_UPSCALE_PERCENTAGE), 0.0);
  EXPECT_DOUBLE_EQ(number(boxed, VIEW_MAX_DOWNSCALE_PERCENTAGE), 0.0);
  EXPECT_DOUBLE_EQ(number(boxed, VIEW_TOTAL_UPSCALING), 0.0);
  EXPECT_DOUBLE_EQ(number(boxed, VIEW_TOTAL_DOWNSCALING), 0.0);
}

TEST_F(StartupViewTest, AdBreakIntervalsAreSkippedUntilContentPlaysAgain) {
  playerSize = {1920, 1080};
  initAndPlay();
  source(1280, 720);
  const double up = 0.5;  // 1920x1080 showing 1280x720
  emit<TAVSDKPlayingEvent>();
  ticks(10);
  const std::int64_t before = 10 * kTick;
  // The playhead runs on through the break (an inserted ad in the stream).
  emit<TAVSDKAdBreakStartEvent>();
  emit<TAVSDKAdPlayEvent>();
  emit<TAVSDKAdPlayingEvent>();
  ticks(16);
  emit<TAVSDKAdEndedEvent>();
  emit<TAVSDKAdBreakEndEvent>();
  EXPECT_EQ(last("adbreakend").at(VIEW_TOTAL_CONTENT_PLAYBACK_TIME), text(before));
  // "adbreakend" does not end the break: these still count nothing.
  ticks(4);
  // "play" does; the first "timeupdate" after it counts from the last one of
  // the break, which opened an interval although it counted nothing.
  emit<TAVSDKPlayEvent>();
  ticks(6);
  emit<TAVSDKPauseEvent>();
  const Json& q = last("pause");
  EXPECT_EQ(q.at(VIEW_TOTAL_CONTENT_PLAYBACK_TIME), text(before + 6 * kTick));
  EXPECT_DOUBLE_EQ(number(q, VIEW_TOTAL_UPSCALING), up * static_cast<double>(before + 6 * kTick));
}

TEST_F(StartupViewTest, MissingOrZeroSizesSeeksAndBackwardsSteps) {
  initAndPlay();
  source(1280, 720);
  emit<TAVSDKPlayingEvent>();
  ticks(4);
  emit<TAVSDKPauseEvent>();
  EXPECT_FALSE(last("pause").contains(VIEW_TOTAL_CONTENT_PLAYBACK_TIME)) << "no player size";

  playerSize = {1920, 1080};
  source(1280, 0);
  emit<TAVSDKPlayEvent>();
  emit<TAVSDKPlayingEvent>();
  ticks(4);
  emit<TAVSDKPauseEvent>();
  EXPECT_FALSE(last("pause").contains(VIEW_TOTAL_CONTENT_PLAYBACK_TIME)) << "source height 0";

  source(1280, 720);
  emit<TAVSDKPlayEvent>();
  emit<TAVSDKPlayingEvent>();
  ticks(4);
  const std::int64_t counted = 4 * kTick;
  // A seek closes the interval; the jump itself is not content time, and the
  // first "timeupdate" after it only reopens.
  emit<TAVSDKInternalSeekingEvent>();
  playhead += 60'000;
  emit<TAVSDKSeekedEvent>();
  ticks(3);
  const std::int64_t afterSeek = 2 * kTick;
  // A step backwards without seek events is skipped as well.
  advance(kTick);
  playhead -= 5000;
  emit<TAVSDKTimeUpdateEvent>();
  ticks(2);
  const std::int64_t afterStepBack = 2 * kTick;
  emit<TAVSDKPauseEvent>();
  const Json& q = last("pause");
  EXPECT_EQ(q.at(VIEW_TOTAL_CONTENT_PLAYBACK_TIME), text(counted + afterSeek + afterStepBack));
  EXPECT_DOUBLE_EQ(number(q, VIEW_TOTAL_UPSCALING),
                   0.5 * static_cast<double>(counted + afterSeek + afterStepBack));
}

}  // namespace
}  // namespace tav::test
