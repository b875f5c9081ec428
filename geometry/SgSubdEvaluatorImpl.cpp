// SgSubdEvaluatorImpl over OpenSubdiv.
//
// Build: the cage is checked, given to a Far::TopologyRefiner (Catmull-Clark, boundary edges and
// corners interpolated), and Far::PtexIndices numbers the original faces. A Bfr surface factory
// then initialises one Bfr::Surface<double> per cage face, and each face's patch points are
// gathered from the cage positions into one shared array. The refiner and the factory are
// dropped afterwards: a prepared surface needs neither, and neither is safe to share between
// threads, while evaluation of prepared surfaces is read-only.
//
// Parameters: Bfr gives a quad face the unit square and an n-sided face a set of quad sub-faces
// laid out in tiles; `origToSurface` converts an original face's (u, v) into the face's surface
// coordinates and carries the (affine) Jacobian so that derivatives are with respect to the
// original face's (u, v). Curvatures do not depend on the parameterisation and are computed
// directly in the surface's coordinates.
//
//        c3 ------- c2        sub-face k of an n-sided face:
//        |           |          c0 = vertex k          c1 = midpoint of edge (k, k+1)
//      v ^           |          c2 = face centre       c3 = midpoint of edge (k-1, k)
//        |           |
//        c0 ---->--- c1
//               u

#include "geometry/SgSubdEvaluatorImpl.h"

#include <opensubdiv/bfr/limits.h>
#include <opensubdiv/bfr/refinerSurfaceFactory.h>
#include <opensubdiv/far/ptexIndices.h>
#include <opensubdiv/far/topologyDescriptor.h>
#include <opensubdiv/far/topologyRefinerFactory.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <ostream>

