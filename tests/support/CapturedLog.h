#pragma once
// Captures the library log for one scope and restores stderr after.

#include <mutex>
#include <string>
#include <vector>

#include "tav/platform/TAVSDKLog.h"

namespace tav::test {

class CapturedLog {
 public:
  CapturedLog() {
    TAVSDKLog::setHandler([this](std::string_view message) {
      const std::lock_guard lock(_mutex);
      _messages.emplace_back(message);
    });
  }
  ~CapturedLog() { TAVSDKLog::setHandler(nullptr); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  [[nodiscard]] std::vector<std::string> messages() const {
    const std::lock_guard lock(_mutex);
    return _messages;
  }

 private:
  mutable std::mutex _mutex;
  std::vector<std::string> _messages;
};

}  // namespace tav::test
