#pragma once
// VrMeshCutFXModule: shortens a spline where it first meets a mesh read from `meshFile` (every
// mesh of an Alembic file at the collection's frame). The spline is sampled at `testsPerPrim`
// equal parameter steps and the polyline through the samples is tested segment by segment from
// the root; the spline is cut `offset` short of the first meeting (measured along it).
// `cutType`: 0 "Keep Param" collapses the CVs past the cut onto the new tip, 1 "Reparam"
// spreads them over the kept part, 2 "Cull" drops a spline that meets the mesh. A spline with
// less than 0.0001 left is dropped. CV attributes of kind "point" are cut with the spline.
//
// `mode` 1 "Use Baked Cut" takes the cuts from the bake instead (no mesh is read): the
// "MeshCutFX" block of "<bakeDir><patch>.vpd", a record per cut spline of a face with the
// parameter it was cut at (or a drop). A spline the bake does not hold is left whole. In "Live
// Cut" mode a bake switched on (`setBake`) writes that file
// as the cuts are made.
//
// Owned by its primitive. The tree is shared and read-only during a pass; per-worker buffers,
// the face's baked cuts and the open bake file live in `VrMeshCutFXModuleContext`, so
// `computeParallel` runs on any number of workers.

#include "fxmodules/VrFXBakeFiles.h"
#include "fxmodules/VrFXExprAttr.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/TzBoundingTree.h"

#include <memory>
#include <string>
#include <vector>

/// A worker's buffers for one mesh cut module, with its place in the bake.
class VrMeshCutFXModuleContext : public VrFXModuleContext {
 public:
  VrMeshCutFXModuleContext();
  ~VrMeshCutFXModuleContext() override;
  std::string type() const override { return "MeshCutFXModule"; }
  /// Work buffers only: the place in the bake stays with its worker.
  std::unique_ptr<VrFXModuleContext> clone() const override;

  std::vector<SgVec3T<double>> samples, probe;
  std::vector<float> record;
  VrFXBakeCursor bake;
};

class VrMeshCutFXModule : public VrFXModule {
 public:
  enum CutType { KeepParam = 0, Reparam = 1, Cull = 2 };

  explicit VrMeshCutFXModule(VrDescription* description);

  std::string typeName() const override { return "MeshCutFXModule"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  bool acceptsPrimitive(const std::string& primitiveType) const override {
    return primitiveType == "SplinePrimitive";
  }

  void initDescription(VrPrimitive* primitive) override;
  void finishDescription() override;
  void beginPatchFace(VrPrimitiveContext& context, const VrPatch* patch, int face) override;
  void endPatchFace(VrPrimitiveContext& context, const VrPatch* patch, int face) override;
  bool computeParallel(VrPrimitiveContext& context) override;
  bool isThreadSafe() const override { return true; }
  std::unique_ptr<VrFXModuleContext> createModuleContext() const override;

  bool setBake(bool on) override {
    bakeOn = on;
    return true;
  }
  /// True for "Use Baked Cut".
  bool usesBakedCut() const { return mode == 1; }
  /// The bake file of a patch, before its macros are expanded.
  std::string bakeFile(const VrPatch& patch) const;

 private:
  /// The cut the bake holds for the context's spline: 2 for none.
  double bakedCut(VrPrimitiveContext& context, VrMeshCutFXModuleContext& state) const;
  /// Cuts at parameter t (negative: culls) and records the cut in the bake file when one is open.
  void applyCut(VrPrimitiveContext& context, VrMeshCutFXModuleContext& state, double t) const;
  /// The parameter to cut at: 2 for no meeting, negative to cull.
  double liveCut(VrPrimitiveContext& context, VrMeshCutFXModuleContext& state) const;

  VrFXExprAttr offset;
  std::string meshFile;
  std::string bakeDir;
  int testsPerPrim = 10;
  int cutType = KeepParam;
  int mode = 0;
  bool bakeOn = false;
  VrFXBakeFiles bakeFiles{Vpd::MeshCutFXBlock, false};  // fixed for a pass
  std::shared_ptr<const TzBoundingTree> tree;
};
