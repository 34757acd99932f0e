#include "tav/data/TAVSDKField.h"

#include <iterator>

#include "tav/data/TAVSDKCustomData.h"
#include "tav/data/TAVSDKCustomerPlayerData.h"
#include "tav/data/TAVSDKCustomerVideoData.h"
#include "tav/data/TAVSDKCustomerViewData.h"
#include "tav/data/TAVSDKVideoData.h"
#include "tav/data/TAVSDKViewData.h"

namespace tav {
namespace {

struct Row {
  const char* name;
  std::int64_t dataType;
  const char* code;
};

// "internal_video_experiments" belongs to the video record (1) while the other
// "video_" names belong to the customer video record (2); "viewer_user_id" and
// "experiment_name" belong to the customer player record (3).
constexpr Row kRows[] = {
    {"internal_view_session_id", 0, INTERNAL_VIEW_SESSION_ID},
    {"internal_video_experiments", 1, INTERNAL_VIDEO_EXPERIMENTS},
    {"video_experiments", 2, VIDEO_EXPERIMENTS},
    {"video_id", 2, VIDEO_ID},
    {"video_title", 2, VIDEO_TITLE},
    {"video_cdn", 2, VIDEO_CDN},
    {"video_content_type", 2, VIDEO_CONTENT_TYPE},
    {"video_duration", 2, VIDEO_DURATION},
    {"video_encoding_variant", 2, VIDEO_ENCODING_VARIANT},
    {"video_language_code", 2, VIDEO_LANGUAGE_CODE},
    {"video_producer", 2, VIDEO_PRODUCER},
    {"video_series", 2, VIDEO_SERIES},
    {"video_stream_type", 2, VIDEO_STREAM_TYPE},
    {"video_variant_name", 2, VIDEO_VARIANT_NAME},
    {"video_variant_id", 2, VIDEO_VARIANT_ID},
    {"video_is_live", 2, VIDEO_IS_LIVE},
    {"video_source_url", 2, VIDEO_SOURCE_URL__},
    {"viewer_user_id", 3, VIEWER_USER_ID},
    {"experiment_name", 3, EXPERIMENT_NAME},
    {"view_session_id", 4, VIEW_SESSION_ID},
    {"custom_1", 5, CUSTOM_DATA_1},
    {"custom_2", 5, CUSTOM_DATA_2},
    {"custom_3", 5, CUSTOM_DATA_3},
    {"custom_4", 5, CUSTOM_DATA_4},
    {"custom_5", 5, CUSTOM_DATA_5},
};

}  // namespace

TAVSDKField::TAVSDKField(std::int64_t dataType, std::string code)
    : _dataType(dataType), _code(std::move(code)) {}

const TAVSDKField::IndexMapping& TAVSDKField::indexMapping() {
  // Built once, thread-safely, on first use.
  static const IndexMapping mapping = [] {
    IndexMapping table;
    table.reserve(std::size(kRows));
    for (const Row& row : kRows) {
      table.emplace_back(row.name, std::make_shared<const TAVSDKField>(row.dataType, row.code));
    }
    return table;
  }();
  return mapping;
}

std::shared_ptr<const TAVSDKField> TAVSDKField::searchWithKey(std::string_view key) {
  for (const auto& [name, field] : indexMapping()) {
    if (name == key) return field;
  }
  return nullptr;
}

}  // namespace tav
