#pragma once
// VrNoiseFXModule: scatters the CVs of a spline with 3D noise, CV 0 staying in place. Each CV
// moves within 0.5 x width along each axis of the spline's frame (`VrFXCurveFrame`), width being
// mask x `magnitude` x `magnitudeScale` at the CV; the noise runs along the spline at
// `frequency` from a point given by the root's rest position spread by `correlation` (100:
// every spline samples the same noise). `preserveLength` (0-100) pulls the length back towards
// that of the spline before the noise.
//
// `mode` "Use Baked Noise" (reading displacements from `.vpd` files under `bakeDir`) is not
// available in this build: the module deactivates itself with an Error when it is chosen.
// Owned by its primitive; fields are read-only during a pass and per-worker buffers live in
// `VrNoiseFXModuleContext`, so `computeParallel` runs on any number of workers.

#include "fxmodules/VrFXCurveFrame.h"
#include "fxmodules/VrFXExprAttr.h"
#include "fxmodules/VrFXModule.h"

#include <string>
#include <vector>

/// A worker's buffers for one noise module.
class VrNoiseFXModuleContext : public VrFXModuleContext {
 public:
  std::string type() const override { return "NoiseFXModule"; }
  std::unique_ptr<VrFXModuleContext> clone() const override { return std::make_unique<VrNoiseFXModuleContext>(*this); }
  std::vector<double> magnitudeScale;
  unsigned sampledFor = 0;  // CV count the scale table holds
  VrFXCurveFrame frame;
};

class VrNoiseFXModule : public VrFXModule {
 public:
  explicit VrNoiseFXModule(VrDescription* description);

  std::string typeName() const override { return "NoiseFXModule"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  bool acceptsPrimitive(const std::string& primitiveType) const override {
    return primitiveType == "SplinePrimitive";
  }

  void initDescription(VrPrimitive* primitive) override;
  bool computeParallel(VrPrimitiveContext& context) override;
  bool isThreadSafe() const override { return true; }
  std::unique_ptr<VrFXModuleContext> createModuleContext() const override {
    return std::make_unique<VrNoiseFXModuleContext>();
  }

  /// 0 "Live Noise", 1 "Use Baked Noise".
  int mode() const { return noiseMode; }

 private:
  VrFXExprAttr frequency, magnitude, correlation, preserveLength;
  VrFXRamp magnitudeScale;
  int noiseMode = 0;
};
