# Start of every packaging test, sourced with the test's arguments:
#   SOURCE_DIR BUILD_DIR daemon|library
# (daemon: the build holds the hoxen daemon, whose files are checked too). Sets source_dir,
# build_dir and parts, gives the test a fresh work folder $work in the build tree, and fail().
set -euo pipefail
source_dir=$1
build_dir=$2
parts=$3
work=$build_dir/packaging-tests/$(basename "$0" _test.sh)
rm -rf "$work"
mkdir -p "$work"

fail() { echo "FAIL: $*" >&2; exit 1; }
