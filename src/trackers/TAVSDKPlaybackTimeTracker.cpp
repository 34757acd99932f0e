#include "tav/trackers/TAVSDKPlaybackTimeTracker.h"

#include "tav/data/TAVSDKPlayerData.h"
#include "tav/data/TAVSDKViewData.h"

namespace tav {

namespace {
// Process-wide by design (see the class comment).
TAVSDKPlaybackTimeTracker::SharedState gPlayback{-1, 0, -1};
}  // namespace

TAVSDKPlaybackTimeTracker::TAVSDKPlaybackTimeTracker(TAVSDKEventBus* dispatcher)
    : TAVSDKBaseTracker(dispatcher) {
  gPlayback = {-1, 0, -1};
}

TAVSDKPlaybackTimeTracker::SharedState TAVSDKPlaybackTimeTracker::sharedState() {
  return gPlayback;
}

void TAVSDKPlaybackTimeTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const auto& player = event.playerData();
  if (!player) return;
  const auto playhead = player->playerPlayheadTime();
  if (!playhead) return;
  const std::int64_t p = *playhead;
  if (p > gPlayback.maxContentPlaybackTime) gPlayback.maxContentPlaybackTime = p;
  const std::string& type = event.getType();
  if (type == TAVSDKPlaybackEventInternalHeartbeatEventType) {
    updatePlaybackTime(p);
  } else if (type == TAVSDKPlaybackEventInternalHeartbeatEndEventType ||
             type == TAVSDKPlaybackEventSeekingEventType) {
    clearPlaybackTimeState(p);
  } else if (type == TAVSDKPlaybackEventSeekedEventType) {
    gPlayback.lastPlayheadPosition = p;
  }
}

void TAVSDKPlaybackTimeTracker::updatePlaybackTime(std::int64_t playhead) {
  const std::int64_t last = gPlayback.lastPlayheadPosition;
  if (last >= 0 && last < playhead && playhead - last <= 1000) {
    gPlayback.contentPlaybackTime += playhead - last;
    TAVSDKViewData& metric = _metric.record();
    metric.setViewPlayingTime(gPlayback.contentPlaybackTime);
    // Unset (removed from a reused record) until a maximum is known.
    metric.setViewMaxPlayheadPosition(gPlayback.maxContentPlaybackTime >= 0
                                          ? std::optional(gPlayback.maxContentPlaybackTime)
                                          : std::nullopt);
    gPlayback.lastPlayheadPosition = playhead;
    dispatchViewMetric(_metric);
    return;
  }
  gPlayback.lastPlayheadPosition = playhead;
}

void TAVSDKPlaybackTimeTracker::clearPlaybackTimeState(std::int64_t playhead) {
  updatePlaybackTime(playhead);
  gPlayback.lastPlayheadPosition = -1;
}

}  // namespace tav
