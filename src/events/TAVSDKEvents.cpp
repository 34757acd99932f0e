#include <mutex>
#include <set>

#include "data/JsonDepth.h"
#include "tav/data/TAVSDKBandwidthMetricData.h"
#include "tav/data/TAVSDKCustomData.h"
#include "tav/data/TAVSDKCustomerPlayerData.h"
#include "tav/data/TAVSDKCustomerVideoData.h"
#include "tav/data/TAVSDKCustomerViewData.h"
#include "tav/data/TAVSDKEnvironmentData.h"
#include "tav/data/TAVSDKField.h"
#include "tav/data/TAVSDKPlayerData.h"
#include "tav/data/TAVSDKVideoData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/data/TAVSDKViewerData.h"
#include "tav/events/TAVSDKBaseEvent.h"
#include "tav/events/TAVSDKPlaybackEvents.h"
#include "tav/events/TAVSDKTrackableEvent.h"

namespace tav {

#define TAV_DEFINE_PLAYBACK_TYPE(Class, Constant, name) const std::string Constant = name;
#define TAV_DEFINE_SHARED_TYPE(Constant, name) const std::string Constant = name;
// Exported constants: their addresses are the types' identity, so they are
// strings with static storage; a failed allocation while loading is fatal anyway.
TAV_PLAYBACK_EVENT_TYPES(TAV_DEFINE_PLAYBACK_TYPE)  // NOLINT(cert-err58-cpp)
TAV_SHARED_EVENT_TYPES(TAV_DEFINE_SHARED_TYPE)      // NOLINT(cert-err58-cpp)
#undef TAV_DEFINE_PLAYBACK_TYPE
#undef TAV_DEFINE_SHARED_TYPE

namespace {

const std::string& baseType() {
  static const std::string type = "BASE";
  return type;
}

const std::string& noType() {
  static const std::string none;
  return none;
}

// Request type names that are not one of the three constants are kept here,
// once each, for the life of the process, so getType can answer a reference.
const std::string* internRequestType(std::string_view name) {
  for (const std::string* known : {&TAVSDKPlaybackEventRequestBandwidthEventCompleteType,
                                   &TAVSDKPlaybackEventRequestBandwidthEventErrorType,
                                   &TAVSDKPlaybackEventRequestBandwidthEventCancelType}) {
    if (*known == name) return known;
  }
  static std::mutex mutex;
  static std::set<std::string, std::less<>> names;
  const std::lock_guard lock(mutex);
  return &*names.emplace(name).first;
}

}  // namespace

const std::string& TAVSDKBaseEvent::getType() const {
  return baseType();
}

const TAVSDKKeySet& TAVSDKBaseEvent::noKeys() {
  static const TAVSDKKeySet none;
  return none;
}

const TAVSDKKeySet& TAVSDKBaseEvent::requiredProperties() const {
  return noKeys();
}

const std::string& TAVSDKPlaybackEvent::getType() const {
  return TAVSDKPlaybackEventType;
}
const std::string& TAVSDKDataEvent::getType() const {
  return TAVSDKDataEventType;
}
const std::string& TAVSDKSessionDataEvent::getType() const {
  return TAVSDKSessionDataEventType;
}
const std::string& TAVSDKViewMetricEvent::getType() const {
  return TAVSDKViewMetricEventType;
}

void TAVSDKSessionDataEvent::setSessionData(const nlohmann::json& data) {
  if (!data.is_object()) return;
  for (const auto& [name, value] : data.items()) {
    const auto field = TAVSDKField::searchWithKey(name);
    // Too deep to copy safely; the record would refuse it anyway.
    if (!field || detail::jsonDeeperThan(value, detail::kMaxJsonDepth)) continue;
    const Json entry{{field->code(), value}};
    switch (field->dataType()) {
      case 0:
        _viewData = TAVSDKViewData::upsertWithData(_viewData, entry);
        break;
      case 1:
        _videoData = TAVSDKVideoData::upsertWithData(_videoData, entry);
        break;
      case 2:
        _customerVideoData = TAVSDKCustomerVideoData::upsertWithData(_customerVideoData, entry);
        break;
      case 3:
        _customerPlayerData = TAVSDKCustomerPlayerData::upsertWithData(_customerPlayerData, entry);
        break;
      case 4:
        _customerViewData = TAVSDKCustomerViewData::upsertWithData(_customerViewData, entry);
        break;
      case 5:
        _customData = TAVSDKCustomData::upsertWithData(_customData, entry);
        break;
      default:
        break;
    }
  }
}

const std::string& TAVSDKRenditionChangeEvent::getType() const {
  return TAVSDKPlaybackEventRenditionChangeEventType;
}

const TAVSDKKeySet& TAVSDKRenditionChangeEvent::requiredProperties() const {
  static const TAVSDKKeySet keys{VIDEO_SOURCE_ADVERTISED_BITRATE, VIDEO_SOURCE_ADVERTISED_FRAMERATE,
                                 VIDEO_SOURCE_HEIGHT, VIDEO_SOURCE_WIDTH};
  return keys;
}

const std::string& TAVSDKRequestBandwidthEvent::type() const {
  const std::string* t = _type.load(std::memory_order_acquire);
  return t ? *t : noType();
}

void TAVSDKRequestBandwidthEvent::setType(std::string_view type) {
  _type.store(internRequestType(type), std::memory_order_release);
}

TAVSDKTrackableEvent::TAVSDKTrackableEvent() : _query(std::make_shared<TAVSDKQueryData>()) {}

TAVSDKTrackableEvent::TAVSDKTrackableEvent(std::string eventType)
    : TAVSDKTrackableEvent(std::move(eventType), std::nullopt) {}

TAVSDKTrackableEvent::TAVSDKTrackableEvent(std::string eventType,
                                           std::optional<TAVSDKKeySet> requiredProperties)
    : _query(std::make_shared<TAVSDKQueryData>()),
      _eventType(std::move(eventType)),
      _requiredProperties(requiredProperties ? std::move(*requiredProperties) : TAVSDKKeySet{}) {}

const std::string& TAVSDKTrackableEvent::getType() const {
  return TAVSDKTrackableEventType;
}

void TAVSDKTrackableEvent::setQuery(const Json& data) {
  _query->setQuery(data);
}

void TAVSDKTrackableEvent::setQuery(Json&& data) {
  _query->setQuery(std::move(data));
}

std::array<const TAVSDKQueryData*, 9> TAVSDKTrackableEvent::recordsInMergeOrder() const {
  return {_viewData.get(),          _customerViewData.get(), _videoData.get(),
          _customerVideoData.get(), _playerData.get(),       _customerPlayerData.get(),
          _environmentData.get(),   _viewerData.get(),       _bandwidthMetricData.get()};
}

void TAVSDKTrackableEvent::updateAll() {
  for (const TAVSDKQueryData* record : recordsInMergeOrder()) {
    if (record != nullptr) _query->updateFrom(*record);
  }
}

Json TAVSDKTrackableEvent::getQuery() const {
  Json q = _query->toQuery();
  for (const auto& key : _requiredProperties) {
    if (!q.contains(key)) q[key] = nullptr;
  }
  return q;
}

void TAVSDKTrackableEvent::setCustomData(std::shared_ptr<TAVSDKCustomData> customData) {
  _customData = std::move(customData);
  if (_customData) _query->update(_customData->toQuery());
}

}  // namespace tav
