#!/usr/bin/env bash
# Performance figures against bench/budget.json: builds in Release, runs the
# benchmarks (tav_bench), counts instructions under callgrind (tav_bench_counts),
# measures the stripped shared library, and prints each figure beside its
# target with OK/OVER. A few minutes on 2 cores after the build. Not part of
# the test run: timings on shared machines are noisy (the instruction counts
# are not).
#   scripts/bench.sh [--strict]     --strict: exit 1 when a figure is over its target
# Build directories: $TAV_BENCH_BUILD (default build-bench) and its -shared twin.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
strict=0
[ "${1:-}" = "--strict" ] && strict=1
dir="${TAV_BENCH_BUILD:-$root/build-bench}"
shared="$dir-shared"
jobs="${JOBS:-$(nproc)}"
out="$dir/figures"

"$root/scripts/install-deps.sh"

echo "== Release build ($dir)"
cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAV_BUILD_TESTS=OFF \
  -DTAV_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$dir" --parallel "$jobs" --target tav_bench tav_bench_counts
echo "== Shared library, Release, stripped ($shared)"
cmake -S "$root" -B "$shared" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON \
  -DTAV_BUILD_TESTS=OFF -DTAV_BUILD_TOOLS=OFF -DTAV_BUILD_BENCHMARKS=OFF \
  -DTAV_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$shared" --parallel "$jobs" --target tavcore
mkdir -p "$out"
lib="$(find "$shared/src" -maxdepth 1 -name 'libtavcore.so.*.*' | head -n1)"
strip --strip-all -o "$out/libtavcore.stripped.so" "$lib"
stat -c %s "$out/libtavcore.stripped.so" >"$out/lib_size"

echo "== Benchmarks"
"$dir/bench/tav_bench" --benchmark_out="$out/bench.json" --benchmark_out_format=json \
  --benchmark_min_time=0.5 --benchmark_counters_tabular=false

echo "== Instruction counts (callgrind)"
counts() {  # name, collected functions..., -- program arguments...
  local name="$1"
  shift
  local toggles=()
  while [ "$1" != "--" ]; do
    toggles+=("--toggle-collect=$1")
    shift
  done
  shift
  valgrind --tool=callgrind --callgrind-out-file="$out/callgrind.$name" --collect-atstart=no \
    "${toggles[@]}" "$dir/bench/tav_bench_counts" "$@" >"$out/counts.$name" 2>"$out/valgrind.$name"
  echo "  $name: $(grep -m1 '^summary:' "$out/callgrind.$name" | cut -d' ' -f2) Ir ($(cat "$out/counts.$name"))"
}
counts timeupdate 'tav::bench::PlayerRig::dispatchPrepared()' -- timeupdate 4000
counts pauseplay 'tav::bench::PlayerRig::dispatchPrepared()' -- pauseplay 1000
counts request 'tav::bench::PlayerRig::dispatchPrepared()' -- request 1000
counts hour '*makeCall*' 'tav::TAVSDKDispatcher::executeHttp*' -- hour

echo
python3 - "$root/bench/budget.json" "$out" "$strict" <<'PY'
import json, statistics, sys
budget_file, out, strict = sys.argv[1], sys.argv[2], sys.argv[3] == "1"
budget = json.load(open(budget_file))["figures"]
runs = json.load(open(f"{out}/bench.json"))["benchmarks"]

def bench(prefix):
    return [r for r in runs if r["name"].startswith(prefix) and r.get("run_type") == "iteration"]

def counter(prefix, name, pick=statistics.median):
    values = [r[name] for r in bench(prefix) if name in r]
    return pick(values) if values else None

def ir(name):
    summary = [l for l in open(f"{out}/callgrind.{name}") if l.startswith("summary:")]
    events = int(open(f"{out}/counts.{name}").read().split()[1])
    return int(summary[0].split()[1]), events

def per_second(prefix):
    value = counter(prefix, "bytes_per_second")
    return value / 1e6 if value else None

f = {}
f["hour_cpu_pct"] = counter("BM_PlaybackHourCpu", "cpu_pct_of_hour")
f["hour_caller_cpu_s"] = counter("BM_PlaybackHourCpu", "caller_cpu_s")
f["hour_worker_cpu_s"] = counter("BM_PlaybackHourCpu", "worker_cpu_s")
for key in ("timeupdate", "pauseplay", "request"):
    total, events = ir(key)
    f[f"ir_{key}"] = total / events
f["ir_hour"] = ir("hour")[0]
for key, name in (("timeupdate", "BM_EventTimeupdate"), ("pauseplay", "BM_EventPausePlay"),
                  ("request", "BM_EventRequestCompleted")):
    f[f"ns_{key}"] = counter(name, "ns/event") * 1e9 if counter(name, "ns/event") else None
    f[f"allocs_{key}"] = counter(name, "allocs/event")
attempt, dump = per_second("BM_AttemptSerialisesBatch300"), per_second("BM_NlohmannDumpBatch300")
f["serialise_mbps"], f["dump_mbps"] = attempt, dump
f["memcpy_mbps"] = per_second("BM_MemcpyBatch300")
f["serialise_ratio"] = counter("BM_SerialiseRatioBatch300", "ratio")
f["mem_idle_player"] = counter("BM_MemoryIdlePlayer", "bytes")
f["mem_started_view"] = counter("BM_MemoryStartedView", "bytes")
f["mem_queue_3600"] = counter("BM_MemoryQueue3600", "bytes")
f["mem_retry_offline_hour"] = counter("BM_OfflineHourRetryMemory", "retry_bytes")
f["wire_dedup_pct"] = counter("BM_PlaybackHourWireBytes", "dedup_pct")
f["wire_bytes_per_min"] = counter("BM_PlaybackHourWireBytes", "bytes_per_min")
# Calls the scheduler preempted are left out (see HourBench.cpp); of the
# repetitions, the least disturbed.
f["longest_call_blackholed_us"] = counter("BM_PlaybackHourBlackHoled", "longest_call_us", min)
f["blocked_calls_blackholed"] = counter("BM_PlaybackHourBlackHoled", "blocked_calls", max)
f["connections_per_min"] = counter("BM_SteadyPlaybackConnections", "connections_per_min")
f["lib_stripped_bytes"] = int(open(f"{out}/lib_size").read())

def show(value):
    if value is None:
        return "n/a"
    if isinstance(value, int) or (abs(value) >= 1000 and float(value).is_integer()):
        return f"{int(value):,}"
    return f"{value:,.4g}" if abs(value) < 1000 else f"{value:,.0f}"

over = 0
rows = []
for item in budget:
    value = f.get(item["id"])
    target, verdict = "", ""
    if "max" in item:
        target = f"<= {show(item['max'])}"
        if value is None:
            verdict = "MISSING"
            over += 1
        elif value <= item["max"]:
            verdict = "OK"
            if "stretch" in item:
                verdict += " (stretch " + ("met" if value <= item["stretch"] else
                                           f"{show(item['stretch'])} not met") + ")"
        else:
            verdict = "OVER"
            over += 1
    rows.append((item["what"], show(value), item.get("unit", ""), target, verdict))
    f.setdefault(item["id"], value)
width = max(len(r[0]) for r in rows)
print(f"{'figure':<{width}}  {'value':>14}  {'unit':<10} {'target':<16} result")
for what, value, unit, target, verdict in rows:
    print(f"{what:<{width}}  {value:>14}  {unit:<10} {target:<16} {verdict}")
json.dump(f, open(f"{out}/figures.json", "w"), indent=2)
print(f"\n{over} figure(s) over target; raw results in {out}/")
sys.exit(1 if strict and over else 0)
PY
