// Ads through the facade with the virtual clock: a pre-roll before the content
// with its request, load and first-frame times; mid-roll breaks with their
// counts and ad watch time; requests paired with responses in order; and the
// counters that every event writes into the view's record.

#include <string>

#include "support/PipelineFixture.h"

namespace tav::test {
namespace {

constexpr std::int64_t kTick = 250;

class AdViewTest : public PipelineTest {
 protected:
  template <class E>
  void emit() {
    send<E>("p1", playhead);
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
  /// `n` content "timeupdate"s kTick apart.
  void ticks(int n) {
    for (int i = 0; i < n; ++i) {
      advance(kTick);
      playhead += kTick;
      emit<TAVSDKTimeUpdateEvent>();
    }
  }
  /// The six counters that every beacon of a view carries.
  static void expectCounters(const Json& q, int breaks, int views, int plays, int completes,
                             int errors, std::int64_t watched) {
    EXPECT_EQ(q.at(VIEW_AD_BREAK_COUNT), text(breaks));
    EXPECT_EQ(q.at(VIEW_AD_VIEW_COUNT), text(views));
    EXPECT_EQ(q.at(VIEW_AD_PLAY_COUNT), text(plays));
    EXPECT_EQ(q.at(VIEW_AD_COMPLETE_COUNT), text(completes));
    EXPECT_EQ(q.at(VIEW_AD_ERROR_COUNT), text(errors));
    EXPECT_EQ(q.at(VIEW_AD_WATCH_TIME), text(watched));
  }

  std::int64_t playhead = 0;
};

TEST_F(AdViewTest, PrerollBeforeContentTimesRequestLoadAndFirstFrame) {
  const std::int64_t play = initAndPlay();
  advance(100);
  emit<TAVSDKAdBreakStartEvent>();
  advance(200);
  const std::int64_t requested = clock->now();
  emit<TAVSDKAdRequestEvent>();
  const Json& request = last("adrequest");
  EXPECT_EQ(request.at(VIEW_AD_REQUEST_COUNT), "1");
  EXPECT_EQ(request.at(VIEW_PREROLL_REQUEST_COUNT), "1");
  EXPECT_EQ(request.at(VIEW_PREROLL_REQUESTED), "1");
  EXPECT_FALSE(request.contains(VIEW_PREROLL_PLAYED));

  advance(500);
  const std::int64_t responded = clock->now();
  emit<TAVSDKAdResponseEvent>();
  EXPECT_EQ(last("adresponse").at(VIEW_AD_REQUEST_TIME), text(responded - requested));

  advance(300);
  const std::int64_t adStart = clock->now();
  emit<TAVSDKAdPlayEvent>();
  const Json& adPlay = last("adplay");
  EXPECT_EQ(adPlay.at(VIEW_PREROLL_REQUEST_TIME), text(adStart - requested));
  // The start-up request start is never set, so this is the clock time itself.
  EXPECT_EQ(adPlay.at(VIEW_STARTUP_PREROLL_REQUEST_TIME), text(adStart));
  EXPECT_EQ(adPlay.at(VIEW_PREROLL_PLAYED), "1");
  expectCounters(adPlay, 1, 1, 1, 0, 0, 0);

  advance(400);
  const std::int64_t adFrame = clock->now();
  emit<TAVSDKAdPlayingEvent>();
  const Json& adPlaying = last("adplaying");
  EXPECT_EQ(adPlaying.at(VIEW_PREROLL_LOAD_TIME), text(adFrame - adStart));
  EXPECT_EQ(adPlaying.at(VIEW_STARTUP_PREROLL_LOAD_TIME), text(adFrame - adStart));
  EXPECT_EQ(adPlaying.at(VIEW_TIME_TO_FIRST_FRAME), text(adFrame - play));

  advance(15'000);
  const std::int64_t firstAd = clock->now() - adStart;
  emit<TAVSDKAdEndedEvent>();
  expectCounters(last("adended"), 1, 1, 1, 1, 0, firstAd);

  // A second pre-roll ad: the request time stays, the load time is taken
  // again from the first pre-roll start (its first frame time is checked
  // with the start-up trackers).
  advance(200);
  const std::int64_t secondStart = clock->now();
  emit<TAVSDKAdPlayEvent>();
  advance(600);
  const std::int64_t secondFrame = clock->now();
  emit<TAVSDKAdPlayingEvent>();
  const Json& again = last("adplaying");
  EXPECT_EQ(again.at(VIEW_PREROLL_REQUEST_TIME), text(adStart - requested));
  EXPECT_EQ(again.at(VIEW_PREROLL_LOAD_TIME), text(secondFrame - adStart));
  advance(5000);
  const std::int64_t secondAd = clock->now() - secondStart;
  emit<TAVSDKAdEndedEvent>();
  emit<TAVSDKAdBreakEndEvent>();

  emit<TAVSDKPlayEvent>();
  advance(200);
  emit<TAVSDKPlayingEvent>();
  ticks(8);
  emit<TAVSDKPauseEvent>();
  const Json& q = last("pause");
  expectCounters(q, 1, 2, 2, 2, 0, firstAd + secondAd);
  EXPECT_EQ(q.at(VIEW_TIME_TO_FIRST_FRAME), text(adFrame - play));
  EXPECT_EQ(q.at(VIEW_PREROLL_REQUEST_COUNT), "1");
  EXPECT_EQ(q.at(VIEW_PREROLL_REQUESTED), "1");
  EXPECT_EQ(q.at(VIEW_PREROLL_PLAYED), "1");
}

TEST_F(AdViewTest, MidrollBreaksCountViewsPlaysCompletionsErrorsAndWatchTime) {
  initAndPlay();
  advance(500);
  emit<TAVSDKPlayingEvent>();
  ticks(40);

  advance(100);
  emit<TAVSDKAdBreakStartEvent>();
  const std::int64_t requested = clock->now();
  emit<TAVSDKAdRequestEvent>();
  advance(250);
  emit<TAVSDKAdResponseEvent>();
  const std::int64_t requestTime = clock->now() - requested;
  advance(100);
  const std::int64_t ad1Start = clock->now();
  emit<TAVSDKAdPlayEvent>();
  advance(300);
  emit<TAVSDKAdPlayingEvent>();
  advance(10'000);
  emit<TAVSDKAdEndedEvent>();
  const std::int64_t ad1 = clock->now() - ad1Start;
  // The second ad is paused and resumed: still one view, and the pause counts
  // in its watch time (a resume does not restart the ad's clock).
  advance(200);
  const std::int64_t ad2Start = clock->now();
  emit<TAVSDKAdPlayEvent>();
  advance(300);
  emit<TAVSDKAdPlayingEvent>();
  advance(4000);
  emit<TAVSDKAdPauseEvent>();
  advance(3000);
  emit<TAVSDKAdPlayEvent>();
  advance(300);
  emit<TAVSDKAdPlayingEvent>();
  advance(2700);
  emit<TAVSDKAdEndedEvent>();
  const std::int64_t ad2 = clock->now() - ad2Start;
  emit<TAVSDKAdBreakEndEvent>();
  const Json& breakEnd = last("adbreakend");
  expectCounters(breakEnd, 1, 2, 2, 2, 0, ad1 + ad2);
  EXPECT_EQ(breakEnd.at(VIEW_AD_REQUEST_COUNT), "1");
  EXPECT_EQ(breakEnd.at(VIEW_AD_REQUEST_TIME), text(requestTime));
  // After ten seconds of content nothing of this is a pre-roll.
  for (const char* key : {VIEW_PREROLL_REQUESTED, VIEW_PREROLL_PLAYED, VIEW_PREROLL_REQUEST_COUNT,
                          VIEW_PREROLL_REQUEST_TIME, VIEW_STARTUP_PREROLL_REQUEST_TIME,
                          VIEW_PREROLL_LOAD_TIME, VIEW_STARTUP_PREROLL_LOAD_TIME}) {
    EXPECT_FALSE(breakEnd.contains(key)) << key;
  }

  emit<TAVSDKPlayEvent>();
  emit<TAVSDKPlayingEvent>();
  ticks(20);
  // A second break: an ad fails, the next one is a new view and a new play.
  emit<TAVSDKAdBreakStartEvent>();
  emit<TAVSDKAdPlayEvent>();
  advance(2000);
  emit<TAVSDKAdErrorEvent>();
  const std::int64_t ad4Start = clock->now();
  emit<TAVSDKAdPlayEvent>();
  advance(6000);
  emit<TAVSDKAdEndedEvent>();
  const std::int64_t ad4 = clock->now() - ad4Start;
  emit<TAVSDKAdBreakEndEvent>();
  emit<TAVSDKPlayEvent>();
  expectCounters(last("play"), 2, 4, 4, 3, 1, ad1 + ad2 + ad4);
}

TEST_F(AdViewTest, ResponsesPairWithRequestsFirstInFirstOut) {
  initAndPlay();
  // A response before any request sets nothing.
  emit<TAVSDKAdResponseEvent>();
  EXPECT_FALSE(last("adresponse").contains(VIEW_AD_REQUEST_TIME));

  const std::int64_t base = clock->now();
  clock->set(base + 1000);
  emit<TAVSDKAdRequestEvent>();
  clock->set(base + 1200);
  emit<TAVSDKAdRequestEvent>();
  EXPECT_EQ(last("adrequest").at(VIEW_AD_REQUEST_COUNT), "2");
  clock->set(base + 1500);
  emit<TAVSDKAdResponseEvent>();
  EXPECT_EQ(last("adresponse").at(VIEW_AD_REQUEST_TIME), text(1500 - 1000));
  clock->set(base + 1900);
  emit<TAVSDKAdResponseEvent>();
  EXPECT_EQ(last("adresponse").at(VIEW_AD_REQUEST_TIME), text(1900 - 1200));
  // Nothing pending: the last request time stays as it was.
  clock->set(base + 2500);
  emit<TAVSDKAdResponseEvent>();
  EXPECT_EQ(last("adresponse").at(VIEW_AD_REQUEST_TIME), text(1900 - 1200));
  EXPECT_EQ(last("adresponse").at(VIEW_PREROLL_REQUEST_COUNT), "2");

  // Once an ad has played, a further request before the content is still a
  // pre-roll request but no longer counts as one.
  emit<TAVSDKAdPlayEvent>();
  emit<TAVSDKAdRequestEvent>();
  EXPECT_EQ(last("adrequest").at(VIEW_AD_REQUEST_COUNT), "3");
  EXPECT_EQ(last("adrequest").at(VIEW_PREROLL_REQUEST_COUNT), "2");
  // The pre-roll request time runs from the first request of the view.
  EXPECT_EQ(last("adplay").at(VIEW_PREROLL_REQUEST_TIME), text(2500 - 1000));
}

TEST_F(AdViewTest, EveryEventWritesTheCountersIntoTheViewRecord) {
  initAndPlay();
  // The first beacon of a view already carries the six counters.
  expectCounters(last("viewstart"), 0, 0, 0, 0, 0, 0);
  for (const char* key :
       {VIEW_PREROLL_REQUESTED, VIEW_PREROLL_PLAYED, VIEW_PREROLL_REQUEST_COUNT}) {
    EXPECT_FALSE(last("viewstart").contains(key)) << key;
  }

  // An end without a start adds the whole clock value.
  advance(1000);
  const std::int64_t endedAt = clock->now();
  emit<TAVSDKAdEndedEvent>();
  expectCounters(last("adended"), 0, 0, 0, 1, 0, endedAt);

  // Two starts without an end between them: two views, one play.
  emit<TAVSDKAdPlayEvent>();
  advance(500);
  emit<TAVSDKAdPlayEvent>();
  expectCounters(last("adplay"), 0, 2, 1, 1, 0, endedAt);

  // A new video renews the view record; the next event, a content "pause",
  // writes the counters into the new record again.
  const auto firstViewId = last("adplay").at(VIEW_ID).get<std::string>();
  auto change = std::make_shared<TAVSDKDataEvent>();
  change->setVideoChange(true);
  TAVSDKCore::dispatchEventForPlayer(change, "p1");
  emit<TAVSDKPauseEvent>();
  const Json& q = last("pause");
  EXPECT_NE(q.at(VIEW_ID), firstViewId);
  expectCounters(q, 0, 2, 1, 1, 0, endedAt);
  EXPECT_EQ(q.at(VIEW_PREROLL_PLAYED), "1");
  EXPECT_FALSE(q.contains(VIEW_PREROLL_REQUEST_TIME)) << "only written on the first pre-roll";
}

}  // namespace
}  // namespace tav::test
