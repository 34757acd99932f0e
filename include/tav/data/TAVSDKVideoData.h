#pragma once
// TAVSDKVideoData: technical facts about the source that the integration observes
// (source URL, size in pixels, duration in milliseconds, mime type, advertised
// bitrate and frame rate). Session data reaches it through `upsertWithData`.
// Ownership and thread rules as TAVSDKQueryData.

#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// The advertised bitrate and frame rate are kept exactly as given (a number stays
// a number in the beacon); `videoSourceIsLive` is the integration's own text.
// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_VIDEO_DATA_FIELDS(X)                                                                 \
  X(videoPosterUrl, VideoPosterUrl, VIDEO_POSTER_URL, "vpour", Text)                             \
  X(videoSourceDomain, VideoSourceDomain, VIDEO_SOURCE_DOMAIN, "vsodm", Text)                    \
  X(videoSourceDuration, VideoSourceDuration, VIDEO_SOURCE_DURATION, "vsodu", Int64)             \
  X(videoSourceHeight, VideoSourceHeight, VIDEO_SOURCE_HEIGHT, "vsoht", Int32)                   \
  X(videoSourceHostName, VideoSourceHostName, VIDEO_SOURCE_HOST_NAME, "vsohonm", Text)           \
  X(videoSourceIsLive, VideoSourceIsLive, VIDEO_SOURCE_IS_LIVE, "vsoisli", Text)                 \
  X(videoSourceMimeType, VideoSourceMimeType, VIDEO_SOURCE_MIME_TYPE, "vsomity", Text)           \
  X(videoSourceUrl, VideoSourceUrl, VIDEO_SOURCE_URL, "vsour", Text)                             \
  X(videoSourceWidth, VideoSourceWidth, VIDEO_SOURCE_WIDTH, "vsowd", Int32)                      \
  X(videoSourceAdvertisedBitrate, VideoSourceAdvertisedBitrate, VIDEO_SOURCE_ADVERTISED_BITRATE, \
    "vsobi", AsGiven)                                                                            \
  X(videoSourceAdvertisedFrameRate, VideoSourceAdvertisedFrameRate,                              \
    VIDEO_SOURCE_ADVERTISED_FRAMERATE, "vsofp", AsGiven)                                         \
  X(internalVideoExperiments, InternalVideoExperiments, INTERNAL_VIDEO_EXPERIMENTS, "iviep", Text)

namespace tav {

TAV_VIDEO_DATA_FIELDS(TAV_FIELD_KEY)

class TAVSDKVideoData : public TAVSDKQueryData, public TAVSDKUpsertable<TAVSDKVideoData> {
 public:
  TAV_VIDEO_DATA_FIELDS(TAV_FIELD_ACCESSORS)
};

}  // namespace tav
