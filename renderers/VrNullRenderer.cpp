#include "renderers/VrNullRenderer.h"

#include "geometry/VrPatch.h"
#include "primitives/VrPrimitiveContext.h"

#include <sstream>

namespace {

// A worker's record, which also knows how many motion samples' face boxes it merged for the face
// it is on: every primitive of a face has the same, so only the face's first primitive merges
// them.
struct NullRendererContext : VrRendererContext {
  size_t boxedSamples = 0;
};

}  // namespace

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
  auto* record = static_cast<NullRendererContext*>(context.rendererContext());
  if (!record) return;
  const size_t s = static_cast<size_t>(sample);
  // The emitted box starts invalid on every face.
  if (!record->emittedValid()) record->boxedSamples = 0;
  if (s < patches.size() && patches[s] && s >= record->boxedSamples) {
    record->mergeEmittedBox(patches[s]->boundingBox(face, false));
    record->boxedSamples = s + 1;
  }
  if (sample == 0) record->incrEmitCount();
}

std::unique_ptr<VrRendererContext> VrNullRenderer::newRendererContext() const {
  return std::make_unique<NullRendererContext>();
}

void VrNullRenderer::finishDescription() {
  std::ostringstream bound;
  bound << maxBound();
  setAttr("maxBound", bound.str(), "float");
  setAttr("numPrimitives", std::to_string(totalEmitCount()), "int");
  VrRenderer::finishDescription();
}
