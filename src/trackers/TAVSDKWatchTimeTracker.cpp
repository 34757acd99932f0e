#include "tav/trackers/TAVSDKWatchTimeTracker.h"

#include "platform/Saturating.h"
#include "tav/data/TAVSDKViewData.h"

namespace tav {

TAVSDKWatchTimeTracker::TAVSDKWatchTimeTracker(TAVSDKEventBus* dispatcher)
    : TAVSDKBaseTracker(dispatcher) {
  dispatchWatchTime();
}

void TAVSDKWatchTimeTracker::dispatchWatchTime() {
  _metric.record().setViewWatchTime(_watchTime);
  dispatchViewMetric(_metric);
}

void TAVSDKWatchTimeTracker::countWatchTime(std::int64_t viewerTime) {
  if (_lastEventTime < 1) return;
  _watchTime =
      platform::addSaturated(_watchTime, platform::subSaturated(viewerTime, _lastEventTime));
  dispatchWatchTime();
}

void TAVSDKWatchTimeTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  const bool beat = type == TAVSDKPlaybackEventInternalHeartbeatEventType;
  const bool end = type == TAVSDKPlaybackEventInternalHeartbeatEndEventType;
  if (!beat && !end) return;
  // A missing viewer time reads as 0: the gap is then counted from 0 as is.
  const auto& view = event.viewData();
  const std::int64_t t = view ? view->viewerTime().value_or(0) : 0;
  countWatchTime(t);
  _lastEventTime = end ? 0 : t;
}

}  // namespace tav
