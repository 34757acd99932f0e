// Merging, removal, snapshots and upsert of the query data base, seen through
// the records that use it.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include "tav/data/TAVSDKCustomData.h"
#include "tav/data/TAVSDKCustomerPlayerData.h"
#include "tav/data/TAVSDKCustomerVideoData.h"
#include "tav/data/TAVSDKCustomerViewData.h"
#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKVideoData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKBaseEvent.h"

namespace tav {
namespace {

// `levels` arrays around a number, built without recursion.
Json nested(int levels) {
  Json value = 1;
  for (int level = 0; level < levels; ++level) {
    Json outer = Json::array();
    outer.push_back(std::move(value));
    value = std::move(outer);
  }
  return value;
}

// Found by fuzzing: a value 100000 levels deep overflowed the stack when copied.
TEST(QueryDataMerge, ValuesNestedBeyond128LevelsAreRefusedEverywhere) {
  TAVSDKVideoData record;
  record.update({{"a", "1"}});
  Json data = Json::object();
  data["a"] = nested(100000);
  data["limit"] = nested(128);
  record.update(data);
  EXPECT_EQ(record.get("a"), Json("1")) << "the old value stays";
  EXPECT_TRUE(record.get("limit").has_value());
  data.erase("limit");
  data["b"] = nested(129);
  record.updateIfNull(data);
  EXPECT_FALSE(record.get("b").has_value());
  record.setVideoSourceAdvertisedBitrate(nested(100000));
  EXPECT_FALSE(record.videoSourceAdvertisedBitrate().has_value());
  record.setQuery(data);
  EXPECT_EQ(record.size(), 0U);

  TAVSDKSessionDataEvent session;
  session.setSessionData({{"video_id", nested(100000)}, {"custom_1", "c"}});
  EXPECT_EQ(session.customerVideoData(), nullptr);
  ASSERT_NE(session.customData(), nullptr);
  EXPECT_EQ(session.customData()->toQuery().size(), 1U);
}

TEST(QueryDataMerge, UpdateOverwritesUpdateIfNullFillsGapsAndOnlyKeysRemove) {
  TAVSDKCustomData custom;
  custom.update(Json{{"c1", "A"}});
  custom.update(Json{{"c1", "B"}, {"c2", "y"}});
  EXPECT_EQ(custom.get("c1"), Json("B"));
  custom.updateIfNull(Json{{"c1", "C"}, {"c3", "z"}});
  EXPECT_EQ(custom.get("c1"), Json("B"));
  EXPECT_EQ(custom.get("c3"), Json("z"));
  TAVSDKViewData empty;
  empty.updateIfNull(Json{{"xid", "C"}});
  EXPECT_EQ(empty.get("xid"), Json("C"));

  // The null marker removes on update; a gap filled with it by updateIfNull
  // holds it, and typed getters read it as nothing.
  custom.update(Json{{"c1", nullptr}});
  EXPECT_FALSE(custom.get("c1").has_value());
  EXPECT_EQ(custom.customData1(), std::nullopt);
  EXPECT_EQ(custom.customData2(), "y");
  custom.updateIfNull(Json{{"c5", nullptr}});
  ASSERT_TRUE(custom.get("c5").has_value());
  EXPECT_TRUE(custom.get("c5")->is_null());
  EXPECT_EQ(custom.customData5(), std::nullopt);

  // removeAll uses only the keys and ignores unknown ones.
  custom.removeAll(Json{{"c3", "any value"}, {"c5", 0}, {"not-there", 1}});
  EXPECT_EQ(custom.toQuery(), (Json{{"c2", "y"}}));
  // Absent or non-object data changes nothing.
  custom.update(Json());
  custom.update(Json::array({"c2"}));
  custom.updateIfNull(Json());
  custom.removeAll(Json());
  custom.remove("missing");
  EXPECT_EQ(custom.toQuery(), (Json{{"c2", "y"}}));
}

TEST(QueryDataMerge, ToQueryIsASnapshotAndSetQueryReplacesEverything) {
  TAVSDKViewData view;
  view.setViewId("first");
  Json snapshot = view.toQuery();
  view.setViewRebufferCount(1);
  view.setViewId("second");
  EXPECT_FALSE(snapshot.contains("xreco"));
  EXPECT_EQ(snapshot["xid"], "first");
  snapshot["xid"] = "edited";
  EXPECT_EQ(view.viewId(), "second");

  // Null markers in the new content are dropped.
  view.setQuery(Json{{"xen", "9"}, {"c4", nullptr}});
  EXPECT_EQ(view.toQuery(), (Json{{"xen", "9"}}));
  EXPECT_EQ(view.viewRebufferCount(), std::nullopt);
  view.setQuery(Json::object());
  EXPECT_TRUE(view.toQuery().empty());
  EXPECT_EQ(view.size(), 0U);
  // Unlike the merges, absent data empties the record.
  view.setQuery(Json{{"xen", "9"}});
  view.setQuery(Json());
  EXPECT_TRUE(view.toQuery().empty());
}

template <class Record>
class UpsertTest : public ::testing::Test {};
using UpsertableRecords =
    ::testing::Types<TAVSDKViewData, TAVSDKVideoData, TAVSDKCustomerVideoData,
                     TAVSDKCustomerPlayerData, TAVSDKCustomerViewData, TAVSDKCustomData>;
TYPED_TEST_SUITE(UpsertTest, UpsertableRecords);

TYPED_TEST(UpsertTest, NilMakesANewRecordHoldingExactlyTheDataExistingIsMergedInPlace) {
  const Json first{{"k1", "a"}, {"k2", "b"}};
  std::shared_ptr<TypeParam> record = TypeParam::upsertWithData(nullptr, first);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->toQuery(), first);

