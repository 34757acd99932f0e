#pragma once
// Stalls detected from the playhead, reported as rebuffering events and metrics.
//
// Paced by the internal heartbeats: at each one it compares how far the
// playhead moved with how much viewer time passed. A playhead that has not
// moved for 1000 ms while it should be progressing opens a rebuffering
// ("rebufferstart"); the next move, a seek or the end of the heartbeat closes
// it ("rebufferend"). A short stall that fell between two heartbeats is
// reported after the fact as a back-dated start/end pair.
//
// Thread rules: the view's dispatching thread (see TAVSDKBaseTracker).

#include <cstdint>
#include <optional>

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKRebufferTracker : public TAVSDKBaseAdTracker {
 public:
  using TAVSDKBaseAdTracker::TAVSDKBaseAdTracker;
  /// Replaces the ad-break base handling entirely: `isAdBreak` is never
  /// updated here, so it stays false and stalls are detected in ad breaks too.
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;

  /// Anchors the last check and the last playhead move at this event.
  void update(const TAVSDKPlaybackEvent& event);
  /// One heartbeat's comparison of playhead progress against viewer time.
  void check(const TAVSDKPlaybackEvent& event);
  /// Closes an open rebuffering (or reports a hidden one) and drops the anchors.
  void cleanup(const TAVSDKPlaybackEvent& event);
  void endRebufferingAtViewerTime(const TAVSDKPlaybackEvent& event, std::int64_t viewerTime);
  /// Adds `delta` to the duration and reports the four metrics when due.
  void computeMetricsWithDelta(const TAVSDKPlaybackEvent& event, std::int64_t delta);

  [[nodiscard]] bool isRebuffering() const { return _isRebuffering; }
  [[nodiscard]] std::int32_t rebufferCount() const { return _rebufferCount; }
  [[nodiscard]] std::int64_t rebufferDuration() const { return _rebufferDuration; }
  [[nodiscard]] double rebufferFrequency() const { return _rebufferFrequency; }
  [[nodiscard]] double rebufferPercentage() const { return _rebufferPercentage; }

 private:
  MetricUpdate _metric;
  bool _isSeeking = false;
  bool _isRebuffering = false;
  bool _playheadShouldBeProgressing = false;
  std::optional<std::int64_t> _lastCheckedTime;
  std::optional<std::int64_t> _lastPlayheadTime;
  std::optional<std::int64_t> _lastPlayheadTimeUpdatedTime;
  std::int32_t _rebufferCount = 0;
  std::int64_t _rebufferDuration = 0;
  double _rebufferFrequency = 0.0;   // rebufferings per ms of watch time
  double _rebufferPercentage = 0.0;  // rebuffered ms per ms of watch time
};

}  // namespace tav
