#include "tav/core/TAVSDKEventBus.h"

#include <algorithm>

#include "tav/platform/TAVSDKFailure.h"

namespace tav {

void TAVSDKEventBus::checkNotWalking() const {
  if (_walking > 0) throw TAVSDKFailure("handler list mutated during dispatch");
}

void TAVSDKEventBus::addHandler(std::shared_ptr<TAVSDKEventHandling> handler) {
  checkNotWalking();
  _handlers.push_back(std::move(handler));
}

void TAVSDKEventBus::removeHandler(const std::shared_ptr<TAVSDKEventHandling>& handler) {
  checkNotWalking();
  std::erase(_handlers, handler);
}

void TAVSDKEventBus::removeAllHandlers() {
  checkNotWalking();
  _handlers.clear();
}

void TAVSDKEventBus::dispatch(const TAVSDKEventPtr& event) {
  struct WalkGuard {
    int& depth;
    explicit WalkGuard(int& d) : depth(d) { ++depth; }
    ~WalkGuard() { --depth; }
    WalkGuard(const WalkGuard&) = delete;
    WalkGuard& operator=(const WalkGuard&) = delete;
  } guard(_walking);
  // The list cannot change during the walk (see checkNotWalking).
  for (const auto& handler : _handlers)
    handler->handle(event);
}

}  // namespace tav
