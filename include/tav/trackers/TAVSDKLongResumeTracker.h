#pragma once
// Restarts the view in place when playback resumes after an hour of silence.

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKCoreView;

class TAVSDKLongResumeTracker : public TAVSDKBaseTracker {
 public:
  /// initWithCoreView: the view is both the dispatcher and the record source.
  explicit TAVSDKLongResumeTracker(TAVSDKCoreView* coreView);
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;

 private:
  TAVSDKCoreView* _coreView;
};

}  // namespace tav
