#include "tav/trackers/TAVSDKTimeToFirstFrameTracker.h"

namespace tav {

void TAVSDKTimeToFirstFrameTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& /*event*/) {}

}  // namespace tav
