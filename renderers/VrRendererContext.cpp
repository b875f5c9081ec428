#include "renderers/VrRendererContext.h"

void VrRendererContext::setEmittedBox(const SgVec3T<double>& minCorner, const SgVec3T<double>& extent) {
  origin = minCorner;
  for (int i = 0; i < 3; ++i) size[i] = extent[i] < 0.0 ? 0.0 : extent[i];
  valid = true;
}

void VrRendererContext::mergeEmittedBox(const SgBox3T<double>& box) {
  if (!box.valid) return;
  SgBox3T<double> merged = emittedBox();
  merged.unite(box);
  setEmittedBox(merged.min, merged.size);
}

SgBox3T<double> VrRendererContext::emittedBox() const {
  return valid ? SgBox3T<double>(origin, size) : SgBox3T<double>();
}
