#pragma once
// VrGeometryRenderer: turns the primitives of a description into polygon meshes for a host
// (VrGeometryRendererDataHelper builds them): splines as strips, crossed strips or tubes, cards
// as their bent sheets, spheres as UV spheres, archives as the meshes of their files in the
// archive's frame (the files of the most detailed slot with one: high, medium, low, proxy; read
// at the archive frame, once per file set, after emission; the box of the files when they cannot
// be read) or, with `outputInstances`, as instance transforms. With `combineMesh` everything becomes one mesh named
// after the description (continued in "<description>_1" and on past 2^31 points), otherwise one
// mesh per primitive ("<description>_<patch>_<face>_<id>").
// With `createStripJoints` each spline also gives a joint chain along it, with
// `createGuideJoints` each guide of the primitive; `convertSelected` converts only the
// primitives of `setSelection`.
//
// Threads: each worker collects its faces in its own renderer context; the faces are merged
// under `reduceMutex` and assembled at `finishDescription` in (patch, face, id) order, so the
// meshes are the same on any number of threads. Emission reads sample 0 only.

#include "renderers/VrArchiveFrame.h"
#include "renderers/VrArchiveGeometry.h"
#include "renderers/VrGeometryRendererDataHelper.h"
#include "renderers/VrRenderer.h"
#include "renderers/VrRendererContext.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

/// What one face gave: one mesh for all its primitives, where each primitive's part starts and
/// its joint chain, and the instances.
struct VrGeometryFace {
  /// Where an archive stands, kept until its files are read at the end of the pass.
  struct Archive {
    int key = -1;        ///< its files' key; -1: its box
    double frame = 0.0;  ///< its archive frame
    VrArchiveFrame place;
    SgVec3T<double> corner, edges[3];  ///< its box
  };
  struct Prim {
    unsigned id = 0;
    VrMeshData::Mark start;
    std::vector<SgVec3T<double>> joints;
    std::unique_ptr<Archive> archive;  ///< set for an archive, whose part of the mesh comes later
  };
  struct Instance {
    unsigned id = 0;
    double matrix[16];
  };
  VrMeshData mesh;
  std::vector<Prim> prims;
  std::vector<Instance> instances;

  /// Where primitive `i`'s part of the mesh ends.
  VrMeshData::Mark end(size_t i) const { return i + 1 < prims.size() ? prims[i + 1].start : mesh.end(); }
  /// Appends another record of the same face, its primitives after these.
  void append(VrGeometryFace&& other);
};

class VrGeometryRendererContext : public VrRendererContext {
 public:
  std::map<std::pair<std::string, int>, VrGeometryFace> faces;
};

class VrGeometryRenderer : public VrRenderer {
 public:
  explicit VrGeometryRenderer(VrDescription* description);

  std::string typeName() const override { return "GeometryRenderer"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;

  /// @name Emission, sample 0 only
  /// @{
  bool okToEmit(int sample, double, double) override { return sample == 0; }
  bool firstSampleOnly() const override { return true; }
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override;
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override;
  /// @}

  /// @name Passes
  /// @{
  /// Drops the results of an earlier render and takes the settings for the builders.
  void initDescription() override;
  /// Assembles the meshes, joint chains and instances.
  void finishDescription() override;
  bool canRunInParallel() const override { return true; }
  std::unique_ptr<VrRendererContext> newRendererContext() const override;
  void reduceResult(VrRendererContext& context, const std::string& patchName, bool last) override;
  /// @}

  /// @name What `convertSelected` converts
  /// @{
  using PrimKey = std::tuple<std::string, int, unsigned>;  ///< patch, face, id
  void setSelection(const std::set<PrimKey>& selection) { selected = selection; }
  /// @}

  /// @name Results of the last render
  /// @{
  struct Mesh {
    std::string name;
    VrMeshData data;
  };
  struct Instance {
    std::string name;  ///< "<description>_<patch>_<face>_<id>"
    double matrix[16];  ///< for row vectors: the archive's x, y and z axes, then its position
  };
  struct JointChain {
    std::string name;  ///< the primitive's name as for meshes, or "<description>_guide<index>"
    std::vector<SgVec3T<double>> joints;
  };
  const std::vector<Mesh>& meshes() const { return meshList; }
  const std::vector<Instance>& instances() const { return instanceList; }
  const std::vector<JointChain>& stripJoints() const { return stripJointList; }
  const std::vector<JointChain>& guideJoints() const { return guideJointList; }
  /// @}

  /// Joints along `cvs`: the CVs themselves with `perCV`, otherwise `count` (at least 2) spaced
  /// evenly by length from root to tip.
  static std::vector<SgVec3T<double>> placeJoints(const std::vector<SgVec3T<double>>& cvs, bool perCV, int count);

  /// @name The attributes
  /// @{
  const VrMeshSettings& meshSettings() const { return settings; }
  bool outputInstances() const { return instancesFlag; }
  bool useWidthRamp() const { return widthRampFlag; }
  bool combineMesh() const { return combineFlag; }
  /// `geometryType`: the meshes are subdivision surfaces rather than polygon meshes.
  bool subdivisionMeshes() const { return geometryKind == 1; }
  /// @}

 private:
  enum JointPlacement { OneJointPerCV = 0, SpecifyJointNumber = 1 };

  // False for a primitive that `convertSelected` leaves out, which is not counted as emitted.
  bool emitInto(std::map<std::pair<std::string, int>, VrGeometryFace>& faces, VrPrimitiveContext& context, double u,
                double v, int face, const VrPatch& patch, SgBox3T<double>& box);
  // Each adds the primitive's polygons to the face's mesh (or an instance) and answers whether
  // it added polygons.
  bool handleSpline(VrPrimitiveContext& context, double u, double v, const std::vector<SgVec3T<double>>& cvs,
                    VrGeometryFace& face, VrGeometryFace::Prim& prim) const;
  bool handleCard(const std::vector<SgVec3T<double>>& cvs, VrGeometryFace& face) const;
  bool handleSphere(const std::vector<SgVec3T<double>>& cvs, VrGeometryFace& face) const;
  bool handleArchive(const VrPrimitiveContext& context, const std::vector<SgVec3T<double>>& cvs, VrGeometryFace& face,
                     VrGeometryFace::Prim& prim) const;
  // Reads the files of every archive of the pass, in key order.
  void readArchiveMeshes();
  // The polygons of an archive: its files' mesh in its frame, or its box.
  void archivePart(const VrGeometryFace::Archive& archive, VrMeshData& out);
  std::string primName(const std::string& patch, int face, unsigned id) const;
  void makeGuideJoints();

  VrMeshSettings settings;
  VrGeometryRendererDataHelper helper{settings};
  bool instancesFlag = false;
  bool widthRampFlag = true;
  int geometryKind = 0;
  bool convertSelectedFlag = false;
  bool combineFlag = true;
  bool stripJointsFlag = false;
  int stripJointPlacement = OneJointPerCV;
  int jointsOnStrip = 5;
  bool guideJointsFlag = false;
  int guideJointPlacement = OneJointPerCV;
  int jointsOnGuide = 5;

  std::set<PrimKey> selected;
  VrArchiveGeometry archiveMeshes;
  std::map<std::pair<std::string, int>, VrGeometryFace> faceData;
  std::vector<Mesh> meshList;
  std::vector<Instance> instanceList;
  std::vector<JointChain> stripJointList;
  std::vector<JointChain> guideJointList;
};
