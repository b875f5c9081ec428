#include "geometry/VrSubdPatch.h"

#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "base/vrutilCodec.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrPatchBindingImpl.h"
#include "geometry/VrPatchUtil.h"

#include <algorithm>
#include <cmath>

// One flag with the task manager's patch multithreading, so that declaring it through either
// (the facade's "MultithreadingPatch", a host, a benchmark) lifts the lock everywhere.
void VrSubdPatch::setMultithreading(bool on) { VrTaskManager::setPatchMultithreading(on); }
bool VrSubdPatch::multithreading() { return VrTaskManager::patchMultithreading(); }

std::unique_lock<std::mutex> VrSubdPatch::lockUnlessThreaded() const {
  return multithreading() ? std::unique_lock<std::mutex>() : std::unique_lock<std::mutex>(mutex);
}

VrSubdPatch::~VrSubdPatch() { unbindGeometry(); }

void VrSubdPatch::bindGeometry(SgSurface* referenceSurface, SgSurface* animatedSurface, bool convertFaceIds) {
  auto* newAnimated = dynamic_cast<SgSubdSurface*>(animatedSurface);
  if (!newAnimated) {
    VR_ERROR("Cant bind to nothing. Use UNbind. " + typeName() + "," + name());
    unbindGeometry();
    return;
  }
  VR_DEBUG(4, vrmsg::CatPatch, "Binding subd patch " + typeName() + " | " + name());
  auto* newReference = dynamic_cast<SgSubdSurface*>(referenceSurface);
  vrpatch::takeSurface(animated, newAnimated);
  vrpatch::takeSurface(reference, newReference ? newReference : newAnimated);

  std::vector<int>& ids = mutableFaceIds();
  const int faceCount = reference->nFaces();
  if (ids.empty()) {
    for (int face = 0; face < animated->nFaces(); ++face) ids.push_back(face);
    return;
  }
  if (convertFaceIds) {
    // The ids are in the cage's numbering.
    if (static_cast<int>(ids.size()) == faceCount) return;
    std::vector<int> converted;
    for (int id : ids) {
      reference->origToLogical(id, converted, false);
      if (converted.size() >= 2 && converted.back() == converted[converted.size() - 2]) converted.pop_back();
    }
    setFaceIds(std::move(converted));
    return;
  }
  if (!ids.empty() && ids.back() >= faceCount) {
    while (!ids.empty() && ids.back() >= faceCount) ids.pop_back();
    VR_WARNING(1, "Some faceIds found to be invalid so were removed. Check your bindings. [" + typeName() + "," +
                      name() + "]");
  }
}

void VrSubdPatch::unbindGeometry() {
  vrpatch::takeSurface(reference, static_cast<SgSubdSurface*>(nullptr));
  vrpatch::takeSurface(animated, static_cast<SgSubdSurface*>(nullptr));
}

SgBox3T<double> VrSubdPatch::boundingBox(int face, bool ref) const {
  const SgSubdSurface* s = surface(ref);
  if (!s) return SgBox3T<double>();
  auto lock = lockUnlessThreaded();
  return s->faceBoundingBox(face);
}

SgBox3T<double> VrSubdPatch::boundingBox(bool ref) const {
  const SgSubdSurface* s = surface(ref);
  if (!s) return SgBox3T<double>();
  auto lock = lockUnlessThreaded();
  return s->faceSetBoundingBox(faceIds());
}

std::vector<int> VrSubdPatch::origFaceIds() const {
  std::vector<int> orig;
  if (!reference) return orig;
  std::vector<int> mapped;
  for (int face : faceIds()) {
    reference->logicalToOrig(face, mapped, true);
    for (int id : mapped)
      if (std::find(orig.begin(), orig.end(), id) == orig.end()) orig.push_back(id);
  }
  return orig;
}

int VrSubdPatch::numGeomFaces() const { return reference ? reference->nFaces() : 0; }

void VrSubdPatch::origToLogical(int face, std::vector<int>& ids, bool clear) const {
  if (clear) ids.clear();
  if (reference) reference->origToLogical(face, ids, false);
}

