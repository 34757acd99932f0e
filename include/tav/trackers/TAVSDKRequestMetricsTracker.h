#pragma once
// Request throughput, latency and counts.

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKRequestMetricsTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
};

}  // namespace tav
