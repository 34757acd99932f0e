#pragma once
// The one handler on every player's bus: completes each beacon with the shared
// environment and viewer records, flattens it and hands it to the player's
// queue, or to the global client handler when the application installed one.

#include <string>

#include "tav/events/TAVSDKEventTyping.h"

namespace tav {

class TAVSDKClientHandler : public TAVSDKEventHandling {
 public:
  explicit TAVSDKClientHandler(std::string playerId) : _playerId(std::move(playerId)) {}
  void handle(const std::shared_ptr<TAVSDKBaseEvent>& event) override;
  [[nodiscard]] const std::string& playerId() const { return _playerId; }
  void setPlayerId(std::string playerId) { _playerId = std::move(playerId); }

 private:
  std::string _playerId;
};

}  // namespace tav
