// SgSubdSurface: face-mode dispatch and the measures computed from the cage or from sampled limit
// points. The subdivision work itself is SgSubdEvaluatorImpl's.

#include "geometry/SgSubdSurface.h"

#include "geometry/SgSubdEvaluatorImpl.h"

#include <algorithm>
#include <ostream>

namespace {

using Vec = SgVec3T<double>;

bool inUnitRange(double x) { return x >= 0.0 && x <= 1.0; }  // false for NaN

Vec toVec(const double c[3]) { return Vec(c[0], c[1], c[2]); }

Vec lerp(const Vec& a, const Vec& b, double t) { return a + (b - a) * t; }

/// Area of a four-cornered face: a quarter of the summed lengths of the corner cross products.
double cornerArea(const double corners[4][3]) {
  Vec c[4];
  for (int i = 0; i < 4; ++i) c[i] = toVec(corners[i]);
  double sum = 0.0;
  for (int i = 0; i < 4; ++i) {
    const Vec& here = c[i];
    const Vec& next = c[(i + 1) % 4];
    const Vec& prev = c[(i + 3) % 4];
    sum += (next - here).cross(prev - here).length();
  }
  return 0.25 * sum;
}

/// Triangle area with its cross-product length rounded to float.
double floatTriangleArea(const Vec& a, const Vec& b, const Vec& c) {
  const float len = static_cast<float>((b - a).cross(c - a).length());
  return 0.5 * double(len);
}

SgBox3T<double> boxOf(const double lo[3], const double hi[3]) {
  return SgBox3T<double>::fromCorners(Vec(lo[0], lo[1], lo[2]), Vec(hi[0], hi[1], hi[2]));
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Construction

SgSubdSurface::SgSubdSurface() = default;

SgSubdSurface::SgSubdSurface(int nVerts, const float* verts, int nFaces, const int* nVertsPerFace,
                             const int* faceVerts, int cageFaceCount)
    : SgSubdSurface(nVerts, verts, nFaces, nVertsPerFace, faceVerts, 0, nullptr, nullptr, nullptr,
                    cageFaceCount) {}

SgSubdSurface::SgSubdSurface(int nVerts, const float* verts, int nFaces, const int* nVertsPerFace,
                             const int* faceVerts, int nUVs, const float* uvs,
                             const int* uvCounts, const int* uvIndices, int cageFaceCount) {
  SgSubdEvaluatorImpl::Cage cage;
  cage.nVerts = nVerts;
  cage.verts = verts;
  cage.nFaces = nFaces;
  cage.nVertsPerFace = nVertsPerFace;
  cage.faceVerts = faceVerts;
  cage.nUVs = nUVs;
  cage.uvs = uvs;
  cage.uvCounts = uvCounts;
  cage.uvIndices = uvIndices;
  impl = SgSubdEvaluatorImpl::build(cage);
  if (!impl) return;
  if (cageFaceCount >= 1) {
    impl->setCageFaceCount(cageFaceCount);
    impl->setIsCageFaceEvaluation(true);
  } else {
    impl->setUseLogicalIds(true);
  }
}

SgSubdSurface::SgSubdSurface(SgSubdSurface&& other) noexcept = default;
SgSubdSurface& SgSubdSurface::operator=(SgSubdSurface&& other) noexcept = default;
SgSubdSurface::~SgSubdSurface() = default;

bool SgSubdSurface::useLogicalIds() const { return impl && impl->useLogicalIds(); }
bool SgSubdSurface::isCageFaceEvaluation() const { return impl && impl->isCageFaceEvaluation(); }
int SgSubdSurface::cageFaceCount() const { return impl ? impl->cageFaceCount() : 0; }

// ---------------------------------------------------------------------------------------------
// Evaluation

bool SgSubdSurface::eval(int face, double u, double v, SgVec3T<double>& P, SgVec3T<double>& dPdu,
                         SgVec3T<double>& dPdv) const {
  double p[3], du[3], dv[3];  // all written where the evaluation succeeds
  bool ok = false;
  if (impl)
    ok = impl->useLogicalIds() ? impl->evalLogical(face, u, v, p, du, dv)
                               : impl->evalOrig(face, u, v, p, du, dv);
  if (!ok) {
    P = dPdu = dPdv = Vec();
    return false;
  }
  P = toVec(p);
  dPdu = toVec(du);
  dPdv = toVec(dv);
  return true;
}

bool SgSubdSurface::evalUV(int face, double u, double v, double& s, double& t) const {
  s = t = 0.0;
  if (!impl) return false;
  return impl->useLogicalIds() ? impl->uvLogical(face, u, v, s, t) : impl->uvOrig(face, u, v, s, t);
}

bool SgSubdSurface::evalCurvature(int face, double u, double v, double& k1, double& k2) const {
  k1 = k2 = 0.0;
  if (!impl) return false;
  return impl->useLogicalIds() ? impl->curvatureLogical(face, u, v, k1, k2)
                               : impl->curvatureOrig(face, u, v, k1, k2);
}

// ---------------------------------------------------------------------------------------------
// Areas and lengths

bool SgSubdSurface::origRange(int face, int& first, int& count) const {
  if (!impl || face < 0 || face >= nFaces()) return false;
  if (!impl->useLogicalIds()) {
    first = face;
    count = 1;
    return true;
  }
  if (face >= impl->numLogicalFaces()) return false;
  first = impl->firstOrig(face);
  count = impl->origCount(face);
  return true;
}

double SgSubdSurface::area(int face) const {
  int first = 0, count = 0;
  if (!origRange(face, first, count)) return 0.0;
  double total = 0.0;
  for (int orig = first; orig < first + count; ++orig) {
    double c[4][3];
    if (impl->origCorners(orig, c)) total += cornerArea(c);
  }
  return total;
}

double SgSubdSurface::lengthU(int face, double t) const {
  int first = 0, count = 0;
  if (!inUnitRange(t) || !origRange(face, first, count)) return 0.0;
  double total = 0.0;
  for (int orig = first; orig < first + count; ++orig) {
    double c[4][3];
    if (!impl->origCorners(orig, c)) continue;
    total += (lerp(toVec(c[3]), toVec(c[2]), t) - lerp(toVec(c[0]), toVec(c[1]), t)).length();
  }
  return total;
}

double SgSubdSurface::lengthV(int face, double t) const {
  int first = 0, count = 0;
  if (!inUnitRange(t) || !origRange(face, first, count)) return 0.0;
  double total = 0.0;
  for (int orig = first; orig < first + count; ++orig) {
    double c[4][3];
    if (!impl->origCorners(orig, c)) continue;
    total += (lerp(toVec(c[1]), toVec(c[2]), t) - lerp(toVec(c[0]), toVec(c[3]), t)).length();
  }
  return total;
}

double SgSubdSurface::calculateSubAreas(int face, int grid, int& nu, int& nv,
                                        std::vector<double>& areas) const {
  nu = nv = 0;
  areas.clear();
  if (!impl || face < 0 || face >= nFaces() || grid < 1) return 0.0;
  const int cappedGrid = std::min(grid, 2048);
  int n = 1;
  while (n < 2 * cappedGrid) n <<= 1;

  // Limit points of the (n + 1) x (n + 1) grid, t outer.
  std::vector<Vec> pts(size_t(n + 1) * size_t(n + 1));
  Vec dPdu, dPdv;
  for (int j = 0; j <= n; ++j) {
    const double t = double(j) / n;
    for (int i = 0; i <= n; ++i) {
      if (!eval(face, double(i) / n, t, pts[size_t(j) * size_t(n + 1) + size_t(i)], dPdu, dPdv))
        return 0.0;
    }
  }

  areas.resize(size_t(n) * size_t(n));
  double total = 0.0;
  const size_t row = size_t(n + 1);
  for (size_t j = 0; j < size_t(n); ++j) {
    for (size_t i = 0; i < size_t(n); ++i) {
      const Vec& p00 = pts[j * row + i];
      const Vec& p10 = pts[j * row + i + 1];
      const Vec& p01 = pts[(j + 1) * row + i];
      const Vec& p11 = pts[(j + 1) * row + i + 1];
      const double cell = floatTriangleArea(p00, p10, p11) + floatTriangleArea(p00, p11, p01);
      areas[j * size_t(n) + i] = cell;
      total += cell;
    }
  }
  nu = nv = n;
  return total;
}

// ---------------------------------------------------------------------------------------------
// Bounding boxes

SgBox3T<double> SgSubdSurface::cageBoundingBox() const {
  double lo[3], hi[3];
  if (!impl || !impl->cageBounds(lo, hi)) return SgBox3T<double>();
  return boxOf(lo, hi);
}

SgBox3T<double> SgSubdSurface::faceBoundingBox(int face) const {
  if (!impl || face < 0 || face >= nFaces()) return SgBox3T<double>();
  const int logical = impl->useLogicalIds() ? face : impl->logicalOf(face, nullptr);
  double lo[3], hi[3];
  if (!impl->logicalFaceBounds(logical, lo, hi)) return SgBox3T<double>();
  return boxOf(lo, hi);
}

SgBox3T<double> SgSubdSurface::faceSetBoundingBox(const std::vector<int>& faces) const {
  SgBox3T<double> box;
  for (int face : faces) box.unite(faceBoundingBox(face));
  return box;
}

// ---------------------------------------------------------------------------------------------
// Cage access

int SgSubdSurface::nFaces(bool original) const {
  if (!impl) return 0;
  if (original || !impl->useLogicalIds()) return impl->numOrigFaces();
  return impl->numLogicalFaces();
}

int SgSubdSurface::nVerts(bool original) const {
  if (!impl) return 0;
  return original ? impl->numOrigVerts() : impl->numVerts();
}

int SgSubdSurface::nFaceVerts() const { return impl ? impl->numFaceVerts() : 0; }

const int* SgSubdSurface::nVertsPerFace() const { return impl ? impl->vertsPerFace() : nullptr; }

const int* SgSubdSurface::faceVerts(int face) const {
  if (!impl || face < 0 || face >= impl->numLogicalFaces()) return nullptr;
  return impl->faceVertsOf(face);
}

const float* SgSubdSurface::verts(unsigned vertex) const {
  if (!impl || vertex >= unsigned(impl->numVerts())) return nullptr;
  return impl->cageVerts() + size_t(vertex) * 3;
}

const float* SgSubdSurface::limitVerts(unsigned vertex) const {
  if (!impl || vertex >= unsigned(impl->numVerts())) return nullptr;
  return impl->limitPositions() + size_t(vertex) * 3;
}

bool SgSubdSurface::updateVerts(const float* positions, int first, int count) {
  return impl && impl->updateVerts(positions, first, count);
}

bool SgSubdSurface::exportToStream(std::ostream& out) const {
  return impl && impl->exportToStream(out);
}

// ---------------------------------------------------------------------------------------------
// Face numberings

bool SgSubdSurface::logicalToOrig(int face, std::vector<int>& ids, bool clear) const {
  if (clear) ids.clear();
  if (!impl || face < 0 || face >= impl->numLogicalFaces()) return false;
  const int first = impl->firstOrig(face);
  const int count = impl->origCount(face);
  for (int k = 0; k < count; ++k) ids.push_back(first + k);
  return true;
}

bool SgSubdSurface::origToLogical(int face, std::vector<int>& ids, bool clear) const {
  if (clear) ids.clear();
  if (!impl) return false;
  const int logical = impl->logicalOf(face, nullptr);
  if (logical < 0) return false;
  ids.push_back(logical);
  return true;
}
