#include "tav/core/TAVSDKCorePlayer.h"

#include <cxxabi.h>
#include <sys/utsname.h>

#include <algorithm>
#include <ctime>
#include <exception>
#include <typeinfo>

#if __has_include(<execinfo.h>)
#include <execinfo.h>
#define TAV_HAVE_BACKTRACE_SYMBOLS 1
#endif

#include "platform/Random.h"
#include "tav/core/TAVSDKCoreView.h"
#include "tav/data/TAVSDKCustomerPlayerData.h"
#include "tav/data/TAVSDKPlayerData.h"
#include "tav/events/TAVSDKPlaybackEvents.h"
#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/platform/TAVSDKFailure.h"
#include "tav/platform/TAVSDKLog.h"
#include "tav/transport/TAVSDKDispatcher.h"
#include "tav/transport/TAVSDKEventQueue.h"

namespace tav {

TAVSDKCorePlayer::TAVSDKCorePlayer()
    : _playerData(std::make_shared<TAVSDKPlayerData>()),
      _eventQueue(std::make_shared<TAVSDKEventQueue>()) {
  _playerData->setPlayerInstanceId(platform::randomUUID());
}

TAVSDKCorePlayer::~TAVSDKCorePlayer() {
  // Break the view -> redispatch handler -> player path and free the trackers.
  if (_view) {
    try {
      _view->removeAllHandlers();
    } catch (const std::exception&) {  // only thrown during a walk, which cannot be here
    }
  }
}

void TAVSDKCorePlayer::dispatch(const TAVSDKEventPtr& event) {
  if (_isDestroyed || !event) return;
  // One guard around everything the event causes, nested dispatches included.
  try {
    route(event);
  } catch (const std::exception& failure) {
    disable(event->getType(), failure);
  }
}

void TAVSDKCorePlayer::route(const TAVSDKEventPtr& event) {
  if (event->isTrackable()) {
    if (auto* trackable = event->asTrackableEvent()) {
      handleTrackableEvent(*trackable);
    }
    TAVSDKEventBus::dispatch(event);
    return;
  }
  if (!event->isPlayback() && !event->isData()) return;  // view metrics, bare events
  if (event->isPlayback()) {
    if (auto* playback = event->asPlaybackEvent()) {
      handlePlaybackEvent(*playback);
    }
  } else if (&event->getType() == &TAVSDKSessionDataEventType) {
    if (const auto* s = dynamic_cast<const TAVSDKSessionDataEvent*>(event.get())) {
      handleSessionDataEvent(*s);
    }
  } else if (const auto* d = dynamic_cast<const TAVSDKDataEvent*>(event.get())) {
    handleDataEvent(*d);
  }
  if (_view) {
    const auto view = _view;  // keeps the view alive for the whole walk
    view->dispatch(event);
  }
}

void TAVSDKCorePlayer::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  if (event.playerData()) _playerData->updateFrom(*event.playerData());
  if (&event.getType() != &TAVSDKPlaybackEventViewInitEventType) return;
  if (_view) _view->removeAllHandlers();
  _view = std::make_shared<TAVSDKCoreView>();
  _view->addHandler(std::make_shared<TAVSDKRedispatchEventHandler>(shared_from_this()));
}

void TAVSDKCorePlayer::handleTrackableEvent(TAVSDKTrackableEvent& event) {
  if (event.playerData()) _playerData->updateFrom(*event.playerData());
  ++_sequenceNumber;
  _playerData->setPlayerSequenceNumber(_sequenceNumber);
  event.setPlayerData(_playerData);
  event.setCustomerPlayerData(_customerPlayerData);
}

void TAVSDKCorePlayer::handleSessionDataEvent(const TAVSDKSessionDataEvent& event) {
  // Session data only fills gaps; a data event overwrites (deliberate asymmetry).
  if (_customerPlayerData) {
    if (event.customerPlayerData()) {
      _customerPlayerData->updateIfNull(event.customerPlayerData()->toQuery());
    }
  } else {
    _customerPlayerData = event.customerPlayerData();
  }
}

void TAVSDKCorePlayer::handleDataEvent(const TAVSDKDataEvent& event) {
  if (_customerPlayerData) {
    if (event.customerPlayerData()) {
      _customerPlayerData->updateFrom(*event.customerPlayerData());
    }
  } else {
    _customerPlayerData = event.customerPlayerData();
  }
  if (event.videoChange()) {
    _playerData->setPlayerErrorCode(std::nullopt);
    _playerData->setPlayerErrorMessage(std::nullopt);
    _playerData->setPlayeriOSErrorData(std::nullopt);
  }
}

