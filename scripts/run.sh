#!/usr/bin/env bash
# The main job: installs what is missing, builds, starts the local collector,
# plays every bundled scenario through the library in virtual time, prints the
# collector's report of those views and the PASS/FAIL table, stops the
# collector. Exits non-zero when an expectation fails.
#   scripts/run.sh                       all scenarios on port 8080
#   TAV_DEMO_PORT=18080 scripts/run.sh   another port
#   scripts/run.sh scenarios/seeking.json --speed 20   chosen scenarios, simulator options
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
port="${TAV_DEMO_PORT:-8080}"
build="$root/build"
out="$build/demo"

"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" "$build" -DTAV_BUILD_TOOLS=ON >/dev/null
mkdir -p "$out"

args=("$@")
[ ${#args[@]} -eq 0 ] && args=("$root"/scenarios/*.json)

"$build/tools/collector/tav-collector" --port "$port" --db "$out/tav-collector.db" \
  --report-json "$out/report.json" >"$out/collector.log" 2>&1 &
collector=$!
stop_collector() {
  if kill -0 "$collector" 2>/dev/null; then
    kill -TERM "$collector"
    wait "$collector" || true
  fi
}
trap stop_collector EXIT

for _ in $(seq 1 100); do
  curl -sf "http://127.0.0.1:$port/health" >/dev/null 2>&1 && break
  if ! kill -0 "$collector" 2>/dev/null; then
    cat "$out/collector.log" >&2
    echo "run: the collector could not start on port $port (set TAV_DEMO_PORT to use another)" >&2
    exit 1
  fi
  sleep 0.1
done

status=0
"$build/tools/simulate/tav-simulate" --port "$port" "${args[@]}" || status=$?
stop_collector
trap - EXIT
echo
echo "collector log (a line per batch, its full report at exit): $out/collector.log"
echo "stored beacons: $out/tav-collector.db   JSON report: $out/report.json"
exit $status
