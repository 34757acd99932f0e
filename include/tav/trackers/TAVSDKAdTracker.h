#pragma once
// Ad counts, ad watch time, ad request times and the pre-roll start-up.
//
// Unlike the other trackers it writes its fields straight into the view data
// carried by the event (the view's own record, attached before the trackers
// run) instead of dispatching view-metric events, and it refreshes the ad
// counters on every event that passes. Its own handling replaces the ad-break
// handling of the base, so the inherited `isAdBreak` stays false.
//
// Thread rules: the view's dispatching thread (see TAVSDKBaseTracker).

#include <cstdint>
#include <memory>
#include <vector>

#include "tav/platform/TAVSDKTiming.h"
#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKAdTracker : public TAVSDKBaseAdTracker {
 public:
  using TAVSDKBaseAdTracker::TAVSDKBaseAdTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  /// True while less than a second of content has played (or none at all).
  [[nodiscard]] static bool isPrerollPosition(const TAVSDKViewData* viewData);

  [[nodiscard]] std::shared_ptr<TAVSDKTiming> currentTime() const { return _currentTime.get(); }
  void setCurrentTime(std::shared_ptr<TAVSDKTiming> clock) { _currentTime.set(std::move(clock)); }

  [[nodiscard]] std::int32_t adBreakCount() const { return _adBreakCount; }
  [[nodiscard]] std::int32_t adCompleteCount() const { return _adCompleteCount; }
  [[nodiscard]] std::int32_t adViewCount() const { return _adViewCount; }
  [[nodiscard]] std::int32_t adErrorCount() const { return _adErrorCount; }
  [[nodiscard]] std::int32_t adViewPlayCount() const { return _adViewPlayCount; }
  [[nodiscard]] std::int64_t adWatchedTime() const { return _adWatchedTime; }
  [[nodiscard]] std::int32_t viewAdRequestCount() const { return _viewAdRequestCount; }
  [[nodiscard]] std::int32_t viewPrerollRequestCount() const { return _viewPrerollRequestCount; }

 private:
  void handleAdPlay(TAVSDKViewData* viewData, std::int64_t now);
  void handleAdRequest(TAVSDKViewData* viewData, std::int64_t now);

  bool _prerollRequested = false;
  bool _prerollPlayed = false;
  bool _isAdPaused = false;
  bool _willBeNewAdPlay = true;  // the next ad start counts as a new ad play
  bool _adHasPlayed = false;
  std::int32_t _adBreakCount = 0;
  std::int32_t _adCompleteCount = 0;
  std::int32_t _adViewCount = 0;
  std::int32_t _adErrorCount = 0;
  std::int32_t _adViewPlayCount = 0;
  std::int64_t _lastAdStart = 0;
  std::int64_t _adWatchedTime = 0;
  // Never set after construction: the start-up request time therefore reports
  // the clock time of the first pre-roll start itself.
  std::int64_t _prerollStartupRequestStartTime = 0;
  std::int64_t _prerollRequestStartTime = 0;
  std::int64_t _prerollRequestLoadTime = 0;
  std::int32_t _viewAdRequestCount = 0;
  std::int32_t _viewPrerollRequestCount = 0;
  TAVSDKClockSlot _currentTime;
  std::vector<std::int64_t> _adRequestTimes;  // unanswered requests, oldest first
};

}  // namespace tav
