#pragma once
// Up- and down-scaling of the video into the player.

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKScalingTracker : public TAVSDKBaseAdTracker {
 public:
  using TAVSDKBaseAdTracker::TAVSDKBaseAdTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
};

}  // namespace tav
