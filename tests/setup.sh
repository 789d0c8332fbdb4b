#!/usr/bin/env bash
# Installs the Debian packages a job needs, when they are missing (root is needed only then).
# usage: setup.sh [demo|package|all]
#   demo     what tools/demo needs: compiler, CMake, Ninja, libuuid, FUSE, mount and ps
#   package  what the README's package build needs: compiler, CMake, Ninja, libuuid, dpkg-dev
#   all      (default) what the build, tests, sanitizers, fuzzers, benchmarks and packages need
set -euo pipefail

base=(g++ cmake ninja-build pkg-config uuid-dev libsystemd-dev)
case "${1:-all}" in
  demo) packages=("${base[@]}" fuse3 libfuse3-dev util-linux mount procps) ;;
  package) packages=("${base[@]}" dpkg-dev file) ;;
  all)
    packages=(
      "${base[@]}" clang libclang-rt-14-dev libgtest-dev libgmock-dev libbenchmark-dev
      fuse3 libfuse3-dev libssl-dev nlohmann-json3-dev rapidjson-dev libsimdjson-dev
      util-linux mount procps psmisc strace
      dpkg-dev file lintian systemd python3 mosquitto mosquitto-clients
    ) ;;
  *) echo "usage: $0 [demo|package|all]" >&2; exit 2 ;;
esac

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" != 0 ]; then
  echo "setup: missing packages: ${missing[*]} (run as root to install them)" >&2
  exit 1
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
