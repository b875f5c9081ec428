#pragma once
// VrGuideRenderer: turns the primitives of a render into guides of the description's primitive.
// Each emitted primitive becomes a guide rooted at its location (u, v, face and patch of sample
// 0); when the description is finished the new guides replace the primitive's guides
// (`replace`) or follow them. Emits from several workers at once are safe: the guides gather in
// a concurrent vector, and are put in (patch, face, u, v) order before they are handed over, so
// a parallel render leaves the same guide list as a serial one.
//
// The guide keeps only its root for now: copying the primitive's CVs into the guide, the length,
// width and depth test, and the `applyFX` switch of the FX modules come with the primitive
// pipeline's geometry.

#include "primitives/VrGuide.h"
#include "renderers/VrRenderer.h"

#include <tbb/concurrent_vector.h>

class VrGuideRenderer : public VrRenderer {
 public:
  explicit VrGuideRenderer(VrDescription* description);

  std::string typeName() const override { return "GuideRenderer"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  bool canRunInParallel() const override { return true; }

  /// Clears the guide list, then initialises as every renderer does.
  void initDescription() override;
  /// One guide per primitive, made on sample 0.
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override;
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override;
  /// Hands the guides to the primitive (each with a fresh id of the collection), then finishes
  /// as every renderer does.
  void finishDescription() override;

  bool replace() const { return replaceFlag; }
  bool applyFX() const { return applyFXFlag; }
  /// Guides gathered since the description was initialised.
  size_t numNewGuides() const { return guides.size(); }

 private:
  VrGuide makeGuide(double u, double v, int face, const std::vector<VrPatch*>& patches) const;

  bool replaceFlag = true;
  bool applyFXFlag = true;
  tbb::concurrent_vector<VrGuide> guides;
};
