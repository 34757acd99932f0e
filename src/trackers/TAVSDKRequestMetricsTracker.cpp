#include "tav/trackers/TAVSDKRequestMetricsTracker.h"

namespace tav {

void TAVSDKRequestMetricsTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& /*event*/) {}

}  // namespace tav
