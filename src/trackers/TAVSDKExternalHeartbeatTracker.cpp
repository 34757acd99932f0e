#include "tav/trackers/TAVSDKExternalHeartbeatTracker.h"

#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {

void TAVSDKExternalHeartbeatTracker::handle(const TAVSDKEventPtr& event) {
  if (!event) return;
  if (event->isTrackable()) {
    _lastTrackableEventTime = _currentTime.now();
    return;
  }
  if (!event->isPlayback()) return;
  auto* playback = event->asPlaybackEvent();
  if (playback == nullptr) return;
  const std::string& type = event->getType();
  if (type == TAVSDKPlaybackEventInternalHeartbeatEventType) {
    if (!_playing) {
      _lastTrackableEventTime = 0;
      _playing = true;
    }
  } else if (type == TAVSDKPlaybackEventInternalHeartbeatEndEventType) {
    _playing = false;
  }
  if (!_playing) return;
  if (_lastTrackableEventTime >= 1 && _lastTrackableEventTime + 10000 < _currentTime.now()) {
    _lastTrackableEventTime = _currentTime.now();
    auto hb = std::make_shared<TAVSDKHeartbeatEvent>();
    hb->setPlayerData(playback->playerData());
    dispatch(hb);
  }
}

}  // namespace tav
