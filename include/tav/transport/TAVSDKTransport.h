#pragma once
// The process-wide transport worker: the library's only thread. It owns one
// libcurl multi handle (connections to a host are reused between batches) and a
// one-shot timer queue; requests are started and completed on it, and timer
// callbacks run on it, so no call blocks the caller's thread on I/O.
//
// Lifecycle: the worker starts lazily with the first request or timer and runs
// until `shutdown`. It is never detached and never started or joined from static
// constructors or destructors: the process-wide instance is intentionally never
// destroyed, so a process that exits without calling `shutdown` neither blocks
// nor terminates, but whatever is still pending is lost. Hosts call `shutdown`
// before exiting to deliver the final batches.

#include <chrono>
#include <memory>

#include "tav/transport/TAVSDKHttpClient.h"
#include "tav/transport/TAVSDKTimerScheduler.h"

namespace tav {

class TAVSDKTransport {
 public:
  /// The libcurl client on the worker. Completions run on the worker thread.
  /// TLS peer and host verification are always on. At most six connections
  /// are open to one host; further requests wait for one of them. A request sent while a
  /// shutdown is aborting (after its deadline) is refused: its completion runs at
  /// once on the calling thread with an error.
  [[nodiscard]] static std::shared_ptr<TAVSDKHttpClient> httpClient();

  /// The worker's timer queue. Callbacks run on the worker thread, in due order.
  /// A timer armed while a shutdown is aborting is dropped without running.
  [[nodiscard]] static std::shared_ptr<TAVSDKTimerScheduler> timerScheduler();

  /// Flush and wait: every pending timer fires at once (so are timers armed
  /// meanwhile, such as retries), requests already handed over are sent and
  /// in-flight transfers finish, all within `deadline`. Then whatever is left is
  /// aborted, the worker is stopped and joined and its resources are freed.
  /// Returns true when everything finished before the deadline, false when
  /// something was aborted (or when called from the worker thread itself, where
  /// it does nothing). Safe to call at any time, repeatedly and from any thread
  /// other than the worker; a later request or timer starts a fresh worker.
  static bool shutdown(std::chrono::milliseconds deadline);
};

}  // namespace tav
