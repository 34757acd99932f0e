#include "tav/trackers/TAVSDKViewStateTracker.h"

#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {

void TAVSDKViewStateTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  if (type == TAVSDKPlaybackEventViewInitEventType) {
    _state = 1;
  } else if (type == TAVSDKPlaybackEventPlayEventType ||
             type == TAVSDKPlaybackEventAdBreakStartEventType) {
    if (_state != 1) return;
    _state = 2;
    auto start = std::make_shared<TAVSDKViewStartEvent>();
    start->setPlayerData(event.playerData());
    dispatch(start);
  }
}

}  // namespace tav
