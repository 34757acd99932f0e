// Memory held by the library: live heap bytes (replaced operator new/delete,
// HeapCounter.h) around building each object graph. Reported as counters; the
// timing of these benchmarks means nothing.

#include <benchmark/benchmark.h>

#include "HeapCounter.h"
#include "Workloads.h"
#include "core/CoreState.h"
#include "tav/TavCore.h"

namespace {

using tav::bench::heapSnapshot;
using tav::bench::PlayerRig;

// A player that has seen no event, besides one that already set up the
// process-wide records.
void BM_MemoryIdlePlayer(benchmark::State& state) {
  std::int64_t bytes = 0;
  for (auto _ : state) {
    PlayerRig rig;  // the process-wide records and a first player exist
    const auto before = heapSnapshot().liveBytes;
    const auto player = tav::TAVSDKCore::createPlayer("idle-player");
    bytes = heapSnapshot().liveBytes - before;
    benchmark::DoNotOptimize(player);
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_MemoryIdlePlayer)->Iterations(1);

// A player with a started view (loaded, started, two seconds played), the
// process-wide records included.
void BM_MemoryStartedView(benchmark::State& state) {
  std::int64_t bytes = 0;
  for (auto _ : state) {
    tav::detail::resetCoreStateForTesting();
    const auto before = heapSnapshot().liveBytes;
    PlayerRig rig;
    bytes = heapSnapshot().liveBytes - before;
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_MemoryStartedView)->Iterations(1);

// A player's queue holding 3600 pending beacons (completed segment requests and
// the heartbeats among them, de-duplicated as they arrive).
void BM_MemoryQueue3600(benchmark::State& state) {
  std::int64_t bytes = 0;
  std::size_t pending = 0;
  for (auto _ : state) {
    PlayerRig rig;
    rig.holdBeacons();
    const auto before = heapSnapshot().liveBytes;
    const std::size_t start = rig.pendingBeacons();
    while (rig.pendingBeacons() < tav::TAVSDKEventQueue::kMaxPendingEvents) {
      rig.prepare(PlayerRig::Kind::kRequestCompleted, 1);
      rig.dispatchPrepared();
    }
    rig.prepare(PlayerRig::Kind::kRequestCompleted, 0);
    pending = rig.pendingBeacons();
    bytes = (heapSnapshot().liveBytes - before) * static_cast<std::int64_t>(pending) /
            static_cast<std::int64_t>(pending - start);
  }
  state.counters["bytes"] = static_cast<double>(bytes);
  state.counters["pending"] = static_cast<double>(pending);
}
BENCHMARK(BM_MemoryQueue3600)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
