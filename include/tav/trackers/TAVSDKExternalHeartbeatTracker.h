#pragma once
// Sends "hb" when more than 10 s passed without a beacon while playing.

#include <cstdint>

#include "tav/platform/TAVSDKTiming.h"
#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKExternalHeartbeatTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  /// Sees trackable events too (to restart the 10 s window).
  void handle(const TAVSDKEventPtr& event) override;

  [[nodiscard]] std::shared_ptr<TAVSDKTiming> currentTime() const { return _currentTime.get(); }
  void setCurrentTime(std::shared_ptr<TAVSDKTiming> clock) { _currentTime.set(std::move(clock)); }

 private:
  TAVSDKClockSlot _currentTime;
  std::int64_t _lastTrackableEventTime = 0;
  bool _playing = false;
};

}  // namespace tav
