#pragma once
// The transport worker: one thread that owns a libcurl multi handle and a
// one-shot timer queue. Requests are started and completed on it and timer
// callbacks run on it. Internal; the public face is TAVSDKTransport.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tav/transport/TAVSDKHttpClient.h"
#include "tav/transport/TAVSDKTimerScheduler.h"

namespace tav::detail {

class CurlWorker {
 public:
  using Completion = TAVSDKHttpClient::Completion;
  using Callback = TAVSDKTimerScheduler::Callback;

  CurlWorker() = default;
  /// Shuts down with a zero deadline (pending work is aborted). The process-wide
  /// instance is never destroyed.
  ~CurlWorker();
  CurlWorker(const CurlWorker&) = delete;
  CurlWorker& operator=(const CurlWorker&) = delete;

  /// The process-wide worker behind TAVSDKTransport.
  static CurlWorker& instance();

  /// Queues a request; starts the worker when it is not running. Refused (the
  /// completion runs at once on this thread with an error) while a shutdown is
  /// aborting or when libcurl cannot be initialised.
  void send(TAVSDKHttpRequest request, Completion completion);
  /// Arms a timer; starts the worker when it is not running. Dropped while a
  /// shutdown is aborting.
  void schedule(std::chrono::milliseconds delay, Callback callback);
  /// See TAVSDKTransport::shutdown.
  bool shutdown(std::chrono::milliseconds deadline);

 private:
  using Clock = std::chrono::steady_clock;
  struct Transfer;
  enum class Phase { kStopped, kRunning, kDraining, kStopping };

  bool startLocked();
  void wakeLocked();
  [[nodiscard]] bool idleLocked() const;
  [[nodiscard]] bool hasImmediateWorkLocked(Clock::time_point now) const;
  [[nodiscard]] int pollTimeoutMsLocked(Clock::time_point now) const;
  [[nodiscard]] bool onWorkerThread() const;

  void run();
  void startTransfer(TAVSDKHttpRequest request, Completion completion);
  void performTransfers();
  void finishTransfer(void* easy, TAVSDKHttpResult result);
  void abortTransfers();

  std::mutex _shutdownMutex;  // one shutdown at a time
  mutable std::mutex _mutex;
  std::condition_variable _stateChanged;
  Phase _phase = Phase::kStopped;
  std::thread _thread;
  std::atomic<std::thread::id> _workerId{};
  void* _multi = nullptr;  // CURLM*, created by the starter, freed after the join
  std::vector<std::pair<TAVSDKHttpRequest, Completion>> _incoming;
  std::multimap<Clock::time_point, Callback> _timers;  // equal due times run in arming order
  std::size_t _inFlight = 0;
  bool _busy = false;
  std::atomic<bool> _abort{false};

  // Worker thread only.
  std::unordered_map<void*, std::unique_ptr<Transfer>> _transfers;
};

}  // namespace tav::detail
