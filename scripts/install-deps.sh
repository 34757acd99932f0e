#!/usr/bin/env bash
# Installs every Debian package that the build, the tests, the benchmarks and the
# tools need. Idempotent: packages already present are skipped.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git ca-certificates
  clang clang-format clang-tidy libclang-rt-dev
  libcurl4-openssl-dev        # HTTP(S) transport
  nlohmann-json3-dev          # record values and JSON
  googletest libgtest-dev libgmock-dev   # tests
  libbenchmark-dev            # benchmarks
  valgrind python3            # scripts/bench.sh: instruction counts and the figures table
  libcpp-httplib-dev libssl-dev zlib1g-dev libbrotli-dev  # local HTTP(S) server
  libsqlite3-dev              # collector storage
  openssl                     # test certificates
  curl                        # the main job waits for the collector with it
)

# The GStreamer player integration (tavcore-gstreamer, tav-play) and the player
# tests: GStreamer 1.22's playbin with the legacy HLS demuxer. About 180
# packages, 90 MB; about 45 s to install on a 2-core machine. Without them the
# library still builds; the integration and its tests are skipped.
player_packages=(
  libgstreamer1.0-dev         # the integration's headers (gstreamer-1.0)
  gstreamer1.0-plugins-base   # playbin, decodebin, typefind
  gstreamer1.0-plugins-good   # souphttpsrc, which posts "http-headers"
  gstreamer1.0-plugins-bad    # hlsdemux ("adaptive-streaming-statistics"), tsdemux, h264parse
  gstreamer1.0-libav          # avdec_h264 and avdec_aac for the test stream
  ffmpeg                      # makes the HLS test stream (H.264/AAC) at test time
)
packages+=("${player_packages[@]}")

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "install-deps: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
