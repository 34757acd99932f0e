#pragma once
// TAVSDKCustomerVideoData: the integrator's description of the video (id, title,
// series, duration in milliseconds, stream type, ...). Session data reaches it
// through `upsertWithData`. Ownership and thread rules as TAVSDKQueryData.

#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// `VIDEO_SOURCE_URL__` has the value of TAVSDKVideoData's `VIDEO_SOURCE_URL`: both
// records write "vsour", and whichever is merged into a beacon later wins. The
// trailing underscores are part of the exported name.
// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_CUSTOMER_VIDEO_DATA_FIELDS(X)                                              \
  X(videoCdn, VideoCdn, VIDEO_CDN, "vdn", Text)                                        \
  X(videoContentType, VideoContentType, VIDEO_CONTENT_TYPE, "vctty", Text)             \
  X(videoDuration, VideoDuration, VIDEO_DURATION, "vdu", Int64)                        \
  X(videoEncodingVariant, VideoEncodingVariant, VIDEO_ENCODING_VARIANT, "vecva", Text) \
  X(videoId, VideoId, VIDEO_ID, "vid", Text)                                           \
  X(videoIsLive, VideoIsLive, VIDEO_IS_LIVE, "visli", Bool)                            \
  X(videoLanguageCode, VideoLanguageCode, VIDEO_LANGUAGE_CODE, "vlacd", Text)          \
  X(videoProducer, VideoProducer, VIDEO_PRODUCER, "vpd", Text)                         \
  X(videoSeries, VideoSeries, VIDEO_SERIES, "vsr", Text)                               \
  X(videoStreamType, VideoStreamType, VIDEO_STREAM_TYPE, "vsmty", Text)                \
  X(videoTitle, VideoTitle, VIDEO_TITLE, "vtt", Text)                                  \
  X(videoVariantId, VideoVariantId, VIDEO_VARIANT_ID, "vvaid", Text)                   \
  X(videoVariantName, VideoVariantName, VIDEO_VARIANT_NAME, "vvanm", Text)             \
  X(videoSourceUrl, VideoSourceUrl, VIDEO_SOURCE_URL__, "vsour", Text)                 \
  X(videoExperiments, VideoExperiments, VIDEO_EXPERIMENTS, "viep", Text)

namespace tav {

TAV_CUSTOMER_VIDEO_DATA_FIELDS(TAV_FIELD_KEY)

class TAVSDKCustomerVideoData : public TAVSDKQueryData,
                                public TAVSDKUpsertable<TAVSDKCustomerVideoData> {
 public:
  TAV_CUSTOMER_VIDEO_DATA_FIELDS(TAV_FIELD_ACCESSORS)
};

}  // namespace tav
