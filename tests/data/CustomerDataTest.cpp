// The customer data bundle: a snapshot of its parts, replaced part by part.

#include <gtest/gtest.h>

#include <memory>

#include "tav/data/TAVSDKCustomerData.h"

namespace tav {
namespace {

std::shared_ptr<TAVSDKCustomData> customWith(const Json& slots) {
  auto custom = std::make_shared<TAVSDKCustomData>();
  custom->update(slots);
  return custom;
}

struct Parts {
  std::shared_ptr<TAVSDKCustomerPlayerData> player =
      TAVSDKCustomerPlayerData::initWithEnvironmentKey("envkey");
  std::shared_ptr<TAVSDKCustomerVideoData> video = std::make_shared<TAVSDKCustomerVideoData>();
  std::shared_ptr<TAVSDKCustomerViewData> view = std::make_shared<TAVSDKCustomerViewData>();
  Parts() {
    video->setVideoTitle("Title");
    view->setViewSessionId("session");
  }
  [[nodiscard]] Json unionOfParts() const {
    Json all = player->toQuery();
    all.update(video->toQuery());
    all.update(view->toQuery());
    return all;
  }
};

TEST(CustomerDataBundle, ThreePartFormHasNoCustomSlotsAndNoViewer) {
  const Parts parts;
  const TAVSDKCustomerData bundle(parts.player, parts.video, parts.view);
  EXPECT_EQ(bundle.toQuery(), parts.unionOfParts());
  EXPECT_EQ(bundle.customData(), nullptr);
  EXPECT_EQ(bundle.customerViewerData(), nullptr);
  EXPECT_EQ(bundle.customerPlayerData(), parts.player);
  EXPECT_EQ(bundle.customerVideoData(), parts.video);
  EXPECT_EQ(bundle.customerViewData(), parts.view);
}

TEST(CustomerDataBundle, ReplacingAPartDropsEveryKeyTheOldPartHad) {
  const Parts parts;
  TAVSDKCustomerData bundle(parts.player, parts.video, parts.view,
                            customWith(Json{{"c1", "one"}, {"c2", "two"}}));
  EXPECT_TRUE(bundle.get("c1").has_value());

  const auto onlyThird = customWith(Json{{"c3", "three"}});
  bundle.setCustomData(onlyThird);
  Json expected = parts.unionOfParts();
  expected["c3"] = "three";
  EXPECT_EQ(bundle.toQuery(), expected);
  EXPECT_EQ(bundle.customData(), onlyThird);

  bundle.setCustomerVideoData(nullptr);
  EXPECT_FALSE(bundle.get("vtt").has_value());
  EXPECT_EQ(bundle.customerVideoData(), nullptr);
  EXPECT_EQ(bundle.get("xseid"), Json("session"));
}

TEST(CustomerDataBundle, IsASnapshotUntilThePartIsSetAgain) {
  const Parts parts;
  TAVSDKCustomerData bundle(parts.player, parts.video, parts.view);
  parts.video->setVideoTitle("Changed");
  parts.video->setVideoSeries("Series");
  EXPECT_EQ(bundle.get("vtt"), Json("Title"));
  EXPECT_FALSE(bundle.get("vsr").has_value());

  bundle.setCustomerVideoData(parts.video);
  EXPECT_EQ(bundle.get("vtt"), Json("Changed"));
  EXPECT_EQ(bundle.get("vsr"), Json("Series"));
}

TEST(CustomerDataBundle, KeysAreRemovedByNameWhicheverPartPutThemThere) {
  const Parts parts;
  // A custom record that also carries the view session key.
  const auto overlapping = customWith(Json{{"c1", "one"}, {"xseid", "from-custom"}});
  TAVSDKCustomerData bundle(parts.player, parts.video, parts.view, overlapping);
  EXPECT_EQ(bundle.get("xseid"), Json("from-custom"));

  bundle.setCustomData(nullptr);
  EXPECT_FALSE(bundle.get("xseid").has_value());
  EXPECT_FALSE(bundle.get("c1").has_value());
  EXPECT_EQ(bundle.customerViewData(), parts.view);
}

TEST(CustomerDataBundle, ViewerRecordIsAPlainReferenceThatAddsNoKeys) {
  const Parts parts;
  auto viewer = std::make_shared<TAVSDKCustomerViewerData>();
  viewer->setViewerApplicationName("app");
  TAVSDKCustomerData bundle(parts.player, parts.video, parts.view, nullptr, viewer);
  EXPECT_EQ(bundle.customerViewerData(), viewer);
  EXPECT_EQ(bundle.toQuery(), parts.unionOfParts());

  const Json before = bundle.toQuery();
  bundle.setCustomerViewerData(nullptr);
  EXPECT_EQ(bundle.toQuery(), before);
  EXPECT_EQ(viewer->viewerApplicationName(), "app");
}

}  // namespace
}  // namespace tav
