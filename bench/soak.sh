#!/usr/bin/env bash
# Soak run of the daemon: messages at random pauses, connections closed or reset at random
# intervals, for the given time (default 10 minutes). Reports messages sent against printed,
# checker launches, reconnects, descriptors, resident memory and CPU at the start and the end.
# Runs the driver (bench/soak_bench.cpp) inside tools/sandbox against a real quillo FUSE mount.
#
# usage: bench/soak.sh [build-dir] [seconds] [seed]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
seconds=${2:-600}
seed=${3:-$(date +%s)}
ninja -C "$build" hoxen quillo_fuse soak_bench >/dev/null
exec tools/sandbox -- "$build/bench/soak_bench" "$seconds" "$seed"