namespace {

using namespace OpenSubdiv;
using PointDescriptor = SgSubdEvaluatorImpl::Surface::PointDescriptor;

bool inUnitRange(double x) { return x >= 0.0 && x <= 1.0; }  // false for NaN

bool hasRepeatedVertex(const int* verts, int n) {
  if (n <= 8) {
    for (int a = 0; a < n; ++a)
      for (int b = a + 1; b < n; ++b)
        if (verts[a] == verts[b]) return true;
    return false;
  }
  std::vector<int> sorted(verts, verts + n);
  std::sort(sorted.begin(), sorted.end());
  return std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end();
}

/// Corner values of an original face: a quad's own four face-vertices, or the corners of sub-
/// face `sub` of an n-sided face. value(k) gives the D floats of face-vertex k.
template <int D, class Value>
void cornerValues(int n, int sub, const Value& value, double c[4][D]) {
  if (sub < 0) {
    for (int i = 0; i < 4; ++i) {
      const float* x = value(i);
      for (int d = 0; d < D; ++d) c[i][d] = x[d];
    }
    return;
  }
  const float* here = value(sub);
  const float* next = value((sub + 1) % n);
  const float* prev = value((sub + n - 1) % n);
  double centre[D] = {};
  for (int k = 0; k < n; ++k) {
    const float* x = value(k);
    for (int d = 0; d < D; ++d) centre[d] += x[d];
  }
  for (int d = 0; d < D; ++d) {
    c[0][d] = here[d];
    c[1][d] = 0.5 * (double(here[d]) + double(next[d]));
    c[2][d] = centre[d] / n;
    c[3][d] = 0.5 * (double(prev[d]) + double(here[d]));
  }
}

double dot3(const double a[3], const double b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

}  // namespace

std::unique_ptr<SgSubdEvaluatorImpl> SgSubdEvaluatorImpl::build(const Cage& cage) {
  if (cage.nVerts < 0 || cage.nFaces < 0) return nullptr;
  if (cage.nVerts > 0 && !cage.verts) return nullptr;
  if (cage.nFaces > 0 && (!cage.nVertsPerFace || !cage.faceVerts)) return nullptr;

  std::unique_ptr<SgSubdEvaluatorImpl> impl(new SgSubdEvaluatorImpl());
  impl->positions.assign(cage.verts, cage.verts + size_t(cage.nVerts) * 3);

  // Faces: sizes, offsets and indices, all checked before OpenSubdiv sees them.
  const int maxFaceSize = Bfr::Limits::MaxFaceSize();
  impl->faceSizes.assign(cage.nVertsPerFace, cage.nVertsPerFace + cage.nFaces);
  impl->faceOffsets.resize(size_t(cage.nFaces) + 1);
  int64_t total = 0;
  for (int f = 0; f < cage.nFaces; ++f) {
    const int n = impl->faceSizes[size_t(f)];
    if (n < 3 || n > maxFaceSize) return nullptr;
    impl->faceOffsets[size_t(f)] = static_cast<int>(total);
    total += n;
    if (total > INT_MAX) return nullptr;
  }
  impl->faceOffsets[size_t(cage.nFaces)] = static_cast<int>(total);
  impl->faceVertIndices.assign(cage.faceVerts, cage.faceVerts + total);
  for (int f = 0; f < cage.nFaces; ++f) {
    const int* fv = impl->faceVertIndices.data() + impl->faceOffsets[size_t(f)];
    const int n = impl->faceSizes[size_t(f)];
    for (int k = 0; k < n; ++k)
      if (fv[k] < 0 || fv[k] >= cage.nVerts) return nullptr;
    if (hasRepeatedVertex(fv, n)) return nullptr;
  }

  // Texture coordinates, per face-vertex; dropped when they do not fit.
  if (cage.nUVs > 0 && cage.uvs && total > 0) {
    bool fits = true;
    for (int f = 0; fits && f < cage.nFaces; ++f)
      if (cage.uvCounts && cage.uvCounts[f] != impl->faceSizes[size_t(f)]) fits = false;
    std::vector<float> uv(size_t(total) * 2);
    for (int64_t i = 0; fits && i < total; ++i) {
      const int index = cage.uvIndices ? cage.uvIndices[i] : impl->faceVertIndices[size_t(i)];
      if (index < 0 || index >= cage.nUVs) {
        fits = false;
        break;
      }
      uv[size_t(i) * 2] = cage.uvs[size_t(index) * 2];
      uv[size_t(i) * 2 + 1] = cage.uvs[size_t(index) * 2 + 1];
    }
    if (fits) impl->faceVertUVs.swap(uv);
  }

  impl->origBase.assign(1, 0);
  impl->vertexFace.assign(size_t(cage.nVerts), -1);
  impl->vertexCorner.assign(size_t(cage.nVerts), 0);
  impl->origVertCount = cage.nVerts;
  impl->patchOffsets.assign(1, 0);
  if (cage.nFaces == 0) {
    impl->limitVerts = impl->positions;
    return impl;
  }

  using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
  Far::TopologyDescriptor desc;
  desc.numVertices = cage.nVerts;
  desc.numFaces = cage.nFaces;
  desc.numVertsPerFace = impl->faceSizes.data();
  desc.vertIndicesPerFace = impl->faceVertIndices.data();
  Sdc::Options scheme;
  scheme.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
  std::unique_ptr<Far::TopologyRefiner> refiner(
      Factory::Create(desc, Factory::Options(Sdc::SCHEME_CATMARK, scheme)));
  if (!refiner) return nullptr;

  const Far::PtexIndices ptex(*refiner);
  impl->origBase.resize(size_t(cage.nFaces) + 1);
  for (int f = 0; f < cage.nFaces; ++f) impl->origBase[size_t(f)] = ptex.GetFaceId(f);
  impl->origBase[size_t(cage.nFaces)] = ptex.GetNumFaces();
  impl->logicalOfOrig.resize(size_t(ptex.GetNumFaces()));
  for (int f = 0; f < cage.nFaces; ++f)
    std::fill(impl->logicalOfOrig.begin() + impl->origBase[size_t(f)],
              impl->logicalOfOrig.begin() + impl->origBase[size_t(f) + 1], f);

  // Vertices of the mesh of original faces: a centre per n-sided face and a midpoint per edge
  // that touches one.
  const Far::TopologyLevel& level = refiner->GetLevel(0);
  std::vector<char> splitEdge(size_t(level.GetNumEdges()), 0);
  for (int f = 0; f < cage.nFaces; ++f) {
    if (impl->faceSizes[size_t(f)] == 4) continue;
    ++impl->origVertCount;
    const Far::ConstIndexArray edges = level.GetFaceEdges(f);
    for (int e = 0; e < edges.size(); ++e) splitEdge[size_t(edges[e])] = 1;
  }
  impl->origVertCount += static_cast<int>(std::count(splitEdge.begin(), splitEdge.end(), 1));

  Bfr::RefinerSurfaceFactory<> factory(*refiner);
  impl->surfaces.resize(size_t(cage.nFaces));
  impl->patchOffsets.resize(size_t(cage.nFaces) + 1);
  size_t points = 0;
  for (int f = 0; f < cage.nFaces; ++f) {
    Surface& surface = impl->surfaces[size_t(f)];
    if (!factory.InitVertexSurface(f, &surface)) surface.Clear();
    impl->patchOffsets[size_t(f)] = points;
    if (surface.IsValid()) points += size_t(surface.GetNumPatchPoints());
    const int* fv = impl->faceVertsOf(f);
    for (int k = 0; k < impl->faceSizes[size_t(f)]; ++k) {
      if (impl->vertexFace[size_t(fv[k])] >= 0 || !surface.IsValid()) continue;
      impl->vertexFace[size_t(fv[k])] = f;
      impl->vertexCorner[size_t(fv[k])] = k;
    }
  }
  impl->patchOffsets[size_t(cage.nFaces)] = points;
  // One double of padding: sumPatchPoints reads each point as four.
  impl->patchPoints.reset(new double[points * 3 + 1]);
  impl->patchPoints[points * 3] = 0.0;
  impl->preparePatchPoints();
  impl->findUniformBSplineFaces();
  impl->computeLimitVerts();
  return impl;
}

SgSubdEvaluatorImpl::~SgSubdEvaluatorImpl() = default;

// Faces and vertices are independent of one another: both passes run on every thread, each
// value computed as on one.
void SgSubdEvaluatorImpl::preparePatchPoints() {
  const PointDescriptor desc(3);
  // Small grains: irregular faces (about a pole of high valence) cost hundreds of times a regular
  // one, and lie together.
  tbb::parallel_for(tbb::blocked_range<size_t>(0, surfaces.size(), 8), [&](const tbb::blocked_range<size_t>& faces) {
    for (size_t f = faces.begin(); f < faces.end(); ++f) {
      const Surface& surface = surfaces[f];
      if (!surface.IsValid()) continue;
      double* pts = patchPoints.get() + patchOffsets[f] * 3;
      surface.GatherControlPoints(positions.data(), desc, pts, desc);
      surface.ComputePatchPoints(pts, desc);
    }
  });
}

void SgSubdEvaluatorImpl::computeLimitVerts() {
  limitVerts = positions;
  tbb::parallel_for(tbb::blocked_range<size_t>(0, vertexFace.size(), 512), [&](const tbb::blocked_range<size_t>& verts) {
    for (size_t v = verts.begin(); v < verts.end(); ++v) {
      const int f = vertexFace[v];
      if (f < 0) continue;
      double uv[2];
      surfaces[size_t(f)].GetParameterization().GetVertexCoord(vertexCorner[v], uv);
      double P[3];
      surfaces[size_t(f)].Evaluate(uv, patchPoints.get() + patchOffsets[size_t(f)] * 3, PointDescriptor(3), P);
      for (int d = 0; d < 3; ++d) limitVerts[v * 3 + size_t(d)] = static_cast<float>(P[d]);
    }
  });
}

// ---------------------------------------------------------------------------------------------
// Numberings and corners

int SgSubdEvaluatorImpl::logicalOf(int orig, int* subFace) const {
  if (orig < 0 || orig >= numOrigFaces()) return -1;
  const int face = logicalOfOrig[size_t(orig)];
  if (subFace) *subFace = faceSizes[size_t(face)] == 4 ? -1 : orig - origBase[size_t(face)];
  return face;
}

bool SgSubdEvaluatorImpl::origCorners(int orig, double corners[4][3]) const {
  int sub = -1;
  const int face = logicalOf(orig, &sub);
  if (face < 0) return false;
  const int* fv = faceVertsOf(face);
  const float* pos = positions.data();
  cornerValues<3>(faceSizes[size_t(face)], sub,
                  [fv, pos](int k) { return pos + size_t(fv[k]) * 3; }, corners);
  return true;
}

// ---------------------------------------------------------------------------------------------
// Evaluation

bool SgSubdEvaluatorImpl::origToSurface(int orig, double u, double v, int& face, double uv[2],
                                        double J[2][2]) const {
  if (!inUnitRange(u) || !inUnitRange(v)) return false;
  int sub = -1;
  face = logicalOf(orig, &sub);
  if (face < 0 || !surfaces[size_t(face)].IsValid()) return false;
  if (sub < 0) {
    uv[0] = u;
    uv[1] = v;
    J[0][0] = J[1][1] = 1.0;
    J[0][1] = J[1][0] = 0.0;
    return true;
  }
  const OpenSubdiv::Bfr::Parameterization param = surfaces[size_t(face)].GetParameterization();
  const double local[2] = {u, v};
  const double origin[2] = {0.0, 0.0};
  const double unitU[2] = {1.0, 0.0};
  const double unitV[2] = {0.0, 1.0};
  double o[2], a[2], b[2];
  param.ConvertNormalizedSubFaceToCoord(sub, local, uv);
  param.ConvertNormalizedSubFaceToCoord(sub, origin, o);
  param.ConvertNormalizedSubFaceToCoord(sub, unitU, a);
  param.ConvertNormalizedSubFaceToCoord(sub, unitV, b);
  J[0][0] = a[0] - o[0];
  J[1][0] = a[1] - o[1];
  J[0][1] = b[0] - o[0];
  J[1][1] = b[1] - o[1];
  return true;
}

namespace {

typedef double Pair __attribute__((vector_size(16)));

/// A regular patch has 16 points; Bfr's own evaluation sizes its weight buffers for 20.
constexpr int regularPatchPointsMax = 20;
constexpr int bsplinePatchPoints = 16;
typedef double Stencil[3][regularPatchPointsMax];

/// The basis of an interior bicubic B-spline patch at uv, for position (b) and derivative (d),
/// s and t side by side in one vector. It is worked out with the operations, in the order, of
/// Bfr's own, so that each weight made from it is Bfr's to the bit; findUniformBSplineFaces
/// checks that against Bfr before any face uses it.
inline void bsplineBasis(const double uv[2], Pair b[4], Pair d[4]) {
  const Pair x{uv[0], uv[1]};
  const Pair x2 = x * x, x3 = x * x2;
  const double sixth = 1.0 / 6.0;
  b[0] = sixth * (1.0 - 3.0 * (x - x2) - x3);
  b[1] = sixth * (4.0 - 6.0 * x2 + 3.0 * x3);
  b[2] = sixth * (1.0 + 3.0 * (x + x2 - x3));
  b[3] = sixth * x3;
  d[0] = -0.5 * x2 + x - 0.5;
  d[1] = 1.5 * x2 - 2.0 * x;
  d[2] = -1.5 * x2 + x + 0.5;
  d[3] = 0.5 * x2;
}

/// The weights of an interior bicubic B-spline patch at uv, made one point at a time: those of
/// position and of the derivatives in u and v for point i of its 4 x 4, row by row in v.
struct BSplineWeights {
  Pair b[4], d[4];
  explicit BSplineWeights(const double uv[2]) { bsplineBasis(uv, b, d); }
  static constexpr int count() { return bsplinePatchPoints; }
  void operator()(int i, double w[3]) const {
    const int row = i / 4, col = i % 4;
    w[0] = b[col][0] * b[row][1];
    w[1] = d[col][0] * b[row][1];
    w[2] = b[col][0] * d[row][1];
  }
};

/// The weights of a stencil that Bfr worked out.
struct StencilWeights {
  const Stencil& stencil;
  int n;
  int count() const { return n; }
  void operator()(int i, double w[3]) const {
    for (int k = 0; k < 3; ++k) w[k] = stencil[k][i];
  }
};

/// The stencil of an interior bicubic B-spline patch at uv.
void uniformBSplineStencil(const double uv[2], Stencil w) {
  const BSplineWeights weights(uv);
  for (int i = 0; i < bsplinePatchPoints; ++i) {
    double point[3];
    weights(i, point);
    for (int k = 0; k < 3; ++k) w[k][i] = point[k];
  }
}

bool sameStencil(const Stencil a, const Stencil b, int n) {
  for (int k = 0; k < 3; ++k)
    if (std::memcmp(a[k], b[k], sizeof(double) * size_t(n)) != 0) return false;
  return true;
}

typedef double Quad __attribute__((vector_size(32)));

/// Position and first derivatives of a regular patch: its weights applied to its control points,
/// which are its patch points. Each sum runs point by point in the order Bfr's own evaluation
/// uses, so the result is the same to the bit; the sums stay in registers, x, y and z of a point
/// side by side in one vector of four, rather than being written through the result pointers
/// after every point, which is where Bfr's generic combination spends its time. A point is read
/// as four doubles, the fourth being the next point's or the padding after the last patch's.
template <typename Weights>
inline __attribute__((always_inline)) void sumPatchPoints(const Weights& weights, const double* pts,
                                                          double P[3], double Du[3], double Dv[3]) {
  double w[3];
  weights(0, w);
  Quad q;
  std::memcpy(&q, pts, sizeof q);
  Quad p = w[0] * q, du = w[1] * q, dv = w[2] * q;
  for (int i = 1; i < weights.count(); ++i) {
    weights(i, w);
    std::memcpy(&q, pts + 3 * i, sizeof q);
    p += w[0] * q;
    du += w[1] * q;
    dv += w[2] * q;
  }
  for (int k = 0; k < 3; ++k) {
    P[k] = p[k];
    Du[k] = du[k];
    Dv[k] = dv[k];
  }
}

// The sum built twice: for processors with 256-bit vectors (AVX: one instruction does all three
// coordinates) and for those without. The choice is made once, when the library is loaded, by a
// plain test of the processor rather than an ifunc, whose resolver would run before the
// sanitizers' runtimes are ready. The weights are made inside each build, from what they come
// from, so that they are worked out and kept in its registers.
template <typename Weights, typename Source>
__attribute__((target("avx"))) void sumPatchPointsAvx(const Source& source, const double* pts, double P[3],
                                                      double Du[3], double Dv[3]) {
  sumPatchPoints(Weights(source), pts, P, Du, Dv);
}

template <typename Weights, typename Source>
void sumPatchPointsPlain(const Source& source, const double* pts, double P[3], double Du[3], double Dv[3]) {
  sumPatchPoints(Weights(source), pts, P, Du, Dv);
}

bool processorHasAvx() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx");
}

const bool hasAvx = processorHasAvx();

template <typename Weights, typename Source>
void applyWeights(const Source& source, const double* pts, double P[3], double Du[3], double Dv[3]) {
  if (hasAvx)
    sumPatchPointsAvx<Weights>(source, pts, P, Du, Dv);
  else
    sumPatchPointsPlain<Weights>(source, pts, P, Du, Dv);
}

}  // namespace

