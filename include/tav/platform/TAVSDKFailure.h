#pragma once
// The failure type that the library throws for internal errors. It records the
// call stack at the point where it is constructed (thrown), so error reports
// carry real frames.

#include <stdexcept>
#include <string>
#include <vector>

namespace tav {

class TAVSDKFailure : public std::runtime_error {
 public:
  explicit TAVSDKFailure(const std::string& what);
  /// Return addresses of the frames, innermost first (may be empty where the
  /// platform offers no stack walk).
  [[nodiscard]] const std::vector<void*>& callStack() const { return _callStack; }

 private:
  std::vector<void*> _callStack;
};

}  // namespace tav
