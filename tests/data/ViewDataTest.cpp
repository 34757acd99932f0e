// View data irregularities: the nested device orientation and the text that
// never reaches a beacon.

#include <gtest/gtest.h>

#include "tav/data/TAVSDKViewData.h"

namespace tav {
namespace {

TEST(ViewDeviceOrientation, ZOnlyFormIsStoredNestedAndMissingValuesReadAsZero) {
  const auto orientation = TAVSDKViewDeviceOrientationData::initWithZ(Json(90));
  const Json expected{{"x", 0.0}, {"y", 0.0}, {"z", 90}};
  EXPECT_EQ(orientation->toQuery(), expected);
  EXPECT_TRUE(orientation->x()->is_number_float());
  EXPECT_TRUE(orientation->z()->is_number_integer());

  TAVSDKViewData view;
  view.setViewDeviceOrientationData(orientation);
  EXPECT_EQ(view.get(VIEW_DEVICE_ORIENTATION), expected);

  const auto read = view.viewDeviceOrientationData();
  ASSERT_NE(read, nullptr);
  EXPECT_NE(read.get(), orientation.get());
  EXPECT_EQ(read->toQuery(), expected);

  view.setViewDeviceOrientationData(nullptr);
  EXPECT_FALSE(view.get(VIEW_DEVICE_ORIENTATION).has_value());
  // Missing values read as zero.
  const auto absent = view.viewDeviceOrientationData();
  ASSERT_NE(absent, nullptr);
  EXPECT_EQ(absent->toQuery(), (Json{{"x", 0.0}, {"y", 0.0}, {"z", 0.0}}));

  TAVSDKViewData partial;
  partial.update(Json{{VIEW_DEVICE_ORIENTATION, Json{{"y", -45.5}}}});
  const auto fromPartial = partial.viewDeviceOrientationData();
  EXPECT_EQ(fromPartial->toQuery(), (Json{{"x", 0.0}, {"y", -45.5}, {"z", 0.0}}));
}

TEST(ViewDataPlainField, DoubledVHostnameNeverReachesTheDictionary) {
  TAVSDKViewData view;
  view.setViewPrerollAdAssetHostname("ads.example");
  const Json before = view.toQuery();
  view.setVviewPrerollAdAssetHostname("cdn.example");
  EXPECT_EQ(view.toQuery(), before);
  EXPECT_EQ(view.vviewPrerollAdAssetHostname(), "cdn.example");
  EXPECT_EQ(view.viewPrerollAdAssetHostname(), "ads.example");
  view.setVviewPrerollAdAssetHostname(std::nullopt);
  EXPECT_EQ(view.vviewPrerollAdAssetHostname(), std::nullopt);
}

}  // namespace
}  // namespace tav
