#pragma once
// VrCutFXModule: shortens a spline by `amount` (a length) from the tip. `rebuildType` 0 "Keep
// Param" collapses the CVs past the cut onto the new tip; 1 "Reparam" spreads them again over
// the kept part. The CV attributes of kind "point" are cut with the spline. A spline not longer
// than the amount (within 0.0001) is culled. The mask is rounded, not clamped: below 0.5 the
// module leaves the spline alone, from 0.5 up it cuts the full amount. Owned by its primitive;
// it keeps no per-worker state, so `computeParallel` runs on any number of workers.

#include "fxmodules/VrFXExprAttr.h"
#include "fxmodules/VrFXModule.h"

#include <string>

class VrCutFXModule : public VrFXModule {
 public:
  explicit VrCutFXModule(VrDescription* description);

  std::string typeName() const override { return "CutFXModule"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  bool acceptsPrimitive(const std::string& primitiveType) const override {
    return primitiveType == "SplinePrimitive";
  }

  bool computeParallel(VrPrimitiveContext& context) override;
  bool isThreadSafe() const override { return true; }

  /// True for "Reparam".
  bool reparameterizes() const { return rebuildType == 1; }

  /// Cuts the context's CV attributes of kind "point" (those of `owner`) to [0, t] as the
  /// spline was cut.
  static void cutPointAttrs(const VrPrimitive* owner, VrPrimitiveContext& context, double t, bool resample);

 private:
  VrFXExprAttr amount;
  int rebuildType = 0;
};
