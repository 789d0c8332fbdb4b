#!/usr/bin/env bash
# The unit's start condition, run the way systemd runs it, inside tools/sandbox: it holds
# (status 0) while a fuse.quillo mount is listed, and is unmet (status 1 to 254, which systemd
# takes as "skip", not as a failure to restart) once the mount is gone or is of another type.
# usage: unit_condition_test.sh SOURCE_DIR BUILD_DIR daemon|library
if [ "${HOXEN_UNIT_TEST_INNER:-}" != 1 ]; then
  [ "$3" = daemon ] && [ "$(id -u)" = 0 ] || { echo "skipped: needs the daemon and root"; exit 77; }
  HOXEN_UNIT_TEST_INNER=1 exec "$1/tools/sandbox" -- "$0" "$@"
fi
source "$(dirname "$0")/common.sh"
fuse=
trap '[ -z "$fuse" ] || kill "$fuse" 2>/dev/null || true; umount -l /tmp/quillo 2>/dev/null || true' EXIT

condition=$(sed -n 's/^ExecCondition=//p' "$source_dir/packaging/hoxen.service")
[ -n "$condition" ] || fail "no ExecCondition in the unit"
check() { # met|unmet description: met is status 0, unmet 1 to 254
  local status=0
  eval "$condition" || status=$?
  [ "$1" = met ] && [ "$status" = 0 ] && return
  [ "$1" = unmet ] && [ "$status" -ge 1 ] && [ "$status" -le 254 ] && return
  fail "$2: status $status, the condition should be $1"
}

check unmet "no mount"
mkdir -p /tmp/quillo /tmp/other
mount -t tmpfs quillo-lookalike /tmp/other
check unmet "a tmpfs named quillo"
"$build_dir/tools/quillo_fuse/quillo_fuse" -f -s -o fsname=quillo,subtype=quillo /tmp/quillo &
fuse=$!
for _ in $(seq 50); do
  grep -q ' /tmp/quillo fuse.quillo ' /proc/self/mounts && break
  sleep 0.1
done
check met "quillo mounted"
umount -l /tmp/quillo
check unmet "quillo unmounted"
echo "unit condition test passed"
