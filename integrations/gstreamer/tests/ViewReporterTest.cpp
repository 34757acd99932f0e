// The reporter's decisions, fed with the observations a playbin produces in
// real runs (state changes with their pending states, buffering, seeks, caps,
// HTTP responses and demuxer statistics), checked on the events it sends.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ViewReporter.h"

namespace tav::gstreamer {
namespace {

using S = PipelineState;

constexpr char kMaster[] =
    "#EXTM3U\n"
    "#EXT-X-VERSION:3\n"
    "#EXT-X-STREAM-INF:BANDWIDTH=290400,RESOLUTION=256x144,CODECS=\"avc1.42c00d,mp4a.40.2\"\n"
    "v0/index.m3u8\n"
    "#EXT-X-STREAM-INF:BANDWIDTH=510400,RESOLUTION=426x240\n"
    "v1/index.m3u8\n"
    "#EXT-X-STREAM-INF:BANDWIDTH=950400,RESOLUTION=640x360\n"
    "v2/index.m3u8\n";
constexpr char kUri[] = "http://media.test:8000/show/master.m3u8";

class ViewReporterTest : public ::testing::Test {
 protected:
  ViewReporterTest()
      : reporter(facts(), TAVSDKCustomerPlayerData::initWithEnvironmentKey("local"), video(),
                 [this](const TAVSDKEventPtr& e) { events.push_back(e); }) {}

  static PlayerFacts facts() {
    PlayerFacts f;
    f.softwareName = "GStreamer";
    f.softwareVersion = "1.22.0";
    f.pluginName = "tavcore-gstreamer";
    f.pluginVersion = "0.1";
    return f;
  }
  static std::shared_ptr<TAVSDKCustomerVideoData> video() {
    auto v = std::make_shared<TAVSDKCustomerVideoData>();
    v->setVideoId("clip-1");
    return v;
  }

  /// The types of the events sent since the last call.
  std::vector<std::string> drain() {
    std::vector<std::string> types;
    for (std::size_t i = seen; i < events.size(); ++i)
      types.push_back(events[i]->getType());
    seen = events.size();
    return types;
  }
  std::shared_ptr<TAVSDKPlaybackEvent> last() const {
    auto event =
        events.empty() ? nullptr : std::dynamic_pointer_cast<TAVSDKPlaybackEvent>(events.back());
    if (!event) {
      ADD_FAILURE() << "the last event is no playback event";
      event = std::make_shared<TAVSDKPlaybackEvent>();
    }
    return event;
  }
  std::shared_ptr<TAVSDKDataEvent> lastData() const {
    for (auto it = events.rbegin(); it != events.rend(); ++it) {
      if (auto data = std::dynamic_pointer_cast<TAVSDKDataEvent>(*it)) return data;
    }
    ADD_FAILURE() << "no data event";
    return std::make_shared<TAVSDKDataEvent>();
  }
  /// The video record of the last data event.
  std::shared_ptr<TAVSDKVideoData> lastVideo() const {
    auto video = lastData()->videoData();
    if (!video) {
      ADD_FAILURE() << "the last data event carries no video record";
      video = std::make_shared<TAVSDKVideoData>();
    }
    return video;
  }
  std::shared_ptr<TAVSDKBandwidthMetricData> lastRequest() const {
    auto request = last()->bandwidthMetricData();
    if (!request) {
      ADD_FAILURE() << "the last event carries no request";
      request = std::make_shared<TAVSDKBandwidthMetricData>();
    }
    return request;
  }
  /// Starts a view and plays it: play request, preroll with buffering, playing.
  void startPlaying() {
    reporter.uriChanged(kUri);
    reporter.stateChanged(S::Null, S::Ready, S::Playing, 0);
    reporter.buffering(20, 10);
    reporter.stateChanged(S::Ready, S::Paused, S::VoidPending, 20);  // the app waits for data
    reporter.buffering(100, 300);
    reporter.stateChanged(S::Paused, S::Playing, S::VoidPending, 310);
    drain();
  }

