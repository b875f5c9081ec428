#!/usr/bin/env bash
# Builds the libFuzzer harnesses of fuzz/ with clang in build-fuzz and runs each one for a time
# budget. Crashes, hangs, leaks and memory blow-ups it finds are copied into tests/data/fuzz/<name>/,
# which the normal test suite replays (tests/fuzz/test_fuzz_regressions.cpp).
#
#   bash scripts/fuzz.sh [SECONDS] [NAME...]    SECONDS per harness (default 60), all harnesses
#                                                unless names are given
#
# The grown corpora stay in build-fuzz/corpus/<name>/ (not in git) and seed the next run.
# VORN_FUZZ_SKIP_BUILD=1 runs the harnesses already built.
set -euo pipefail
cd "$(dirname "$0")/.."

budget=${1:-60}
shift || true
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  names=(collection delta alembic ptex vpd particles renderargs expression)
fi

BUILD_DIR=${VORN_FUZZ_BUILD_DIR:-build-fuzz}
if [ -z "${VORN_FUZZ_SKIP_BUILD:-}" ]; then
  bash scripts/setup.sh clang libfuzzer-14-dev
  # -O1 -g1, as the sanitizer builds of scripts/test.sh: half the compile time of -O2 -g on 2 cores.
  CC=clang CXX=clang++ cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_FUZZ=ON \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" -DVORN_BUILD_TESTS=OFF -DVORN_BUILD_BENCH=OFF >/dev/null
  flock /tmp/vorn-build.lock cmake --build "$BUILD_DIR" -j "$(nproc)" --target fuzz_all
fi

# The files each harness starts from.
seeds() {
  case $1 in
    collection) find examples -name '*.vorn' ;;
    delta) find fuzz/seeds/delta -type f ;;
    alembic) find tests/data/alembic examples -name '*.abc' -size -64k ;;
    ptex) find tests/data/ptex examples -name '*.ptx' -size -64k ;;
    vpd) find examples fuzz/seeds/vpd -type f \( -name '*.vuv' -o -name '*.vpd' \) -size -64k ;;
    particles) find tests/data/particles -type f ! -name '*.txt' ;;
    renderargs) find fuzz/seeds/renderargs -type f ;;
    expression) find fuzz/seeds/expression -type f ;;
  esac
}

# Leaks of third-party libraries are known and listed there; Vorn's own are failures.
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/lsan.supp}

status=0
summary=()
for name in "${names[@]}"; do
  corpus=$BUILD_DIR/corpus/$name
  artifacts=$BUILD_DIR/artifacts/$name
  rm -rf "$artifacts"
  mkdir -p "$corpus" "$artifacts"
  { seeds "$name" || true; } | while read -r seed; do cp -n "$seed" "$corpus/" 2>/dev/null || true; done
  log=$BUILD_DIR/fuzz-$name.log
  echo "fuzz: $name for ${budget}s"
  # A hang is an input that takes over 10 s; 2 GB is a blow-up. Leaks are reported too.
  if ! nice -n 10 "$BUILD_DIR/bin/fuzz_$name" "$corpus" -max_total_time="$budget" -timeout=10 \
      -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 -artifact_prefix="$artifacts/" >"$log" 2>&1; then
    status=1
    echo "fuzz: $name found a failure, see $log"
  fi
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  files=$(find "$corpus" -type f | wc -l)
  bytes=$(du -sb "$corpus" | cut -f1)
  summary+=("$(printf '%-11s %10s execs %6s exec/s  corpus %5s files %9s bytes' "$name" "${execs:-?}" "${rate:-?}" "$files" "$bytes")")
  # New failures become regression files, named by kind and content.
  for found in "$artifacts"/crash-* "$artifacts"/timeout-* "$artifacts"/leak-* "$artifacts"/oom-* "$artifacts"/slow-unit-*; do
    [ -f "$found" ] || continue
    mkdir -p "tests/data/fuzz/$name"
    cp -n "$found" "tests/data/fuzz/$name/$(basename "$found")"
    echo "fuzz: kept tests/data/fuzz/$name/$(basename "$found")"
  done
done

printf '%s\n' "${summary[@]}"
exit $status
