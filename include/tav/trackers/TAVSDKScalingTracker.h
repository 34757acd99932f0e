#pragma once
// Up- and down-scaling of the video into the player.
//
// An interval opens at "playing" or "timeupdate" (preparation: the playhead,
// the player's size and the video's source size are noted) and closes at the
// next calculation event ("pause", "rebufferstart", "internalseeking",
// "adbreakstart", "timeupdate", "viewend"). A closed interval adds its content
// time, weighted by the aspect-preserving fit factor's up- or down-scaling, to
// the view's totals and raises the maxima. Intervals in ad breaks, with a
// missing or zero size, or with a backwards playhead are skipped.
//
// Thread rules: the view's dispatching thread (see TAVSDKBaseTracker).

#include <cstdint>
#include <optional>

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKScalingTracker : public TAVSDKBaseAdTracker {
 public:
  using TAVSDKBaseAdTracker::TAVSDKBaseAdTracker;
  /// Runs the ad-break handling of the base first, so `isAdBreak` is current.
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  /// Notes the playhead and the sizes of `event` as the start of an interval.
  void prepare(const TAVSDKPlaybackEvent& event);
  /// Closes the open interval at `playhead` and reports the totals.
  void calculate(std::int64_t playhead);

  static const TAVSDKKeySet& _calculationEvents();
  static const TAVSDKKeySet& _preparationEvents();

  [[nodiscard]] std::int64_t viewTotalContentPlaybackTime() const {
    return _viewTotalContentPlaybackTime;
  }
  [[nodiscard]] double viewMaxUpscaling() const { return _viewMaxUpscaling; }
  [[nodiscard]] double viewMaxDownscaling() const { return _viewMaxDownscaling; }
  [[nodiscard]] double viewTotalUpscaling() const { return _viewTotalUpscaling; }
  [[nodiscard]] double viewTotalDownscaling() const { return _viewTotalDownscaling; }

 private:
  MetricUpdate _metric;
  std::optional<std::int64_t> _lastPlayheadPosition;
  std::optional<std::int32_t> _lastPlayerWidth;
  std::optional<std::int32_t> _lastPlayerHeight;
  std::optional<std::int32_t> _lastSourceWidth;
  std::optional<std::int32_t> _lastSourceHeight;
  std::int64_t _viewTotalContentPlaybackTime = 0;
  double _viewMaxUpscaling = 0.0;      // fraction: 0.5 is 50 %
  double _viewMaxDownscaling = 0.0;    // fraction
  double _viewTotalUpscaling = 0.0;    // fraction x ms
  double _viewTotalDownscaling = 0.0;  // fraction x ms
};

}  // namespace tav
