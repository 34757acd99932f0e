#include "tav/trackers/TAVSDKViewerTimeTracker.h"

#include "tav/data/TAVSDKViewData.h"

namespace tav {

TAVSDKViewerTimeTracker::TAVSDKViewerTimeTracker(TAVSDKEventBus* dispatcher)
    : TAVSDKBaseTracker(dispatcher) {}

const TAVSDKKeySet& TAVSDKViewerTimeTracker::_derivativeEvents() {
  static const TAVSDKKeySet types{TAVSDKPlaybackEventInternalHeartbeatEventType,
                                  TAVSDKPlaybackEventInternalHeartbeatEndEventType};
  return types;
}

bool TAVSDKViewerTimeTracker::shouldIgnore(const TAVSDKBaseEvent& event) const {
  return _derivativeEvents().contains(event.getType());
}

bool TAVSDKViewerTimeTracker::isSeekingEvent(const TAVSDKBaseEvent& event) const {
  return event.getType() == TAVSDKPlaybackEventSeekingEventType;
}

void TAVSDKViewerTimeTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  if (shouldIgnore(event)) return;
  _metric.record().setViewerTime(_currentTime.now());
  dispatchViewMetric(_metric);
}

}  // namespace tav
