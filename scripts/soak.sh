#!/usr/bin/env bash
# The soak test (CTest label "slow") in the AddressSanitizer+UBSan build: 200
# players over hours of virtual time into the collector, no leak, flat memory,
# every beacon accounted for. Prints its figures; a few minutes on 2 cores.
#   scripts/soak.sh [build-dir]      (default: build-asan, shared with test.sh)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
dir="${1:-$root/build-asan}"

"$root/scripts/install-deps.sh"
werror=OFF
[ -n "${CI:-}" ] && werror=ON
BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" "$root/scripts/build.sh" "$dir" -DTAV_WERROR=$werror \
  -DTAV_SANITIZE=address,undefined -DTAV_BUILD_BENCHMARKS=OFF -DTAV_BUILD_TOOLS=OFF \
  -DTAV_BUILD_EXAMPLES=OFF
cd "$dir"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
ctest --output-on-failure -L slow --verbose