  ViewReporter reporter;
  std::vector<TAVSDKEventPtr> events;
  std::size_t seen = 0;
};

using Types = std::vector<std::string>;

TEST_F(ViewReporterTest, ViewLifecycleKeepsUserPausesApartFromBufferingPauses) {
  reporter.uriChanged(kUri);
  EXPECT_EQ(drain(), (Types{"viewinit", "DataEvent"}));
  const auto data = lastData();
  const auto customerPlayer = data->customerPlayerData();
  const auto customerVideo = data->customerVideoData();
  ASSERT_TRUE(customerPlayer && customerVideo);
  EXPECT_EQ(customerPlayer->environmentKey(), "local");
  EXPECT_EQ(customerVideo->videoId(), "clip-1");
  EXPECT_EQ(lastVideo()->videoSourceUrl(), kUri);
  EXPECT_EQ(lastVideo()->videoSourceHostName(), "media.test");

  // Playing is requested at once; the buffering pause of the start is no pause.
  reporter.stateChanged(S::Null, S::Ready, S::Playing, 0);
  EXPECT_EQ(drain(), Types{"play"});
  EXPECT_EQ(last()->playerData()->playerIsPaused(), false);
  reporter.buffering(20, 10);
  reporter.stateChanged(S::Ready, S::Paused, S::VoidPending, 20);
  reporter.tick();
  EXPECT_TRUE(drain().empty()) << "no pause, no timeupdate before frames flow";
  reporter.buffering(100, 300);
  reporter.setPlayhead(0);
  reporter.stateChanged(S::Paused, S::Playing, S::VoidPending, 310);
  EXPECT_EQ(drain(), Types{"playing"});

  reporter.setPlayhead(250);
  reporter.tick();
  EXPECT_EQ(drain(), Types{"timeupdate"});
  EXPECT_EQ(last()->playerData()->playerPlayheadTime(), 250);
  const auto player = last()->playerData();
  EXPECT_EQ(player->playerSoftwareName(), "GStreamer");
  EXPECT_EQ(player->playerTavPluginName(), "tavcore-gstreamer");

  // A stall: the application pauses while buffering; ticks go on with a frozen playhead.
  reporter.buffering(40, 5000);
  reporter.stateChanged(S::Playing, S::Paused, S::VoidPending, 5010);
  reporter.tick();
  reporter.tick();
  EXPECT_EQ(drain(), (Types{"timeupdate", "timeupdate"}));
  EXPECT_EQ(last()->playerData()->playerIsPaused(), false);
  reporter.buffering(100, 7000);
  reporter.stateChanged(S::Paused, S::Playing, S::VoidPending, 7010);
  EXPECT_TRUE(drain().empty()) << "resuming after buffering is not a new play";

  // The user's pause and resume.
  reporter.setPlayhead(3000);
  reporter.stateChanged(S::Playing, S::Paused, S::VoidPending, 20000);
  EXPECT_EQ(drain(), Types{"pause"});
  EXPECT_EQ(last()->playerData()->playerIsPaused(), true);
  reporter.tick();
  EXPECT_TRUE(drain().empty()) << "no timeupdate while paused";
  reporter.stateChanged(S::Paused, S::Playing, S::VoidPending, 22000);
  EXPECT_EQ(drain(), (Types{"play", "playing"}));

  reporter.endOfStream();
  reporter.endOfStream();
  reporter.tick();
  EXPECT_EQ(drain(), Types{"ended"});
  EXPECT_EQ(last()->playerData()->playerIsPaused(), true);
  // Going down to NULL after the end is no pause.
  reporter.stateChanged(S::Playing, S::Paused, S::Null, 30000);
  reporter.detach();
  EXPECT_EQ(drain(), Types{"viewend"});
  reporter.detach();
  EXPECT_TRUE(drain().empty());
}

TEST_F(ViewReporterTest, PauseJustAfterBufferingEndedIsTheApplicationsLateReaction) {
  startPlaying();
  // Bus messages reach the application late: its pause for a short buffering
  // (a rendition switch) can land after the buffering ended.
  reporter.buffering(30, 10000);
  reporter.buffering(100, 10050);
  reporter.stateChanged(S::Playing, S::Paused, S::VoidPending, 10200);
  reporter.stateChanged(S::Paused, S::Playing, S::VoidPending, 10210);
  EXPECT_TRUE(drain().empty());
  // Well after it, a pause is the user's.
  reporter.stateChanged(S::Playing, S::Paused, S::VoidPending, 11100);
  EXPECT_EQ(drain(), Types{"pause"});
}

TEST_F(ViewReporterTest, SeekSendsInternalSeekingAndSeekedOnlyAndPausesTheTicks) {
  startPlaying();
  reporter.setPlayhead(2000);
  reporter.seekStarted();
  EXPECT_EQ(drain(), Types{"internalseeking"}) << "the core derives the one \"seeking\" itself";
  EXPECT_EQ(last()->playerData()->playerPlayheadTime(), 2000);
  // The flushing seek loses the state and recovers it: no pause, no play.
  reporter.stateChanged(S::Playing, S::Paused, S::Playing, 100);
  reporter.buffering(10, 100);
  reporter.tick();
  reporter.buffering(100, 150);
  reporter.stateChanged(S::Paused, S::Paused, S::Playing, 160);
  EXPECT_TRUE(drain().empty());
  reporter.setPlayhead(6000);
  reporter.asyncDone();
  reporter.asyncDone();
  EXPECT_EQ(drain(), Types{"seeked"}) << "an ASYNC_DONE without a seek ends nothing";
  EXPECT_EQ(last()->playerData()->playerPlayheadTime(), 6000);
  reporter.stateChanged(S::Paused, S::Playing, S::VoidPending, 170);
  reporter.tick();
  EXPECT_EQ(drain(), Types{"timeupdate"});
}

TEST_F(ViewReporterTest, RenditionsCarryTheAdvertisedBitrateOfTheVariantShown) {
  reporter.uriChanged(kUri);
  reporter.masterPlaylist(kUri, kMaster);
  EXPECT_EQ(lastVideo()->videoSourceMimeType(), "application/x-mpegURL");
  drain();

  reporter.videoFormat(256, 144, 25.0);
  EXPECT_EQ(drain(), Types{"DataEvent"}) << "the first format describes the source";
  auto videoData = lastVideo();
  EXPECT_EQ(videoData->videoSourceWidth(), 256);
  EXPECT_EQ(videoData->videoSourceHeight(), 144);
  EXPECT_EQ(videoData->videoSourceAdvertisedBitrate(), Json(290400));
  EXPECT_EQ(videoData->videoSourceAdvertisedFrameRate(), Json(25.0));
  reporter.videoFormat(256, 144, 25.0);
  EXPECT_TRUE(drain().empty());

  reporter.stateChanged(S::Paused, S::Playing, S::VoidPending, 0);
  reporter.variantSelected("http://media.test:8000/show/v2/index.m3u8", 950400);
  reporter.videoFormat(640, 360, 25.0);
  EXPECT_EQ(drain(), (Types{"play", "playing", "DataEvent", "renditionchange"}))
      << "the video record comes before the rendition change";
  EXPECT_EQ(lastVideo()->videoSourceAdvertisedBitrate(), Json(950400));
  EXPECT_EQ(last()->playerData()->playerWidth(), 640) << "the player shows the frames as they are";

  // A size no variant offers: the demuxer's current variant.
  reporter.videoFormat(320, 180, std::nullopt);
  EXPECT_EQ(drain(), (Types{"DataEvent", "renditionchange"}));
  EXPECT_EQ(lastVideo()->videoSourceAdvertisedBitrate(), Json(950400));
  EXPECT_FALSE(lastVideo()->videoSourceAdvertisedFrameRate());
}

TEST_F(ViewReporterTest, RequestsPairHeadersWithDemuxerStatistics) {
  reporter.uriChanged(kUri);
  reporter.httpResponse({kUri, 200, "", 1000});
  reporter.masterPlaylist(kUri, kMaster);
  drain();
  reporter.manifestLoaded(kUri, 1040);
  EXPECT_EQ(drain(), Types{"requestcompleted"});
  auto manifest = lastRequest();
  EXPECT_EQ(manifest->requestType(), "manifest");
  EXPECT_EQ(manifest->requestResponseStart(), 1000);
  EXPECT_EQ(manifest->requestResponseEnd(), 1040);
  EXPECT_EQ(manifest->requestBytesLoaded(), static_cast<std::int64_t>(sizeof(kMaster) - 1));
  EXPECT_EQ(manifest->requestHostName(), "media.test");
  ASSERT_EQ(manifest->requestRenditionLists().size(), 3U);
  EXPECT_EQ(manifest->requestRenditionLists()[1], Rendition(Json(426), Json(240), Json(510400)));

  const std::string segment = "http://media.test:8000/show/v1/seg4.ts";
  reporter.httpResponse({segment, 200, "", 2050});
  reporter.segmentLoaded({segment, 2000, 2600, 150000});
  EXPECT_EQ(drain(), Types{"requestcompleted"});
  auto media = lastRequest();
  EXPECT_EQ(media->requestType(), "media");
  EXPECT_EQ(media->requestUrl(), segment);
  EXPECT_EQ(media->requestStart(), 2000);
  EXPECT_EQ(media->requestResponseStart(), 2050);
  EXPECT_EQ(media->requestResponseEnd(), 2600);
  EXPECT_EQ(media->requestBytesLoaded(), 150000);
  EXPECT_EQ(media->requestLabeledBitrate(), 510400) << "its folder names the variant";
  EXPECT_EQ(media->requestCurrentLevel(), 1);
  EXPECT_EQ(media->requestVideoHeight(), 240);

  // Headers stamped a little before the demuxer's start stay inside the request.
  const std::string next = "http://media.test:8000/show/v1/seg5.ts";
  reporter.httpResponse({next, 200, "", 2990});
  reporter.segmentLoaded({next, 3000, 3400, 1000});
  EXPECT_EQ(lastRequest()->requestResponseStart(), 3000);
  // A download without headers has no response start (no made-up latency).
  reporter.segmentLoaded({"http://media.test:8000/show/v1/seg6.ts", 4000, 4400, 1000});
  EXPECT_FALSE(lastRequest()->requestResponseStart());
  drain();

  const std::string missing = "http://media.test:8000/show/v2/seg7.ts";
  reporter.httpResponse({missing, 404, "", 5000});
  EXPECT_EQ(drain(), Types{"requestfailed"});
  EXPECT_EQ(last()->getType(), TAVSDKPlaybackEventRequestBandwidthEventErrorType);
  EXPECT_EQ(lastRequest()->requestErrorCode(), 404);
  EXPECT_EQ(lastRequest()->requestErrorText(), "HTTP 404");
  EXPECT_EQ(lastRequest()->requestUrl(), missing);
  EXPECT_EQ(lastRequest()->requestLabeledBitrate(), 950400);
}

TEST_F(ViewReporterTest, ErrorIsSentOnceAndEndsTheTicks) {
  startPlaying();
  reporter.error("resource:3", "Not Found");
  reporter.error("stream:1", "a later failure of the same view");
  reporter.tick();
  EXPECT_EQ(drain(), Types{"error"});
  EXPECT_EQ(last()->playerData()->playerErrorCode(), "resource:3");
  EXPECT_EQ(last()->playerData()->playerErrorMessage(), "Not Found");
}

TEST_F(ViewReporterTest, NewUriEndsTheViewAndStartsAFreshOne) {
  startPlaying();
  reporter.masterPlaylist(kUri, kMaster);
  reporter.uriChanged("http://media.test:8000/other/master.m3u8");
  EXPECT_EQ(drain(), (Types{"DataEvent", "viewend", "viewinit", "DataEvent"}));
  reporter.tick();
  EXPECT_TRUE(drain().empty()) << "the new view has not been played yet";
  // Segments of the old stream no longer find a variant.
  reporter.segmentLoaded({"http://media.test:8000/show/v1/seg9.ts", 1, 2, 3});
  EXPECT_FALSE(lastRequest()->requestLabeledBitrate());
}

TEST(ViewReporterErrorText, ShortensGStreamerDomainsAndMessages) {
  EXPECT_EQ(errorCode("gst-resource-error-quark", 3), "resource:3");
  EXPECT_EQ(errorCode("gst-stream-error-quark", 6), "stream:6");
  EXPECT_EQ(errorCode("g-io-error-quark", 1), "g-io-error-quark:1");
  EXPECT_EQ(errorCode("gst--error-quark", 2), "gst--error-quark:2");
  // Demuxers append the debug text of the failing source to its message.
  EXPECT_EQ(errorMessage("Not Found: ../ext/soup/gstsouphttpsrc.c(1683): parse_status (): "
                         "/GstPlayBin:player/GstSoupHTTPSrc:src:\nNot Found (404)"),
            "Not Found");
  EXPECT_EQ(errorMessage("Internal data stream error."), "Internal data stream error.");
  EXPECT_EQ(errorMessage("first line\nsecond line"), "first line");
  EXPECT_EQ(errorMessage(": /only/a/location"), ": /only/a/location");
}

}  // namespace
}  // namespace tav::gstreamer
