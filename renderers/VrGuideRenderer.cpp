#include "renderers/VrGuideRenderer.h"

#include "document/VrDescription.h"
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
  VrRenderer::initDescription();
  guides.clear();
}

VrGuide VrGuideRenderer::makeGuide(double u, double v, int face, const std::vector<VrPatch*>& patches) const {
  VrGuide guide;
  guide.setU(u);
  guide.setV(v);
  guide.setFaceId(face);
  guide.setPatch(patches.empty() ? nullptr : patches[0]);
  return guide;
}

void VrGuideRenderer::emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) {
  if (sample != 0) return;
  const VrPrimitive* primitive = description() ? description()->activePrimitive() : nullptr;
  if (primitive && primitive->context().cullPrim()) return;
  guides.push_back(makeGuide(u, v, face, patches));
  incrEmitCount();
}

void VrGuideRenderer::emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                                              const std::vector<VrPatch*>& patches) {
  if (sample != 0 || context.cullPrim()) return;
  guides.push_back(makeGuide(u, v, face, patches));
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
}