bool SgSubdEvaluatorImpl::evalSurface(int face, const double uv[2], double P[3], double Du[3],
                                      double Dv[3], double Duu[3], double Duv[3],
                                      double Dvv[3]) const {
  const Surface& surface = surfaces[size_t(face)];
  const double* pts = patchPoints.get() + patchOffsets[size_t(face)] * 3;
  if (Duu) {
    surface.Evaluate(uv, pts, PointDescriptor(3), P, Du, Dv, Duu, Duv, Dvv);
  } else if (uniformBSpline[size_t(face)]) {
    applyWeights<BSplineWeights>(uv, pts, P, Du, Dv);
  } else if (surface.IsRegular() && surface.GetNumControlPoints() <= regularPatchPointsMax) {
    Stencil w;
    const int n = surface.EvaluateStencil(uv, w[0], w[1], w[2]);
    applyWeights<StencilWeights>(StencilWeights{w, n}, pts, P, Du, Dv);
  } else {
    surface.Evaluate(uv, pts, PointDescriptor(3), P, Du, Dv);
  }
  return true;
}

// A face takes the B-spline stencil of its own making where Bfr gives the same at a point
// inside it: a patch at a boundary or a sharp feature has other weights there. Should Bfr's
// arithmetic ever differ from ours, the points across the first such face show it, and no face
// takes ours.
void SgSubdEvaluatorImpl::findUniformBSplineFaces() {
  uniformBSpline.assign(surfaces.size(), 0);
  const auto agreesAt = [this](size_t f, const double uv[2]) {
    Stencil ours, theirs;
    uniformBSplineStencil(uv, ours);
    return surfaces[f].EvaluateStencil(uv, theirs[0], theirs[1], theirs[2]) == bsplinePatchPoints &&
           sameStencil(ours, theirs, bsplinePatchPoints);
  };
  tbb::parallel_for(tbb::blocked_range<size_t>(0, surfaces.size(), 256), [&](const tbb::blocked_range<size_t>& faces) {
    const double inside[2] = {0.37, 0.61};
    for (size_t f = faces.begin(); f < faces.end(); ++f) {
      const Surface& surface = surfaces[f];
      uniformBSpline[f] = surface.IsValid() && surface.IsRegular() &&
                          surface.GetNumControlPoints() == bsplinePatchPoints && agreesAt(f, inside);
    }
  });
  const auto first = std::find(uniformBSpline.begin(), uniformBSpline.end(), 1);
  if (first == uniformBSpline.end()) return;
  const size_t f = size_t(first - uniformBSpline.begin());
  for (int k = 0; k < 64; ++k) {
    const double uv[2] = {(k % 8 + 0.29) / 8.0, (k / 8 + 0.83) / 8.0};
    if (!agreesAt(f, uv)) {
      std::fill(uniformBSpline.begin(), uniformBSpline.end(), 0);
      return;
    }
  }
}

