#include "tav/transport/TAVSDKEventQueue.h"

#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/transport/TAVSDKDispatcher.h"

namespace tav {
namespace {

constexpr const char* kEnvironmentKey = "ake";
constexpr const char* kViewerOsFamily = "uosfm";
constexpr const char* kEventName = "e";
constexpr const char* kEvents = "events";
constexpr const char* kViewStart = "viewstart";
constexpr const char* kViewEnd = "viewend";
constexpr const char* kEventRateExceeded = "eventrateexceeded";

std::string lowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

}  // namespace

TAVSDKEventQueue::TAVSDKEventQueue()
    : _dataToAlwaysSend{kEnvironmentKey,       // environment key
                        VIEW_ID,               // "xid"
                        VIEW_SEQUENCE_NUMBER,  // "xsqno"
                        "psqno",               // player sequence number
                        "pphti",               // player playhead time
                        "pinid",               // player instance id
                        VIEWER_TIME,           // "uti"
                        "tapve",               // API version
                        "vid"},                // video id
      _flushEvents{kViewStart, "error", "ended", kViewEnd},
      _dispatcher(std::make_shared<TAVSDKDispatcher>()) {}

void TAVSDKEventQueue::setViewerOsFamily(const std::string& family) {
  _viewerOsFamily = lowerCase(family);
}

void TAVSDKEventQueue::handle(const std::shared_ptr<TAVSDKBaseEvent>& event) {
  if (!event || !event->isTrackable()) return;
  auto trackable = std::dynamic_pointer_cast<TAVSDKTrackableEvent>(event);
  if (!trackable) return;
  if (_rateLimited) return;
  deduplicateBeaconData(*trackable);
  _lastEventTime = _currentTime.now();
  _rateLimited = !queueEvent(trackable);
  const bool flushNow = _flushEvents.contains(trackable->eventType());
  if (_rateLimited) {
    // The event that trips the limit goes out twice, both entries being the same
    // object and therefore both of type "eventrateexceeded".
    trackable->setEventType(kEventRateExceeded);
    _eventQueue.push_back(trackable);
    flush();
  } else if (flushNow) {
    flush();
  }
}

bool TAVSDKEventQueue::queueEvent(const std::shared_ptr<TAVSDKTrackableEvent>& event) {
  if (_eventQueue.size() > kMaxPendingEvents) return false;
  _eventQueue.push_back(event);
  if (_currentTime.now() - _lastBeaconSentTime >= kSendIntervalMs) {
    sendBeaconQueue(false);
    _lastBeaconSentTime = _currentTime.now();
  }
  return _eventQueue.size() <= kMaxPendingEvents;
}

void TAVSDKEventQueue::flush() {
  sendBeaconQueue(true);
}

void TAVSDKEventQueue::sendBeaconQueue(bool force) {
  std::size_t n = _eventQueue.size();
  if (n == 0) return;
  if (!force && n > kBatchSize) n = kBatchSize;
  // Only onComplete writes the flag, and it writes true: the gate never closes.
  if (!_lastBeaconCompleted.load() && !force) return;
  if (!_dispatcher) return;

  nlohmann::json events = nlohmann::json::array();
  events.get_ref<nlohmann::json::array_t&>().reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    const std::shared_ptr<TAVSDKTrackableEvent> event = std::move(_eventQueue.front());
    _eventQueue.pop_front();
    nlohmann::json beacon = event->getQuery();
    if (const auto key = beacon.find(kEnvironmentKey); key != beacon.end() && key->is_string()) {
      setProjectKey(key->get<std::string>());
    }
    if (const auto family = beacon.find(kViewerOsFamily);
        family != beacon.end() && family->is_string()) {
      setViewerOsFamily(family->get<std::string>());
    }
    beacon[kEventName] = event->eventType();
    events.push_back(std::move(beacon));
  }
  nlohmann::json batch = nlohmann::json::object();
  batch[kEvents] = std::move(events);

  const auto self = weak_from_this().lock();
  if (_beaconCollectionDomain) {
    _dispatcher->handleBatchBeaconCollectionDomainOsFamilyJsonDictCallback(
        _projectKey, _beaconCollectionDomain, _viewerOsFamily, std::move(batch), self);
  } else {
    _dispatcher->handleBatchDomainOsFamilyJsonDictCallback(_projectKey, _beaconDomain,
                                                           _viewerOsFamily, std::move(batch), self);
  }
}

void TAVSDKEventQueue::onComplete(std::optional<bool> /*result*/) {
  _lastBeaconCompleted.store(true);
}

void TAVSDKEventQueue::deduplicateBeaconData(TAVSDKTrackableEvent& event) {
  const auto& view = event.viewData();
  const std::optional<std::string> viewId = view ? view->viewId() : std::nullopt;
  if (!viewId) return;
  const std::string& type = event.eventType();
  if (type == kViewStart || type == kViewEnd || !_previousBeaconData ||
      _currentTime.now() - _lastEventTime >= kViewMemoryMs) {
    if (type == kViewEnd) {
      _previousBeaconData.reset();
    } else {
      _previousBeaconData = event.getQuery();
    }
    return;
  }
  // In place: a text value equal to the one remembered is dropped unless the key
  // is always sent or required; any other text value is remembered. A required
  // key that is missing stays missing. Both objects are sorted by key, so the
  // remembered beacon is walked alongside instead of searched.
  auto& previous = _previousBeaconData->get_ref<nlohmann::json::object_t&>();
  auto remembered = previous.begin();
  const TAVSDKKeySet& required = event.requiredProperties();
  event.query()->removeIf([&](const std::string& key, const nlohmann::json& value) {
    const auto* text = value.get_ptr<const std::string*>();
    if (text == nullptr) return false;
    while (remembered != previous.end() && remembered->first < key)
      ++remembered;
    if (remembered == previous.end() || remembered->first != key) {
      remembered = previous.emplace_hint(remembered, key, value);
      return false;
    }
    auto* rememberedText = remembered->second.get_ptr<std::string*>();
    if (rememberedText != nullptr && *rememberedText == *text && !_dataToAlwaysSend.contains(key) &&
        !required.contains(key)) {
      return true;
    }
    if (rememberedText != nullptr) {
      *rememberedText = *text;
    } else {
      remembered->second = value;
    }
    return false;
  });
}

}  // namespace tav
