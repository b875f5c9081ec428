#include "renderers/VrNullRenderer.h"

#include "geometry/VrPatch.h"
#include "primitives/VrPrimitiveContext.h"

#include <sstream>

VrNullRenderer::VrNullRenderer(VrDescription* description) : VrRenderer(description) {
  setAttr("maxBound", "0.0", "float");
  setAttr("numPrimitives", "0", "int");
}

void VrNullRenderer::emitPrimitive(int sample, double, double, int face, const std::vector<VrPatch*>& patches) {
  const size_t s = static_cast<size_t>(sample);
  if (s < patches.size() && patches[s]) mergeEmittedBox(patches[s]->boundingBox(face, false));
  if (sample == 0) incrEmitCount();
}

void VrNullRenderer::emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double, double, int face,
                                             const std::vector<VrPatch*>& patches) {
  VrRendererContext* record = context.rendererContext();
  if (!record) return;
  const size_t s = static_cast<size_t>(sample);
  if (s < patches.size() && patches[s]) record->mergeEmittedBox(patches[s]->boundingBox(face, false));
  if (sample == 0) record->incrEmitCount();
}

void VrNullRenderer::finishDescription() {
  std::ostringstream bound;
  bound << maxBound();
  setAttr("maxBound", bound.str(), "float");
  setAttr("numPrimitives", std::to_string(totalEmitCount()), "int");
  VrRenderer::finishDescription();
}