void TAVSDKCorePlayer::disable(const std::string& eventType, const std::exception& failure) {
  _isDestroyed = true;
  TAVSDKLog::error("TAVSDK-ERROR - player disabled after a failure while handling \"" + eventType +
                   "\": " + failure.what());
  if (!_sentryEnabled) return;
  try {
    // Reports need both; an integration that does not name itself reports as "unknown".
    TAVSDKDispatcher::handleExceptionPluginNamePluginVersion(
        buildSentryDetailWithException(eventType, failure),
        _playerData->playerTavPluginName().value_or("unknown"),
        _playerData->playerTavPluginVersion().value_or("unknown"));
  } catch (const std::exception&) {  // reporting must never fail the caller
  }
}

namespace {

std::string failureName(const std::exception& failure) {
  const char* mangled = typeid(failure).name();
  int status = 0;
  char* demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  std::string name = (status == 0 && demangled != nullptr) ? demangled : mangled;
  std::free(demangled);  // NOLINT(cppcoreguidelines-no-malloc): allocated by the demangler
  return name;
}

std::string reportTimestamp() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[32] = {};
  // Week-based year, as the report format has always used.
  std::strftime(text, sizeof text, "%G-%m-%d %H:%M:%S", &local);
  return text;
}

std::string machineName() {
  struct utsname info {};
  if (uname(&info) != 0) return "";
  return info.machine;
}

}  // namespace

nlohmann::json TAVSDKCorePlayer::convertStackTrace(const std::exception& failure) {
  Json frames = Json::array();
#if defined(TAV_HAVE_BACKTRACE_SYMBOLS)
  if (const auto* own = dynamic_cast<const TAVSDKFailure*>(&failure)) {
    const auto& stack = own->callStack();
    if (!stack.empty()) {
      char** lines = backtrace_symbols(stack.data(), static_cast<int>(stack.size()));
      if (lines != nullptr) {
        for (std::size_t i = 0; i < stack.size(); ++i) {
          frames.push_back({{"function", lines[i]}});
        }
        std::free(lines);  // NOLINT(cppcoreguidelines-no-malloc): allocated by backtrace_symbols
      }
    }
  }
#else
  (void)failure;
#endif
  return {{"frames", frames}};
}

nlohmann::json TAVSDKCorePlayer::buildSentryDetailWithException(
    const std::string& /*eventType*/, const std::exception& failure) const {
  std::string eventId = platform::randomUUID();
  std::erase(eventId, '-');
  const std::string plugin = _playerData->playerTavPluginName().value_or("unknown");
  const std::string version = _playerData->playerTavPluginVersion().value_or("unknown");
  Json tags = {
      {"os_architecture", "iOS"}, {"device_manufacturer", "Apple"}, {"device_name", machineName()}};
  if (_customerPlayerData) {
    if (auto key = _customerPlayerData->environmentKey()) tags["environment_key"] = *key;
  }
  Json exception = {{"type", failureName(failure)},
                    {"value", failure.what()},
                    {"stacktrace", convertStackTrace(failure)}};
  return {{"event_id", eventId},
          {"logger", plugin},
          {"platform", "objective c"},
          {"level", "error"},
          {"timestamp", reportTimestamp()},
          {"sdk", {{"name", plugin}, {"version", version}}},
          {"exception", {{"values", Json::array({exception})}}},
          {"tags", tags}};
}

void TAVSDKCorePlayer::cleanUp() {
  if (_eventQueue) _eventQueue->flush();
  if (_view) {
    _view->removeAllHandlers();
    _view.reset();
  }
}

void TAVSDKCorePlayer::setBeaconCollectionDomain(const std::string& domain) {
  if (_eventQueue) _eventQueue->setBeaconCollectionDomain(domain);
}

void TAVSDKCorePlayer::setBeaconDomain(const std::string& domain) {
  if (_eventQueue) _eventQueue->setBeaconDomain(domain);
}

std::string TAVSDKCorePlayer::shortUUID() {
  constexpr std::uint32_t kAlphabet = sizeof(TAVSDKCorePlayerBase36) - 1;
  std::string out(6, '0');
  for (char& c : out)
    c = TAVSDKCorePlayerBase36[platform::randomBelow(kAlphabet)];
  return out;
}

void TAVSDKRedispatchEventHandler::handle(const TAVSDKEventPtr& event) {
  if (!event || event->isPlayback()) return;
  if (auto target = this->target()) target->dispatch(event);
}

std::shared_ptr<TAVSDKEventBus> TAVSDKRedispatchEventHandler::target() const {
  const std::lock_guard lock(_mutex);
  return _target.lock();
}

void TAVSDKRedispatchEventHandler::setTarget(const std::shared_ptr<TAVSDKEventBus>& target) {
  const std::lock_guard lock(_mutex);
  _target = target;
}

}  // namespace tav
