#pragma once
// A one-shot timer scheduler driven by hand: timers run only when the test
// advances virtual time (on the test's thread). Thread-safe, so timers may be
// armed from the transport worker.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "tav/transport/TAVSDKTimerScheduler.h"

namespace tav::test {

class ManualScheduler : public TAVSDKTimerScheduler {
 public:
  using Ms = std::chrono::milliseconds;

  void schedule(Ms delay, Callback callback) override;

  /// Moves virtual time forward by `by` and runs every timer due by then, in
  /// due order, including timers armed by those callbacks that are due. Answers
  /// how many ran.
  std::size_t advance(Ms by);
  /// Runs the timers due now.
  std::size_t runDue() { return advance(Ms(0)); }

  /// Drops every pending timer without running it (pending timers hold what
  /// armed them, such as a dispatcher that holds this scheduler).
  void clear();

  [[nodiscard]] Ms now() const;
  [[nodiscard]] std::size_t pendingCount() const;
  /// The delays the pending timers were armed with, in due order.
  [[nodiscard]] std::vector<Ms> pendingDelays() const;
  /// Every delay ever armed, in arming order.
  [[nodiscard]] std::vector<Ms> armedDelays() const;
  /// Waits until at least `count` timers are pending, at most `deadline`.
  bool waitForPending(std::size_t count, Ms deadline) const;

 private:
  struct Timer {
    Ms delay;
    Callback callback;
  };
  mutable std::mutex _mutex;
  mutable std::condition_variable _armed;
  Ms _now{0};
  std::multimap<Ms, Timer> _timers;
  std::vector<Ms> _armedDelays;
};

}  // namespace tav::test
