#include "tav/trackers/TAVSDKScalingTracker.h"

#include <algorithm>
#include "platform/Saturating.h"

#include "tav/data/TAVSDKPlayerData.h"
#include "tav/data/TAVSDKVideoData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {

const TAVSDKKeySet& TAVSDKScalingTracker::_calculationEvents() {
  static const TAVSDKKeySet types{
      TAVSDKPlaybackEventPauseEventType,           TAVSDKPlaybackEventRebufferStartEventType,
      TAVSDKPlaybackEventInternalSeekingEventType, TAVSDKPlaybackEventAdBreakStartEventType,
      TAVSDKPlaybackEventTimeUpdateEventType,      TAVSDKPlaybackEventViewEndEventType};
  return types;
}

const TAVSDKKeySet& TAVSDKScalingTracker::_preparationEvents() {
  static const TAVSDKKeySet types{TAVSDKPlaybackEventPlayingEventType,
                                  TAVSDKPlaybackEventTimeUpdateEventType};
  return types;
}

void TAVSDKScalingTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  TAVSDKBaseAdTracker::handlePlaybackEvent(event);
  const std::string& type = event.getType();
  // "timeupdate" is in both sets: it closes one interval and opens the next.
  if (_calculationEvents().contains(type)) {
    const auto& player = event.playerData();
    calculate(player ? player->playerPlayheadTime().value_or(0) : 0);
  }
  if (_preparationEvents().contains(type)) prepare(event);
}

void TAVSDKScalingTracker::prepare(const TAVSDKPlaybackEvent& event) {
  if (const auto& player = event.playerData()) {
    _lastPlayheadPosition = player->playerPlayheadTime();
    _lastPlayerWidth = player->playerWidth();
    _lastPlayerHeight = player->playerHeight();
  } else {
    _lastPlayheadPosition.reset();
    _lastPlayerWidth.reset();
    _lastPlayerHeight.reset();
  }
  if (const auto& video = event.videoData()) {
    _lastSourceWidth = video->videoSourceWidth();
    _lastSourceHeight = video->videoSourceHeight();
  } else {
    _lastSourceWidth.reset();
    _lastSourceHeight.reset();
  }
}

void TAVSDKScalingTracker::calculate(std::int64_t playhead) {
  if (isAdBreak() || !_lastPlayheadPosition || !_lastPlayerWidth || !_lastPlayerHeight ||
      !_lastSourceWidth || !_lastSourceHeight) {
    _lastPlayheadPosition.reset();
    return;
  }
  const std::int64_t d = platform::subSaturated(playhead, *_lastPlayheadPosition);
  if (d < 0 || *_lastPlayerWidth == 0 || *_lastPlayerHeight == 0 || *_lastSourceWidth == 0 ||
      *_lastSourceHeight == 0) {
    _lastPlayheadPosition.reset();
    return;
  }
  // The factor of an aspect-preserving fit: the smaller of the two axis ratios.
  const double s =
      std::min(static_cast<double>(*_lastPlayerWidth) / static_cast<double>(*_lastSourceWidth),
               static_cast<double>(*_lastPlayerHeight) / static_cast<double>(*_lastSourceHeight));
  const double up = std::max(s - 1.0, 0.0);
  const double down = std::max(1.0 - s, 0.0);
  _viewMaxUpscaling = std::max(_viewMaxUpscaling, up);
  _viewMaxDownscaling = std::max(_viewMaxDownscaling, down);
  _viewTotalContentPlaybackTime = platform::addSaturated(_viewTotalContentPlaybackTime, d);
  _viewTotalUpscaling += up * static_cast<double>(d);
  _viewTotalDownscaling += down * static_cast<double>(d);

  TAVSDKViewData& metric = _metric.record();
  metric.setViewMaxUpscalePercentage(_viewMaxUpscaling);
  metric.setViewMaxDownscalePercentage(_viewMaxDownscaling);
  metric.setViewTotalContentPlaybackTime(_viewTotalContentPlaybackTime);
  metric.setViewTotalUpscaling(_viewTotalUpscaling);
  metric.setViewTotalDownscaling(_viewTotalDownscaling);
  dispatchViewMetric(_metric);
  _lastPlayheadPosition.reset();
}

}  // namespace tav
