#!/usr/bin/env bash
# hoxen-pushserver against a client made of bash's /dev/tcp on 127.0.0.1: the handshake is
# printed field by field, scripted and typed steps put the frames hoxen reads on the wire, and
# the exit status tells usage errors and failed waits apart.
# usage: pushserver_tool_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
tool=$2/hoxen-pushserver
work=$(mktemp -d)
server=
cleanup() {
  [ -z "$server" ] || kill "$server" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; cat "$work/out" >&2 2>/dev/null || true; exit 1; }

start() { # tool arguments...
  "$tool" --port 0 --limit 5 "$@" >"$work/out" 2>&1 &
  server=$!
  for _ in $(seq 100); do
    port=$(sed -n 's/^listening on 127.0.0.1://p' "$work/out")
    [ -n "$port" ] && return
    sleep 0.05
  done
  fail "no listening line"
}
client() { # handshake [hang-up] -> the bytes the server sends until it closes, in $work/got
  exec 3<>"/dev/tcp/127.0.0.1/$port"
  printf '%b' "$1" >&3
  [ "${2:-}" = hang-up ] || timeout 5 cat <&3 >"$work/got" || true
  exec 3<&-
}
finish() { # expected status
  local status=0
  wait "$server" || status=$?
  server=
  [ "$status" = "$1" ] || fail "status $status, expected $1"
}

echo "== scripted steps"
start --auth true:TOKEN --sleep 100 --msg "integrity hello" --frame '#7:x' --close
client 'BOX:(3f9a0c27)10\nvintrago\n\n'
finish 0
[ "$(cat "$work/got")" = '0013#2:true:TOKEN0018#1:integrity hello0004#7:x' ] \
  || fail "frames on the wire: $(cat "$work/got")"
grep -qx 'client 0: handshake: domain=BOX identifier=3f9a0c27 user id=10 login parameter=vintrago' \
  "$work/out" || fail "handshake line"
grep -qx 'client 0: sent 0018#1:integrity hello' "$work/out" || fail "sent line"
grep -qx 'client 0: closed' "$work/out" || fail "closed line"

echo "== steps typed on standard input"
mkfifo "$work/in"
"$tool" --port 0 <"$work/in" >"$work/out" 2>&1 &
server=$!
exec 4>"$work/in"
for _ in $(seq 100); do
  port=$(sed -n 's/^listening on 127.0.0.1://p' "$work/out"); [ -n "$port" ] && break; sleep 0.05
done
printf 'nonsense\nsleep soon\n# a comment\nmsg a:b\nclose\n' >&4
client 'BOX:10\nL\n\n'
echo quit >&4
exec 4>&-
finish 0
[ "$(cat "$work/got")" = '0006#1:a:b' ] || fail "typed frames: $(cat "$work/got")"
grep -qx "unknown command 'nonsense' (help lists the commands)" "$work/out" || fail "bad command"
grep -qx "sleep takes milliseconds, not 'soon'" "$work/out" || fail "bad sleep"
grep -qx 'client 0: handshake: domain=BOX identifier= user id=10 login parameter=L' "$work/out" \
  || fail "handshake without identifier"

echo "== a client that closes first, a wait that ends, usage errors"
start --wait-close
client 'BOX:(1)2\np\n\n' hang-up
finish 0
grep -qx 'client 0: closed by the client' "$work/out" || fail "peer close line"
"$tool" --port 0 --limit 1 --msg never >"$work/out" 2>&1 && fail "wait without a client passed"
grep -qx 'no client handshake within the wait limit' "$work/out" || fail "wait limit line"
status=0; "$tool" --bogus >"$work/out" 2>&1 || status=$?
[ "$status" = 2 ] || fail "unknown option: status $status"
status=0; "$tool" --sleep x >"$work/out" 2>&1 || status=$?
[ "$status" = 2 ] || fail "bad sleep value: status $status"
"$tool" --help | grep -q -- '--auth RESULT:TOKEN' || fail "--help"
echo "push server tool test passed"
