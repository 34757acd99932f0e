#include "tav/trackers/TAVSDKRequestMetricsTracker.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/Saturating.h"
#include "tav/data/TAVSDKBandwidthMetricData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {
namespace {

bool isNonEmpty(const std::optional<std::string>& text) {
  return text && !text->empty();
}

// Truncates toward zero; saturates outside the 64-bit range, NaN gives 0.
std::int64_t truncated(double value) {
  if (std::isnan(value)) return 0;
  constexpr auto kMax = static_cast<double>(std::numeric_limits<std::int64_t>::max());
  constexpr auto kMin = static_cast<double>(std::numeric_limits<std::int64_t>::min());
  if (value >= kMax) return std::numeric_limits<std::int64_t>::max();
  if (value <= kMin) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

// Bits per second of `bytes` loaded in `ms` milliseconds.
std::int64_t bitsPerSecond(std::int64_t bytes, std::int64_t ms) {
  return truncated(static_cast<double>(bytes) * 8000.0 / static_cast<double>(ms));
}

}  // namespace

void TAVSDKRequestMetricsTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  if (type == TAVSDKPlaybackEventRequestBandwidthEventCancelType) {
    ++_requestCount;
    const auto& request = event.bandwidthMetricData();
    if (request && isNonEmpty(request->requestCancel())) ++_requestCanceledCount;
  } else if (type == TAVSDKPlaybackEventRequestBandwidthEventErrorType) {
    const auto& request = event.bandwidthMetricData();
    if (request && isNonEmpty(request->requestError())) ++_requestFailedCount;
  } else if (type == TAVSDKPlaybackEventRequestBandwidthEventCompleteType) {
    handleRequestCompleted(event);
  }
}

void TAVSDKRequestMetricsTracker::handleRequestCompleted(TAVSDKPlaybackEvent& event) {
  const auto& request = event.bandwidthMetricData();
  if (!request) return;
  const auto start = request->requestStart();
  const auto responseStart = request->requestResponseStart();
  const auto responseEnd = request->requestResponseEnd();
  const std::int64_t bytes = request->requestBytesLoaded().value_or(0);

  if (!responseEnd) return;
  std::int64_t loadTime = 0;
  if (responseStart) {
    loadTime = platform::subSaturated(*responseEnd, *responseStart);
  } else if (start) {
    loadTime = platform::subSaturated(*responseEnd, *start);
  } else {
    return;
  }
  if (bytes < 1 || loadTime < 1) return;

  const std::int64_t throughput = bitsPerSecond(bytes, loadTime);
  ++_requestCompletedCount;
  _totalBytes = platform::addSaturated(_totalBytes, bytes);
  _totalLoadTime = platform::addSaturated(_totalLoadTime, loadTime);

  // The view's own record: the minimum and maximum carry across the view, the
  // averages are recomputed from the totals.
  auto view = event.viewData();
  if (view) {
    const auto minimum = view->viewMinRequestThroughput();
    view->setViewMinRequestThroughput(
        minimum ? std::min(static_cast<std::int64_t>(*minimum), throughput) : throughput);
    view->setViewAverageRequestThroughput(bitsPerSecond(_totalBytes, _totalLoadTime));
  }
  if (start && responseStart) {
    const auto latency = static_cast<double>(platform::subSaturated(*responseStart, *start));
    _totalLatency += latency;
    if (view) {
      // The first maximum is stored as the double itself; later maxima are
      // truncated to whole milliseconds (and the getter truncates on reading).
      const auto maximum = view->viewMaxRequestLatency();
      view->setViewMaxRequestLatency(
          maximum ? static_cast<double>(truncated(std::max(static_cast<double>(*maximum), latency)))
                  : latency);
      // Divided by every counted request, also those without both start times.
      view->setViewAverageRequestLatency(_totalLatency /
                                         static_cast<double>(_requestCompletedCount));
    }
  }
  event.setViewData(std::move(view));
}

}  // namespace tav
