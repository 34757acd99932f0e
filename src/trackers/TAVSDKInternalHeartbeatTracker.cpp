#include "tav/trackers/TAVSDKInternalHeartbeatTracker.h"

#include "tav/data/TAVSDKPlayerData.h"
#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {

const TAVSDKKeySet& TAVSDKInternalHeartbeatTracker::_forceStartEvents() {
  static const TAVSDKKeySet types{TAVSDKPlaybackEventPlayingEventType,
                                  TAVSDKPlaybackEventAdPlayingEventType};
  return types;
}

const TAVSDKKeySet& TAVSDKInternalHeartbeatTracker::_startEvents() {
  static const TAVSDKKeySet types{
      TAVSDKPlaybackEventPlayEventType, TAVSDKPlaybackEventAdBreakStartEventType,
      TAVSDKPlaybackEventAdPlayEventType, TAVSDKPlaybackEventSeekingEventType};
  return types;
}

const TAVSDKKeySet& TAVSDKInternalHeartbeatTracker::_endEvents() {
  static const TAVSDKKeySet types{
      TAVSDKPlaybackEventPauseEventType,   TAVSDKPlaybackEventEndedEventType,
      TAVSDKPlaybackEventViewEndEventType, TAVSDKPlaybackEventErrorEventType,
      TAVSDKPlaybackEventAdPauseEventType, TAVSDKPlaybackEventAdBreakEndEventType,
      TAVSDKPlaybackEventAdEndedEventType};
  return types;
}

void TAVSDKInternalHeartbeatTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  const auto& player = event.playerData();
  const auto& view = event.viewData();
  if (type == TAVSDKPlaybackEventTimeUpdateEventType) {
    if (_playing) dispatchInternalHearbeatEventAndViewData(player, view);
  } else if (_forceStartEvents().contains(type)) {
    _playing = true;
    dispatchInternalHearbeatEventAndViewData(player, view);
  } else if (_startEvents().contains(type)) {
    startHeartbeatWithPlayerDataAndViewData(player, view);
  } else if (_endEvents().contains(type) || (type == TAVSDKPlaybackEventSeekedEventType && player &&
                                             player->playerIsPaused().value_or(false))) {
    endHeartbeatWithPlayerDataAndViewData(player, view);
  }
}

void TAVSDKInternalHeartbeatTracker::startHeartbeatWithPlayerDataAndViewData(
    const std::shared_ptr<TAVSDKPlayerData>& player, const std::shared_ptr<TAVSDKViewData>& view) {
  if (_playing) return;
  _playing = true;
  dispatchInternalHearbeatEventAndViewData(player, view);
}

void TAVSDKInternalHeartbeatTracker::endHeartbeatWithPlayerDataAndViewData(
    const std::shared_ptr<TAVSDKPlayerData>& player, const std::shared_ptr<TAVSDKViewData>& view) {
  if (!_playing) return;
  _playing = false;
  dispatchInternalHearbeatEndEventAndViewData(player, view);
}

void TAVSDKInternalHeartbeatTracker::dispatchInternalHearbeatEventAndViewData(
    const std::shared_ptr<TAVSDKPlayerData>& player, const std::shared_ptr<TAVSDKViewData>& view) {
  auto beat = std::make_shared<TAVSDKInternalHeartbeatEvent>();
  beat->setPlayerData(player);
  beat->setViewData(view);
  dispatch(beat);
}

void TAVSDKInternalHeartbeatTracker::dispatchInternalHearbeatEndEventAndViewData(
    const std::shared_ptr<TAVSDKPlayerData>& player, const std::shared_ptr<TAVSDKViewData>& view) {
  auto end = std::make_shared<TAVSDKInternalHeartbeatEndEvent>();
  end->setPlayerData(player);
  end->setViewData(view);
  dispatch(end);
}

}  // namespace tav
