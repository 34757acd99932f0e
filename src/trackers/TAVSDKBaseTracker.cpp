#include "tav/trackers/TAVSDKBaseTracker.h"

#include "tav/data/TAVSDKViewData.h"

namespace tav {

void TAVSDKBaseTracker::handle(const TAVSDKEventPtr& event) {
  if (!event || !event->isPlayback()) return;
  if (auto* playback = dynamic_cast<TAVSDKPlaybackEvent*>(event.get())) {
    handlePlaybackEvent(*playback);
  }
}

void TAVSDKBaseTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& /*event*/) {}

void TAVSDKBaseTracker::dispatch(const TAVSDKEventPtr& event) {
  if (_dispatcher != nullptr) _dispatcher->dispatch(event);
}

void TAVSDKBaseTracker::dispatchViewMetric(std::shared_ptr<TAVSDKViewData> viewData) {
  dispatch(std::make_shared<TAVSDKViewMetricEvent>(std::move(viewData)));
}

const TAVSDKKeySet& TAVSDKBaseAdTracker::_adBreakEndEvents() {
  static const TAVSDKKeySet types{
      TAVSDKPlaybackEventPlayEventType, TAVSDKPlaybackEventPlayingEventType,
      TAVSDKPlaybackEventInternalSeekingEventType, TAVSDKPlaybackEventViewEndEventType};
  return types;
}

void TAVSDKBaseAdTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  if (type == TAVSDKPlaybackEventAdBreakStartEventType) {
    _isAdBreak = true;
  } else if (_adBreakEndEvents().contains(type)) {
    _isAdBreak = false;
  }
}

}  // namespace tav
