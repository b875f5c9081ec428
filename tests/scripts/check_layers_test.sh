#!/usr/bin/env bash
# The layer check on a small tree that uses the real layer table: a documented exception passes,
# an include of a higher folder fails with a line naming it, and removing it makes the tree pass.
set -uo pipefail
source_dir=$1
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
mkdir -p "$tree"/docs "$tree"/base "$tree"/geometry "$tree"/renderers
cp "$source_dir/docs/architecture.md" "$tree/docs/"
printf '#include "base/VrMessage.h"\n#include <vector>\n' > "$tree/geometry/Surface.cpp"
printf '#include "document/VrDescription.h"\n' > "$tree/renderers/Walk.cpp"
printf '  #  include "renderers/VrRenderer.h"  // wrong on purpose\n' > "$tree/base/Wrong.h"

fail() { echo "FAIL: $*"; exit 1; }
errors=$(bash "$source_dir/scripts/check-layers.sh" "$tree" 2>&1) && fail "a wrong include passed"
[[ $errors == "base/Wrong.h includes renderers/VrRenderer.h: renderers/ is above base/" ]] ||
  fail "unexpected report: $errors"
rm "$tree/base/Wrong.h"
errors=$(bash "$source_dir/scripts/check-layers.sh" "$tree" 2>&1) || fail "a clean tree failed: $errors"
echo "check-layers: ok"
