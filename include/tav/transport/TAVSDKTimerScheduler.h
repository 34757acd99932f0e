#pragma once
// The one-shot timer port. The dispatcher arms its attempts through it; the
// default runs timers on the transport worker (TAVSDKTransport::timerScheduler),
// tests substitute a manual scheduler that they advance by hand.

#include <chrono>
#include <functional>

namespace tav {

class TAVSDKTimerScheduler {
 public:
  using Callback = std::function<void()>;

  virtual ~TAVSDKTimerScheduler() = default;

  /// Arms a timer that calls `callback` once, `delay` from now (0 or less: as
  /// soon as possible, never inside `schedule` itself). There is no cancel: the
  /// scheduler owns `callback` (and what it captures) until it has run or the
  /// scheduler drops it. Thread rules: callable from any thread, including from
  /// inside a callback.
  virtual void schedule(std::chrono::milliseconds delay, Callback callback) = 0;
};

}  // namespace tav
