// Per-event cost through the whole pipeline (facade, player, view, the default
// trackers, beacon building, de-duplication, queue) on a started view: time per
// event and heap allocations per event ("allocs/event").

#include <benchmark/benchmark.h>

#include "HeapCounter.h"
#include "Workloads.h"

namespace {

using tav::bench::PlayerRig;

void runEvents(benchmark::State& state, PlayerRig::Kind kind) {
  constexpr std::size_t kBlock = 200;
  PlayerRig rig;
  std::uint64_t allocations = 0;
  std::int64_t events = 0;
  for (auto _ : state) {
    state.PauseTiming();
    rig.prepare(kind, kBlock);
    const auto before = tav::bench::heapSnapshot().allocations;
    state.ResumeTiming();
    rig.dispatchPrepared();
    allocations += tav::bench::heapSnapshot().allocations - before;
    events += static_cast<std::int64_t>(kBlock);
  }
  state.SetItemsProcessed(events);
  state.counters["ns/event"] = benchmark::Counter(
      static_cast<double>(events), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["allocs/event"] =
      static_cast<double>(allocations) / static_cast<double>(std::max<std::int64_t>(1, events));
}

// A "timeupdate" while playing: no beacon is due.
void BM_EventTimeupdate(benchmark::State& state) {
  runEvents(state, PlayerRig::Kind::kTimeupdate);
}
BENCHMARK(BM_EventTimeupdate)->UseRealTime();

// "pause" and "play" alternating: a beacon each, de-duplicated against the previous.
void BM_EventPausePlay(benchmark::State& state) {
  runEvents(state, PlayerRig::Kind::kPausePlay);
}
BENCHMARK(BM_EventPausePlay)->UseRealTime();

// "requestcompleted" with its bandwidth record: a beacon each.
void BM_EventRequestCompleted(benchmark::State& state) {
  runEvents(state, PlayerRig::Kind::kRequestCompleted);
}
BENCHMARK(BM_EventRequestCompleted)->UseRealTime();

}  // namespace
