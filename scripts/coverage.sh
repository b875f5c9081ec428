#!/usr/bin/env bash
# Line and branch coverage of the library and the vorn command by the whole test suite:
# a gcov build in build-coverage (no sanitizers, no optimisation), the suite run once, and a
# gcovr summary of the source folders. The summary is also written as JSON next to the build.
#
#   bash scripts/coverage.sh            prints "lines: ..." and "branches: ..."
#   VORN_COVERAGE_HTML=1 bash ...       also writes build-coverage/coverage/index.html
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh gcovr

BUILD_DIR=${VORN_COVERAGE_BUILD_DIR:-build-coverage}
GENERATOR=()
command -v ninja >/dev/null && GENERATOR=(-G Ninja)

cmake -S . -B "$BUILD_DIR" "${GENERATOR[@]}" -DCMAKE_BUILD_TYPE=Debug -DVORN_COVERAGE=ON \
  -DVORN_BUILD_BENCH=OFF >/dev/null
cmake --build "$BUILD_DIR" -j "$(nproc)"
find "$BUILD_DIR" -name '*.gcda' -delete
ctest --test-dir "$BUILD_DIR" -j "$(nproc)" --output-on-failure

# Library and command sources only: tests, benchmarks and generated files are not measured.
filters=()
for folder in base document expressions geometry generators primitives fxmodules renderers io tools; do
  filters+=(--filter "$folder/")
done
excludes=(--exclude 'tools/(examplemesh|sampletable)/')
gcov_options=(--root . --object-directory "$BUILD_DIR" "${filters[@]}" "${excludes[@]}"
              --exclude-unreachable-branches --exclude-throw-branches -j "$(nproc)")
html=()
if [[ -n ${VORN_COVERAGE_HTML:-} ]]; then
  mkdir -p "$BUILD_DIR/coverage"
  html=(--html-details "$BUILD_DIR/coverage/index.html")
fi
gcovr "${gcov_options[@]}" --json-summary-pretty --json-summary "$BUILD_DIR/coverage-summary.json" \
  "${html[@]}" --txt "$BUILD_DIR/coverage.txt" --print-summary
