#pragma once
// Emits "internalheartbeat" while playing (on "timeupdate" and the start
// events) and "internalheartbeatend" when playing stops; these pace the time
// trackers. No timer: it acts only when events pass through the view.

#include <memory>

#include "tav/trackers/TAVSDKBaseTracker.h"

namespace tav {

class TAVSDKPlayerData;

class TAVSDKInternalHeartbeatTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  void startHeartbeatWithPlayerDataAndViewData(const std::shared_ptr<TAVSDKPlayerData>& player,
                                               const std::shared_ptr<TAVSDKViewData>& view);
  void endHeartbeatWithPlayerDataAndViewData(const std::shared_ptr<TAVSDKPlayerData>& player,
                                             const std::shared_ptr<TAVSDKViewData>& view);
  // "Hearbeat" is the established name of these two operations.
  void dispatchInternalHearbeatEventAndViewData(const std::shared_ptr<TAVSDKPlayerData>& player,
                                                const std::shared_ptr<TAVSDKViewData>& view);
  void dispatchInternalHearbeatEndEventAndViewData(const std::shared_ptr<TAVSDKPlayerData>& player,
                                                   const std::shared_ptr<TAVSDKViewData>& view);

  static const TAVSDKKeySet& _forceStartEvents();
  static const TAVSDKKeySet& _startEvents();
  static const TAVSDKKeySet& _endEvents();
  [[nodiscard]] bool playing() const { return _playing; }

 private:
  bool _playing = false;
};

}  // namespace tav
