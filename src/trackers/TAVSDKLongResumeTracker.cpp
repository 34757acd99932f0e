#include "tav/trackers/TAVSDKLongResumeTracker.h"

#include "tav/core/TAVSDKCoreView.h"
#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {

TAVSDKLongResumeTracker::TAVSDKLongResumeTracker(TAVSDKCoreView* coreView)
    : TAVSDKBaseTracker(coreView), _coreView(coreView) {}

void TAVSDKLongResumeTracker::updatePlayingState(const std::string& type) {
  if (type == TAVSDKPlaybackEventInternalHeartbeatEventType) {
    _playing = true;
  } else if (type == TAVSDKPlaybackEventInternalHeartbeatEndEventType) {
    _playing = false;
  }
}

void TAVSDKLongResumeTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  updatePlayingState(type);
  const std::int64_t now = _currentTime.now();
  // The view's first "viewinit" meets the initial 0 here; it never restarts.
  if (now - _lastEventTimeMillis >= kLongResumeMs && type != TAVSDKPlaybackEventViewInitEventType &&
      _coreView != nullptr) {
    restartView(event);
  }
  // Also stamped by the events that the restart dispatches as they pass.
  _lastEventTimeMillis = _currentTime.now();
}

void TAVSDKLongResumeTracker::restartView(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  auto player = event.playerData();
  // The records themselves, taken before the restart replaces them.
  auto carried = std::make_shared<TAVSDKDataEvent>();
  carried->setCustomData(_coreView->getCustomData());
  carried->setCustomerViewData(_coreView->getCustomerViewData());
  carried->setCustomerVideoData(_coreView->getCustomerVideoData());
  carried->setVideoData(_coreView->getVideoData());

  auto init = std::make_shared<TAVSDKViewInitEvent>();
  init->setPlayerData(player);
  dispatch(init);
  dispatch(carried);

  auto viewData = _coreView->getViewData();
  event.setViewData(viewData);
  if (!_playing) return;
  // Meant to skip the replayed "play" when the event is itself a "play" or an
  // "adbreakstart", but the condition always holds: while playing, the "play"
  // is always replayed. Kept as it is.
  if (type != TAVSDKPlaybackEventPlayEventType ||
      type != TAVSDKPlaybackEventAdBreakStartEventType) {
    auto play = std::make_shared<TAVSDKPlayEvent>();
    play->setPlayerData(player);
    play->setViewData(viewData);
    dispatch(play);
  }
  if (type != TAVSDKPlaybackEventPlayingEventType) {
    auto playing = std::make_shared<TAVSDKPlayingEvent>();
    playing->setPlayerData(player);
    playing->setViewData(viewData);
    dispatch(playing);
  }
}

}  // namespace tav
