#pragma once
// VrNurbsPatch: a patch bound to a NURBS surface. It has exactly one face, number 0, whose
// parameters u, v in [0, 1] span the surface's knot domain. Surfaces are shared through
// SgSurfaceCache; evaluation is read-only and safe from many threads.

#include "geometry/VrPatch.h"

class SgNurbsSurface;

class VrNurbsPatch : public VrPatch {
 public:
  explicit VrNurbsPatch(VrDescription* description) : VrPatch(description) {}
  ~VrNurbsPatch() override;

  std::string typeName() const override { return "NurbsPatch"; }
  bool isBound() const override { return animated != nullptr; }
  bool isReferenced() const override { return reference != animated; }
  void bindGeometry(SgSurface* reference, SgSurface* animated, bool convertFaceIds) override;
  void unbindGeometry() override;
  SgBox3T<double> boundingBox(int face, bool ref) const override;
  SgBox3T<double> boundingBox(bool ref) const override;
  int numGeomFaces() const override { return 1; }
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

  const SgNurbsSurface* surface(bool ref) const { return ref ? reference : animated; }

 private:
  SgNurbsSurface* reference = nullptr;
  SgNurbsSurface* animated = nullptr;
};
