#!/usr/bin/env bash
# Builds the Debian packages with CPack, checks their contents, has lintian check them (errors
# fail, warnings pass) and systemd-analyze verify the unit the hoxen package ships.
# usage: deb_test.sh SOURCE_DIR BUILD_DIR daemon|library
source "$(dirname "$0")/common.sh"

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build_dir/CMakeCache.txt")
arch=$(dpkg --print-architecture)
cpack --config "$build_dir/CPackConfig.cmake" -B "$work" >"$work/cpack.log" \
  || { cat "$work/cpack.log"; fail "cpack"; }

debs=()
contains() { # package paths...
  local deb=$work/$1_${version}_${arch}.deb listing
  shift
  [ -f "$deb" ] || fail "no $(basename "$deb") in: $(ls "$work")"
  listing=$(dpkg-deb -c "$deb" | awk '{print $6}')
  for path in "$@"; do
    grep -qx "\./$path" <<<"$listing" || fail "$(basename "$deb") lacks $path"
  done
  debs+=("$deb")
}

contains libtavik-dev usr/include/tavik/tk_common.h usr/lib/libtavik.a \
  usr/lib/cmake/tavik/tavikConfig.cmake usr/lib/pkgconfig/tavik.pc \
  usr/share/doc/libtavik-dev/copyright usr/share/doc/libtavik-dev/changelog.gz
unit=$source_dir/packaging/hoxen.service
daemon=/bin/true
if [ "$parts" = daemon ]; then
  contains hoxen usr/sbin/hoxen lib/systemd/system/hoxen.service etc/default/hoxen \
    usr/share/man/man8/hoxen.8.gz usr/share/doc/hoxen/copyright usr/share/doc/hoxen/changelog.gz \
    usr/bin/hoxen-pushserver usr/share/man/man1/hoxen-pushserver.1.gz
  dpkg-deb -e "${debs[1]}" "$work/control"
  grep -qx /etc/default/hoxen "$work/control/conffiles" || fail "defaults file is no conffile"
  grep -q '^Depends:.*libsystemd0' "$work/control/control" || fail "hoxen does not depend on libsystemd0"
  dpkg-deb -x "${debs[1]}" "$work/root"
  unit=$work/root/lib/systemd/system/hoxen.service
  daemon=$work/root/usr/sbin/hoxen
  grep -qx 'ExecStart=/usr/sbin/hoxen $HOXEN_SERVER $HOXEN_PORT $HOXEN_DOMAIN $HOXEN_DEVICE_ID' \
    "$unit" || fail "unit does not start /usr/sbin/hoxen with the four arguments"
  grep -qx 'EnvironmentFile=/etc/default/hoxen' "$unit" || fail "unit does not read /etc/default/hoxen"
fi

echo "== lintian"
status=0
lintian --tag-display-limit 0 "${debs[@]}" >"$work/lintian.log" 2>&1 || status=$?
grep -v "running with root privileges" "$work/lintian.log" || true
! grep -q '^E: ' "$work/lintian.log" || fail "lintian reports errors"
[ "$status" -eq 0 ] || fail "lintian did not run (status $status)"

echo "== systemd-analyze verify"
# verify insists that the started program exists: point the unit at the unpacked daemon.
mkdir -p "$work/unit"
sed "s|^ExecStart=/usr/sbin/hoxen |ExecStart=$daemon |" "$unit" >"$work/unit/hoxen.service"
verify=$(systemd-analyze verify --man=no "$work/unit/hoxen.service" 2>&1) || fail "verify: $verify"
[ -z "$verify" ] || fail "verify complains: $verify"
echo "deb test passed"
