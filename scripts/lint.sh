#!/usr/bin/env bash
# Static checks: clang-format over every tracked C++ file, then clang-tidy with the
# project's checks (.clang-tidy) over the library, the tools and the player
# integration, from a build's compile database (configured and built first when
# missing, for the generated headers).
#   scripts/lint.sh [build-dir]        default build/
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
dir="${1:-$root/build}"
cd "$root"

echo "lint: clang-format"
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

[ -f "$dir/compile_commands.json" ] || "$root/scripts/build.sh" "$dir" >/dev/null
echo "lint: clang-tidy"
log="$(mktemp)"
trap 'rm -f "$log"' EXIT
# Files are regexes matched against the compile database: test sources are left out.
if ! run-clang-tidy -quiet -p "$dir" -j "${JOBS:-$(nproc)}" \
    "^$root/(src|tools|integrations/[a-z]+/src)/.*\.cpp$" >"$log" 2>&1; then
  grep -E 'error:|warning:' "$log" | grep -v 'warnings generated' | sort -u
  echo "lint: clang-tidy found problems" >&2
  exit 1
fi
echo "lint: clean"
