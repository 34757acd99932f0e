#pragma once
// Seeks: one "seeking" per seek, seek count, duration and longest seek.

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKSeekingTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
};

}  // namespace tav
