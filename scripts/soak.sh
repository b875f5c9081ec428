#!/usr/bin/env bash
# The long night of a renderer plug-in: a Release build of tools/soak (vorn_soak) renders N frames
# (default 500) of the head example through the render API, with motion blur on 2 threads and a
# fresh PatchRenderer per frame, checks each frame against the same frame rendered alone, and
# prints peak memory at frames 10, 100 and N and the frame times. Not run by CI (the tests run a
# 20-frame version).
#
#   bash scripts/soak.sh [FRAMES] [vorn_soak options...]
set -euo pipefail
cd "$(dirname "$0")/.."

frames=${1:-500}
shift || true

bash scripts/setup.sh
BUILD_DIR=${VORN_SOAK_BUILD_DIR:-build-release}
GENERATOR=()
command -v ninja >/dev/null && GENERATOR=(-G Ninja)
cmake -S . -B "$BUILD_DIR" "${GENERATOR[@]}" -DCMAKE_BUILD_TYPE=Release -DVORN_BUILD_TESTS=OFF -DVORN_BUILD_BENCH=OFF >/dev/null
flock /tmp/vorn-build.lock cmake --build "$BUILD_DIR" -j "$(nproc)" --target vorn_soak

"$BUILD_DIR/bin/vorn_soak" --frames "$frames" --threads 2 "$@"
