#!/usr/bin/env bash
# ThreadSanitizer over the test suite, the second stage of scripts/test.sh: a
# -DVORN_SANITIZE=thread build of vorn_tests (and the vorn and vorn_soak programs it runs) in
# build-tsan, against a oneTBB built with ThreadSanitizer too (scripts/tsan-tbb.sh, once), then
# the whole suite in one process. Every render, generator, guide, FX module, writer and render
# API test runs on all cores unless it asks for fewer, so the whole suite is what exercises the
# worker threads; a gtest filter narrows it.
#
#   bash scripts/tsan.sh [GTEST_FILTER [GTEST_OPTION...]]
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh dpkg-dev
BUILD_DIR=${VORN_TSAN_BUILD_DIR:-build-tsan}
GENERATOR=()
command -v ninja >/dev/null && GENERATOR=(-G Ninja)
TBB_LIBDIR=$(bash scripts/tsan-tbb.sh "$BUILD_DIR/tbb-tsan")
# -O1 -g1 as in scripts/test.sh: fast to build, line tables for the reports.
cmake -S . -B "$BUILD_DIR" "${GENERATOR[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_SANITIZE=thread \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" -DVORN_BUILD_BENCH=OFF >/dev/null
flock /tmp/vorn-build.lock cmake --build "$BUILD_DIR" -j "$(nproc)" --target vorn_tests

filter=${1:-'*'}
# The instrumented TBB comes first for the tests and for the programs they start.
export LD_LIBRARY_PATH="$TBB_LIBDIR${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp}
"$BUILD_DIR/bin/vorn_tests" --gtest_filter="$filter" "${@:2}"
