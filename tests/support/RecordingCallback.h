#pragma once
// A batch callback that records what it is told. Thread-safe.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <vector>

#include "tav/transport/TAVSDKBatchCallback.h"

namespace tav::test {

class RecordingCallback : public TAVSDKBatchCallback {
 public:
  void onComplete(std::optional<bool> result) override;
  [[nodiscard]] std::vector<std::optional<bool>> results() const;
  /// Waits until at least `count` results arrived, at most `deadline`.
  bool waitFor(std::size_t count, std::chrono::milliseconds deadline) const;

 private:
  mutable std::mutex _mutex;
  mutable std::condition_variable _told;
  std::vector<std::optional<bool>> _results;
};

}  // namespace tav::test
