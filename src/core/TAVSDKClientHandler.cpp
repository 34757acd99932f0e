#include "tav/core/TAVSDKClientHandler.h"

#include "core/CoreState.h"
#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/transport/TAVSDKEventQueue.h"

namespace tav {

void TAVSDKClientHandler::handle(const std::shared_ptr<TAVSDKBaseEvent>& event) {
  if (!event || !event->isTrackable()) return;
  auto* trackable = dynamic_cast<TAVSDKTrackableEvent*>(event.get());
  if (trackable == nullptr) return;
  auto& s = detail::coreState();
  trackable->setEnvironmentData(s.environmentData);
  trackable->setViewerData(s.viewerData);
  trackable->updateAll();
  if (s.client) {
    const auto client = s.client;
    client->handle(event);
    return;
  }
  const auto it = s.players.find(_playerId);
  if (it == s.players.end()) return;  // player destroyed meanwhile: dropped
  if (const auto& queue = it->second->eventQueue()) queue->handle(event);
}

}  // namespace tav
