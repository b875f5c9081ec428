#pragma once
// VrWindFXModule: bends each spline about its root with a wind field made of a constant part, a
// gust part and a shear part. The wind turns every CV about the root: towards `direction` about
// the axis root-to-tip x direction (the bend), then about the direction itself (the shear), by
// angles that grow with the CV's reach along the root-to-tip line (`rigidBody`: the whole spline
// as one piece). The gust and shear come from two bands of noise at the root, moving with the
// collection's frame, so the wind changes from frame to frame and is the same for the same frame.
//
// With a `clumpType`, a spline follows the wind of its clump guide instead (see `VrWireSupport`).
// `regionActive` limits the wind to the unit ball of `_regionXform`'s space, softened over
// `regionFalloff` inside its surface. `loopableNoise` makes the wind repeat between
// `loopStartFrame` and `loopEndFrame`.
//
// Owned by its primitive; the fields are fixed in `initDescription` and read-only during a pass,
// and per-worker buffers live in the module's context, so `computeParallel` runs on any number
// of workers.

#include "fxmodules/VrFXCurveFrame.h"
#include "fxmodules/VrFXExprAttr.h"
#include "fxmodules/VrFXModule.h"
#include "fxmodules/VrWireSupport.h"
#include "geometry/SgXform3T.h"

#include <string>
#include <vector>

class VrClumpingFXModule;

/// A worker's buffers for one wind module: the clump guide copy, its frames before and after
/// the wind, and the CVs riding on it with their offsets.
class VrWindFXModuleContext : public VrFXModuleContext {
 public:
  std::string type() const override { return "WindFXModule"; }
  std::unique_ptr<VrFXModuleContext> clone() const override { return std::make_unique<VrWindFXModuleContext>(*this); }
  std::vector<SgVec3T<double>> guide, bound;
  VrFXCurveFrame before, after;
  std::vector<std::vector<SgVec3T<double>>*> riders;
};

class VrWindFXModule : public VrFXModule, public VrWireSupport {
 public:
  explicit VrWindFXModule(VrDescription* description);

  std::string typeName() const override { return "WindFXModule"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  bool acceptsPrimitive(const std::string& primitiveType) const override {
    return primitiveType == "SplinePrimitive";
  }

  /// Reads the transforms at the collection's frame, sets the wind's clock and finds the
  /// clumping module of `clumpType` (none: "Dependency check fails. Deactivating the module.").
  void initDescription(VrPrimitive* primitive) override;
  bool computeParallel(VrPrimitiveContext& context) override;
  bool isThreadSafe() const override { return true; }
  std::unique_ptr<VrFXModuleContext> createModuleContext() const override {
    return std::make_unique<VrWindFXModuleContext>();
  }

  /// The noise of the two bands, summed, at (x, y, z) at the wind's current clock; in
  /// [-(lowS + hiS), lowS + hiS].
  struct Bands {
    double lowS = 1.0, loBias = 0.5, hiS = 0.1, hiBias = 0.5, hiScale = 4.0;
  };
  double bandNoise(const Bands& bands, double x, double y, double z) const;
  /// The wind's clock: the collection's time in seconds, or with `loopableNoise` the place in
  /// the loop in noise units. Set by `initDescription`.
  double clock() const { return clockValue; }

 private:
  double noiseAt(double x, double y, double z) const;
  // Bends `cvs` (and `attrs` CV by CV alike) about their first CV; false when the wind leaves
  // them alone.
  bool bend(const VrFXLocation& where, std::vector<SgVec3T<double>>& cvs,
            const std::vector<std::vector<SgVec3T<double>>*>& attrs, const SgVec3T<double>& restRoot,
            double mask) const;

  VrFXExprAttr stiffness, constStrength, gustStrength, shearStrength, shearFreq, seed;
  VrFXExprAttr lowS, loBias, hiS, hiBias, hiFreq;
  VrExpression direction;
  bool constantDirection = false;
  SgVec3T<double> directionValue;
  std::string xformText, regionXformText;
  SgXform3T<double> noiseXform, regionXform;
  double regionFalloff = 0.2;
  double loopStart = 1.0, loopEnd = 100.0, loopSpan = 4.0;
  int loopType = 0;
  unsigned clumpType = 0;
  bool regionActive = false, prefNoise = false, rigidBody = false, loopable = false;
  // Fixed for a pass.
  double clockValue = 0.0, loopPeriod = 1.0;
  const VrClumpingFXModule* clumps = nullptr;
};
