#include "renderers/VrPointRenderer.h"

#include "primitives/VrPrimitiveContext.h"

VrPointRenderer::VrPointRenderer(VrDescription* description) : VrPatchFileRenderer(description, "${DESC}/Points/") {}

Vpd::Header VrPointRenderer::fileHeader(const VrPatch&) const {
  Vpd::Header header;
  header.primType = Vpd::PointPrimitive;
  header.cvCount = 1;
  header.coordSpace = Vpd::WorldSpace;
  header.blockNames = {Vpd::LocationBlock};
  header.time = 0.0f;
  header.attrVersion = 1;
  return header;
}

bool VrPointRenderer::recordValues(VrPrimitiveContext& context, double u, double v, std::vector<float>& values,
                                   SgBox3T<double>& box) {
  const SgVec3T<double> P = context.cP(u, v, false);
  box.extend(P);
  values = {static_cast<float>(u), static_cast<float>(v), static_cast<float>(P.x), static_cast<float>(P.y),
            static_cast<float>(P.z)};
  return true;
}
