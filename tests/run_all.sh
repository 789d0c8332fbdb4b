#!/usr/bin/env bash
# Sets up, builds and runs every test:
#   build/       GCC, warnings as errors, hardened: all tests, package checks; benchmarks built
#   build-clang/ Clang, warnings as errors, AddressSanitizer + UndefinedBehaviorSanitizer: all tests
#   build-tsan/  Clang, ThreadSanitizer: all tests
#   build-fuzz/  Clang libFuzzer targets, each run for HOXEN_FUZZ_SECONDS (default 20)
# Each folder is configured afresh with every option given, whatever configured it before (the
# demo, say); the run stops if its cache then holds anything else. All builds are RelWithDebInfo,
# with compiler flags from these options alone (not CFLAGS, CXXFLAGS or LDFLAGS of the
# environment). Any failing test, sanitizer report or fuzzer finding fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
fuzz_seconds=${HOXEN_FUZZ_SECONDS:-20}
jobs=$(nproc)

tests/setup.sh

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

passed=0 failed=0
run_ctest() { # dir: fails when a test failed, or when no summary or no test is seen
  local log="$1/ctest.log" rc=0
  (cd "$1" && ctest --output-on-failure --timeout 600 -j "$jobs") 2>&1 | tee "$log" || rc=1
  [[ $(grep -E 'tests passed, [0-9]+ tests failed out of' "$log" | tail -n 1) =~ \
     ([0-9]+)\ tests\ failed\ out\ of\ ([0-9]+) ]] || return 1
  passed=$((passed + BASH_REMATCH[2] - BASH_REMATCH[1])) failed=$((failed + BASH_REMATCH[1]))
  [ "${BASH_REMATCH[2]}" -gt 0 ] || rc=1
  return $rc
}

unset CFLAGS CXXFLAGS CPPFLAGS LDFLAGS
configure() { # dir gcc|clang [option=value]...: HOXEN_ options; those not given are off, tests on
  local dir=$1 name value cached
  local -A compilers=([gcc]=g++ [clang]=clang++)
  local -A set=([WERROR]=OFF [HARDEN]=OFF [SANITIZE]= [BUILD_TESTS]=ON [BUILD_BENCH]=OFF
                [BUILD_FUZZ]=OFF)
  local options=(CMAKE_BUILD_TYPE=RelWithDebInfo CMAKE_C_COMPILER="$(command -v "$2")"
                 CMAKE_CXX_COMPILER="$(command -v "${compilers[$2]}")" CMAKE_C_FLAGS= CMAKE_CXX_FLAGS=
                 CMAKE_EXE_LINKER_FLAGS=)
  shift 2
  for name; do set[${name%%=*}]=${name#*=}; done
  for name in $(printf '%s\n' "${!set[@]}" | sort); do options+=("HOXEN_$name=${set[$name]}"); done
  echo "   $dir: ${options[*]}"
  mkdir -p "$dir"
  cmake --fresh -S "$root" -B "$dir" -G Ninja "${options[@]/#/-D}" >"$dir/configure.log" \
    || { cat "$dir/configure.log"; return 1; }
  for name in "${options[@]}"; do
    value=${name#*=} name=${name%%=*}
    cached=$(sed -n "s/^$name:[A-Z]*=//p" "$dir/CMakeCache.txt")
    [ "$cached" = "$value" ] || { echo "run_all: $dir holds $name='$cached', not '$value'" >&2; exit 1; }
  done
  cmake --build "$dir" -j "$jobs"
}

status=0
echo "== GCC build (warnings as errors, hardened)"
configure build gcc WERROR=ON HARDEN=ON BUILD_BENCH=ON
run_ctest build || status=1

echo "== Clang build with AddressSanitizer + UndefinedBehaviorSanitizer"
configure build-clang clang WERROR=ON SANITIZE=address,undefined
run_ctest build-clang || status=1

echo "== Clang build with ThreadSanitizer"
configure build-tsan clang SANITIZE=thread
run_ctest build-tsan || status=1

if compgen -G "fuzz/*_fuzz.cpp" >/dev/null; then
  echo "== Fuzz targets, ${fuzz_seconds}s each"
  configure build-fuzz clang SANITIZE=address,undefined,fuzzer-no-link BUILD_TESTS=OFF BUILD_FUZZ=ON
  for src in fuzz/*_fuzz.cpp; do
    name=$(basename "$src" .cpp)
    corpus=$(mktemp -d)
    [ -d "fuzz/corpus/$name" ] && cp -r "fuzz/corpus/$name/." "$corpus/"
    # A memory-backed TMPDIR keeps fuzzers that write files fast; a small
    # quarantine keeps AddressSanitizer's memory flat over the run.
    if TMPDIR=/dev/shm ASAN_OPTIONS=$ASAN_OPTIONS:quarantine_size_mb=16 \
       "build-fuzz/fuzz/$name" -max_total_time="$fuzz_seconds" -timeout=10 -rss_limit_mb=2048 \
         -artifact_prefix="build-fuzz/$name-" "$corpus" >"build-fuzz/$name.log" 2>&1; then
      echo "fuzz $name: no findings ($(grep -c . "build-fuzz/$name.log") log lines)"
      passed=$((passed + 1))
    else
      echo "fuzz $name: FINDING"; tail -n 40 "build-fuzz/$name.log"
      failed=$((failed + 1)); status=1
    fi
    rm -rf "$corpus"
  done
fi

echo "total: $passed passed, $failed failed"
exit $status
