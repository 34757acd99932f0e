#include "tav/trackers/TAVSDKAdTracker.h"

namespace tav {

void TAVSDKAdTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& /*event*/) {}

}  // namespace tav
