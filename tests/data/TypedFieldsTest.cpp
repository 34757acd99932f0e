// Typed accessors: how numbers, booleans and texts are written and read back,
// and the deliberately irregular accessors.

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "RecordKeys.h"

namespace tav {
namespace {

TEST(TypedNumberFields, IntegersAndBooleansAreStoredAsDecimalTextAndReadBack) {
  TAVSDKBandwidthMetricData request;
  request.setRequestCurrentLevel(3);
  EXPECT_EQ(request.get(REQUEST_CURRENT_LEVEL), Json("3"));
  EXPECT_EQ(request.requestCurrentLevel(), 3);

  request.setRequestBytesLoaded(1048576);
  EXPECT_EQ(request.get(REQUEST_BYTES_LOADED), Json("1048576"));
  EXPECT_EQ(request.requestBytesLoaded(), std::int64_t{1048576});

  // 64-bit fields keep values beyond 32 bits.
  const std::int64_t big = (std::int64_t{1} << 40) + 7;
  TAVSDKPlayerData player;
  player.setPlayerPlayheadTime(big);
  EXPECT_EQ(player.get(PLAYER_PLAYHEAD_TIME), Json(std::to_string(big)));
  EXPECT_EQ(player.playerPlayheadTime(), big);

  player.setPlayerIsPaused(false);
  EXPECT_EQ(player.get(PLAYER_IS_PAUSED), Json("0"));
  EXPECT_EQ(player.playerIsPaused(), false);
  TAVSDKCustomerVideoData video;
  video.setVideoIsLive(true);
  EXPECT_EQ(video.get(VIDEO_IS_LIVE), Json("1"));
  EXPECT_EQ(video.videoIsLive(), true);
}

TEST(TypedNumberFields, DoublesUseTheShortestTextAndLatencyGettersTruncateTowardZero) {
  TAVSDKViewData view;
  view.setViewRebufferPercentage(0.25);
  EXPECT_EQ(view.get(VIEW_REBUFFER_PERCENTAGE), Json("0.25"));
  EXPECT_EQ(view.viewRebufferPercentage(), 0.25);
  view.setViewTotalUpscaling(12.0);
  EXPECT_EQ(view.get(VIEW_TOTAL_UPSCALING), Json("12"));

  view.setViewMaxRequestLatency(250.9);
  EXPECT_EQ(view.get(VIEW_MAX_REQUEST_LATENCY), Json("250.9"));
  EXPECT_EQ(view.viewMaxRequestLatency(), 250);
  view.setViewAverageRequestLatency(-12.75);
  EXPECT_EQ(view.viewAverageRequestLatency(), -12);
}

TEST(TypedNumberFields, AbsentIsNulloptButUnparsableTextIsZero) {
  TAVSDKViewData view;
  EXPECT_EQ(view.viewRebufferCount(), std::nullopt);
  EXPECT_EQ(view.viewRebufferPercentage(), std::nullopt);
  EXPECT_EQ(view.viewPrerollPlayed(), std::nullopt);

  view.update(Json{{VIEW_REBUFFER_COUNT, "no digits"},
                   {VIEW_REBUFFER_PERCENTAGE, "none"},
                   {VIEW_PREROLL_PLAYED, "no"},
                   {VIEW_MAX_REQUEST_LATENCY, ""}});
  EXPECT_EQ(view.viewRebufferCount(), 0);
  EXPECT_EQ(view.viewRebufferPercentage(), 0.0);
  EXPECT_EQ(view.viewPrerollPlayed(), false);
  EXPECT_EQ(view.viewMaxRequestLatency(), 0);

  view.setViewRebufferCount(2);
  view.setViewRebufferCount(std::nullopt);
  EXPECT_FALSE(view.get(VIEW_REBUFFER_COUNT).has_value());
  EXPECT_EQ(view.viewRebufferCount(), std::nullopt);
}

// Session data stores values as given, so a number field may hold a JSON number.
TEST(TypedNumberFields, StoredJsonNumbersAreConvertedByTheGetters) {
  const auto video = TAVSDKCustomerVideoData::upsertWithData(
      nullptr, Json{{VIDEO_DURATION, 1200}, {VIDEO_IS_LIVE, 1}, {VIDEO_ID, 42}});
  ASSERT_TRUE(video->get(VIDEO_DURATION)->is_number());
  EXPECT_EQ(video->videoDuration(), std::int64_t{1200});
  EXPECT_EQ(video->videoIsLive(), true);
  // A text getter answers a stored number as its JSON text.
  EXPECT_EQ(video->videoId(), "42");

  TAVSDKViewData view;
  view.update(Json{{VIEW_REBUFFER_COUNT, 7.9}, {VIEW_MAX_REQUEST_LATENCY, -3.5}});
  EXPECT_EQ(view.viewRebufferCount(), 7);
  EXPECT_EQ(view.viewMaxRequestLatency(), -3);
}

TEST(TypedTextFields, TextIsStoredUnchangedAndNulloptRemovesIt) {
  TAVSDKPlayerData player;
  player.setPlayerIsFullscreen("Fullscreen: YES ");
  EXPECT_EQ(player.get(PLAYER_IS_FULLSCREEN), Json("Fullscreen: YES "));
  player.setPlayerErrorCode("-1100");
  EXPECT_EQ(player.get(PLAYER_ERROR_CODE), Json("-1100"));

  TAVSDKEnvironmentData environment;
  environment.setSessionStart(1000);
  environment.setSessionId("S");
  environment.setSessionStart(std::nullopt);
  EXPECT_EQ(environment.toQuery(), (Json{{SESSION_ID, "S"}}));

  // A stored non-text value reads as its JSON text; invalid UTF-8 in it is replaced
  // (found by fuzzing: the getter threw).
  player.update({{PLAYER_ERROR_CODE, Json::array({"\xff", 2})}});
  EXPECT_EQ(player.playerErrorCode(), "[\"\xEF\xBF\xBD\",2]");

  TAVSDKViewerData viewer;
  viewer.setViewerDeviceModel("model-a");
  viewer.setTavViewerDeviceModel("model-b");
  EXPECT_EQ(viewer.toQuery().size(), 2U);
  EXPECT_EQ(viewer.viewerDeviceModel(), "model-a");
  EXPECT_EQ(viewer.tavViewerDeviceModel(), "model-b");
}

TEST(IrregularFields, AdvertisedBitrateAndFrameRateAreKeptAsGiven) {
  TAVSDKVideoData video;
  video.setVideoSourceAdvertisedBitrate(Json(2500000));
  video.setVideoSourceAdvertisedFrameRate(Json(29.97));
  const Json query = video.toQuery();
  ASSERT_TRUE(query[VIDEO_SOURCE_ADVERTISED_BITRATE].is_number_integer());
  EXPECT_EQ(query[VIDEO_SOURCE_ADVERTISED_BITRATE].get<std::int64_t>(), 2500000);
  ASSERT_TRUE(query[VIDEO_SOURCE_ADVERTISED_FRAMERATE].is_number_float());
  EXPECT_EQ(video.videoSourceAdvertisedFrameRate(), Json(29.97));

  video.setVideoSourceAdvertisedBitrate(std::nullopt);
  EXPECT_FALSE(video.get(VIDEO_SOURCE_ADVERTISED_BITRATE).has_value());
  EXPECT_EQ(video.toQuery().size(), 1U);
}

TEST(IrregularFields, CustomerPlayerAutoplayIsTheWordTrueOrFalse) {
  TAVSDKCustomerPlayerData player;
  EXPECT_FALSE(player.playerAutoplayOn());
  player.setPlayerAutoplayOn(true);
  EXPECT_EQ(player.get(AUTOPLAY_ON), Json("true"));
  EXPECT_TRUE(player.playerAutoplayOn());
  player.setPlayerAutoplayOn(false);
  EXPECT_EQ(player.get(AUTOPLAY_ON), Json("false"));
  EXPECT_FALSE(player.playerAutoplayOn());
  for (const Json& other : {Json("1"), Json("TRUE"), Json(true), Json("true ")}) {
    player.update(Json{{AUTOPLAY_ON, other}});
    EXPECT_FALSE(player.playerAutoplayOn()) << other;
  }
  // The player record reads the same key as plain text.
  TAVSDKPlayerData plain;
  plain.update(player.toQuery());
  EXPECT_EQ(plain.playerAutoplayOn(), player.get(AUTOPLAY_ON)->get<std::string>());
}

TEST(IrregularFields, EnvironmentAndPropertyKeyAreOneField) {
  const auto byEnvironment = TAVSDKCustomerPlayerData::initWithEnvironmentKey("abc123");
  const auto byProperty = TAVSDKCustomerPlayerData::initWithPropertyKey("abc123");
  EXPECT_EQ(byEnvironment->toQuery(), byProperty->toQuery());
  EXPECT_EQ(byEnvironment->toQuery(), (Json{{"ake", "abc123"}}));

  byProperty->setPropertyKey("other");
  EXPECT_EQ(byProperty->environmentKey(), "other");
  byProperty->setEnvironmentKey(std::nullopt);
  EXPECT_EQ(byProperty->propertyKey(), std::nullopt);
  EXPECT_TRUE(byProperty->toQuery().empty());
}

TEST(RecordKeyTables, KeysAreDistinctWithinARecordAndSharedOnlyWhereIntended) {
  std::map<std::string, std::set<std::string>> owners;
  for (const auto& [record, keys] : test::allRecordKeys()) {
    const std::set<std::string> unique(keys.begin(), keys.end());
    EXPECT_EQ(unique.size(), keys.size()) << record;
    for (const auto& key : keys)
      owners[key].insert(record);
  }
  std::set<std::string> shared;
  for (const auto& [key, records] : owners) {
    if (records.size() > 1) shared.insert(key);
  }
  // The source URL is written by both video records, the autoplay key by both
  // player records; nothing else may collide in a beacon.
  EXPECT_EQ(shared, (std::set<std::string>{VIDEO_SOURCE_URL, PLAYER_AUTOPLAY_ON}));
}

}  // namespace
}  // namespace tav
