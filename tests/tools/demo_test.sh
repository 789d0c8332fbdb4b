#!/usr/bin/env bash
# Runs tools/demo on the build as it is, within 30 s, and checks that its output shows each
# step of the demo in order, and that no mount of it is left. Skipped (77) without the daemon
# or without root.
# usage: demo_test.sh SOURCE_DIR BUILD_DIR daemon|library
set -euo pipefail
[ "$3" = daemon ] && [ "$(id -u)" = 0 ] || { echo "skipped: needs the daemon and root"; exit 77; }
out=$(mktemp)
trap 'rm -f "$out"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

status=0
HOXEN_DEMO_NO_BUILD=1 HOXEN_DEMO_BUILD_DIR=$2 timeout 60 "$1/tools/demo" >"$out" 2>&1 || status=$?
cat "$out"
[ "$status" = 0 ] || fail "demo status $status"
[ "$SECONDS" -lt 30 ] || fail "demo took $SECONDS s"

# Each pattern must match a line after the line the previous one matched.
line=0
for pattern in \
  '^  push server +\| listening on 127\.0\.0\.1:[0-9]+$' \
  '^  quillo on /tmp/quillo type fuse\.quillo ' \
  '^  push server +\| client 0: handshake: domain=BOX identifier=[0-9a-f]{32} user id=10 login parameter=vintrago$' \
  '^  hoxen +\| Auth: passed, Token:DEMO-TOKEN$' \
  '^  hoxen +\| Recevied Msg: integrity hello$' \
  '^  checker +\| [0-9:]{8} launched: integrity m$' \
  '^  daily log +\| \[[0-9: -]{19}\] :  ============ HOXEN is Started!! ============ $' \
  '^  daily log +\| \[[0-9: -]{19}\] : \[INFO\] auth: passed, token:DEMO-TOKEN $' \
  '^  daily log +\| \[[0-9: -]{19}\] : \[INFO\] recieve message\(manual integrity check\) $' \
  '^== storage mount removed: umount -l /tmp/quillo$' \
  '^  mounts mentioning quillo: 0$' \
  '^  daily log +\| \[[0-9: -]{19}\] : \[CRIT\] quillo process is stopped, kill all process! $' \
  '^  daily log +\| \[[0-9: -]{19}\] : \[INFO\] hoxen\(pid=[0-9]+\) is stopped !$' \
  '^  hoxen ended by kill -9 \(status 137\)$' \
  '^  push server +\| client 0: closed by the client$' \
  '^== demo finished in [0-9]+ s$'; do
  found=$(tail -n +$((line + 1)) "$out" | grep -nE -m1 -- "$pattern" | cut -d: -f1 || true)
  [ -n "$found" ] || fail "no line after line $line matches: $pattern"
  line=$((line + found))
done
# Nothing of the demo outlives it: no mount of it is left on this machine.
! grep -q ' /tmp/quillo ' /proc/self/mounts || fail "a quillo mount is left"
echo "demo test passed"
