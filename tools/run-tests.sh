#!/bin/sh
# Builds the library with its tests and runs them all.
# usage: tools/run-tests.sh [build-dir] [extra cmake arguments...]
set -eu
cd "$(dirname "$0")/.."
tools/ensure-deps.sh
build="${1:-build}"
[ $# -gt 0 ] && shift
cmake -S . -B "$build" -G Ninja -DZK_WERROR=ON -DBUILD_TESTS=ON -DBUILD_EXAMPLES=ON "$@"
cmake --build "$build" -j 2
# ZK_CTEST_ARGS narrows the run, e.g. "-L client" for the threaded tests only.
ctest --test-dir "$build" -j 2 --output-on-failure ${ZK_CTEST_ARGS:-}
