#include "tav/platform/TAVSDKLog.h"

#include <cstdio>
#include <memory>
#include <mutex>

namespace tav {
namespace {

std::mutex& handlerMutex() {
  static std::mutex m;
  return m;
}

std::shared_ptr<const TAVSDKLog::Handler>& handlerSlot() {
  static std::shared_ptr<const TAVSDKLog::Handler> slot;
  return slot;
}

}  // namespace

void TAVSDKLog::setHandler(Handler handler) {
  auto next = handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
  const std::lock_guard lock(handlerMutex());
  handlerSlot() = std::move(next);
}

void TAVSDKLog::error(std::string_view message) {
  std::shared_ptr<const Handler> handler;
  {
    const std::lock_guard lock(handlerMutex());
    handler = handlerSlot();
  }
  if (handler) {
    (*handler)(message);
    return;
  }
  std::fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
}

}  // namespace tav
