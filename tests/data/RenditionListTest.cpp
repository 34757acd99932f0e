// Rendition lists of a request, stored under "qrfls" as {"media": [...]}.

#include <gtest/gtest.h>

#include <vector>

#include "tav/data/TAVSDKBandwidthMetricData.h"

namespace tav {
namespace {

TEST(RenditionList, StoresNumbersAsGivenEmptyListsTooAndNulloptRemoves) {
  TAVSDKBandwidthMetricData request;
  EXPECT_TRUE(request.requestRenditionLists().empty());
  const std::vector<Rendition> renditions{Rendition(640, 360, 800000),
                                          Rendition(1280, 720, std::nullopt)};
  request.setRequestRenditionLists(renditions);

  const Json expected = Json::parse(
      R"({"media": [{"width": 640, "height": 360, "bitrate": 800000},
                    {"width": 1280, "height": 720}]})");
  const auto stored = request.get(REQUEST_RENDITION_LISTS);
  ASSERT_TRUE(stored.has_value());
  EXPECT_EQ(*stored, expected);
  // Numbers, not their text (equality alone would not tell 640 from 640.0).
  EXPECT_TRUE((*stored)["media"][0]["width"].is_number_integer());
  EXPECT_TRUE((*stored)["media"][0]["bitrate"].is_number_integer());
  EXPECT_EQ(request.requestRenditionLists(), renditions);
  EXPECT_FALSE(request.requestRenditionLists()[1].bitrate().has_value());

  request.setRequestRenditionLists(std::vector<Rendition>{});
  EXPECT_EQ(request.get(REQUEST_RENDITION_LISTS), (Json{{"media", Json::array()}}));
  EXPECT_TRUE(request.requestRenditionLists().empty());
  request.setRequestRenditionLists(renditions);
  request.setRequestRenditionLists(std::nullopt);
  EXPECT_FALSE(request.get(REQUEST_RENDITION_LISTS).has_value());
  EXPECT_TRUE(request.requestRenditionLists().empty());
}

TEST(RenditionList, ReadsWhateverShapeTheIntegrationMergedIn) {
  TAVSDKBandwidthMetricData request;
  request.update(Json{{REQUEST_RENDITION_LISTS, Json{{"other", 1}}}});
  EXPECT_TRUE(request.requestRenditionLists().empty());

  request.update(Json{{REQUEST_RENDITION_LISTS,
                       Json::parse(R"({"media": [{"width": "640", "height": 360.5}, 7]})")}});
  const auto read = request.requestRenditionLists();
  ASSERT_EQ(read.size(), 2U);
  EXPECT_FALSE(read[0].width().has_value());
  EXPECT_EQ(read[0].height(), Json(360.5));
  EXPECT_EQ(read[1], Rendition());
}

}  // namespace
}  // namespace tav