namespace {

/// Derivatives with respect to the surface's (u, v) taken to the original face's through J.
void mapDerivatives(const double Du[3], const double Dv[3], const double J[2][2], double dPdu[3],
                    double dPdv[3]) {
  for (int d = 0; d < 3; ++d) {
    dPdu[d] = Du[d] * J[0][0] + Dv[d] * J[1][0];
    dPdv[d] = Du[d] * J[0][1] + Dv[d] * J[1][1];
  }
}

constexpr double identityJacobian[2][2] = {{1.0, 0.0}, {0.0, 1.0}};

}  // namespace

bool SgSubdEvaluatorImpl::evalOrig(int orig, double u, double v, double P[3], double dPdu[3],
                                   double dPdv[3]) const {
  int face;
  double uv[2], J[2][2];
  if (!origToSurface(orig, u, v, face, uv, J)) return false;
  double Du[3], Dv[3];
  evalSurface(face, uv, P, Du, Dv, nullptr, nullptr, nullptr);
  mapDerivatives(Du, Dv, J, dPdu, dPdv);
  return true;
}

// A quad is its own parameter square. Its derivatives still go through the (identity) Jacobian,
// as they do from evalOrig: multiplying by one and adding zero turns a -0 into +0, and both
// routes must give the same bits.
bool SgSubdEvaluatorImpl::evalQuad(int face, double u, double v, double P[3], double dPdu[3],
                                   double dPdv[3]) const {
  if (!surfaces[size_t(face)].IsValid()) return false;
  const double uv[2] = {u, v};
  double Du[3], Dv[3];
  evalSurface(face, uv, P, Du, Dv, nullptr, nullptr, nullptr);
  mapDerivatives(Du, Dv, identityJacobian, dPdu, dPdv);
  return true;
}

