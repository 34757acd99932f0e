// The field dictionary from session data long names to short keys and records.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "RecordKeys.h"
#include "tav/data/TAVSDKField.h"

namespace tav {
namespace {

TEST(FieldDictionary, LookupIsExactAndCaseSensitive) {
  ASSERT_NE(TAVSDKField::searchWithKey("custom_3"), nullptr);
  for (const char* miss : {"Custom_3", "CUSTOM_3", "custom_3 ", "custom_6", "custom", ""}) {
    EXPECT_EQ(TAVSDKField::searchWithKey(miss), nullptr) << miss;
  }
}

TEST(FieldDictionary, TableIsBuiltOnceAndEachEntryIsFoundAndNamesAKeyOfItsRecord) {
  const auto& mapping = TAVSDKField::indexMapping();
  EXPECT_EQ(&mapping, &TAVSDKField::indexMapping());
  ASSERT_EQ(mapping.size(), 25U);

  std::set<std::string> names;
  std::set<std::string> codes;
  for (const auto& [name, field] : mapping) {
    ASSERT_NE(field, nullptr) << name;
    names.insert(name);
    codes.insert(field->code());
    EXPECT_EQ(TAVSDKField::searchWithKey(name), field) << name;
    // An unknown data type has no keys, so this fails as well.
    const auto keys = test::keysOfDataType(field->dataType());
    EXPECT_NE(std::find(keys.begin(), keys.end(), field->code()), keys.end())
        << name << " -> " << field->code() << " is not a key of data type " << field->dataType();
    if (name.rfind("custom_", 0) == 0) {
      EXPECT_EQ(field->dataType(), 5) << name;
      EXPECT_EQ(field->code(), std::string("c").append(name, 7)) << name;
    }
  }
  EXPECT_EQ(names.size(), mapping.size());
  EXPECT_EQ(codes.size(), mapping.size());
}

TEST(FieldDictionary, DeliberateOwnershipSplitAndOrder) {
  const auto& mapping = TAVSDKField::indexMapping();
  EXPECT_EQ(mapping.front().first, "internal_view_session_id");
  EXPECT_EQ(mapping.front().second->code(), INTERNAL_VIEW_SESSION_ID);
  EXPECT_EQ(mapping.back().first, "custom_5");

  // Internal experiments go to the video record, the customer-facing ones to the
  // customer video record; viewer user id and experiment name to the customer player.
  EXPECT_EQ(TAVSDKField::searchWithKey("internal_video_experiments")->dataType(), 1);
  EXPECT_EQ(TAVSDKField::searchWithKey("video_experiments")->dataType(), 2);
  EXPECT_EQ(TAVSDKField::searchWithKey("viewer_user_id")->dataType(), 3);
  EXPECT_EQ(TAVSDKField::searchWithKey("experiment_name")->dataType(), 3);
  EXPECT_EQ(TAVSDKField::searchWithKey("video_source_url")->code(), VIDEO_SOURCE_URL__);
}

}  // namespace
}  // namespace tav
