#!/usr/bin/env bash
# Installs missing packages, builds the library and its tests with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs the whole test suite with CTest; then builds the suite
# again with ThreadSanitizer and runs it once more in one process (scripts/tsan.sh).
#
# Both builds use -O1 -g1: the sanitizers' own advice for speed of the checked code, with line
# tables for their reports, at a third of the compile time of -O2 -g (the undefined-behaviour
# checks make -O2 slow to compile), so both fit the time of one CI run.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
bash scripts/check-layers.sh

BUILD_DIR=${VORN_TEST_BUILD_DIR:-build-test}
GENERATOR=()
command -v ninja >/dev/null && GENERATOR=(-G Ninja)

cmake -S . -B "$BUILD_DIR" "${GENERATOR[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_SANITIZE=ON \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG"
cmake --build "$BUILD_DIR" -j "$(nproc)"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/lsan.supp}
ctest --test-dir "$BUILD_DIR" --output-on-failure -j "$(nproc)"

bash scripts/tsan.sh
