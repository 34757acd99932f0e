#include "support/RecordingCallback.h"

namespace tav::test {

void RecordingCallback::onComplete(std::optional<bool> result) {
  const std::lock_guard lock(_mutex);
  _results.push_back(result);
  _told.notify_all();
}

std::vector<std::optional<bool>> RecordingCallback::results() const {
  const std::lock_guard lock(_mutex);
  return _results;
}

bool RecordingCallback::waitFor(std::size_t count, std::chrono::milliseconds deadline) const {
  std::unique_lock lock(_mutex);
  return _told.wait_for(lock, deadline, [&] { return _results.size() >= count; });
}

}  // namespace tav::test
