#pragma once
// Stalls detected from the playhead, reported as rebuffering events and metrics.

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKRebufferTracker : public TAVSDKBaseAdTracker {
 public:
  using TAVSDKBaseAdTracker::TAVSDKBaseAdTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
};

}  // namespace tav
