#include "tav/trackers/TAVSDKSeekingTracker.h"

#include "platform/Saturating.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {
namespace {

std::int64_t viewerTimeOf(const TAVSDKPlaybackEvent& event) {
  const auto& view = event.viewData();
  return view ? view->viewerTime().value_or(0) : 0;
}

}  // namespace

void TAVSDKSeekingTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  if (type == TAVSDKPlaybackEventPauseEventType) {
    handlePauseEvent(event);
  } else if (type == TAVSDKPlaybackEventInternalSeekingEventType) {
    handleInternalSeekingEvent(event);
  } else if (type == TAVSDKPlaybackEventSeekedEventType) {
    handleSeekedEvent(event);
  }
}

void TAVSDKSeekingTracker::handlePauseEvent(const TAVSDKPlaybackEvent& /*event*/) {}

void TAVSDKSeekingTracker::handleInternalSeekingEvent(const TAVSDKPlaybackEvent& event) {
  if (!_isSeeking) {
    _isSeeking = true;
    // No records of its own: the view attaches its view data.
    dispatch(std::make_shared<TAVSDKSeekingEvent>());
  }
  _lastEventTime = viewerTimeOf(event);
}

void TAVSDKSeekingTracker::handleSeekedEvent(const TAVSDKPlaybackEvent& event) {
  if (_lastEventTime >= 1) {
    ++_seekCount;
    const std::int64_t d = platform::subSaturated(viewerTimeOf(event), _lastEventTime);
    _seekDuration = platform::addSaturated(_seekDuration, d);
    if (d > _maxSeekTime) _maxSeekTime = d;
    auto metric = std::make_shared<TAVSDKViewData>();
    metric->setViewSeekCount(_seekCount);
    metric->setViewSeekDuration(_seekDuration);
    metric->setViewMaxSeekTime(_maxSeekTime);
    dispatchViewMetric(std::move(metric));
  }
  _isSeeking = false;
  _lastEventTime = 0;
}

}  // namespace tav
