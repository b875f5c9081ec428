#!/usr/bin/env bash
# Installs missing packages, builds an optimised library and the vorn tool, and runs the main
# job on the bundled example: it renders the hair of examples/head (a few hundred thousand
# splines on a scalp) to an Alembic curves file through the render API, inspects the result, and
# draws a picture of it with the headless GL preview (the README's picture).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

BUILD_DIR=${VORN_BUILD_DIR:-build-release}
GENERATOR=()
command -v ninja >/dev/null && GENERATOR=(-G Ninja)

cmake -S . -B "$BUILD_DIR" "${GENERATOR[@]}" -DCMAKE_BUILD_TYPE=Release -DVORN_BUILD_TESTS=OFF
cmake --build "$BUILD_DIR" -j "$(nproc)" --target vorn_cli

VORN="$BUILD_DIR/bin/vorn"
OUT_DIR="$BUILD_DIR/example"
mkdir -p "$OUT_DIR"
"$VORN" info | head -n 3
"$VORN" check examples/head/head.vorn
"$VORN" render examples/head/head.vorn --geom examples/head/head.abc --frame 1 \
  -o "$OUT_DIR/head_hair.abc" --threads "$(nproc)"
echo "$OUT_DIR/head_hair.abc:"
"$VORN" inspect "$OUT_DIR/head_hair.abc" |
  grep -E '^(object: /vornCurves|schema:|num_curves:|num_points:|self_bounds:|has_widths:|end:)' |
  grep -v '^schema: none'
"$VORN" preview examples/head/head.vorn --geom examples/head/head.abc --frame 1 \
  -o "$OUT_DIR/head_preview.png" --size 640x360 --threads "$(nproc)"
echo "$OUT_DIR/head_preview.png"
