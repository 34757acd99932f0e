#include "tav/core/TAVSDKEventLog.h"

#include <functional>
#include <string_view>
#include <unordered_map>

#include "tav/core/TAVSDKCore.h"
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
#include "tav/events/TAVSDKPlaybackEvents.h"
#include "tav/platform/TAVSDKLog.h"

namespace tav {
namespace {

using Json = nlohmann::json;

constexpr std::string_view kPlayback = "playback";
constexpr std::string_view kData = "data";
constexpr std::string_view kSessionData = "sessiondata";

template <class Record>
void encodeRecord(Json& form, const char* name, const std::shared_ptr<Record>& record) {
  if (record) form[name] = record->toQuery();
}

template <class Record>
std::shared_ptr<Record> decodeRecord(const Json& form, const char* name) {
  const auto it = form.find(name);
  if (it == form.end() || !it->is_object()) return nullptr;
  auto record = std::make_shared<Record>();
  record->setQuery(*it);
  return record;
}

/// The text under `key`, or "" when absent or not text (never throws).
std::string textMember(const Json& object, const char* key) {
  const auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

#define TAV_ENCODE_RECORD(Type, name, Name) encodeRecord(form, #name, e.name());
#define TAV_DECODE_RECORD(Type, name, Name) e->set##Name(decodeRecord<Type>(form, #name));

/// Every playback event an integration can send, by type name.
std::shared_ptr<TAVSDKPlaybackEvent> makePlaybackEvent(const std::string& type) {
  using Factory = std::function<std::shared_ptr<TAVSDKPlaybackEvent>()>;
  static const std::unordered_map<std::string, Factory> factories = [] {
    std::unordered_map<std::string, Factory> map;
#define TAV_PLAYBACK_FACTORY(Class, Constant, name) \
  map.emplace(Constant, [] { return std::make_shared<Class>(); });
    TAV_PLAYBACK_EVENT_TYPES(TAV_PLAYBACK_FACTORY)
#undef TAV_PLAYBACK_FACTORY
    map.emplace(TAVSDKPlaybackEventRenditionChangeEventType,
                [] { return std::make_shared<TAVSDKRenditionChangeEvent>(); });
    for (const auto* request : {&TAVSDKPlaybackEventRequestBandwidthEventCompleteType,
                                &TAVSDKPlaybackEventRequestBandwidthEventErrorType,
                                &TAVSDKPlaybackEventRequestBandwidthEventCancelType}) {
      map.emplace(*request,
                  [request] { return std::make_shared<TAVSDKRequestBandwidthEvent>(*request); });
    }
    return map;
  }();
  const auto it = factories.find(type);
  return it == factories.end() ? nullptr : it->second();
}

}  // namespace

Json TAVSDKEventLog::encodeEvent(const TAVSDKBaseEvent& event) {
  Json form = Json::object();
  if (const auto* playback = dynamic_cast<const TAVSDKPlaybackEvent*>(&event)) {
    const auto& e = *playback;
    form["kind"] = kPlayback;
    form["type"] = e.getType();
    TAV_PLAYBACK_EVENT_RECORDS(TAV_ENCODE_RECORD)
  } else if (const auto* data = dynamic_cast<const TAVSDKDataEvent*>(&event)) {
    const auto& e = *data;
    form["kind"] = kData;
    form["type"] = e.getType();
    form["videoChange"] = e.videoChange();
    TAV_DATA_EVENT_RECORDS(TAV_ENCODE_RECORD)
  } else if (const auto* session = dynamic_cast<const TAVSDKSessionDataEvent*>(&event)) {
    const auto& e = *session;
    form["kind"] = kSessionData;
    form["type"] = e.getType();
    TAV_SESSION_DATA_EVENT_RECORDS(TAV_ENCODE_RECORD)
  } else {
    return nullptr;
  }
  return form;
}

TAVSDKEventPtr TAVSDKEventLog::decodeEvent(const Json& form) {
  if (!form.is_object()) return nullptr;
  const std::string kind = textMember(form, "kind");
  if (kind == kPlayback) {
    const auto type = form.find("type");
    if (type == form.end() || !type->is_string()) return nullptr;
    auto e = makePlaybackEvent(type->get<std::string>());
    if (!e) return nullptr;
    TAV_PLAYBACK_EVENT_RECORDS(TAV_DECODE_RECORD)
    return e;
  }
  if (kind == kData) {
    auto e = std::make_shared<TAVSDKDataEvent>();
    TAV_DATA_EVENT_RECORDS(TAV_DECODE_RECORD)
    const auto change = form.find("videoChange");
    e->setVideoChange(change != form.end() && change->is_boolean() && change->get<bool>());
    return e;
  }
  if (kind == kSessionData) {
    auto e = std::make_shared<TAVSDKSessionDataEvent>();
    TAV_SESSION_DATA_EVENT_RECORDS(TAV_DECODE_RECORD)
    return e;
  }
  return nullptr;
}

bool TAVSDKEventLog::replayCall(const Json& call) {
  if (!call.is_object()) return false;
  const std::string name = textMember(call, "call");
  const auto text = [&call](const char* key) -> const std::string* {
    const auto it = call.find(key);
    return it != call.end() && it->is_string() ? &it->get_ref<const std::string&>() : nullptr;
  };
  const std::string* player = text("player");
  const auto event = [&call]() -> TAVSDKEventPtr {
    const auto it = call.find("event");
    return it == call.end() ? nullptr : decodeEvent(*it);
  };
  if (name == "dispatchEventForPlayer" && player) {
    auto decoded = event();
    if (!decoded) return false;
    TAVSDKCore::dispatchEventForPlayer(decoded, *player);
  } else if (name == "dispatchGlobalDataEvent") {
    auto decoded = std::dynamic_pointer_cast<TAVSDKDataEvent>(event());
    if (!decoded) return false;
    TAVSDKCore::dispatchGlobalDataEvent(decoded);
  } else if (name == "createPlayer" && player) {
    TAVSDKCore::createPlayer(*player);
  } else if (name == "destroyPlayer" && player) {
    TAVSDKCore::destroyPlayer(*player);
  } else if (name == "setSentryEnabled" && call.contains("enabled") &&
             call["enabled"].is_boolean()) {
    TAVSDKCore::setSentryEnabled(call["enabled"].get<bool>());
  } else if (name == "setBeaconCollectionDomainForPlayer" && player && text("domain")) {
    TAVSDKCore::setBeaconCollectionDomainForPlayer(*text("domain"), *player);
  } else if (name == "setBeaconDomainForPlayer" && player && text("domain")) {
    TAVSDKCore::setBeaconDomainForPlayer(*text("domain"), *player);
  } else {
    return false;
  }
  return true;
}

#undef TAV_ENCODE_RECORD
#undef TAV_DECODE_RECORD

TAVSDKJsonLinesRecorder::TAVSDKJsonLinesRecorder(const std::string& path)
    : _file(std::fopen(path.c_str(), "a")) {
  if (!_file) TAVSDKLog::error("TAVSDK-ERROR - cannot open the call log " + path);
}

TAVSDKJsonLinesRecorder::~TAVSDKJsonLinesRecorder() {
  if (_file) std::fclose(_file);
}

void TAVSDKJsonLinesRecorder::record(const Json& call) {
  const std::string line = call.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
  const std::lock_guard lock(_mutex);
  if (!_file) return;
  std::fwrite(line.data(), 1, line.size(), _file);
  std::fflush(_file);
}

}  // namespace tav
