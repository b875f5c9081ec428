#!/usr/bin/env bash
# Installs missing packages, builds an optimised library and the vorn tool, and runs the main
# job on the bundled example.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

BUILD_DIR=${VORN_BUILD_DIR:-build}
GENERATOR=()
command -v ninja >/dev/null && GENERATOR=(-G Ninja)

cmake -S . -B "$BUILD_DIR" "${GENERATOR[@]}" -DCMAKE_BUILD_TYPE=Release -DVORN_BUILD_TESTS=OFF
cmake --build "$BUILD_DIR" -j "$(nproc)" --target vorn_cli

"$BUILD_DIR/bin/vorn" info
