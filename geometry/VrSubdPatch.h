#pragma once
// VrSubdPatch: a patch bound to a subdivision surface; its face ids are the surface's logical
// (cage) faces. Unless multithreading was declared with `setMultithreading`, every call into
// the surface takes the patch's mutex.

#include "geometry/VrPatch.h"

#include <mutex>

class SgSubdSurface;

class VrSubdPatch : public VrPatch {
 public:
  explicit VrSubdPatch(VrDescription* description) : VrPatch(description) {}
  ~VrSubdPatch() override;

  /// Declares that subdivision surfaces may be evaluated from several threads at once.
  static void setMultithreading(bool on);
  static bool multithreading();

  std::string typeName() const override { return "SubdPatch"; }
  bool isBound() const override { return animated != nullptr; }
  bool isReferenced() const override { return reference != animated; }
  void bindGeometry(SgSurface* reference, SgSurface* animated, bool convertFaceIds) override;
  void unbindGeometry() override;
  SgBox3T<double> boundingBox(int face, bool ref) const override;
  SgBox3T<double> boundingBox(bool ref) const override;
  std::vector<int> origFaceIds() const override;
  int numGeomFaces() const override;
  void origToLogical(int face, std::vector<int>& ids, bool clear) const override;
  void logicalToOrig(int face, std::vector<int>& ids, bool clear) const override;
  double calculateSubAreas(int face, int grid, int& nu, int& nv, std::vector<double>& areas) const override;
  double area(int face) const override;
  double lengthU(double t, int face) const override;
  double lengthV(double t, int face) const override;
  bool evalUV(int face, double u, double v, double& s, double& t) const override;
  using VrPatch::computeFaceResolution;
  unsigned computeFaceResolution(unsigned short& resU, unsigned short& resV, int face,
                                 double density) const override;
  bool pureEvalGeom(double u, double v, int face, SgVec3T<double>& P, SgVec3T<double>& N,
                    SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref) const override;
  bool pureEvalCurvature(double u, double v, int face, double& k1, double& k2, bool ref) const override;

  /// @name The bound cage (0 or null when unbound)
  /// @{
  const SgSubdSurface* surface(bool ref) const { return ref ? reference : animated; }
  const float* verts() const;
  int nVerts(bool original) const;
  int nFaceVerts() const;
  const int* faceVerts() const;
  const int* nVertsPerFace() const;
  /// @}

 private:
  std::unique_lock<std::mutex> lockUnlessThreaded() const;

  SgSubdSurface* reference = nullptr;
  SgSubdSurface* animated = nullptr;
  mutable std::mutex mutex;
};
