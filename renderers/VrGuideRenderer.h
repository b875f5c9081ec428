#pragma once
// VrGuideRenderer: turns the primitives of a render into guides of the description's primitive.
// Each emitted primitive becomes a guide rooted at its location (u, v, face and patch of sample
// 0); when the description is finished the new guides replace the primitive's guides
// (`replace`) or follow them. Emits from several workers at once are safe: the guides gather in
// a concurrent vector, and are put in (patch, face, u, v) order before they are handed over, so
// a parallel render leaves the same guide list as a serial one.
//
// A guide starts with the primitive kind's default shape. A primitive that was built (not
// culled, and length, width and depth all above 0.0001) gives it its CVs, as offsets from the
// root in the surface frame at the location; with `applyFX` off the FX modules are switched off
// for the render (and restored after it) and the CVs are resampled to the primitive's
// `maximumCVCount` first, so that all new guides share one count.

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

  /// Switches the FX modules off when `applyFX` is off, initialises as every renderer does and
  /// clears the guide list.
  void initDescription() override;
  /// One guide per primitive, made on sample 0.
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override;
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override;
  /// Hands the guides to the primitive (each with a fresh id of the collection), finishes as
  /// every renderer does and gives the FX modules their states back.
  void finishDescription() override;

  bool replace() const { return replaceFlag; }
  bool applyFX() const { return applyFXFlag; }
  /// Guides gathered since the description was initialised.
  size_t numNewGuides() const { return guides.size(); }

 private:
  VrGuide makeGuide(VrPrimitiveContext& context, double u, double v, int face,
                    const std::vector<VrPatch*>& patches) const;

  bool replaceFlag = true;
  bool applyFXFlag = true;
  tbb::concurrent_vector<VrGuide> guides;
  unsigned maxCVs = 0;
  // The FX modules' states before a render with `applyFX` off; empty otherwise.
  std::vector<bool> savedModules;
  bool modulesSaved = false;
};
