#pragma once
// TAVSDKViewData: the per-view metrics record (counters, durations, ratios,
// view identifiers and pre-roll facts) that every beacon of a view carries, and
// TAVSDKViewDeviceOrientationData, the device orientation nested under "xdvor".
// Thread rules as TAVSDKQueryData.

#include <memory>
#include <optional>
#include <string>

#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_VIEW_DATA_FIELDS(X)                                                                    \
  X(viewAdBreakCount, ViewAdBreakCount, VIEW_AD_BREAK_COUNT, "xadbrco", Int32)                     \
  X(viewAdCompleteCount, ViewAdCompleteCount, VIEW_AD_COMPLETE_COUNT, "xadcpco", Int32)            \
  X(viewAdErrorCount, ViewAdErrorCount, VIEW_AD_ERROR_COUNT, "xaderco", Int32)                     \
  X(viewAdPlayCount, ViewAdPlayCount, VIEW_AD_PLAY_COUNT, "xadplco", Int32)                        \
  X(viewAdRequestCount, ViewAdRequestCount, VIEW_AD_REQUEST_COUNT, "xadrqco", Int32)               \
  X(viewAdRequestTime, ViewAdRequestTime, VIEW_AD_REQUEST_TIME, "xadrqti", Int64)                  \
  X(viewAdViewCount, ViewAdViewCount, VIEW_AD_VIEW_COUNT, "xadvwco", Int32)                        \
  X(viewAdWatchTime, ViewAdWatchTime, VIEW_AD_WATCH_TIME, "xadvwwati", Int64)                      \
  X(viewEnd, ViewEnd, VIEW_END, "xen", Int64)                                                      \
  X(viewId, ViewId, VIEW_ID, "xid", Text)                                                          \
  X(viewMaxDownscalePercentage, ViewMaxDownscalePercentage, VIEW_MAX_DOWNSCALE_PERCENTAGE,         \
    "xmadope", Double)                                                                             \
  X(viewMaxSeekTime, ViewMaxSeekTime, VIEW_MAX_SEEK_TIME, "xmaskti", Int64)                        \
  X(viewMaxUpscalePercentage, ViewMaxUpscalePercentage, VIEW_MAX_UPSCALE_PERCENTAGE, "xmauppe",    \
    Double)                                                                                        \
  X(viewMidrollTimeToFirstAd, ViewMidrollTimeToFirstAd, VIEW_MIDROLL_TIME_TO_FIRST_AD,             \
    "xmltitofiad", Int64)                                                                          \
  X(viewPercentageViewed, ViewPercentageViewed, VIEW_PERCENTAGE_VIEWED, "xpevd", Int32)            \
  X(viewPlayingTime, ViewPlayingTime, VIEW_PLAYING_TIME, "xpnti", Int64)                           \
  X(viewRebufferCount, ViewRebufferCount, VIEW_REBUFFER_COUNT, "xreco", Int32)                     \
  X(viewRebufferDuration, ViewRebufferDuration, VIEW_REBUFFER_DURATION, "xredu", Int64)            \
  X(viewRebufferFrequency, ViewRebufferFrequency, VIEW_REBUFFER_FREQUENCY, "xrefq", Double)        \
  X(viewRebufferPercentage, ViewRebufferPercentage, VIEW_REBUFFER_PERCENTAGE, "xrepe", Double)     \
  X(viewSeekCount, ViewSeekCount, VIEW_SEEK_COUNT, "xskco", Int32)                                 \
  X(viewSeekDuration, ViewSeekDuration, VIEW_SEEK_DURATION, "xskdu", Int64)                        \
  X(viewSequenceNumber, ViewSequenceNumber, VIEW_SEQUENCE_NUMBER, "xsqno", Int32)                  \
  X(viewStart, ViewStart, VIEW_START, "xst", Int64)                                                \
  X(viewTimeToFirstFrame, ViewTimeToFirstFrame, VIEW_TIME_TO_FIRST_FRAME, "xtitofifr", Int64)      \
  X(viewTimeToPreroll, ViewTimeToPreroll, VIEW_TIME_TO_PREROLL, "xtitopl", Int64)                  \
  X(viewTotalContentPlaybackTime, ViewTotalContentPlaybackTime, VIEW_TOTAL_CONTENT_PLAYBACK_TIME,  \
    "xtlctpbti", Int64)                                                                            \
  X(viewTotalDownscaling, ViewTotalDownscaling, VIEW_TOTAL_DOWNSCALING, "xtldg", Double)           \
  X(viewTotalUpscaling, ViewTotalUpscaling, VIEW_TOTAL_UPSCALING, "xtlug", Double)                 \
  X(viewWaitingRebufferCount, ViewWaitingRebufferCount, VIEW_WAITING_REBUFFER_COUNT, "xwtreco",    \
    Int32)                                                                                         \
  X(viewWaitingRebufferDuration, ViewWaitingRebufferDuration, VIEW_WAITING_REBUFFER_DURATION,      \
    "xwtredu", Int64)                                                                              \
  X(viewWatchTime, ViewWatchTime, VIEW_WATCH_TIME, "xwati", Int64)                                 \
  X(viewerTime, ViewerTime, VIEWER_TIME, "uti", Int64)                                             \
  X(viewMinRequestThroughput, ViewMinRequestThroughput, VIEW_MIN_REQUEST_THROUGHPUT, "xmmrqth",    \
    Word)                                                                                          \
  X(viewAverageRequestThroughput, ViewAverageRequestThroughput, VIEW_AVERAGE_REQUEST_THROUGHPUT,   \
    "xavrqth", Word)                                                                               \
  X(viewMaxRequestLatency, ViewMaxRequestLatency, VIEW_MAX_REQUEST_LATENCY, "xmarqlt",             \
    TruncDouble)                                                                                   \
  X(viewAverageRequestLatency, ViewAverageRequestLatency, VIEW_AVERAGE_REQUEST_LATENCY, "xavrqlt", \
    TruncDouble)                                                                                   \
  X(viewPrerollAdId, ViewPrerollAdId, VIEW_PREROLL_AD_ID, "xpladid", Text)                         \
  X(viewPrerollCreativeId, ViewPrerollCreativeId, VIEW_PREROLL_CREATIVE_ID, "xplcrid", Text)       \
  X(viewPrerollRequested, ViewPrerollRequested, VIEW_PREROLL_REQUESTED, "xplrd", Bool)             \
  X(viewPrerollPlayed, ViewPrerollPlayed, VIEW_PREROLL_PLAYED, "xplpf", Bool)                      \
  X(viewPrerollRequestCount, ViewPrerollRequestCount, VIEW_PREROLL_REQUEST_COUNT, "xplrqco",       \
    Int32)                                                                                         \
  X(viewPrerollRequestTime, ViewPrerollRequestTime, VIEW_PREROLL_REQUEST_TIME, "xplrqti", Int64)   \
  X(viewStartupPrerollRequestTime, ViewStartupPrerollRequestTime,                                  \
    VIEW_STARTUP_PREROLL_REQUEST_TIME, "xsuplrqti", Int64)                                         \
  X(viewPrerollLoadTime, ViewPrerollLoadTime, VIEW_PREROLL_LOAD_TIME, "xplloti", Int64)            \
  X(viewStartupPrerollLoadTime, ViewStartupPrerollLoadTime, VIEW_STARTUP_PREROLL_LOAD_TIME,        \
    "xsuplloti", Int64)                                                                            \
  X(viewPrerollAdTagHostname, ViewPrerollAdTagHostname, VIEW_PREROLL_AD_TAG_HOSTNAME, "xpladtahn", \
    Text)                                                                                          \
  X(viewPrerollAdTagDomain, ViewPrerollAdTagDomain, VIEW_PREROLL_AD_TAG_DOMAIN, "xpladtadm", Text) \
  X(viewPrerollAdAssetHostname, ViewPrerollAdAssetHostname, VIEW_PREROLL_AD_ASSET_HOSTNAME,        \
    "xpladashn", Text)                                                                             \
  X(viewPrerollAdAssetDomain, ViewPrerollAdAssetDomain, VIEW_PREROLL_AD_ASSET_DOMAIN, "xpladasdm", \
    Text)                                                                                          \
  X(viewMaxPlayheadPosition, ViewMaxPlayheadPosition, VIEW_MAX_PLAYHEAD_POSITION, "xmaphps",       \
    Int64)                                                                                         \
  X(internalViewSessionId, InternalViewSessionId, INTERNAL_VIEW_SESSION_ID, "ivwseid", Text)

