#pragma once
// Restarts the view in place when playback resumes after an hour of silence.
//
// When no playback event has reached the view for an hour, the next one (other
// than "viewinit") restarts the view's records through a synthetic "viewinit",
// carries the video and customer records over into the fresh ones, moves the
// triggering event onto the new view data and, if the view was playing,
// replays the start of playback ("play", then "playing") so that the new view
// is complete. The trackers stay in place with their accumulated state.
//
// Ownership: refers to its view (record source and dispatcher) without owning
// it. Thread rules: the view's dispatching thread (see TAVSDKBaseTracker).

#include <cstdint>
#include <memory>
#include <string>

#include "tav/platform/TAVSDKTiming.h"
#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKCoreView;

class TAVSDKLongResumeTracker : public TAVSDKBaseTracker {
 public:
  /// Silence after which the next event starts a new view.
  static constexpr std::int64_t kLongResumeMs = 3'600'000;

  /// initWithCoreView: the view is both the dispatcher and the record source.
  explicit TAVSDKLongResumeTracker(TAVSDKCoreView* coreView);
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  /// Follows the internal heartbeats: playing from one to its end.
  void updatePlayingState(const std::string& type);

  [[nodiscard]] bool playing() const { return _playing; }
  [[nodiscard]] std::int64_t lastEventTimeMillis() const { return _lastEventTimeMillis; }
  [[nodiscard]] std::shared_ptr<TAVSDKTiming> currentTime() const { return _currentTime.get(); }
  void setCurrentTime(std::shared_ptr<TAVSDKTiming> clock) { _currentTime.set(std::move(clock)); }

 private:
  void restartView(TAVSDKPlaybackEvent& event);

  TAVSDKClockSlot _currentTime;
  TAVSDKCoreView* _coreView;
  bool _playing = false;
  std::int64_t _lastEventTimeMillis = 0;
};

}  // namespace tav
