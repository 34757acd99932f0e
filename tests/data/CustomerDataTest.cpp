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

TEST(CustomerDataBundle, ThreePartFormHoldsTheUnionAndTheViewerAddsNoKeys) {
  const Parts parts;
  TAVSDKCustomerData bundle(parts.player, parts.video, parts.view);
  EXPECT_EQ(bundle.toQuery(), parts.unionOfParts());
  EXPECT_EQ(bundle.customData(), nullptr);
  EXPECT_EQ(bundle.customerViewerData(), nullptr);
  EXPECT_EQ(bundle.customerPlayerData(), parts.player);
  EXPECT_EQ(bundle.customerVideoData(), parts.video);
  EXPECT_EQ(bundle.customerViewData(), parts.view);

  // The viewer record is a plain reference: setting or dropping it changes no key.
  auto viewer = std::make_shared<TAVSDKCustomerViewerData>();
  viewer->setViewerApplicationName("app");
  bundle.setCustomerViewerData(viewer);
  EXPECT_EQ(bundle.customerViewerData(), viewer);
  EXPECT_EQ(bundle.toQuery(), parts.unionOfParts());
  bundle.setCustomerViewerData(nullptr);
  EXPECT_EQ(bundle.toQuery(), parts.unionOfParts());
  EXPECT_EQ(viewer->viewerApplicationName(), "app");
}

TEST(CustomerDataBundle, PartsAreSnapshotsAndReplacingOneDropsItsKeysByName) {
  const Parts parts;
  // The custom part comes later and also carries the view session key.
  TAVSDKCustomerData bundle(parts.player, parts.video, parts.view,
                            customWith(Json{{"c1", "one"}, {"c2", "two"}, {"xseid", "custom"}}));
  EXPECT_EQ(bundle.get("xseid"), Json("custom"));

  // Direct changes to a part show only once it is set again.
  parts.video->setVideoTitle("Changed");
  parts.video->setVideoSeries("Series");
  EXPECT_EQ(bundle.get("vtt"), Json("Title"));
  EXPECT_FALSE(bundle.get("vsr").has_value());
  bundle.setCustomerVideoData(parts.video);
  EXPECT_EQ(bundle.get("vtt"), Json("Changed"));
  EXPECT_EQ(bundle.get("vsr"), Json("Series"));

  // Every key of the old custom part goes, the view's session key too.
  const auto onlyThird = customWith(Json{{"c3", "three"}});
  bundle.setCustomData(onlyThird);
  Json expected = parts.unionOfParts();
  expected.erase("xseid");
  expected["c3"] = "three";
  EXPECT_EQ(bundle.toQuery(), expected);
  EXPECT_EQ(bundle.customData(), onlyThird);
  EXPECT_EQ(bundle.customerViewData(), parts.view);

  // A null part removes its keys and nothing else.
  bundle.setCustomerVideoData(nullptr);
  EXPECT_EQ(bundle.customerVideoData(), nullptr);
  expected = parts.player->toQuery();
  expected["c3"] = "three";
  EXPECT_EQ(bundle.toQuery(), expected);
}

}  // namespace
}  // namespace tav
