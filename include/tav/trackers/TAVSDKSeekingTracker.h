#pragma once
// Seeks: one "seeking" per seek, seek count, duration and longest seek.
//
// A run of "internalseeking" signals (scrubbing) yields one "seeking"; the seek
// is timed from the last of them to the "seeked" that ends it.
//
// Thread rules: the view's dispatching thread (see TAVSDKBaseTracker).

#include <cstdint>

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKSeekingTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  /// Does nothing: pauses do not affect seeks.
  void handlePauseEvent(const TAVSDKPlaybackEvent& event);
  void handleInternalSeekingEvent(const TAVSDKPlaybackEvent& event);
  void handleSeekedEvent(const TAVSDKPlaybackEvent& event);

  [[nodiscard]] bool isSeeking() const { return _isSeeking; }
  [[nodiscard]] std::int32_t seekCount() const { return _seekCount; }
  [[nodiscard]] std::int64_t seekDuration() const { return _seekDuration; }
  [[nodiscard]] std::int64_t maxSeekTime() const { return _maxSeekTime; }
  [[nodiscard]] std::int64_t lastPauseEventTime() const { return _lastPauseEventTime; }

 private:
  std::int64_t _lastPauseEventTime = 0;  // never set: the pause handler does nothing
  std::int64_t _lastEventTime = 0;       // viewer time of the latest "internalseeking"
  std::int64_t _seekDuration = 0;
  std::int64_t _maxSeekTime = 0;
  std::int32_t _seekCount = 0;
  bool _isSeeking = false;
};

}  // namespace tav
