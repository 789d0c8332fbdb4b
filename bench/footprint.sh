#!/usr/bin/env bash
# Footprint of the daemon: CPU share and resident memory over an idle connection, then a
# burst of messages, each of which must start the integrity checker once. Runs the driver
# (bench/footprint_bench.cpp) inside tools/sandbox against a real quillo FUSE mount.
#
# usage: bench/footprint.sh [build-dir] [idle-seconds] [messages]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
idle=${2:-60}
burst=${3:-2000}
ninja -C "$build" hoxen quillo_fuse footprint_bench >/dev/null
exec tools/sandbox -- "$build/bench/footprint_bench" "$idle" "$burst"
