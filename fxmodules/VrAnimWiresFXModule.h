#pragma once
// VrAnimWiresFXModule: hands each spline one wire for the modules below it, and leaves the
// spline's CVs as they are. With `affectCollision` the wire goes into the primitive context's
// pipe data under `VrCollisionFXModule::wirePipeName()`, where the wire-guided collision types
// read it. `wireSource`:
//   0 interpolationGuide: the CVs on the surface of the guide weighing most at the location
//     (the earlier guide keeps a tie);
//   1 clumpGuide: the primitive's clump guide of the `clumpType`-th clumping module in front of
//     this one (see `VrWireSupport`).
// The wire is resampled to the spline's CV count. A primitive without a wire (no guide reaches
// it, or its mask is below `MaskEpsilon`) gets none: a wire of an earlier primitive is removed.
//
// Owned by its primitive; it keeps nothing per location, so `computeParallel` runs on any number
// of workers.

#include "fxmodules/VrFXModule.h"
#include "fxmodules/VrWireSupport.h"

#include <string>
#include <vector>

class VrClumpingFXModule;

class VrAnimWiresFXModule : public VrFXModule, public VrWireSupport {
 public:
  enum WireSource { InterpolationGuide = 0, ClumpGuide = 1 };

  explicit VrAnimWiresFXModule(VrDescription* description);

  std::string typeName() const override { return "AnimWiresFXModule"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  bool acceptsPrimitive(const std::string& primitiveType) const override {
    return primitiveType == "SplinePrimitive";
  }

  /// Finds the clumping module of `clumpType` for `clumpGuide` (none, or an inactive one:
  /// "Dependency check fails. Deactivating the module.").
  void initDescription(VrPrimitive* primitive) override;
  bool computeParallel(VrPrimitiveContext& context) override;
  bool isThreadSafe() const override { return true; }

  /// The wire of the context's location from the chosen source, resampled to `count` CVs; false
  /// (and `wire` left empty) where the location has none.
  bool wireAt(const VrPrimitiveContext& context, size_t count, std::vector<SgVec3T<double>>& wire) const;

 private:
  int source = InterpolationGuide;
  unsigned clumpType = 1;
  bool affectCollision = true;
  // Fixed for a pass.
  const VrClumpingFXModule* clumps = nullptr;
};
