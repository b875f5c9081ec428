#pragma once
// VrNullRenderer: a back end that keeps nothing. It counts the primitives a description makes and
// measures how far they reach beyond their faces, and writes both as its own attributes
// (`numPrimitives`, `maxBound`) when the description is finished. Its parallel emit writes only
// the worker's renderer context.

#include "renderers/VrRenderer.h"

class VrNullRenderer : public VrRenderer {
 public:
  explicit VrNullRenderer(VrDescription* description);

  std::string typeName() const override { return "NullRenderer"; }

  /// Counts the primitive once (on sample 0) and grows the emitted box by the bound of the face
  /// of the sample's patch.
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override;
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override;
  std::unique_ptr<VrRendererContext> newRendererContext() const override;
  /// Writes `maxBound` and `numPrimitives`, then finishes as every renderer does.
  void finishDescription() override;
};
