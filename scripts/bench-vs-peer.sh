#!/usr/bin/env bash
# Vorn against the peer on the speed scene, side by side on this machine: a 10,000-face sphere
# with 1,000,000 hairs of length 0.05. The peer (Debian's blender package, installed here if it
# is missing: it is a point of comparison only, never a dependency) builds interpolated particle
# children with its own benchmark script and reports its evaluation time; Vorn runs the whole
# `vorn render` process (read the collection, bind the geometry, render, write .abc). Three runs
# each, interleaved; prints every run, the medians in hairs/s and their ratio. Not run by CI.
#
#   bash scripts/bench-vs-peer.sh [THREADS]          (default 2)
#
# VORN_PEER_SCRIPT names the peer's benchmark script (default ../shared/peers/blender/hairbench.py
# beside the repository); VORN_BUILD_DIR the Release build to use (default build-release).
set -euo pipefail
cd "$(dirname "$0")/.."
threads=${1:-2}
peer_script=${VORN_PEER_SCRIPT:-../shared/peers/blender/hairbench.py}
build=${VORN_BUILD_DIR:-build-release}

if ! command -v blender >/dev/null; then
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  $SUDO apt-get update -q
  $SUDO apt-get install -y -q --no-install-recommends blender
fi
[ -f "$peer_script" ] || { echo "bench-vs-peer: no peer script at $peer_script" >&2; exit 1; }
if [ ! -x "$build/bin/vorn" ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DVORN_BUILD_TESTS=OFF >/dev/null
  cmake --build "$build" -j "$(nproc)" --target vorn_cli
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
peer_rates=() vorn_rates=()
for run in 1 2 3; do
  line=$(blender -b --factory-startup -t "$threads" --python "$peer_script" -- mode=ps hairs=1000000 variant=plain 2>/dev/null |
    grep '^RESULT ' | sed 's/^RESULT //')
  rate=$(python3 -c 'import json,sys; r=json.loads(sys.argv[1]); print("%.0f %d %.3f" % (r["hairs"]/r["eval"]["wall_s"], r["hairs"], r["eval"]["wall_s"]))' "$line")
  peer_rates+=("${rate%% *}")
  echo "run $run peer: ${rate#* } (hairs, eval s) -> ${rate%% *} hairs/s"

  # Each run writes a new file: replacing the last run's would add the file system's freeing of
  # it (about 30 ms for its 130 MB on an ext4 disk), which is not part of the render.
  rm -f "$work/hair.abc"
  start=$(date +%s.%N)
  summary=$("$build/bin/vorn" render examples/sphere/sphere.vorn --geom examples/sphere/sphere.abc --frame 1 \
    --threads "$threads" -o "$work/hair.abc" 2>/dev/null | tail -1)
  end=$(date +%s.%N)
  hairs=$(echo "$summary" | sed -n 's/^rendered \([0-9]*\) primitives.*/\1/p')
  rate=$(python3 -c "print('%.0f' % ($hairs / ($end - $start)))")
  vorn_rates+=("$rate")
  echo "run $run vorn: $hairs hairs in $(python3 -c "print('%.3f' % ($end - $start))") s (whole process) -> $rate hairs/s"
done

median() { printf '%s\n' "$@" | sort -n | sed -n 2p; }
peer=$(median "${peer_rates[@]}")
vorn=$(median "${vorn_rates[@]}")
echo "threads $threads, cores $(nproc): peer $(python3 -c "print('%.2f' % ($peer / 1e6))") M hairs/s," \
  "vorn $(python3 -c "print('%.2f' % ($vorn / 1e6))") M hairs/s, vorn/peer $(python3 -c "print('%.2f' % ($vorn / $peer))")"
