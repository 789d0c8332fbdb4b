#!/usr/bin/env bash
# Builds the Debian packages with CPack, checks their contents (the library in the multiarch
# folder), has lintian check them (errors and warnings fail, and so do hardening tags when the
# build is an optimised, hardened one) and systemd-analyze verify the unit the hoxen package ships.
# usage: deb_test.sh SOURCE_DIR BUILD_DIR daemon|library
source "$(dirname "$0")/common.sh"

cached() { sed -n "s/^$1:[A-Z]*=//p" "$build_dir/CMakeCache.txt"; }
version=$(cached CMAKE_PROJECT_VERSION)
arch=$(dpkg --print-architecture)
lib=usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
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

contains libtavik-dev usr/include/tavik/tk_common.h $lib/libtavik.a \
  $lib/cmake/tavik/tavikConfig.cmake $lib/pkgconfig/tavik.pc \
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
lintian --display-info --tag-display-limit 0 "${debs[@]}" >"$work/lintian.log" 2>&1 || status=$?
grep -v "running with root privileges" "$work/lintian.log" || true
! grep -q '^[EW]: ' "$work/lintian.log" || fail "lintian reports errors or warnings"
if [ "$(cached HOXEN_HARDEN)" = ON ] && [[ "$(cached CMAKE_BUILD_TYPE)" =~ Rel ]]; then
  ! grep -q '^I: .* hardening-' "$work/lintian.log" || fail "lintian finds binaries not hardened"
fi
[ "$status" -eq 0 ] || fail "lintian did not run (status $status)"

echo "== systemd-analyze verify"
# verify insists that the started program exists: point the unit at the unpacked daemon.
mkdir -p "$work/unit"
sed "s|^ExecStart=/usr/sbin/hoxen |ExecStart=$daemon |" "$unit" >"$work/unit/hoxen.service"
verify=$(systemd-analyze verify --man=no "$work/unit/hoxen.service" 2>&1) || fail "verify: $verify"
[ -z "$verify" ] || fail "verify complains: $verify"

echo "== sandboxing"
# hoxen unmounts and kills on the host: nothing may give it mounts or users of its own.
! grep -E '^(Protect(System|Home|Kernel[A-Za-z]+|ControlGroups|Proc)|ProcSubset|Private[A-Za-z]+|[A-Za-z]*Paths|TemporaryFileSystem|Root[A-Za-z]+|MountFlags|User|DynamicUser)=' \
  "$unit" || fail "the unit isolates hoxen from the host's mounts or users"
systemd-analyze security --offline=true --threshold=50 "$work/unit/hoxen.service" >"$work/security.log" \
  || { tail -n 1 "$work/security.log"; fail "the unit's exposure is above 5.0"; }
tail -n 1 "$work/security.log"
echo "deb test passed"
