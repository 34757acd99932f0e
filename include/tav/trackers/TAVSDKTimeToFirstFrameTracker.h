#pragma once
// Time to first frame: the view's watch time when the first frame appeared,
// of the content ("playing") or of a pre-roll ad ("adplaying"). An ad that
// starts before more than a second of content has played replaces a time
// taken at "playing"; once taken at "adplaying" the value is final.
//
// Thread rules: the view's dispatching thread (see TAVSDKBaseTracker).

#include <cstdint>

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKTimeToFirstFrameTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  /// Reports `ms` as the view's time to first frame.
  void setAndSendTTFF(std::int64_t ms);

  /// 0 = nothing reported, 1 = reported at "playing", 2 = reported at "adplaying".
  [[nodiscard]] std::int32_t state() const { return _state; }

 private:
  std::int32_t _state = 0;
};

}  // namespace tav
