#include "tav/trackers/TAVSDKScalingTracker.h"

namespace tav {

void TAVSDKScalingTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& /*event*/) {}

}  // namespace tav
