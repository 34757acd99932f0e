#pragma once
// Time from the first play request to the first frame.

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKTimeToFirstFrameTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
};

}  // namespace tav