namespace {

/// Splits a logical face's u into (strip, local u) for an n-sided face.
void stripOf(int n, double u, int& strip, double& local) {
  strip = std::min(static_cast<int>(u * n), n - 1);
  local = std::min(std::max(u * n - strip, 0.0), 1.0);
}

}  // namespace

bool SgSubdEvaluatorImpl::evalLogical(int face, double u, double v, double P[3], double dPdu[3],
                                      double dPdv[3]) const {
  if (face < 0 || face >= numLogicalFaces() || !inUnitRange(u) || !inUnitRange(v)) return false;
  const int n = origCount(face);
  if (n == 1) return evalQuad(face, u, v, P, dPdu, dPdv);
  int strip;
  double local;
  stripOf(n, u, strip, local);
  if (!evalOrig(firstOrig(face) + strip, local, v, P, dPdu, dPdv)) return false;
  for (int d = 0; d < 3; ++d) dPdu[d] *= n;
  return true;
}

bool SgSubdEvaluatorImpl::curvatureOrig(int orig, double u, double v, double& k1,
                                        double& k2) const {
  k1 = k2 = 0.0;
  int face;
  double uv[2], J[2][2];
  if (!origToSurface(orig, u, v, face, uv, J)) return false;
  double P[3], Du[3], Dv[3], Duu[3], Duv[3], Dvv[3];
  evalSurface(face, uv, P, Du, Dv, Duu, Duv, Dvv);
  double N[3] = {Du[1] * Dv[2] - Du[2] * Dv[1], Du[2] * Dv[0] - Du[0] * Dv[2],
                 Du[0] * Dv[1] - Du[1] * Dv[0]};
  const double len = std::sqrt(dot3(N, N));
  if (!(len > 0.0)) return false;
  for (double& x : N) x /= len;
  // First (E, F, G) and second (L, M, Nn) fundamental forms.
  const double E = dot3(Du, Du), F = dot3(Du, Dv), G = dot3(Dv, Dv);
  const double L = dot3(Duu, N), M = dot3(Duv, N), Nn = dot3(Dvv, N);
  const double det = E * G - F * F;
  if (!(det > 0.0)) return false;
  const double K = (L * Nn - M * M) / det;
  const double H = (E * Nn - 2.0 * F * M + G * L) / (2.0 * det);
  const double root = std::sqrt(std::max(H * H - K, 0.0));
  k1 = H + root;
  k2 = H - root;
  return true;
}

