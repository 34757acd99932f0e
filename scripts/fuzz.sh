#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer + UndefinedBehaviorSanitizer)
# and runs each one for a bounded time with one worker, starting from the
# committed seeds and crash regressions; prints the executions per target.
#   scripts/fuzz.sh [seconds-per-target] [target...]    (default: 60 s, every target)
# New inputs found go to build-fuzz/corpus/<target> (not committed); a finding
# stops its target, leaves the input in build-fuzz/findings/<target>/ and makes
# the script fail. Commit such an input under fuzz/regressions/<target>/ with the fix.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${1:-60}"
[ $# -gt 0 ] && shift
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(dispatcher_batch records facade)

"$root/scripts/install-deps.sh"
dir="$root/build-fuzz"
werror=OFF
[ -n "${CI:-}" ] && werror=ON
JOBS="${JOBS:-2}" "$root/scripts/build.sh" "$dir" -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_COMPILER=clang++ -DTAV_FUZZ=ON -DTAV_SANITIZE=address,undefined \
  -DTAV_WERROR=$werror -DTAV_BUILD_TESTS=OFF -DTAV_BUILD_TOOLS=OFF -DTAV_BUILD_BENCHMARKS=OFF \
  -DTAV_BUILD_EXAMPLES=OFF -DTAV_WITH_GSTREAMER=OFF

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
status=0
summary=()
for t in "${targets[@]}"; do
  corpus="$dir/corpus/$t"
  findings="$dir/findings/$t"
  log="$dir/fuzz-$t.log"
  mkdir -p "$corpus" "$findings"
  echo "fuzz: $t for $seconds s (log: $log)"
  result=ok
  # One worker; -timeout flags an input that runs longer than 25 s as a hang.
  if ! "$dir/fuzz/tav_fuzz_$t" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$findings/" \
      "$corpus" "$root/fuzz/corpus/$t" "$root/fuzz/regressions/$t" >"$log" 2>&1; then
    result="FINDING (see $findings and the log)"
    status=1
  fi
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  summary+=("$(printf '%-18s %8s s %12s execs %8s/s  %s' "$t" "$seconds" "${execs:-?}" \
    "${rate:-?}" "$result")")
done
printf '%s\n' "${summary[@]}"
exit $status
