#include "renderers/VrFileRenderer.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgCurve.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>

namespace {

// `cvs` brought to exactly `count` points: as they are when the counts agree, resampled along
// the curve when they do not, and cut or padded with the last point where a curve cannot be
// resampled (fewer than two points, or a count below three).
void fitCVs(const std::vector<SgVec3T<double>>& cvs, unsigned count, std::vector<SgVec3T<double>>& out) {
  if (cvs.size() == count) {
    out = cvs;
  } else if (count >= 3 && cvs.size() >= 2) {
    SgCurve::rebuild(out, cvs, static_cast<int>(count), false);
  } else {
    out.assign(count, SgVec3T<double>());
    for (size_t i = 0; i < count && !cvs.empty(); ++i) out[i] = cvs[std::min(i, cvs.size() - 1)];
  }
}

}  // namespace

VrFileRenderer::VrFileRenderer(VrDescription* description) : VrPatchFileRenderer(description, "${DESC}/Bake/") {
  setAttr("startFrame", "1", "float");
  setAttr("endFrame", "1", "float");
}

void VrFileRenderer::initDescription() {
  VrPatchFileRenderer::initDescription();
  const VrPrimitive* primitive = description() ? description()->activePrimitive() : nullptr;
  const std::string kind = primitive ? primitive->typeName() : std::string();
  type = kind == "CardPrimitive"     ? Vpd::CardPrimitive
         : kind == "SpherePrimitive" ? Vpd::SpherePrimitive
         : kind == "ArchivePrimitive" ? Vpd::ArchivePrimitive
                                      : Vpd::SplinePrimitive;
  // The header holds the count in one byte.
  cvCount = std::min(primitive ? primitive->maximumCVCount() : 0u, 255u);
}

Vpd::Header VrFileRenderer::fileHeader(const VrPatch&) const {
  Vpd::Header header;
  header.primType = type;
  header.cvCount = static_cast<unsigned char>(cvCount);
  header.coordSpace = static_cast<Vpd::CoordSpace>(space);
  header.blockNames = {bake ? Vpd::BakedGroomBlock : Vpd::Paint3dBlock};
  VrDescription* desc = description();
  header.time = desc && desc->palette() ? static_cast<float>(desc->palette()->frame()) : 0.0f;
  const VrPrimitive* primitive = desc ? desc->activePrimitive() : nullptr;
  header.attrVersion = primitive ? primitive->versionAttrs() : 0;
  if (primitive)
    for (auto it = primitive->context().cvAttrs().begin(); it != primitive->context().cvAttrs().end(); ++it)
      header.keyNames.push_back(it.key());
  if (desc)
    for (const auto& entry : desc->patches()) header.keyNames.push_back(entry.first);
  return header;
}

bool VrFileRenderer::recordValues(VrPrimitiveContext& context, double u, double v, std::vector<float>& values,
                                  SgBox3T<double>& box) {
  if (space < 0 || space > 2) {
    VR_WARNING(1, "Not yet supported");
    return false;
  }
  std::vector<SgVec3T<double>> cvs;
  fitCVs(context.cGeom(), cvCount, cvs);
  values.clear();
  values.reserve(2 + 3 * cvs.size());
  values.push_back(static_cast<float>(u));
  values.push_back(static_cast<float>(v));

  SgVec3T<double> P, U, N, V;
  if (space == 2) {
    P = context.cP(u, v, false);
    U = context.cU(u, v, false);
    N = context.cN(u, v, false);
    V = context.cV(u, v, false);
  }
  const VrPalette* palette = description() ? description()->palette() : nullptr;
  for (const SgVec3T<double>& cv : cvs) {
    box.extend(cv);
    SgVec3T<double> out = cv;
    if (space == 0 && palette) {
      out = palette->world().transformed(cv);
    } else if (space == 2) {
      const SgVec3T<double> d = cv - P;
      out = SgVec3T<double>(d.dot(U), d.dot(N), d.dot(V));
    }
    values.push_back(static_cast<float>(out.x));
    values.push_back(static_cast<float>(out.y));
    values.push_back(static_cast<float>(out.z));
  }
  if (bake) context.packCVAttrs(values, keyToId());
  return true;
}