bool SgSubdEvaluatorImpl::curvatureLogical(int face, double u, double v, double& k1,
                                           double& k2) const {
  k1 = k2 = 0.0;
  if (face < 0 || face >= numLogicalFaces() || !inUnitRange(u) || !inUnitRange(v)) return false;
  const int n = origCount(face);
  if (n == 1) return curvatureOrig(firstOrig(face), u, v, k1, k2);
  int strip;
  double local;
  stripOf(n, u, strip, local);
  return curvatureOrig(firstOrig(face) + strip, local, v, k1, k2);
}

bool SgSubdEvaluatorImpl::uvOrig(int orig, double u, double v, double& s, double& t) const {
  s = t = 0.0;
  if (faceVertUVs.empty() || !inUnitRange(u) || !inUnitRange(v)) return false;
  int sub = -1;
  const int face = logicalOf(orig, &sub);
  if (face < 0) return false;
  const float* uvs = faceVertUVs.data() + size_t(faceOffsets[size_t(face)]) * 2;
  double c[4][2];
  cornerValues<2>(faceSizes[size_t(face)], sub, [uvs](int k) { return uvs + size_t(k) * 2; }, c);
  const double w0 = (1 - u) * (1 - v), w1 = u * (1 - v), w2 = u * v, w3 = (1 - u) * v;
  s = w0 * c[0][0] + w1 * c[1][0] + w2 * c[2][0] + w3 * c[3][0];
  t = w0 * c[0][1] + w1 * c[1][1] + w2 * c[2][1] + w3 * c[3][1];
  return true;
}

