#include "tav/trackers/TAVSDKSeekingTracker.h"

namespace tav {

void TAVSDKSeekingTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& /*event*/) {}

}  // namespace tav
