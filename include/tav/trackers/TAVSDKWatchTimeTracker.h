#pragma once

#include <cstdint>
#include <memory>

#include "tav/platform/TAVSDKTiming.h"
#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

/// Wall-clock time spent playing: the sum of gaps between consecutive internal
/// heartbeats of one playing stretch.
class TAVSDKWatchTimeTracker : public TAVSDKBaseTracker {
 public:
  /// Reports a watch time of 0 at once.
  explicit TAVSDKWatchTimeTracker(TAVSDKEventBus* dispatcher);
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  void dispatchWatchTime();
  void countWatchTime(std::int64_t viewerTime);

 private:
  MetricUpdate _metric;
  std::int64_t _lastEventTime = 0;
  std::int64_t _watchTime = 0;
};

}  // namespace tav