bool SgSubdEvaluatorImpl::uvLogical(int face, double u, double v, double& s, double& t) const {
  s = t = 0.0;
  if (face < 0 || face >= numLogicalFaces() || !inUnitRange(u) || !inUnitRange(v)) return false;
  const int n = origCount(face);
  if (n == 1) return uvOrig(firstOrig(face), u, v, s, t);
  int strip;
  double local;
  stripOf(n, u, strip, local);
  return uvOrig(firstOrig(face) + strip, local, v, s, t);
}

// ---------------------------------------------------------------------------------------------
// Bounds, updates, text

bool SgSubdEvaluatorImpl::cageBounds(double lo[3], double hi[3]) const {
  if (positions.empty()) return false;
  for (int d = 0; d < 3; ++d) {
    lo[d] = std::numeric_limits<double>::max();
    hi[d] = -std::numeric_limits<double>::max();
  }
  for (size_t i = 0; i < positions.size(); i += 3)
    for (int d = 0; d < 3; ++d) {
      lo[d] = std::min(lo[d], double(positions[i + size_t(d)]));
      hi[d] = std::max(hi[d], double(positions[i + size_t(d)]));
    }
  return true;
}

bool SgSubdEvaluatorImpl::logicalFaceBounds(int face, double lo[3], double hi[3]) const {
  if (face < 0 || face >= numLogicalFaces()) return false;
  for (int d = 0; d < 3; ++d) {
    lo[d] = std::numeric_limits<double>::max();
    hi[d] = -std::numeric_limits<double>::max();
  }
  if (surfaces[size_t(face)].IsValid()) {
    const size_t begin = patchOffsets[size_t(face)] * 3;
    const size_t end = patchOffsets[size_t(face) + 1] * 3;
    for (size_t i = begin; i < end; i += 3)
      for (int d = 0; d < 3; ++d) {
        lo[d] = std::min(lo[d], patchPoints[i + size_t(d)]);
        hi[d] = std::max(hi[d], patchPoints[i + size_t(d)]);
      }
  } else {
    // No limit surface: the cage face stands for it.
    const int* fv = faceVertsOf(face);
    for (int k = 0; k < faceSizes[size_t(face)]; ++k)
      for (int d = 0; d < 3; ++d) {
        const double x = positions[size_t(fv[k]) * 3 + size_t(d)];
        lo[d] = std::min(lo[d], x);
        hi[d] = std::max(hi[d], x);
      }
  }
  return true;
}

bool SgSubdEvaluatorImpl::updateVerts(const float* newPositions, int first, int count) {
  if (first < 0 || count < 0 || int64_t(first) + count > numVerts()) return false;
  if (count == 0) return true;
  if (!newPositions) return false;
  std::copy(newPositions, newPositions + size_t(count) * 3, positions.begin() + size_t(first) * 3);
  preparePatchPoints();
  computeLimitVerts();
  return true;
}

bool SgSubdEvaluatorImpl::exportToStream(std::ostream& out) const {
  const std::streamsize oldPrecision = out.precision(std::numeric_limits<float>::max_digits10);
  out << "\t\t" << numVerts() << " " << numLogicalFaces() << " " << numFaceVerts() << "\n";
  out << "\t\t";
  for (float x : positions) out << x << " ";
  out << "\n\t\t";
  for (int n : faceSizes) out << n << " ";
  out << "\n\t\t";
  for (int i : faceVertIndices) out << i << " ";
  out << "\n";
  out.precision(oldPrecision);
  return out.good();
}