// X(property, KEY_CONSTANT, "key")
#define TAV_VIEW_DEVICE_ORIENTATION_FIELDS(X) \
  X(x, VIEW_DEVICE_ORIENTATION_X, "x")        \
  X(y, VIEW_DEVICE_ORIENTATION_Y, "y")        \
  X(z, VIEW_DEVICE_ORIENTATION_Z, "z")

namespace tav {

TAV_VIEW_DATA_FIELDS(TAV_FIELD_KEY)
inline constexpr char VIEW_DEVICE_ORIENTATION[] = "xdvor";
#define TAV_ORIENTATION_KEY(prop, KEY, code) inline constexpr char KEY[] = code;
TAV_VIEW_DEVICE_ORIENTATION_FIELDS(TAV_ORIENTATION_KEY)
#undef TAV_ORIENTATION_KEY

/// Device orientation: three doubles stored as numbers (not text), always present.
class TAVSDKViewDeviceOrientationData : public TAVSDKQueryData {
 public:
  /// x = y = z = 0.0.
  TAVSDKViewDeviceOrientationData();
  /// Each absent value becomes 0.0; stored "x", then "y", then "z".
  TAVSDKViewDeviceOrientationData(const std::optional<Json>& x, const std::optional<Json>& y,
                                  const std::optional<Json>& z);
  /// x = y = 0.0 and the given z.
  static std::shared_ptr<TAVSDKViewDeviceOrientationData> initWithZ(const std::optional<Json>& z);

#define TAV_ORIENTATION_GETTER(prop, KEY, code)    \
  [[nodiscard]] std::optional<Json> prop() const { \
    return get(KEY);                               \
  }
  TAV_VIEW_DEVICE_ORIENTATION_FIELDS(TAV_ORIENTATION_GETTER)
#undef TAV_ORIENTATION_GETTER

  /// The value if present, else the default.
  static Json _valueOrDefault(const std::optional<Json>& value, const Json& fallback);
};

class TAVSDKViewData : public TAVSDKQueryData, public TAVSDKUpsertable<TAVSDKViewData> {
 public:
  TAV_VIEW_DATA_FIELDS(TAV_FIELD_ACCESSORS)

  /// Stores the orientation's snapshot under "xdvor"; nullptr removes it.
  void setViewDeviceOrientationData(
      const std::shared_ptr<const TAVSDKViewDeviceOrientationData>& orientation);
  /// A new orientation built from "xdvor"; 0.0, 0.0, 0.0 when absent (never null).
  [[nodiscard]] std::shared_ptr<TAVSDKViewDeviceOrientationData> viewDeviceOrientationData() const;

  /// A plain stored text that never reaches a beacon (kept for compatibility).
  [[nodiscard]] std::optional<std::string> vviewPrerollAdAssetHostname() const;
  void setVviewPrerollAdAssetHostname(const std::optional<std::string>& value);

 private:
  mutable std::mutex _plainFieldMutex;
  std::optional<std::string> _vviewPrerollAdAssetHostname;
};

}  // namespace tav