void VrSubdPatch::logicalToOrig(int face, std::vector<int>& ids, bool clear) const {
  if (clear) ids.clear();
  if (reference) reference->logicalToOrig(face, ids, false);
}

double VrSubdPatch::calculateSubAreas(int face, int grid, int& nu, int& nv, std::vector<double>& areas) const {
  nu = nv = 0;
  areas.clear();
  if (!reference) return 0.0;
  auto lock = lockUnlessThreaded();
  return reference->calculateSubAreas(face, grid, nu, nv, areas);
}

double VrSubdPatch::area(int face) const {
  if (!reference) return 0.0;
  auto lock = lockUnlessThreaded();
  return reference->area(face);
}

double VrSubdPatch::lengthU(double t, int face) const {
  if (!reference) return 0.0;
  auto lock = lockUnlessThreaded();
  return reference->lengthU(face, t);
}

double VrSubdPatch::lengthV(double t, int face) const {
  if (!reference) return 0.0;
  auto lock = lockUnlessThreaded();
  return reference->lengthV(face, t);
}

bool VrSubdPatch::evalUV(int face, double u, double v, double& s, double& t) const {
  if (!animated) return false;
  auto lock = lockUnlessThreaded();
  return animated->evalUV(face, u, v, s, t);
}

unsigned VrSubdPatch::computeFaceResolution(unsigned short& resU, unsigned short& resV, int face,
                                            double density) const {
  resU = resV = 0;
  if (!reference || face < 0 || face >= reference->nFaces()) return 0;
  const int* counts = reference->nVertsPerFace();
  const int* corners = reference->faceVerts(face);
  if (!counts || !corners) return 0;
  const int n = counts[face];
  // Corner k of the face (a triangle's fourth corner is its first), in float as the cage holds it.
  auto corner = [&](int k) {
    const float* p = reference->verts(static_cast<unsigned>(corners[k % n]));
    return SgVec3T<float>(p[0], p[1], p[2]);
  };
  const SgVec3T<float> c0 = corner(0), c1 = corner(1), c2 = corner(2), c3 = corner(n >= 4 ? 3 : 0);
  const double lenU = std::max((c2 - c1).length(), (c3 - c0).length());
  const double lenV = std::max((c3 - c2).length(), (c1 - c0).length());
  return VrPatchUtil::computeFaceResolution(lenU, lenV, density, resU, resV);
}

bool VrSubdPatch::pureEvalGeom(double u, double v, int face, SgVec3T<double>& P, SgVec3T<double>& N,
                               SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref) const {
  const SgSubdSurface* s = surface(ref);
  if (!s) return false;
  bool ok;
  {
    auto lock = lockUnlessThreaded();
    ok = s->eval(face, u, v, P, dPdu, dPdv);
  }
  if (!ok) {
    VR_ERROR("Failed to evaluate subd. " + vrutil::ftoa(u) + " " + vrutil::ftoa(v) + " " + std::to_string(face) +
             " " + typeName() + "," + name());
    return false;
  }
  N = dPdu.cross(dPdv);
  N.normalize();
  return true;
}

bool VrSubdPatch::pureEvalCurvature(double u, double v, int face, double& k1, double& k2, bool ref) const {
  const SgSubdSurface* s = surface(ref);
  if (!s) return false;
  auto lock = lockUnlessThreaded();
  return s->evalCurvature(face, u, v, k1, k2);
}

const float* VrSubdPatch::verts() const { return animated ? animated->verts() : nullptr; }
int VrSubdPatch::nVerts(bool original) const { return animated ? animated->nVerts(original) : 0; }
int VrSubdPatch::nFaceVerts() const { return animated ? animated->nFaceVerts() : 0; }
const int* VrSubdPatch::faceVerts() const { return animated ? animated->faceVerts() : nullptr; }
const int* VrSubdPatch::nVertsPerFace() const { return animated ? animated->nVertsPerFace() : nullptr; }
