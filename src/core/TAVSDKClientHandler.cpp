#include "tav/core/TAVSDKClientHandler.h"

#include "core/CoreState.h"
#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/transport/TAVSDKEventQueue.h"

namespace tav {

void TAVSDKClientHandler::handle(const std::shared_ptr<TAVSDKBaseEvent>& event) {
  if (!event || !event->isTrackable()) return;
  auto* trackable = event->asTrackableEvent();
  if (trackable == nullptr) return;
  auto& s = detail::coreState();
  trackable->setEnvironmentData(s.environmentData);
  trackable->setViewerData(s.viewerData);
  if (s.client) {
    trackable->updateAll();
    const auto client = s.client;
    client->handle(event);
    return;
  }
  const auto it = s.players.find(_playerId);
  TAVSDKEventQueue* queue = it == s.players.end() ? nullptr : it->second->eventQueue().get();
  if (queue == nullptr) {
    trackable->updateAll();  // player destroyed meanwhile (or no queue): dropped
    return;
  }
  // The queue merges the records itself, copying only what it sends.
  queue->handleRecords(std::static_pointer_cast<TAVSDKTrackableEvent>(event));
}

}  // namespace tav
