#!/usr/bin/env bash
# The main job: installs dependencies, builds everything and runs the examples.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" "$root/build"
shopt -s nullglob
ran=0
for ex in "$root"/build/examples/tav-example-*; do
  echo "== $(basename "$ex")"
  "$ex"
  ran=1
done
[ $ran -eq 1 ] || echo "library built at $root/build/src; no examples yet"
