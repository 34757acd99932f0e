#include "tav/trackers/TAVSDKAdTracker.h"

#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {
namespace {

// Content that has played this long or longer ends the pre-roll position.
constexpr std::int64_t kPrerollPositionMs = 1000;

}  // namespace

bool TAVSDKAdTracker::isPrerollPosition(const TAVSDKViewData* viewData) {
  const auto playingTime = viewData ? viewData->viewPlayingTime() : std::nullopt;
  return !playingTime || *playingTime < kPrerollPositionMs;
}

void TAVSDKAdTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  // Replaces the base's ad-break handling: `isAdBreak` is never updated here.
  TAVSDKViewData* vd = event.viewData().get();
  const std::string& type = event.getType();

  if (type == TAVSDKPlaybackEventAdBreakStartEventType) {
    ++_adBreakCount;
  } else if (type == TAVSDKPlaybackEventAdEndedEventType) {
    // No check that an ad started: without one the whole clock value counts.
    _adWatchedTime += _currentTime.now() - _lastAdStart;
    ++_adCompleteCount;
    _willBeNewAdPlay = true;
  } else if (type == TAVSDKPlaybackEventAdErrorEventType) {
    ++_adErrorCount;
    _willBeNewAdPlay = true;
  } else if (type == TAVSDKPlaybackEventAdPauseEventType) {
    _isAdPaused = true;
  } else if (type == TAVSDKPlaybackEventAdPlayEventType) {
    handleAdPlay(vd, _currentTime.now());
  } else if (type == TAVSDKPlaybackEventAdPlayingEventType) {
    if (isPrerollPosition(vd) && _prerollRequestLoadTime >= 1 && vd != nullptr) {
      // From the first pre-roll start to this frame; every such "adplaying" recomputes it.
      const std::int64_t loadTime = _currentTime.now() - _prerollRequestLoadTime;
      vd->setViewPrerollLoadTime(loadTime);
      vd->setViewStartupPrerollLoadTime(loadTime);
    }
  } else if (type == TAVSDKPlaybackEventAdRequestEventType) {
    handleAdRequest(vd, _currentTime.now());
  } else if (type == TAVSDKPlaybackEventAdResponseEventType) {
    // Responses answer requests first in, first out; an unmatched one sets nothing.
    if (!_adRequestTimes.empty()) {
      const std::int64_t requested = _adRequestTimes.front();
      _adRequestTimes.erase(_adRequestTimes.begin());
      if (vd != nullptr) vd->setViewAdRequestTime(_currentTime.now() - requested);
    }
  }

  if (vd == nullptr) return;
  vd->setViewAdBreakCount(_adBreakCount);
  vd->setViewAdCompleteCount(_adCompleteCount);
  vd->setViewAdViewCount(_adViewCount);
  vd->setViewAdErrorCount(_adErrorCount);
  vd->setViewAdWatchTime(_adWatchedTime);
  vd->setViewAdPlayCount(_adViewPlayCount);
  if (_viewPrerollRequestCount >= 1) vd->setViewPrerollRequestCount(_viewPrerollRequestCount);
  if (_prerollRequested) vd->setViewPrerollRequested(true);
  if (_prerollPlayed) vd->setViewPrerollPlayed(true);
}

void TAVSDKAdTracker::handleAdPlay(TAVSDKViewData* vd, std::int64_t now) {
  if (_isAdPaused) {
    // A resume is not a new ad view.
    _isAdPaused = false;
    return;
  }
  _adHasPlayed = true;
  if (isPrerollPosition(vd) && !_prerollPlayed) {
    _prerollPlayed = true;
    _prerollRequestLoadTime = now;
    if (vd != nullptr) {
      vd->setViewPrerollRequestTime(now - _prerollRequestStartTime);
      vd->setViewStartupPrerollRequestTime(now - _prerollStartupRequestStartTime);
    }
  }
  ++_adViewCount;
  _lastAdStart = now;
  if (_willBeNewAdPlay) {
    _willBeNewAdPlay = false;
    ++_adViewPlayCount;
  }
}

void TAVSDKAdTracker::handleAdRequest(TAVSDKViewData* vd, std::int64_t now) {
  // The first request of the view, pre-roll or not.
  if (_prerollRequestStartTime == 0) _prerollRequestStartTime = now;
  if (isPrerollPosition(vd)) {
    _prerollRequested = true;
    if (!_adHasPlayed) ++_viewPrerollRequestCount;
  }
  ++_viewAdRequestCount;
  if (vd != nullptr) vd->setViewAdRequestCount(_viewAdRequestCount);
  _adRequestTimes.push_back(now);
}

}  // namespace tav
