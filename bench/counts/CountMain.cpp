// Fixed workloads for instruction counting. scripts/bench.sh runs them under
// callgrind, collecting only inside the library calls:
//   tav_bench_counts timeupdate|pauseplay|request N   N events on a started view
//   tav_bench_counts hour                              the one-hour view (collector)
// Prints the number of events (or facade calls) it made.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Workloads.h"

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "hour") {
    const auto result = tav::bench::runHour({});
    std::printf("calls %zu virtual_ms %lld batches %zu\n", result.calls,
                static_cast<long long>(result.virtualMs), result.batches);
    return result.batches > 0 ? 0 : 1;
  }
  using Kind = tav::bench::PlayerRig::Kind;
  Kind kind = Kind::kTimeupdate;
  if (what == "pauseplay") {
    kind = Kind::kPausePlay;
  } else if (what == "request") {
    kind = Kind::kRequestCompleted;
  } else if (what != "timeupdate") {
    std::fprintf(stderr, "usage: tav_bench_counts timeupdate|pauseplay|request N | hour\n");
    return 2;
  }
  const long count = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 1000;
  tav::bench::PlayerRig rig;
  rig.prepare(kind, static_cast<std::size_t>(count));
  rig.dispatchPrepared();
  std::printf("events %ld\n", count);
  return 0;
}
