#pragma once
// Turns the playback events of its set into trackable events (beacons).

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKExternalEventTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  /// The 34 playback types that become beacons.
  static const TAVSDKKeySet& _events();
};

}  // namespace tav
