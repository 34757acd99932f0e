#pragma once
// TAVSDKBandwidthMetricData: one network request of the player (a manifest, a
// media segment, ...): timing, size, type, host, outcome and the renditions that
// a manifest offered. `requestStart`, `requestResponseStart` and
// `requestResponseEnd` are points in time in milliseconds on the integration's
// clock; `requestBytesLoaded` is bytes; sizes are pixels.
// Ownership and thread rules as TAVSDKQueryData.

#include <optional>
#include <vector>

#include "tav/data/Rendition.h"
#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// Note the constant `REQUEST_HOSTNAME` (one word) for `requestHostName`.
// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_BANDWIDTH_METRIC_DATA_FIELDS(X)                                                   \
  X(requestEventType, RequestEventType, REQUEST_EVENT_TYPE, "qeety", Text)                    \
  X(requestStart, RequestStart, REQUEST_START, "qst", Int64)                                  \
  X(requestResponseStart, RequestResponseStart, REQUEST_RESPONSE_START, "qrpst", Int64)       \
  X(requestResponseEnd, RequestResponseEnd, REQUEST_RESPONSE_END, "qrpen", Int64)             \
  X(requestBytesLoaded, RequestBytesLoaded, REQUEST_BYTES_LOADED, "qbyld", Int64)             \
  X(requestType, RequestType, REQUEST_TYPE, "qty", Text)                                      \
  X(requestResponseHeaders, RequestResponseHeaders, REQUEST_RESPONSE_HEADERS, "qrphe", Text)  \
  X(requestHostName, RequestHostName, REQUEST_HOSTNAME, "qhn", Text)                          \
  X(requestMediaDuration, RequestMediaDuration, REQUEST_MEDIA_DURATION, "qmddu", Int64)       \
  X(requestCurrentLevel, RequestCurrentLevel, REQUEST_CURRENT_LEVEL, "qcule", Int32)          \
  X(requestMediaStartTime, RequestMediaStartTime, REQUEST_MEDIA_START_TIME, "qmdstti", Int64) \
  X(requestVideoWidth, RequestVideoWidth, REQUEST_VIDEO_WIDTH, "qviwd", Int32)                \
  X(requestVideoHeight, RequestVideoHeight, REQUEST_VIDEO_HEIGHT, "qviht", Int32)             \
  X(requestError, RequestError, REQUEST_ERROR, "qer", Text)                                   \
  X(requestUrl, RequestUrl, REQUEST_URL, "qur", Text)                                         \
  X(requestErrorText, RequestErrorText, REQUEST_ERROR_TEXT, "qerte", Text)                    \
  X(requestErrorCode, RequestErrorCode, REQUEST_ERROR_CODE, "qercd", Int32)                   \
  X(requestLabeledBitrate, RequestLabeledBitrate, REQUEST_LABELED_BITRATE, "qlbbi", Int64)    \
  X(requestCancel, RequestCancel, REQUEST_CANCEL, "qcb", Text)

namespace tav {

TAV_BANDWIDTH_METRIC_DATA_FIELDS(TAV_FIELD_KEY)
/// The rendition list, stored as {"media": [{"width": n, "height": n, "bitrate": n}, ...]}.
inline constexpr char REQUEST_RENDITION_LISTS[] = "qrfls";

class TAVSDKBandwidthMetricData : public TAVSDKQueryData {
 public:
  TAV_BANDWIDTH_METRIC_DATA_FIELDS(TAV_FIELD_ACCESSORS)

  /// The renditions under "qrfls", in order; empty (never absent) when none is stored.
  [[nodiscard]] std::vector<Rendition> requestRenditionLists() const;
  /// Stores the renditions' numbers as given (absent ones are left out of their
  /// entry); an empty list stores {"media": []}; nullopt removes "qrfls".
  void setRequestRenditionLists(const std::optional<std::vector<Rendition>>& renditions);
};

}  // namespace tav
