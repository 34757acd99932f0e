#pragma once
// Workloads shared by the benchmark binaries (tav_bench and tav_bench_counts):
// a started view to feed single events into, and the simulated one-hour view
// (bench/hour-view.json) run through the facade in virtual time.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tav/events/TAVSDKBaseEvent.h"
#include "tav/platform/TAVSDKTiming.h"

namespace tav::bench {

/// One player ("bench-player") with a started, playing view and the default
/// trackers, on a virtual clock. Batches are built by the queue but dropped
/// unsent (no transport work). Resets the facade on construction and destruction.
class PlayerRig {
 public:
  enum class Kind { kTimeupdate, kPausePlay, kRequestCompleted };

  PlayerRig();
  ~PlayerRig();
  PlayerRig(const PlayerRig&) = delete;
  PlayerRig& operator=(const PlayerRig&) = delete;

  /// The next `count` events of a kind with the virtual times they happen at:
  /// timeupdates 1 ms apart (the playhead moves along; no beacon is due),
  /// pause and play alternating 250 ms apart (a beacon each), a completed
  /// segment request every 250 ms (a beacon each, with its bandwidth record).
  void prepare(Kind kind, std::size_t count);
  /// Dispatches the prepared events through the facade, moving the clock.
  void dispatchPrepared();
  [[nodiscard]] std::size_t preparedCount() const { return _events.size(); }
  /// Beacons waiting in the player's queue.
  [[nodiscard]] std::size_t pendingBeacons() const;
  /// From now on the player's queue keeps its beacons (no dispatcher).
  void holdBeacons();

 private:
  std::shared_ptr<TAVSDKVirtualClock> _clock;
  std::vector<TAVSDKEventPtr> _events;
  std::vector<std::int64_t> _times;
  std::int64_t _t = 0;
  std::int64_t _playhead = 0;
  bool _paused = false;
  std::int64_t _segment = 0;
};

/// Where the hour's batches go.
enum class HourTransport {
  kCollector,   // the in-process collector on a loopback port, through the real worker
  kBlackHole,   // a loopback port that accepts connections and never answers
  kOfflineHeld  // every request fails at once; retries are kept, never run
};

struct HourOptions {
  HourTransport transport = HourTransport::kCollector;
  /// Replace the player's queue with one that marks every key as required, so
  /// that nothing is de-duplicated (the reference for the wire figure).
  bool sendEveryKey = false;
  /// Virtual ms per real ms (0: no waiting). Only kCollector waits.
  double speed = 0.0;
  /// Only the first `minutes` of the hour's calls (0: all).
  int minutes = 0;
};

struct HourResult {
  std::size_t calls = 0;
  std::int64_t virtualMs = 0;
  double callerCpuSeconds = 0;  // inside facade calls, on the calling thread
  double workerCpuSeconds = 0;  // the transport worker thread
  /// The longest facade call (wall time) among those the scheduler did not
  /// preempt, and which call it was ("call event-type @ virtual ms").
  std::int64_t longestCallNs = 0;
  std::string longestCall;
  std::size_t preemptedCalls = 0;  // calls cut by an involuntary context switch
  std::size_t blockedCalls = 0;    // calls that waited (a voluntary context switch)
  std::size_t postedBytes = 0;     // request bodies the collector received
  std::size_t batches = 0;
  std::size_t connections = 0;      // TCP connections the collector accepted
  std::int64_t retryHeldBytes = 0;  // kOfflineHeld: live heap bytes freed by dropping the retries
};

/// Runs the one-hour view. Leaves the facade reset and the worker shut down.
HourResult runHour(const HourOptions& options);

}  // namespace tav::bench
