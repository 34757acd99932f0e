#pragma once
// The key constants of each record table, collected from the records' own field
// lists, for tests that check properties of the keys.

#include <string>
#include <vector>

#include "tav/data/TAVSDKBandwidthMetricData.h"
#include "tav/data/TAVSDKCustomData.h"
#include "tav/data/TAVSDKCustomerPlayerData.h"
#include "tav/data/TAVSDKCustomerVideoData.h"
#include "tav/data/TAVSDKCustomerViewData.h"
#include "tav/data/TAVSDKEnvironmentData.h"
#include "tav/data/TAVSDKPlayerData.h"
#include "tav/data/TAVSDKVideoData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/data/TAVSDKViewerData.h"

namespace tav::test {

#define TAV_TEST_COLLECT_KEY(prop, Prop, KEY, code, Kind) std::string(KEY),

struct RecordKeys {
  const char* record;
  std::vector<std::string> keys;
};

// Every beacon record with all the keys its accessors write.
inline std::vector<RecordKeys> allRecordKeys() {
  return {
      {"view", {TAV_VIEW_DATA_FIELDS(TAV_TEST_COLLECT_KEY) VIEW_DEVICE_ORIENTATION}},
      {"player", {TAV_PLAYER_DATA_FIELDS(TAV_TEST_COLLECT_KEY)}},
      {"environment", {TAV_ENVIRONMENT_DATA_FIELDS(TAV_TEST_COLLECT_KEY)}},
      {"viewer", {TAV_VIEWER_DATA_FIELDS(TAV_TEST_COLLECT_KEY)}},
      {"video", {TAV_VIDEO_DATA_FIELDS(TAV_TEST_COLLECT_KEY)}},
      {"customerVideo", {TAV_CUSTOMER_VIDEO_DATA_FIELDS(TAV_TEST_COLLECT_KEY)}},
      {"customerPlayer",
       {TAV_CUSTOMER_PLAYER_DATA_FIELDS(TAV_TEST_COLLECT_KEY) ENV_KEY, AUTOPLAY_ON}},
      {"customerView", {TAV_CUSTOMER_VIEW_DATA_FIELDS(TAV_TEST_COLLECT_KEY)}},
      {"custom", {TAV_CUSTOM_DATA_FIELDS(TAV_TEST_COLLECT_KEY)}},
      {"bandwidth",
       {TAV_BANDWIDTH_METRIC_DATA_FIELDS(TAV_TEST_COLLECT_KEY) REQUEST_RENDITION_LISTS}},
  };
}

#undef TAV_TEST_COLLECT_KEY

// The keys of the record that a field dictionary data type names (0 to 5).
inline std::vector<std::string> keysOfDataType(std::int64_t dataType) {
  static const char* const kByType[] = {"view",           "video",        "customerVideo",
                                        "customerPlayer", "customerView", "custom"};
  if (dataType < 0 || dataType > 5) return {};
  for (auto& entry : allRecordKeys()) {
    if (std::string(entry.record) == kByType[dataType]) return entry.keys;
  }
  return {};
}

}  // namespace tav::test
