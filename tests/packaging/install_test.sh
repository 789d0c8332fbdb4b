#!/usr/bin/env bash
# Installs the build into a staging prefix and builds an outside program against the installed
# tavik twice, through find_package(tavik CONFIG) and through pkg-config, and runs both. Checks
# that every header and the daemon's files land where the install promises and that the
# installed package files name no path of the build machine (so the tree may move).
# usage: install_test.sh SOURCE_DIR BUILD_DIR daemon|library
source "$(dirname "$0")/common.sh"
prefix=$work/usr
consumer=$source_dir/tests/packaging/consumer

cmake --install "$build_dir" --prefix "$prefix" >"$work/install.log"
lib=lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
files=($lib/libtavik.a $lib/cmake/tavik/tavikConfig.cmake $lib/cmake/tavik/tavikConfigVersion.cmake
       $lib/pkgconfig/tavik.pc share/doc/libtavik-dev/copyright)
if [ "$parts" = daemon ]; then
  files+=(sbin/hoxen bin/hoxen-pushserver etc/default/hoxen share/man/man8/hoxen.8.gz)
  unit=$prefix/lib/systemd/system/hoxen.service
  grep -qx "ExecStart=$prefix/sbin/hoxen .*" "$unit" || fail "unit does not start the staged hoxen"
  grep -qx "EnvironmentFile=$prefix/etc/default/hoxen" "$unit" || fail "unit does not read the staged defaults"
fi
for f in "${files[@]}"; do
  [ -f "$prefix/$f" ] || fail "$f not installed"
done
! grep -rqs -e "$source_dir" -e "$build_dir" -e "libuuid.so" "$prefix/$lib/cmake" "$prefix/$lib/pkgconfig" ||
  fail "installed package files name build paths: $(grep -rl -e "$build_dir" "$prefix/lib" || true)"

echo "== find_package(tavik CONFIG)"
cmake -S "$consumer" -B "$work/consumer-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  >"$work/consumer-cmake.log" || { cat "$work/consumer-cmake.log"; fail "consumer configure"; }
cmake --build "$work/consumer-cmake" >>"$work/consumer-cmake.log" \
  || { cat "$work/consumer-cmake.log"; fail "consumer build (CMake package)"; }
"$work/consumer-cmake/consumer" || fail "consumer built through the CMake package"

echo "== pkg-config --cflags --libs tavik"
flags=$(PKG_CONFIG_PATH=$prefix/$lib/pkgconfig pkg-config --cflags --libs tavik)
echo "flags: $flags"
# shellcheck disable=SC2086  # the flags are words
c++ -std=c++17 -o "$work/consumer-pkgconfig" "$consumer/main.cpp" $flags \
  || fail "consumer build (pkg-config)"
"$work/consumer-pkgconfig" || fail "consumer built through pkg-config"
# Every header of the source tree is installed and compiles with what is installed beside it.
(cd "$source_dir" && printf '#include "%s"\n' tavik/*.h) >"$work/all_headers.cpp"
# shellcheck disable=SC2086
c++ -std=c++17 -fsyntax-only $flags "$work/all_headers.cpp" || fail "installed headers"
echo "install test passed"
