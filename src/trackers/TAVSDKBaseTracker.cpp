#include "tav/trackers/TAVSDKBaseTracker.h"

#include "tav/data/TAVSDKViewData.h"

namespace tav {

void TAVSDKBaseTracker::handle(const TAVSDKEventPtr& event) {
  if (!event || !event->isPlayback()) return;
  if (auto* playback = event->asPlaybackEvent()) {
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

TAVSDKViewData& TAVSDKBaseTracker::MetricUpdate::record() {
  // Sole owner of both: the view merged the last update and kept nothing.
  if (!_event || _event.use_count() != 1 || !_event->viewData() ||
      _event->viewData().use_count() != 1) {
    _event = std::make_shared<TAVSDKViewMetricEvent>(std::make_shared<TAVSDKViewData>());
  }
  return *_event->viewData();
}

void TAVSDKBaseTracker::dispatchViewMetric(MetricUpdate& update) {
  if (update._event) dispatch(update._event);
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
