#include "tav/trackers/TAVSDKRebufferTracker.h"

namespace tav {

void TAVSDKRebufferTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& /*event*/) {}

}  // namespace tav
