#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the benchmarks and the
# demo need, when they are missing. Needs root only when something is missing.
set -euo pipefail

packages=(
  g++ clang libclang-rt-14-dev cmake ninja-build pkg-config
  uuid-dev libgtest-dev libgmock-dev libbenchmark-dev
  fuse3 libfuse3-dev libssl-dev nlohmann-json3-dev rapidjson-dev
  util-linux mount procps psmisc strace
  dpkg-dev file lintian systemd python3
)

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
