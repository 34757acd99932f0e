#pragma once

#include <cstdint>
#include <memory>

#include "tav/platform/TAVSDKTiming.h"
#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

/// Stamps the view with the current time ("uti") on every playback event except
/// the two internal heartbeat types.
class TAVSDKViewerTimeTracker : public TAVSDKBaseTracker {
 public:
  explicit TAVSDKViewerTimeTracker(TAVSDKEventBus* dispatcher);
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  [[nodiscard]] bool shouldIgnore(const TAVSDKBaseEvent& event) const;
  /// True for "seeking" (kept for integrations; the tracker does not call it).
  [[nodiscard]] bool isSeekingEvent(const TAVSDKBaseEvent& event) const;
  static const TAVSDKKeySet& _derivativeEvents();

  [[nodiscard]] std::shared_ptr<TAVSDKTiming> currentTime() const { return _currentTime.get(); }
  void setCurrentTime(std::shared_ptr<TAVSDKTiming> clock) { _currentTime.set(std::move(clock)); }

 private:
  MetricUpdate _metric;
  TAVSDKClockSlot _currentTime;
};

}  // namespace tav
