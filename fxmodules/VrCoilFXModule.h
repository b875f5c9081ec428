#pragma once
// VrCoilFXModule: winds a spline about itself. Each CV but the root moves by an offset across
// the spline (`radius` x `radiusScale`) turned about the spline by an angle that builds up along
// it: `countScale` above 0.5 turns one way, below 0.5 the other, at a rate of `count` turns over
// the spline's length per unit of ramp. Owned by its primitive; per-worker buffers live in the
// module's context, so `computeParallel` runs on any number of workers.

#include "fxmodules/VrFXCurveFrame.h"
#include "fxmodules/VrFXExprAttr.h"
#include "fxmodules/VrFXModule.h"

#include <string>
#include <vector>

class VrCoilFXModule : public VrFXModule {
 public:
  explicit VrCoilFXModule(VrDescription* description);

  std::string typeName() const override { return "CoilFXModule"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  bool acceptsPrimitive(const std::string& primitiveType) const override {
    return primitiveType == "SplinePrimitive";
  }

  bool computeParallel(VrPrimitiveContext& context) override;
  bool isThreadSafe() const override { return true; }
  std::unique_ptr<VrFXModuleContext> createModuleContext() const override;

 private:
  VrFXExprAttr count, radius;
  VrFXRamp countScale, radiusScale;
};