  const auto same = TypeParam::upsertWithData(record, Json{{"k2", "c"}, {"k3", 3}});
  EXPECT_EQ(same.get(), record.get());
  EXPECT_EQ(record->toQuery(), (Json{{"k1", "a"}, {"k2", "c"}, {"k3", 3}}));

  // A second upsert into an empty slot makes a distinct record.
  const auto other = TypeParam::upsertWithData(nullptr, first);
  EXPECT_NE(other.get(), record.get());
}

// One thread writes whole batches while another reads: a reader must never see
// setQuery's clear-and-fill or a batch of update half done.
TEST(QueryDataConcurrent, ReadersSeeOnlyWholeMutations) {
  auto view = std::make_shared<TAVSDKViewData>();
  view->setQuery(Json{{"xid", "view"}, {"xen", "0"}});
  constexpr int kRounds = 2000;

  std::thread writer([view] {
    for (int i = 1; i <= kRounds; ++i) {
      const std::string n = std::to_string(i);
      view->setQuery(Json{{"xid", "view"}, {"xen", n}});
      view->update(Json{{"xreco", n}, {"xskco", n}});
    }
  });

  int inconsistent = 0;
  std::int64_t lastEnd = 0;
  for (int i = 0; i < kRounds; ++i) {
    const Json snapshot = view->toQuery();
    const auto end = field::parseInt64(snapshot.value("xen", Json("-1")));
    if (snapshot.value("xid", "") != "view" || end < lastEnd) ++inconsistent;
    if (snapshot.contains("xreco") != snapshot.contains("xskco")) ++inconsistent;
    if (snapshot.contains("xreco") && snapshot["xreco"] != snapshot["xen"]) ++inconsistent;
    lastEnd = end;
    if (const auto id = view->get("xid"); !id || *id != "view") ++inconsistent;
    (void)view->viewRebufferCount();
  }
  writer.join();

  EXPECT_EQ(inconsistent, 0);
  EXPECT_EQ(view->viewEnd(), kRounds);
  EXPECT_EQ(view->viewSeekCount(), kRounds);
}

}  // namespace
// Two writers make grouped steps under the record lock (taking it again for
// each mutation and reading their own record inside the step) while a third
// thread reads: the groups exclude each other and readers see only whole steps.
TEST(QueryDataConcurrent, GroupedStepsUnderTheRecordLockAreAtomic) {
  TAVSDKQueryData record;
  record.setQuery(Json{{"a", "0"}, {"b", "0"}});
  constexpr int kRounds = 1500;
  std::atomic<int> torn{0};
  const auto writer = [&](const std::string& tag) {
    for (int i = 0; i < kRounds; ++i) {
      const std::lock_guard step(record.recordLock());
      const std::string value = tag + std::to_string(i);
      record.setText("a", value);
      if (record.get("a") != Json(value)) ++torn;  // a writer reads its own record
      std::this_thread::yield();                   // invites the others in, mid-step
      record.set("b", Json(value));
    }
  };
  std::thread first(writer, "x");
  std::thread second(writer, "y");
  for (int i = 0; i < kRounds; ++i) {
    const Json snapshot = record.toQuery();
    if (snapshot["a"] != snapshot["b"]) ++torn;
  }
  first.join();
  second.join();
  EXPECT_EQ(torn.load(), 0);
  const Json last = record.toQuery();
  EXPECT_EQ(last["a"], last["b"]);
  EXPECT_TRUE(last["a"] == Json("x1499") || last["a"] == Json("y1499"));
}

}  // namespace tav
