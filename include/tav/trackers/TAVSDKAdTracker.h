#pragma once
// Ad counts, ad watch time and pre-roll timings.

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKAdTracker : public TAVSDKBaseAdTracker {
 public:
  using TAVSDKBaseAdTracker::TAVSDKBaseAdTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
};

}  // namespace tav
