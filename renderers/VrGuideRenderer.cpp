#include "renderers/VrGuideRenderer.h"

#include "document/VrDescription.h"
#include "geometry/SgCurve.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <tuple>

VrGuideRenderer::VrGuideRenderer(VrDescription* description) : VrRenderer(description) {
  setAttr("replace", "true", "bool");
  setAttr("applyFX", "true", "bool");
}

bool VrGuideRenderer::setAttr(const std::string& name, const std::string& value, const std::string& type,
                              const std::string& enumStrings) {
  if (VrRenderer::setAttr(name, value, type, enumStrings)) return true;
  if (name == "replace") return boolAttr(name, value, replaceFlag);
  if (name == "applyFX") return boolAttr(name, value, applyFXFlag);
  return false;
}

void VrGuideRenderer::initDescription() {
  VrPrimitive* primitive = description() ? description()->activePrimitive() : nullptr;
  modulesSaved = primitive && !applyFXFlag;
  if (modulesSaved) primitive->deactivateFXModules(0, savedModules);
  VrRenderer::initDescription();
  guides.clear();
  maxCVs = primitive ? primitive->maximumCVCount() : 0;
}

VrGuide VrGuideRenderer::makeGuide(VrPrimitiveContext& context, double u, double v, int face,
                                   const std::vector<VrPatch*>& patches) const {
  VrGuide guide;
  guide.setU(u);
  guide.setV(v);
  guide.setFaceId(face);
  guide.setPatch(patches.empty() ? nullptr : patches[0]);
  const VrPrimitive* primitive = description() ? description()->activePrimitive() : nullptr;
  if (!primitive) return guide;
  primitive->defaultGuideGeom(guide);
  const double small = 0.0001;
  if (context.cullPrim() || context.cGeom().empty() || !(context.cLength() > small) || !(context.cWidth() > small) ||
      !(context.cDepth() > small))
    return guide;
  std::vector<SgVec3T<double>> cvs = context.cGeom();
  if (!applyFXFlag && maxCVs > 0 && cvs.size() != maxCVs) SgCurve::rebuild(cvs, static_cast<int>(maxCVs), true);
  // The guide keeps its CVs as offsets from the root in the frame (u tangent, normal, v tangent),
  // the file form that `VrGuide::patchFrame` places on the surface.
  const SgVec3T<double> U = context.cU(u, v, false), N = context.cN(u, v, false), V = context.cV(u, v, false);
  const SgVec3T<double> root = cvs[0];
  for (SgVec3T<double>& cv : cvs) {
    const SgVec3T<double> d = cv - root;
    cv = SgVec3T<double>(d.dot(U), d.dot(N), d.dot(V));
  }
  guide.setOrigIGeom(cvs);
  guide.setIGeom(std::move(cvs));
  guide.patchFrame(face);
  return guide;
}

void VrGuideRenderer::emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) {
  VrPrimitive* primitive = description() ? description()->activePrimitive() : nullptr;
  if (sample != 0 || !primitive) return;
  guides.push_back(makeGuide(primitive->context(), u, v, face, patches));
  incrEmitCount();
}

void VrGuideRenderer::emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                                              const std::vector<VrPatch*>& patches) {
  if (sample != 0) return;
  guides.push_back(makeGuide(context, u, v, face, patches));
  if (VrRendererContext* record = context.rendererContext()) record->incrEmitCount();
}

void VrGuideRenderer::finishDescription() {
  VrDescription* desc = description();
  VrPrimitive* primitive = desc ? desc->activePrimitive() : nullptr;
  if (primitive) {
    std::vector<VrGuide> made(guides.begin(), guides.end());
    auto key = [](const VrGuide& g) {
      return std::make_tuple(g.patch() ? g.patch()->name() : std::string(), g.faceId(), g.patchU(), g.patchV());
    };
    std::stable_sort(made.begin(), made.end(), [&](const VrGuide& a, const VrGuide& b) { return key(a) < key(b); });
    if (replaceFlag) primitive->setGuideCount(0);
    primitive->reserveGuideSpace(primitive->numGuides() + static_cast<unsigned>(made.size()));
    for (VrGuide& guide : made) {
      guide.setId(desc->palette());
      primitive->addGuide() = std::move(guide);
    }
  }
  guides.clear();
  VrRenderer::finishDescription();
  if (modulesSaved && primitive) primitive->setFXModulesStatus(0, savedModules);
  modulesSaved = false;
}
