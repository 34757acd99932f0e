#include "tav/trackers/TAVSDKLongResumeTracker.h"

#include "tav/core/TAVSDKCoreView.h"

namespace tav {

TAVSDKLongResumeTracker::TAVSDKLongResumeTracker(TAVSDKCoreView* coreView)
    : TAVSDKBaseTracker(coreView), _coreView(coreView) {}

void TAVSDKLongResumeTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& /*event*/) {}

}  // namespace tav
