#!/usr/bin/env bash
# The test command: installs dependencies, configures, builds and runs ctest.
#   scripts/test.sh             normal build, every test but the slow ones
#   scripts/test.sh --all       also the slow ones
#   scripts/test.sh --sanitize address,undefined   sanitizer build (unit tests)
#   scripts/test.sh --sanitize thread              ThreadSanitizer build (concurrency tests)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
sanitize=""
all=0
while [ $# -gt 0 ]; do
  case "$1" in
    --sanitize) sanitize="$2"; shift 2 ;;
    --all) all=1; shift ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
  esac
done

"$root/scripts/install-deps.sh"

werror=OFF
[ -n "${CI:-}" ] && werror=ON
args=(-DTAV_WERROR=$werror)
exclude="slow"
[ $all -eq 1 ] && exclude=""
select=()
case "$sanitize" in
  "") dir="$root/build" ;;
  thread)
    dir="$root/build-tsan"
    args+=(-DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang -DTAV_SANITIZE=thread
           -DTAV_BUILD_BENCHMARKS=OFF -DTAV_BUILD_TOOLS=OFF -DTAV_BUILD_EXAMPLES=OFF)
    select=(-R 'Concurren|Thread|Transport|Worker|Curl|CollectorServer|SimulatorE2E')
    ;;
  *)
    dir="$root/build-asan"
    args+=(-DTAV_SANITIZE="$sanitize" -DTAV_BUILD_BENCHMARKS=OFF -DTAV_BUILD_TOOLS=OFF
           -DTAV_BUILD_EXAMPLES=OFF)
    exclude="slow"
    ;;
esac

BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" "$root/scripts/build.sh" "$dir" "${args[@]}"
cd "$dir"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
ctest_args=(--output-on-failure --timeout 300 -j "$(nproc)")
[ -n "$exclude" ] && ctest_args+=(-LE "$exclude")
ctest "${ctest_args[@]}" "${select[@]}"
