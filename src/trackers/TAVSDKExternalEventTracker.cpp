#include "tav/trackers/TAVSDKExternalEventTracker.h"

#include "tav/events/TAVSDKTrackableEvent.h"

namespace tav {

const TAVSDKKeySet& TAVSDKExternalEventTracker::_events() {
  // "viewinit", "timeupdate", "internalseeking" and the two internal heartbeat
  // types are absent on purpose: they never become beacons.
  static const TAVSDKKeySet types{"adbreakend",
                                  "adbreakstart",
                                  "adended",
                                  "aderror",
                                  "adfirstquartile",
                                  "admidpoint",
                                  "adpause",
                                  "adplay",
                                  "adplaying",
                                  "adrequest",
                                  "adresponse",
                                  "adthirdquartile",
                                  "ended",
                                  "error",
                                  "hb",
                                  "pageloadstart",
                                  "pause",
                                  "play",
                                  "playerready",
                                  "playing",
                                  "rebufferend",
                                  "rebufferstart",
                                  "seeked",
                                  "seeking",
                                  "stalled",
                                  "videochange",
                                  "viewend",
                                  "viewstart",
                                  "waiting",
                                  "requestfailed",
                                  "requestcanceled",
                                  "requestcompleted",
                                  "orientationchange",
                                  "renditionchange"};
  return types;
}

void TAVSDKExternalEventTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  if (!_events().contains(type)) return;
  dispatch(std::make_shared<TAVSDKTrackableEvent>(type, event.requiredProperties()));
}

}  // namespace tav
