#pragma once
// VrCollisionFXModule: pushes splines out of a closed mesh read from `meshFile` (every mesh of
// an Alembic file at the collection's frame). `resolveType`:
//   0 flexible: CV by CV from the root, a CV found inside turns the rest of the spline about
//     the CV before it until it is out (segment lengths are kept, the spline drapes);
//   1 stiff: the whole spline turns about its root, towards the surface point nearest the
//     deepest CV, by a search that stops at the first clear angle (`iterations` tries at most);
//   2 wireFlex, 3 wireStiff: guided by the wire an AnimWires module above leaves on the
//     primitive ("fxAnimWire__subdiv"): the spline is blended towards the wire (flex) or turned
//     about its root towards the wire's direction (stiff), as little as clears it.
// `popBake` writes the resolved CVs of every primitive, face by face, to `recordFile`: a line
// per primitive, its id, CV count and CVs (17 digits).
//
// Owned by its primitive. The tree is shared and read-only during a pass; per-worker buffers
// and the open record file live in `VrCollisionFXModuleContext`, so `computeParallel` runs on
// any number of workers.

#include "fxmodules/VrFXExprAttr.h"
#include "fxmodules/VrFXFaceFile.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/TzBoundingTree.h"

#include <memory>
#include <string>
#include <vector>

/// A worker's buffers for one collision module, and its open record file.
class VrCollisionFXModuleContext : public VrFXModuleContext {
 public:
  VrCollisionFXModuleContext();
  ~VrCollisionFXModuleContext() override;
  std::string type() const override { return "CollisionFXModule"; }
  /// Work buffers only: the record file stays with its worker.
  std::unique_ptr<VrFXModuleContext> clone() const override;

  TzCurves curves;
  std::vector<TzInsideInfo> inside;
  std::vector<SgVec3T<double>> start, trial;
  VrFXFaceFile record;
};

class VrCollisionFXModule : public VrFXModule {
 public:
  enum ResolveType { Flexible = 0, Stiff = 1, WireFlex = 2, WireStiff = 3 };

  explicit VrCollisionFXModule(VrDescription* description);

  std::string typeName() const override { return "CollisionFXModule"; }
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

  int resolveType() const { return resolve; }
  /// The record file of a patch's face at the collection's frame, before its macros are
  /// expanded: "${DESC}/${FXMODULE}/<patch>/faceNNNNN/frameNNNNN.txt".
  std::string recordFile(const VrPatch* patch, int face) const;
  /// The name wire-guided types read the wire under.
  static const char* wirePipeName() { return "fxAnimWire__subdiv"; }

 private:
  /// Whether the wire-guided types have a serving AnimWires module above; reports otherwise.
  bool wireDependencyHolds();
  void resolveStiff(VrPrimitiveContext& context, VrCollisionFXModuleContext& state, int limit) const;
  void resolveFlexible(VrPrimitiveContext& context, VrCollisionFXModuleContext& state, int limit) const;
  void resolveWire(VrPrimitiveContext& context, VrCollisionFXModuleContext& state, int limit) const;
  std::string primitiveTag(const VrPrimitiveContext& context) const;

  VrFXExprAttr iterations;
  std::string meshFile;
  int resolve = 0;
  bool popBake = false;
  std::shared_ptr<const TzBoundingTree> tree;
};
