#!/usr/bin/env bash
# ThreadSanitizer over the tests that run worker threads: a -DVORN_SANITIZE=thread build in
# build-tsan, then the tests whose names say they compare thread counts or run in parallel (the
# render, parallel renderer, expressions, generators, guides, FX modules, streaming writers and
# the render API, through the library and through the vorn command), plus the soak test.
#
#   bash scripts/tsan.sh [GTEST_FILTER]
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
BUILD_DIR=${VORN_TSAN_BUILD_DIR:-build-tsan}
GENERATOR=()
command -v ninja >/dev/null && GENERATOR=(-G Ninja)
cmake -S . -B "$BUILD_DIR" "${GENERATOR[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_SANITIZE=thread \
  -DVORN_BUILD_BENCH=OFF >/dev/null
flock /tmp/vorn-build.lock cmake --build "$BUILD_DIR" -j "$(nproc)" --target vorn_tests

filter=${1:-'*Thread*:*thread*:*Parallel*:*Serial*:*Workers*:*Concurrent*:RenderAPISoak.*'}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp}
"$BUILD_DIR/bin/vorn_tests" --gtest_filter="$filter"
