#pragma once
// The shared type-name constants. The core compares "viewinit" and
// "SessionDataEvent" by identity with these objects; trackers compare by value.

#include <string>

// X(ClassName, ConstantName, "type name") for the concrete playback events whose
// class answers a fixed type name.
#define TAV_PLAYBACK_EVENT_TYPES(X)                                                             \
  X(TAVSDKViewInitEvent, TAVSDKPlaybackEventViewInitEventType, "viewinit")                      \
  X(TAVSDKViewStartEvent, TAVSDKPlaybackEventViewStartEventType, "viewstart")                   \
  X(TAVSDKViewEndEvent, TAVSDKPlaybackEventViewEndEventType, "viewend")                         \
  X(TAVSDKVideoChangeEvent, TAVSDKPlaybackEventVideoChangeEventType, "videochange")             \
  X(TAVSDKPlayerReadyEvent, TAVSDKPlaybackEventPlayerReadyEventType, "playerready")             \
  X(TAVSDKPageLoadStartEvent, TAVSDKPlaybackEventPageLoadStartEventType, "pageloadstart")       \
  X(TAVSDKPlayEvent, TAVSDKPlaybackEventPlayEventType, "play")                                  \
  X(TAVSDKPlayingEvent, TAVSDKPlaybackEventPlayingEventType, "playing")                         \
  X(TAVSDKPauseEvent, TAVSDKPlaybackEventPauseEventType, "pause")                               \
  X(TAVSDKTimeUpdateEvent, TAVSDKPlaybackEventTimeUpdateEventType, "timeupdate")                \
  X(TAVSDKEndedEvent, TAVSDKPlaybackEventEndedEventType, "ended")                               \
  X(TAVSDKErrorEvent, TAVSDKPlaybackEventErrorEventType, "error")                               \
  X(TAVSDKSeekingEvent, TAVSDKPlaybackEventSeekingEventType, "seeking")                         \
  X(TAVSDKSeekedEvent, TAVSDKPlaybackEventSeekedEventType, "seeked")                            \
  X(TAVSDKInternalSeekingEvent, TAVSDKPlaybackEventInternalSeekingEventType, "internalseeking") \
  X(TAVSDKRebufferStartEvent, TAVSDKPlaybackEventRebufferStartEventType, "rebufferstart")       \
  X(TAVSDKRebufferEndEvent, TAVSDKPlaybackEventRebufferEndEventType, "rebufferend")             \
  X(TAVSDKStalledEvent, TAVSDKPlaybackEventStalledEventType, "stalled")                         \
  X(TAVSDKWaitingEvent, TAVSDKPlaybackEventWaitingEventType, "waiting")                         \
  X(TAVSDKHeartbeatEvent, TAVSDKPlaybackEventHeartbeatEventType, "hb")                          \
  X(TAVSDKInternalHeartbeatEvent, TAVSDKPlaybackEventInternalHeartbeatEventType,                \
    "internalheartbeat")                                                                        \
  X(TAVSDKInternalHeartbeatEndEvent, TAVSDKPlaybackEventInternalHeartbeatEndEventType,          \
    "internalheartbeatend")                                                                     \
  X(TAVSDKOrientationChangeEvent, TAVSDKPlaybackEventOrientationChangeEventType,                \
    "orientationchange")                                                                        \
  X(TAVSDKAdRequestEvent, TAVSDKPlaybackEventAdRequestEventType, "adrequest")                   \
  X(TAVSDKAdResponseEvent, TAVSDKPlaybackEventAdResponseEventType, "adresponse")                \
  X(TAVSDKAdBreakStartEvent, TAVSDKPlaybackEventAdBreakStartEventType, "adbreakstart")          \
  X(TAVSDKAdBreakEndEvent, TAVSDKPlaybackEventAdBreakEndEventType, "adbreakend")                \
  X(TAVSDKAdPlayEvent, TAVSDKPlaybackEventAdPlayEventType, "adplay")                            \
  X(TAVSDKAdPlayingEvent, TAVSDKPlaybackEventAdPlayingEventType, "adplaying")                   \
  X(TAVSDKAdPauseEvent, TAVSDKPlaybackEventAdPauseEventType, "adpause")                         \
  X(TAVSDKAdEndedEvent, TAVSDKPlaybackEventAdEndedEventType, "adended")                         \
  X(TAVSDKAdErrorEvent, TAVSDKPlaybackEventAdErrorEventType, "aderror")                         \
  X(TAVSDKAdFirstQuartileEvent, TAVSDKPlaybackEventAdFirstQuartileEventType, "adfirstquartile") \
  X(TAVSDKAdMidpointEvent, TAVSDKPlaybackEventAdMidpointEventType, "admidpoint")                \
  X(TAVSDKAdThirdQuartileEvent, TAVSDKPlaybackEventAdThirdQuartileEventType, "adthirdquartile")

// X(ConstantName, "type name") for the names that no class of their own answers
// (plus the rendition change event, which has its own class body).
#define TAV_SHARED_EVENT_TYPES(X)                                             \
  X(TAVSDKPlaybackEventRenditionChangeEventType, "renditionchange")           \
  X(TAVSDKPlaybackEventRequestBandwidthEventCompleteType, "requestcompleted") \
  X(TAVSDKPlaybackEventRequestBandwidthEventErrorType, "requestfailed")       \
  X(TAVSDKPlaybackEventRequestBandwidthEventCancelType, "requestcanceled")    \
  X(TAVSDKPlaybackEventType, "PlaybackEvent")                                 \
  X(TAVSDKDataEventType, "DataEvent")                                         \
  X(TAVSDKSessionDataEventType, "SessionDataEvent")                           \
  X(TAVSDKViewMetricEventType, "ViewMetricEvent")                             \
  X(TAVSDKTrackableEventType, "TrackableEvent")

namespace tav {

#define TAV_DECLARE_PLAYBACK_TYPE(Class, Constant, name) extern const std::string Constant;
#define TAV_DECLARE_SHARED_TYPE(Constant, name) extern const std::string Constant;
TAV_PLAYBACK_EVENT_TYPES(TAV_DECLARE_PLAYBACK_TYPE)
TAV_SHARED_EVENT_TYPES(TAV_DECLARE_SHARED_TYPE)
#undef TAV_DECLARE_PLAYBACK_TYPE
#undef TAV_DECLARE_SHARED_TYPE

}  // namespace tav
