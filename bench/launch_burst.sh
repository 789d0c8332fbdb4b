#!/usr/bin/env bash
# Checker launches under a burst of messages: this build's daemon and another daemon binary
# (say main's, before a change) against Debian's mosquitto broker feeding
# "mosquitto_sub | while read; do CHECKER m & done", and CPU per launch against a plain
# posix_spawn loop; interleaved repetitions, medians and ratios, with the load average.
# Runs the driver (bench/launch_burst_bench.cpp) inside tools/sandbox; all traffic on
# 127.0.0.1. Needs mosquitto and mosquitto-clients (tests/setup.sh installs them).
#
# usage: bench/launch_burst.sh [build-dir] OTHER-HOXEN [messages] [repetitions]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
other=$(realpath "${2:?usage: bench/launch_burst.sh [build-dir] OTHER-HOXEN [messages] [reps]}")
command -v mosquitto_sub >/dev/null && [ -x /usr/sbin/mosquitto ] ||
  { echo "launch_burst: mosquitto and mosquitto-clients are missing (tests/setup.sh)" >&2; exit 2; }
ninja -C "$build" hoxen quillo_fuse launch_burst_bench >/dev/null
exec tools/sandbox -- "$build/bench/launch_burst_bench" "$other" "${3:-2000}" "${4:-5}"
