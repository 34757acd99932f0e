#pragma once

#include <cstdint>
#include <memory>

#include "tav/platform/TAVSDKTiming.h"
#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

/// Content time actually played, measured on the playhead at internal
/// heartbeats. Its state is deliberately process-wide: shared by every view of
/// every player and reset whenever any instance is constructed.
class TAVSDKPlaybackTimeTracker : public TAVSDKBaseTracker {
 public:
  explicit TAVSDKPlaybackTimeTracker(TAVSDKEventBus* dispatcher);
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  void updatePlaybackTime(std::int64_t playhead);
  void clearPlaybackTimeState(std::int64_t playhead);

  struct SharedState {
    std::int64_t lastPlayheadPosition;
    std::int64_t contentPlaybackTime;
    std::int64_t maxContentPlaybackTime;
  };
  /// The process-wide state (for diagnostics and tests).
  [[nodiscard]] static SharedState sharedState();

 private:
  MetricUpdate _metric;
};

}  // namespace tav
