#pragma once
// Emits "viewstart" at the first "play" or "adbreakstart" after "viewinit".

#include <cstdint>

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKViewStateTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  /// 0 = no view, 1 = view initialised, 2 = view started.
  [[nodiscard]] std::int64_t state() const { return _state; }

 private:
  std::int64_t _state = 0;
};

}  // namespace tav
