#include "tav/core/TAVSDKCore.h"

#include <exception>

#include "core/CoreState.h"
#include "tav/core/TAVSDKClientHandler.h"
#include "tav/core/TAVSDKCoreView.h"
#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/platform/TAVSDKLog.h"
#include "tav/transport/TAVSDKEventQueue.h"
#include "tav/transport/TAVSDKTransport.h"

namespace tav {
namespace detail {

CoreState& coreState() {
  static auto* state = new CoreState();  // intentionally never destroyed
  return *state;
}

void resetCoreStateForTesting() {
  auto& s = coreState();
  for (auto& [name, player] : s.players) {
    (void)name;
    if (player && player->view()) player->view()->removeAllHandlers();
  }
  s = CoreState{};
}

}  // namespace detail

namespace {

using detail::coreState;

// Runs one facade operation; nothing thrown inside reaches the caller.
template <class Fn>
void guarded(const char* operation, Fn&& fn) {
  try {
    fn();
  } catch (const std::exception& e) {
    TAVSDKLog::error(std::string("TAVSDK-ERROR - ") + operation + " failed: " + e.what());
  }
}

/// Hands one facade call to the recorder, when one is installed.
template <class Fields>
void record(const char* call, Fields&& fields) {
  auto& s = coreState();
  if (!s.recorder) return;
  try {
    nlohmann::json entry = fields();
    entry["t"] = s.recorderClock->now();
    entry["call"] = call;
    s.recorder->record(entry);
  } catch (const std::exception& e) {
    TAVSDKLog::error(std::string("TAVSDK-ERROR - recording ") + call + " failed: " + e.what());
  }
}

nlohmann::json eventForm(const TAVSDKEventPtr& event) {
  return event ? TAVSDKEventLog::encodeEvent(*event) : nlohmann::json();
}

std::shared_ptr<TAVSDKCorePlayer> createPlayerUnguarded(const std::string& name) {
  TAVSDKCore::setupEnvironmentAndViewerData();
  auto& s = coreState();
  auto player = std::make_shared<TAVSDKCorePlayer>();
  player->setSentryEnabled(!s.disableSentry);
  player->addHandler(std::make_shared<TAVSDKClientHandler>(name));
  // Replaces any player of that name without flushing it.
  s.players[name] = player;
  return player;
}

std::shared_ptr<TAVSDKCorePlayer> findOrCreate(const std::string& name) {
  auto& s = coreState();
  const auto it = s.players.find(name);
  if (it != s.players.end()) return it->second;
  return createPlayerUnguarded(name);
}

}  // namespace

void TAVSDKCore::setupEnvironmentAndViewerData() {
  auto& s = coreState();
  if (s.environmentData && s.viewerData) return;
  s.players.clear();
  s.session = std::make_unique<TAVSDKSession>();
  s.session->start();
  s.environmentData = std::make_shared<TAVSDKEnvironmentData>();
  s.environmentData->setTavApiVersion(std::string(TAVSDKApiVersion));
  s.environmentData->setTavEmbedVersion(std::string(TAVSDKEmbedVersion));
  s.environmentData->setTavEmbed(std::string(TAVSDKEmbed));
  s.viewerData = std::make_shared<TAVSDKViewerData>();
}

std::shared_ptr<TAVSDKCorePlayer> TAVSDKCore::createPlayer(const std::string& name) {
  record("createPlayer", [&] { return nlohmann::json{{"player", name}}; });
  std::shared_ptr<TAVSDKCorePlayer> player;
  guarded("createPlayer", [&] { player = createPlayerUnguarded(name); });
  return player;
}

void TAVSDKCore::setClientHandler(std::shared_ptr<TAVSDKEventHandling> handler) {
  coreState().client = std::move(handler);
}

void TAVSDKCore::destroyPlayer(const std::string& name) {
  record("destroyPlayer", [&] { return nlohmann::json{{"player", name}}; });
  guarded("destroyPlayer", [&] {
    auto& s = coreState();
    const auto it = s.players.find(name);
    if (it == s.players.end()) return;
    const auto player = it->second;
    player->cleanUp();
    s.players.erase(name);
  });
}

void TAVSDKCore::dispatchEventForPlayer(const TAVSDKEventPtr& event, const std::string& name) {
  record("dispatchEventForPlayer", [&] {
    return nlohmann::json{{"player", name}, {"event", eventForm(event)}};
  });
  guarded("dispatchEvent", [&] {
    const auto player = findOrCreate(name);
    auto& s = coreState();
    s.session->updateEnvironmentData(*s.environmentData);
    player->dispatch(event);
  });
}

void TAVSDKCore::dispatchGlobalDataEvent(const std::shared_ptr<TAVSDKDataEvent>& event) {
  record("dispatchGlobalDataEvent", [&] { return nlohmann::json{{"event", eventForm(event)}}; });
  guarded("dispatchGlobalDataEvent", [&] {
    setupEnvironmentAndViewerData();
    if (!event) return;
    auto& s = coreState();
    if (event->environmentData()) s.environmentData->update(event->environmentData()->toQuery());
    if (event->viewerData()) s.viewerData->update(event->viewerData()->toQuery());
  });
}

void TAVSDKCore::setSentryEnabled(bool enabled) {
  record("setSentryEnabled", [&] { return nlohmann::json{{"enabled", enabled}}; });
  auto& s = coreState();
  s.disableSentry = !enabled;
  for (auto& [name, player] : s.players) {
    (void)name;
    player->setSentryEnabled(enabled);
  }
}

void TAVSDKCore::setBeaconCollectionDomainForPlayer(const std::string& domain,
                                                    const std::string& name) {
  record("setBeaconCollectionDomainForPlayer", [&] {
    return nlohmann::json{{"domain", domain}, {"player", name}};
  });
  guarded("setBeaconCollectionDomain",
          [&] { findOrCreate(name)->setBeaconCollectionDomain(domain); });
}

void TAVSDKCore::setBeaconDomainForPlayer(const std::string& domain, const std::string& name) {
  record("setBeaconDomainForPlayer", [&] {
    return nlohmann::json{{"domain", domain}, {"player", name}};
  });
  guarded("setBeaconDomain", [&] { findOrCreate(name)->setBeaconDomain(domain); });
}

void TAVSDKCore::setCallRecorder(std::shared_ptr<TAVSDKCallRecorder> recorder) {
  auto& s = coreState();
  s.recorderClock = recorder ? TAVSDKClock::make() : nullptr;
  s.recorder = std::move(recorder);
}

bool TAVSDKCore::shutdown(std::chrono::milliseconds deadline) {
  guarded("shutdown", [&] {
    for (auto& [name, player] : coreState().players) {
      (void)name;
      if (player->eventQueue()) player->eventQueue()->flush();
    }
  });
  bool done = false;
  guarded("shutdown", [&] { done = TAVSDKTransport::shutdown(deadline); });
  return done;
}

std::shared_ptr<TAVSDKEnvironmentData> TAVSDKCore::environmentData() {
  setupEnvironmentAndViewerData();
  return coreState().environmentData;
}

std::shared_ptr<TAVSDKViewerData> TAVSDKCore::viewerData() {
  setupEnvironmentAndViewerData();
  return coreState().viewerData;
}

std::shared_ptr<TAVSDKCorePlayer> TAVSDKCore::playerNamed(const std::string& name) {
  const auto& players = coreState().players;
  const auto it = players.find(name);
  return it == players.end() ? nullptr : it->second;
}

}  // namespace tav
