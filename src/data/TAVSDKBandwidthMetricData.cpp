#include "tav/data/TAVSDKBandwidthMetricData.h"

namespace tav {
namespace {

constexpr char kMedia[] = "media";
constexpr char kWidth[] = "width";
constexpr char kHeight[] = "height";
constexpr char kBitrate[] = "bitrate";

Rendition::Number entryValue(const Json& entry, const char* name) {
  if (!entry.is_object()) return std::nullopt;
  const auto it = entry.find(name);
  if (it == entry.end()) return std::nullopt;
  return *it;
}

}  // namespace

std::vector<Rendition> TAVSDKBandwidthMetricData::requestRenditionLists() const {
  std::vector<Rendition> renditions;
  const auto stored = get(REQUEST_RENDITION_LISTS);
  if (!stored || !stored->is_object()) return renditions;
  const auto found = stored->find(kMedia);
  if (found == stored->end() || !found->is_array()) return renditions;
  const auto& media = found->get_ref<const Json::array_t&>();
  renditions.reserve(media.size());
  for (const auto& entry : media) {
    renditions.emplace_back(entryValue(entry, kWidth), entryValue(entry, kHeight),
                            entryValue(entry, kBitrate));
  }
  return renditions;
}

void TAVSDKBandwidthMetricData::setRequestRenditionLists(
    const std::optional<std::vector<Rendition>>& renditions) {
  if (!renditions) {
    remove(REQUEST_RENDITION_LISTS);
    return;
  }
  Json media = Json::array();
  for (const auto& rendition : *renditions) {
    Json entry = Json::object();
    if (rendition.width()) entry[kWidth] = *rendition.width();
    if (rendition.height()) entry[kHeight] = *rendition.height();
    if (rendition.bitrate()) entry[kBitrate] = *rendition.bitrate();
    media.push_back(std::move(entry));
  }
  update(Json{{REQUEST_RENDITION_LISTS, Json{{kMedia, std::move(media)}}}});
}

}  // namespace tav
