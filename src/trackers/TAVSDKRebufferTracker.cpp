#include "tav/trackers/TAVSDKRebufferTracker.h"

#include "platform/Saturating.h"
#include "tav/data/TAVSDKPlayerData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {
namespace {

constexpr std::int64_t kStallThresholdMs = 1000;
constexpr std::int64_t kHiddenStallMinMs = 101;

std::optional<std::int64_t> viewerTimeOf(const TAVSDKPlaybackEvent& event) {
  const auto& view = event.viewData();
  return view ? view->viewerTime() : std::nullopt;
}

std::optional<std::int64_t> playheadOf(const TAVSDKPlaybackEvent& event) {
  const auto& player = event.playerData();
  return player ? player->playerPlayheadTime() : std::nullopt;
}

}  // namespace

void TAVSDKRebufferTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  // The base ad-break handling is deliberately not run (see the header).
  const std::string& type = event.getType();
  if (type == TAVSDKPlaybackEventInternalSeekingEventType) {
    if (!_isSeeking) {
      _isSeeking = true;
      cleanup(event);
    }
  } else if (type == TAVSDKPlaybackEventSeekedEventType) {
    _isSeeking = false;
  } else if (type == TAVSDKPlaybackEventPlayingEventType) {
    _playheadShouldBeProgressing = true;
  } else if (type == TAVSDKPlaybackEventInternalHeartbeatEventType) {
    check(event);
  } else if (type == TAVSDKPlaybackEventInternalHeartbeatEndEventType) {
    _playheadShouldBeProgressing = false;
    cleanup(event);
  }
}

void TAVSDKRebufferTracker::update(const TAVSDKPlaybackEvent& event) {
  const auto viewerTime = viewerTimeOf(event);
  _lastCheckedTime = viewerTime;
  _lastPlayheadTime = playheadOf(event);
  _lastPlayheadTimeUpdatedTime = viewerTime;
}

void TAVSDKRebufferTracker::check(const TAVSDKPlaybackEvent& event) {
  if (_isSeeking || isAdBreak() || !_playheadShouldBeProgressing) {
    cleanup(event);
    return;
  }
  if (!_lastCheckedTime) {
    computeMetricsWithDelta(event, 0);
    update(event);
    return;
  }
  const std::int64_t now = viewerTimeOf(event).value_or(0);
  if (_lastPlayheadTime && _lastPlayheadTime != playheadOf(event)) {
    // The playhead moved.
    cleanup(event);
    update(event);
    return;
  }
  const std::int64_t stalled =
      platform::subSaturated(now, _lastPlayheadTimeUpdatedTime.value_or(0));
  if (stalled >= kStallThresholdMs) {
    if (_isRebuffering) {
      computeMetricsWithDelta(event, platform::subSaturated(now, *_lastCheckedTime));
    } else {
      _isRebuffering = true;
      ++_rebufferCount;
      // The whole time since the playhead stopped counts.
      computeMetricsWithDelta(event, stalled);
      auto start = std::make_shared<TAVSDKRebufferStartEvent>();
      start->setPlayerData(event.playerData());
      start->setViewData(event.viewData());
      dispatch(start);
    }
  }
  _lastCheckedTime = now;
}

void TAVSDKRebufferTracker::cleanup(const TAVSDKPlaybackEvent& event) {
  if (_isRebuffering) {
    endRebufferingAtViewerTime(event, viewerTimeOf(event).value_or(0));
  } else if (_lastCheckedTime) {
    const std::int64_t playheadDelta =
        platform::subSaturated(playheadOf(event).value_or(0), _lastPlayheadTime.value_or(0));
    const std::int64_t wallDelta = platform::subSaturated(viewerTimeOf(event).value_or(0),
                                                          _lastPlayheadTimeUpdatedTime.value_or(0));
    const std::int64_t hidden = platform::subSaturated(wallDelta, playheadDelta);
    if (playheadDelta >= 1 && hidden >= kHiddenStallMinMs) {
      // A short stall fell between two heartbeats: report it after the fact.
      ++_rebufferCount;
      computeMetricsWithDelta(event, hidden);
      const std::int64_t t = viewerTimeOf(event).value_or(0);
      auto record = std::make_shared<TAVSDKViewData>();
      if (event.viewData()) record->setQuery(event.viewData()->toQuery());
      record->setViewerTime(platform::subSaturated(t, hidden));
      auto start = std::make_shared<TAVSDKRebufferStartEvent>();
      start->setPlayerData(event.playerData());
      start->setViewData(record);
      dispatch(start);
      // The view merges the record on each dispatch, so it is reused for the end.
      record->setViewerTime(t);
      auto end = std::make_shared<TAVSDKRebufferEndEvent>();
      end->setPlayerData(event.playerData());
      end->setViewData(record);
      dispatch(end);
    } else {
      computeMetricsWithDelta(event, 0);
    }
  } else {
    computeMetricsWithDelta(event, 0);
  }
  _lastCheckedTime.reset();
  _lastPlayheadTime.reset();
  _lastPlayheadTimeUpdatedTime.reset();
}

void TAVSDKRebufferTracker::endRebufferingAtViewerTime(const TAVSDKPlaybackEvent& event,
                                                       std::int64_t viewerTime) {
  _isRebuffering = false;
  computeMetricsWithDelta(event, platform::subSaturated(viewerTime, _lastCheckedTime.value_or(0)));
  auto end = std::make_shared<TAVSDKRebufferEndEvent>();
  end->setViewData(event.viewData());
  dispatch(end);
}

void TAVSDKRebufferTracker::computeMetricsWithDelta(const TAVSDKPlaybackEvent& event,
                                                    std::int64_t delta) {
  if (delta >= 1) _rebufferDuration = platform::addSaturated(_rebufferDuration, delta);
  const auto& view = event.viewData();
  const auto watchTime = view ? view->viewWatchTime() : std::nullopt;
  if (watchTime && _rebufferCount >= 1) {
    // A watch time of 0 gives non-finite ratios; they are reported as they are.
    const auto w = static_cast<double>(*watchTime);
    _rebufferFrequency = static_cast<double>(_rebufferCount) / w;
    _rebufferPercentage = static_cast<double>(_rebufferDuration) / w;
  } else if (delta < 1) {
    return;
  }
  TAVSDKViewData& metric = _metric.record();
  metric.setViewRebufferCount(_rebufferCount);
  metric.setViewRebufferDuration(_rebufferDuration);
  metric.setViewRebufferFrequency(_rebufferFrequency);
  metric.setViewRebufferPercentage(_rebufferPercentage);
  dispatchViewMetric(_metric);
}

}  // namespace tav
