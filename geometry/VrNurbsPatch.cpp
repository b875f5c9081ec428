#include "geometry/VrNurbsPatch.h"

#include "base/VrMessage.h"
#include "geometry/SgNurbsSurface.h"
#include "geometry/VrPatchBindingImpl.h"
#include "geometry/VrPatchUtil.h"

#include <algorithm>

namespace {
// Patch parameters in [0, 1] span the knot domain; derivatives follow by the chain rule.
bool evalNormalised(const SgNurbsSurface* surface, double u, double v, SgVec3T<double>& P,
                    SgVec3T<double>& dPdu, SgVec3T<double>& dPdv) {
  if (!surface || !surface->isValid()) return false;
  const double spanU = surface->uMax() - surface->uMin();
  const double spanV = surface->vMax() - surface->vMin();
  if (!surface->eval(surface->uMin() + u * spanU, surface->vMin() + v * spanV, P, dPdu, dPdv)) return false;
  dPdu *= spanU;
  dPdv *= spanV;
  return true;
}
}  // namespace

VrNurbsPatch::~VrNurbsPatch() { unbindGeometry(); }

void VrNurbsPatch::bindGeometry(SgSurface* referenceSurface, SgSurface* animatedSurface, bool) {
  auto* newAnimated = dynamic_cast<SgNurbsSurface*>(animatedSurface);
  if (!newAnimated) {
    VR_ERROR("Cannot bind to nothing. Use UNbind. " + typeName() + "," + name());
    unbindGeometry();
    return;
  }
  VR_DEBUG(4, vrmsg::CatPatch, "Binding the nurbs patch " + typeName() + " | " + name());
  auto* newReference = dynamic_cast<SgNurbsSurface*>(referenceSurface);
  vrpatch::takeSurface(animated, newAnimated);
  vrpatch::takeSurface(reference, newReference ? newReference : newAnimated);
  setFaceIds({0});
}

void VrNurbsPatch::unbindGeometry() {
  vrpatch::takeSurface(reference, static_cast<SgNurbsSurface*>(nullptr));
  vrpatch::takeSurface(animated, static_cast<SgNurbsSurface*>(nullptr));
}

SgBox3T<double> VrNurbsPatch::boundingBox(int, bool ref) const { return boundingBox(ref); }

SgBox3T<double> VrNurbsPatch::boundingBox(bool ref) const {
  const SgNurbsSurface* s = surface(ref);
  return s ? s->boundingBox() : SgBox3T<double>();
}

double VrNurbsPatch::calculateSubAreas(int, int grid, int& nu, int& nv, std::vector<double>& areas) const {
  nu = nv = 0;
  areas.clear();
  if (!reference) return 0.0;
  VR_DEBUG(4, vrmsg::CatPatch, "Calculating subareas.");
  SgNurbsSurfaceArea holder;
  const double total = reference->surfaceArea(grid, &holder);
  nu = holder.numU;
  nv = holder.numV;
  areas = holder.cells;
  return total;
}

double VrNurbsPatch::area(int) const { return reference ? reference->surfaceArea(1) : 0.0; }
double VrNurbsPatch::lengthU(double t, int) const { return reference ? reference->arcLengthU(t, 1) : 0.0; }
double VrNurbsPatch::lengthV(double t, int) const { return reference ? reference->arcLengthV(t, 1) : 0.0; }

bool VrNurbsPatch::evalUV(int face, double u, double v, double& s, double& t) const {
  if (!animated || face != 0) return false;
  s = u;
  t = v;
  return true;
}

unsigned VrNurbsPatch::computeFaceResolution(unsigned short& resU, unsigned short& resV, int,
                                             double density) const {
  resU = resV = 0;
  if (!reference) return 0;
  // The longest boundary in each direction, measured on the reference surface.
  const double lenU = std::max(reference->arcLengthU(0.0, 4), reference->arcLengthU(1.0, 4));
  const double lenV = std::max(reference->arcLengthV(0.0, 4), reference->arcLengthV(1.0, 4));
  return VrPatchUtil::computeFaceResolution(lenU, lenV, density, resU, resV);
}

bool VrNurbsPatch::pureEvalGeom(double u, double v, int face, SgVec3T<double>& P, SgVec3T<double>& N,
                                SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref) const {
  if (face != 0 || !evalNormalised(surface(ref), u, v, P, dPdu, dPdv)) return false;
  N = dPdu.cross(dPdv);
  N.normalize();
  return true;
}

bool VrNurbsPatch::pureEvalCurvature(double u, double v, int face, double& k1, double& k2, bool ref) const {
  const SgNurbsSurface* s = surface(ref);
  if (face != 0 || !s) return false;
  return vrpatch::curvatureFromDerivatives(
      [s](double uu, double vv, SgVec3T<double>& du, SgVec3T<double>& dv) {
        SgVec3T<double> P;
        return evalNormalised(s, uu, vv, P, du, dv);
      },
      u, v, k1, k2);
}
