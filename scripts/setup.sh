#!/usr/bin/env bash
# Installs every Debian package the project builds, tests and runs with, plus any named on the
# command line.
# Does nothing when all of them are present; runs apt-get update only when something is missing.
set -euo pipefail

PACKAGES=(
  cmake ninja-build pkg-config g++ make ccache
  libtbb-dev rapidjson-dev zlib1g-dev libimath-dev libosd-dev libembree-dev libnanoflann-dev
  libkseexpr-dev libegl-dev libopengl-dev libgl1-mesa-dri libepoxy-dev libpng-dev
  libglfw3-dev xvfb xauth
  libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev
  ocl-icd-opencl-dev opencl-c-headers pocl-opencl-icd clinfo
)
# Extra packages a script needs on top of these (scripts/coverage.sh asks for gcovr,
# scripts/fuzz.sh for clang and libfuzzer-14-dev).
PACKAGES+=("$@")

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "vorn setup: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
