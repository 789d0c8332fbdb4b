#!/usr/bin/env bash
# hoxen-pushserver against a client made of bash's /dev/tcp on 127.0.0.1: the handshake is
# printed field by field, scripted and typed steps put the frames hoxen reads on the wire, and
# the exit status tells usage errors and failed waits apart.
# usage: pushserver_tool_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
tool=$2/hoxen-pushserver
work=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill "$server" 2>/dev/null || true; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; cat "$work/out" >&2 2>/dev/null || true; exit 1; }
has() { for line; do grep -qxF -- "$line" "$work/out" || fail "no line: $line"; done; }

start() { # tool arguments... (standard input from $input, /dev/null by default)
  : >"$work/out"  # empty before the look for the port: the redirection below may come later
  "$tool" --port 0 "$@" <"${input:-/dev/null}" >"$work/out" 2>&1 &
  server=$!
  for _ in $(seq 100); do
    port=$(sed -n 's/^listening on 127.0.0.1://p' "$work/out")
    [ -n "$port" ] && return
    sleep 0.05
  done
  fail "no listening line"
}
client() { # handshake [hang-up] -> the bytes the server sends until it closes, in $got
  exec 3<>"/dev/tcp/127.0.0.1/$port"
  printf '%b' "$1" >&3
  got=$([ "${2:-}" = hang-up ] || timeout 5 cat <&3 || true)
  exec 3<&-
}
finish() { # expected status
  local status=0
  wait "$server" || status=$?
  server=
  [ "$status" = "$1" ] || fail "status $status, expected $1"
}

echo "== scripted steps"
start --limit 5 --auth true:TOKEN --sleep 100 --msg "integrity hello" --frame '#7:x' --close
client 'BOX:(3f9a0c27)10\nvintrago\n\n'
finish 0
[ "$got" = '0013#2:true:TOKEN0018#1:integrity hello0004#7:x' ] || fail "on the wire: $got"
has 'client 0: handshake: domain=BOX identifier=3f9a0c27 user id=10 login parameter=vintrago' \
  'client 0: sent 0018#1:integrity hello' 'client 0: closed'

echo "== steps typed on standard input"
mkfifo "$work/in"
exec 4<>"$work/in"
input=$work/in start
printf 'nonsense\nsleep soon\n# a comment\nmsg a:b\nclose\n' >&4
client 'BOX:10\nL\n\n'
echo quit >&4
exec 4>&-
finish 0
[ "$got" = '0006#1:a:b' ] || fail "typed frames: $got"
has "unknown command 'nonsense' (help lists the commands)" "sleep takes milliseconds, not 'soon'" \
  'client 0: handshake: domain=BOX identifier= user id=10 login parameter=L'

echo "== a client that closes first, a wait that ends, usage errors"
start --limit 5 --wait-close
client 'BOX:(1)2\np\n\n' hang-up
finish 0
has 'client 0: closed by the client'
"$tool" --port 0 --limit 1 --msg never >"$work/out" 2>&1 && fail "wait without a client passed"
has 'no client handshake within the wait limit'
# shellcheck disable=SC2086  # the arguments are words
for args in --bogus "--sleep x"; do
  status=0; "$tool" $args >"$work/out" 2>&1 || status=$?
  [ "$status" = 2 ] || fail "$args: status $status, expected 2"
done
"$tool" --help | grep -q -- '--auth RESULT:TOKEN' || fail "--help"
echo "push server tool test passed"
