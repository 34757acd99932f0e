#pragma once
// An ordered list of handlers to which an event is handed one by one,
// synchronously, on the caller's thread. The bus owns its handlers. Changing
// the list while a walk over it is in progress throws TAVSDKFailure. Not
// thread-safe: one dispatching thread at a time.

#include <memory>
#include <vector>

#include "tav/events/TAVSDKBaseEvent.h"

namespace tav {

class TAVSDKEventBus {
 public:
  TAVSDKEventBus() = default;
  virtual ~TAVSDKEventBus() = default;
  TAVSDKEventBus(const TAVSDKEventBus&) = delete;
  TAVSDKEventBus& operator=(const TAVSDKEventBus&) = delete;

  /// Appends a handler (the same handler may be added twice).
  void addHandler(std::shared_ptr<TAVSDKEventHandling> handler);
  /// Removes every occurrence of the handler.
  void removeHandler(const std::shared_ptr<TAVSDKEventHandling>& handler);
  void removeAllHandlers();
  /// Hands the event to each handler in list order. Nested dispatch is allowed.
  virtual void dispatch(const TAVSDKEventPtr& event);

  [[nodiscard]] std::size_t handlerCount() const { return _handlers.size(); }
  [[nodiscard]] const std::vector<std::shared_ptr<TAVSDKEventHandling>>& handlers() const {
    return _handlers;
  }

 private:
  void checkNotWalking() const;

  std::vector<std::shared_ptr<TAVSDKEventHandling>> _handlers;
  int _walking = 0;
};

}  // namespace tav
