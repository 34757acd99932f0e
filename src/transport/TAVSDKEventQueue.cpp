#include "tav/transport/TAVSDKEventQueue.h"

#include <typeinfo>

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
  enqueue(trackable);
}

void TAVSDKEventQueue::enqueue(const std::shared_ptr<TAVSDKTrackableEvent>& trackable) {
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

bool TAVSDKEventQueue::startsDeduplication(TAVSDKTrackableEvent& event, bool merged) {
  const auto& view = event.viewData();
  const std::optional<std::string> viewId = view ? view->viewId() : std::nullopt;
  const std::string& type = event.eventType();
  if (!viewId || type == kViewStart || type == kViewEnd || !_previousBeaconData ||
      _currentTime.now() - _lastEventTime >= kViewMemoryMs) {
    if (!merged) event.updateAll();
    if (!viewId) return false;  // not de-duplicated, nothing remembered
    if (type == kViewEnd) {
      _previousBeaconData.reset();
    } else {
      _previousBeaconData = event.getQuery();
    }
    return false;
  }
  return true;
}

namespace {

// Decides, for each pair of a beacon in key order, whether it is dropped: a text
// value equal to the one remembered is, unless the key is always sent or
// required; any other text value is remembered. The remembered beacon and both
// key sets are sorted like the beacon, so each is walked alongside once instead
// of searched.
class Deduplicator {
 public:
  Deduplicator(nlohmann::json::object_t& previous, const TAVSDKKeySet& always,
               const TAVSDKKeySet& required)
      : _previous(previous),
        _remembered(previous.begin()),
        _always(always),
        _alwaysAt(always.begin()),
        _required(required),
        _requiredAt(required.begin()) {}

  bool operator()(const std::string& key, const nlohmann::json& value) {
    const auto* text = value.get_ptr<const std::string*>();
    if (text == nullptr) return false;
    while (_remembered != _previous.end() && _remembered->first < key)
      ++_remembered;
    if (_remembered == _previous.end() || _remembered->first != key) {
      _remembered = _previous.emplace_hint(_remembered, key, value);
      return false;
    }
    auto* rememberedText = _remembered->second.get_ptr<std::string*>();
    if (rememberedText != nullptr && *rememberedText == *text &&
        !contains(_alwaysAt, _always, key) && !contains(_requiredAt, _required, key)) {
      return true;
    }
    if (rememberedText != nullptr) {
      *rememberedText = *text;
    } else {
      _remembered->second = value;
    }
    return false;
  }

 private:
  static bool contains(TAVSDKKeySet::const_iterator& at, const TAVSDKKeySet& keys,
                       const std::string& key) {
    while (at != keys.end() && *at < key)
      ++at;
    return at != keys.end() && *at == key;
  }

  nlohmann::json::object_t& _previous;
  nlohmann::json::object_t::iterator _remembered;
  const TAVSDKKeySet& _always;
  TAVSDKKeySet::const_iterator _alwaysAt;
  const TAVSDKKeySet& _required;
  TAVSDKKeySet::const_iterator _requiredAt;
};

}  // namespace

void TAVSDKEventQueue::deduplicateBeaconData(TAVSDKTrackableEvent& event) {
  if (!startsDeduplication(event, true)) return;
  // In place. A required key that is missing stays missing.
  Deduplicator drop(_previousBeaconData->get_ref<nlohmann::json::object_t&>(), _dataToAlwaysSend,
                    event.requiredProperties());
  event.query()->removeIf(drop);
}

void TAVSDKEventQueue::handleRecords(const std::shared_ptr<TAVSDKTrackableEvent>& event) {
  if (!event) return;
  if (typeid(*this) != typeid(TAVSDKEventQueue)) {
    // A derived queue may override handle and read the merged event there.
    event->updateAll();
    handle(event);
    return;
  }
  if (_rateLimited) {
    event->updateAll();
    return;
  }
  if (startsDeduplication(*event, false)) {
    // The same beacon as updateAll then deduplicateBeaconData, without copying
    // the pairs that are dropped.
    Deduplicator drop(_previousBeaconData->get_ref<nlohmann::json::object_t&>(), _dataToAlwaysSend,
                      event->requiredProperties());
    event->updateAllExcept(drop);
  }
  enqueue(event);
}

}  // namespace tav
