#!/usr/bin/env bash
# Installs missing packages, builds an optimised library and the vorn tool, and runs the main
# job on the bundled example: it reads the example groom, lists it and evaluates one of its
# expressions.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

BUILD_DIR=${VORN_BUILD_DIR:-build-release}
GENERATOR=()
command -v ninja >/dev/null && GENERATOR=(-G Ninja)

cmake -S . -B "$BUILD_DIR" "${GENERATOR[@]}" -DCMAKE_BUILD_TYPE=Release -DVORN_BUILD_TESTS=OFF
cmake --build "$BUILD_DIR" -j "$(nproc)" --target vorn_cli

VORN="$BUILD_DIR/bin/vorn"
"$VORN" info
"$VORN" check examples/groom.vorn
"$VORN" ls examples/groom.vorn
echo "length of the scalp's splines at (u, v) = (0.5, 0.5) of face 1:"
"$VORN" eval examples/groom.vorn scalp SplinePrimitive length --u 0.5 --v 0.5 --face 1
