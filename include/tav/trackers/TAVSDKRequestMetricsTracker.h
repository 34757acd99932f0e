#pragma once
// Request throughput (bits per second) and latency (milliseconds) of a view,
// from the player's "requestcompleted" reports: minimum and average
// throughput, maximum and average latency, written into the view data that
// the event carries (the view's own record). "requestfailed" and
// "requestcanceled" only move counters that are never reported.
//
// Thread rules: the view's dispatching thread (see TAVSDKBaseTracker).

#include <cstdint>

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKRequestMetricsTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;

  /// Counts "requestcanceled" events only, whatever its name suggests.
  [[nodiscard]] std::int64_t requestCount() const { return _requestCount; }
  [[nodiscard]] std::int64_t requestCompletedCount() const { return _requestCompletedCount; }
  [[nodiscard]] std::int64_t requestCanceledCount() const { return _requestCanceledCount; }
  [[nodiscard]] std::int64_t requestFailedCount() const { return _requestFailedCount; }
  [[nodiscard]] std::int64_t totalBytes() const { return _totalBytes; }
  [[nodiscard]] std::int64_t totalLoadTime() const { return _totalLoadTime; }
  [[nodiscard]] double totalLatency() const { return _totalLatency; }

 private:
  void handleRequestCompleted(TAVSDKPlaybackEvent& event);

  std::int64_t _requestCount = 0;
  std::int64_t _requestCompletedCount = 0;  // completed requests in the throughput figures
  std::int64_t _requestCanceledCount = 0;
  std::int64_t _requestFailedCount = 0;
  std::int64_t _totalBytes = 0;
  std::int64_t _totalLoadTime = 0;  // ms
  double _totalLatency = 0.0;       // ms, of the requests that had both start times
};

}  // namespace tav
