// The cost of one hour of playback (bench/hour-view.json: a "timeupdate" every
// 250 ms, a segment request every 4 s, seeks, pauses, rendition changes and a
// mid-roll ad break) in virtual time, and the figures that the same view gives
// about the transport: CPU on the calling thread and on the transport worker as
// a fraction of the hour, the longest facade call with the collection host
// black-holed, bytes posted per view-minute with and without de-duplication,
// connections per minute of steady playback, and the live heap bytes that the
// batches awaiting a retry hold after an offline hour.

#include <benchmark/benchmark.h>

#include "Workloads.h"

namespace {

using tav::bench::HourOptions;
using tav::bench::HourTransport;
using tav::bench::runHour;

double minutes(const tav::bench::HourResult& r) {
  return static_cast<double>(r.virtualMs) / 60000.0;
}

// Both threads' CPU while the library plays the hour to the local collector.
void BM_PlaybackHourCpu(benchmark::State& state) {
  tav::bench::HourResult r;
  for (auto _ : state)
    r = runHour({});
  const double hour = static_cast<double>(r.virtualMs) / 1000.0;
  state.counters["caller_cpu_s"] = r.callerCpuSeconds;
  state.counters["worker_cpu_s"] = r.workerCpuSeconds;
  state.counters["cpu_pct_of_hour"] = (r.callerCpuSeconds + r.workerCpuSeconds) / hour * 100.0;
  state.counters["longest_call_us"] = static_cast<double>(r.longestCallNs) / 1000.0;
  state.counters["calls"] = static_cast<double>(r.calls);
  state.counters["batches"] = static_cast<double>(r.batches);
}
BENCHMARK(BM_PlaybackHourCpu)->Iterations(1)->Repetitions(3)->Unit(benchmark::kMillisecond);

// The longest facade call while every connection to the collection host hangs
// (wall time, among the calls the scheduler did not preempt: on a shared
// machine preemption, not the library, makes the longest calls), and how many
// calls waited for anything at all (a voluntary context switch).
void BM_PlaybackHourBlackHoled(benchmark::State& state) {
  tav::bench::HourResult r;
  for (auto _ : state) {
    HourOptions options;
    options.transport = HourTransport::kBlackHole;
    r = runHour(options);
  }
  state.counters["longest_call_us"] = static_cast<double>(r.longestCallNs) / 1000.0;
  state.counters["calls"] = static_cast<double>(r.calls);
  state.counters["blocked_calls"] = static_cast<double>(r.blockedCalls);
  state.counters["preempted_calls"] = static_cast<double>(r.preemptedCalls);
  state.SetLabel(r.longestCall);
}
BENCHMARK(BM_PlaybackHourBlackHoled)->Iterations(1)->Repetitions(3)->Unit(benchmark::kMillisecond);

// Bytes on the wire per view-minute, de-duplicated and with every key sent.
void BM_PlaybackHourWireBytes(benchmark::State& state) {
  tav::bench::HourResult deduplicated;
  tav::bench::HourResult everyKey;
  for (auto _ : state) {
    deduplicated = runHour({});
    HourOptions options;
    options.sendEveryKey = true;
    everyKey = runHour(options);
  }
  state.counters["bytes_per_min"] =
      static_cast<double>(deduplicated.postedBytes) / minutes(deduplicated);
  state.counters["every_key_bytes_per_min"] =
      static_cast<double>(everyKey.postedBytes) / minutes(everyKey);
  state.counters["dedup_pct"] = static_cast<double>(deduplicated.postedBytes) /
                                static_cast<double>(everyKey.postedBytes) * 100.0;
}
BENCHMARK(BM_PlaybackHourWireBytes)->Iterations(1)->Unit(benchmark::kMillisecond);

// Connections opened to the collection host over three minutes of steady
// playback played at 30x (plain HTTP on loopback: a connection stands for a
// TLS handshake).
void BM_SteadyPlaybackConnections(benchmark::State& state) {
  tav::bench::HourResult r;
  for (auto _ : state) {
    HourOptions options;
    options.speed = 30.0;
    options.minutes = 3;
    r = runHour(options);
  }
  state.counters["connections_per_min"] = static_cast<double>(r.connections) / minutes(r);
  state.counters["batches"] = static_cast<double>(r.batches);
}
BENCHMARK(BM_SteadyPlaybackConnections)->Iterations(1)->Unit(benchmark::kMillisecond);

// Live heap bytes held by the batches that wait for a retry after an hour with
// the collection host unreachable.
void BM_OfflineHourRetryMemory(benchmark::State& state) {
  tav::bench::HourResult r;
  for (auto _ : state) {
    HourOptions options;
    options.transport = HourTransport::kOfflineHeld;
    r = runHour(options);
  }
  state.counters["retry_bytes"] = static_cast<double>(r.retryHeldBytes);
  state.counters["waiting_batches"] = static_cast<double>(r.batches);
}
BENCHMARK(BM_OfflineHourRetryMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
