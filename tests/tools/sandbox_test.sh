#!/usr/bin/env bash
# tools/sandbox started from a folder below the host's /tmp (as from a clone there): that folder
# and every --keep folder are the host's own inside, the rest of /tmp is the sandbox's, and
# nothing written to /tmp inside reaches the host. Skipped (77) without root.
# usage: sandbox_test.sh SOURCE_DIR BUILD_DIR daemon|library
set -euo pipefail
[ "$(id -u)" = 0 ] || { echo "skipped: needs root"; exit 77; }
here=$(mktemp -d /tmp/sandbox-test.XXXXXX) kept=$(mktemp -d /tmp/sandbox-test.XXXXXX)
other=$(mktemp -d /tmp/sandbox-test.XXXXXX)
trap 'rm -rf "$here" "$kept" "$other"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
touch "$here/mine" "$kept/kept" "$other/hidden"

seen=$(cd "$here" && "$1/tools/sandbox" --keep "$kept/." -- \
  bash -c 'ls mine; ls "$0/kept"; ls "$1" 2>/dev/null; touch /tmp/inside mine-too' "$kept" "$other")
[ "$seen" = "$(printf 'mine\n%s/kept' "$kept")" ] || fail "inside the sandbox: $seen"
[ -e "$here/mine-too" ] || fail "the current folder inside is not the host's"
[ ! -e /tmp/inside ] || { rm -f /tmp/inside; fail "a file written to /tmp inside reached the host"; }
echo "sandbox test passed"
