#pragma once
// VrNoiseFXModule: scatters the CVs of a spline with 3D noise, CV 0 staying in place. Each CV
// moves within 0.5 x width along each axis of the spline's frame (`VrFXCurveFrame`), width being
// mask x `magnitude` x `magnitudeScale` at the CV; the noise runs along the spline at
// `frequency` from a point given by the root's rest position spread by `correlation` (100:
// every spline samples the same noise). `preserveLength` (0-100) pulls the length back towards
// that of the spline before the noise.
//
// The noise can be baked: while `setBake(true)` is in force, a live pass writes each
// rendered spline's displacements into the "NoiseFX" block of one `.vpd` file per patch under
// `bakeDir`; `mode` "Use Baked Noise" reads them back instead of sampling the noise (a spline
// that is not rendered, such as a clump guide, gets live noise). Record of a spline: its id, then
// its CV count and three floats (side, across, along) for each CV from 1 on.
//
// Owned by its primitive; fields are read-only during a pass and per-worker buffers and file
// positions live in `VrNoiseFXModuleContext`, so `computeParallel` runs on any number of workers.

#include "fxmodules/VrFXBakeFiles.h"
#include "fxmodules/VrFXCurveFrame.h"
#include "fxmodules/VrFXExprAttr.h"
#include "fxmodules/VrFXModule.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

/// A worker's buffers and baked-file positions for one noise module.
class VrNoiseFXModuleContext : public VrFXModuleContext {
 public:
  std::string type() const override { return "NoiseFXModule"; }
  /// A worker's copy starts with no file position.
  std::unique_ptr<VrFXModuleContext> clone() const override {
    auto copy = std::make_unique<VrNoiseFXModuleContext>();
    copy->magnitudeScale = magnitudeScale;
    copy->sampledFor = sampledFor;
    return copy;
  }
  std::vector<double> magnitudeScale;
  unsigned sampledFor = 0;  // CV count the scale table holds
  VrFXCurveFrame frame;
  std::vector<float> record;
  VrFXBakeCursor bake;
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

  /// With baked noise, opens the files of every patch; with a bake switched on, creates them.
  void initDescription(VrPrimitive* primitive) override;
  /// Commits the files a bake wrote and closes those read.
  void finishDescription() override;
  void beginPatchFace(VrPrimitiveContext& context, const VrPatch* patch, int face) override;
  void endPatchFace(VrPrimitiveContext& context, const VrPatch* patch, int face) override;
  bool computeParallel(VrPrimitiveContext& context) override;
  bool isThreadSafe() const override { return true; }
  std::unique_ptr<VrFXModuleContext> createModuleContext() const override {
    return std::make_unique<VrNoiseFXModuleContext>();
  }

  /// 0 "Live Noise", 1 "Use Baked Noise".
  int mode() const { return noiseMode; }
  /// Whether the next live passes write the noise files (the host's bake command; not saved).
  bool setBake(bool on) override {
    bakeOn = on;
    return true;
  }
  bool baking() const { return bakeOn; }
  /// The noise file of a patch: `bakeDir` + the patch name without name space + ".vpd", with
  /// the macros unexpanded.
  std::string bakeFileName(const VrPatch& patch) const;

 private:
  unsigned recordCVCount() const;
  bool readDisplacements(VrNoiseFXModuleContext& state, unsigned id, size_t n) const;

  VrFXExprAttr frequency, magnitude, correlation, preserveLength;
  VrFXRamp magnitudeScale;
  std::string bakeDir;
  int noiseMode = 0;
  bool bakeOn = false;
  VrFXBakeFiles bakeFiles{Vpd::NoiseFXBlock, true};  // fixed for a pass
};
