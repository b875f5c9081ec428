// SgNurbsSurface: the evaluator keeps the classical layout of a tensor-product NURBS:
//
//   S(u, v) = sum_l sum_k N_k,p(u) N_l,q(v) CV[l][k]        (U index k fastest in `cvs`)
//
// with only the (p + 1) x (q + 1) CVs of the spans around (u, v) taking part. Basis values come
// from the Cox-de Boor triangle in fixed eight-wide buffers, so evaluation never allocates. The
// rational twin sums homogeneous CVs (x*w, y*w, z*w, w) and divides by the weight afterwards.
//
// Sampled operations (lengths, areas) share one grid routine that computes the U basis once per
// column and the V basis once per row of a regular parameter grid; a length only samples the
// column or row it walks, which gives the same points as sampling the whole grid. Grids whose
// point count does not fit the holders' int counts, or whose memory cannot be had, report to
// standard error and answer zero.

#include "geometry/SgNurbsSurface.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <istream>
#include <limits>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <utility>

namespace {

/// Largest grid (in points) a sampled operation may allocate: beyond this the request is
/// treated as a failed allocation instead of being left to the system's overcommit.
constexpr int64_t kMaxGridPoints = int64_t(1) << 28;
/// Largest count accepted by `importFromStream` for knots or CVs in one direction.
constexpr int kMaxImportCount = 1 << 20;

/// A scratch array kept on the stack while small, on the heap (nothrow) above that.
template <class T, size_t N>
class ScratchArray {
 public:
  bool allocate(size_t n) {
    if (n <= N) {
      ptr = local;
    } else {
      heap.reset(new (std::nothrow) T[n]);
      ptr = heap.get();
    }
    return ptr != nullptr;
  }
  T& operator[](size_t i) { return ptr[i]; }
  T* data() { return ptr; }

 private:
  T local[N];
  std::unique_ptr<T[]> heap;
  T* ptr = nullptr;
};

double clampParam(double x, double lo, double hi) {
  if (!(x >= lo)) return lo;  // also catches NaN
  return x > hi ? hi : x;
}

double triangleArea(const SgVec3T<double>& a, const SgVec3T<double>& b, const SgVec3T<double>& c) {
  return 0.5 * (b - a).cross(c - a).length();
}

/// The smallest power of two at or above x (1 for x <= 1).
int64_t powerOfTwoAtLeast(int64_t x) {
  int64_t p = 1;
  while (p < x) p <<= 1;
  return p;
}

void reportMalloc(const char* opName) {
  std::fprintf(stderr, "SgNurbsSurface::%s: Unable to malloc memory. Returning zero.\n", opName);
}

template <class T>
bool tryResize(std::vector<T>& v, size_t n) {
  try {
    v.resize(n);
  } catch (const std::exception&) {
    return false;
  }
  return true;
}

bool knotsUsable(int numCVs, int degree, const double* knots) {
  const int numKnots = numCVs + degree + 1;
  for (int k = 0; k < numKnots; ++k)
    if (!std::isfinite(knots[k])) return false;
  for (int k = 1; k < numKnots; ++k)
    if (knots[k] < knots[k - 1]) return false;
  // The first and the last span of the domain must be non-empty.
  return knots[degree] < knots[degree + 1] && knots[numCVs - 1] < knots[numCVs];
}

double* copyArray(const double* src, size_t n) {
  if (!src || n == 0) return nullptr;
  double* dst = new double[n];
  std::copy(src, src + n, dst);
  return dst;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Construction

SgNurbsSurface::SgNurbsSurface() = default;

SgNurbsSurface::SgNurbsSurface(int numUKnots, const double* uKnotValues, int numVKnots,
                               const double* vKnotValues, int numUCVs, int numVCVs,
                               const double* cvValues, int w)
    : nUKnots(std::max(numUKnots, 0)),
      nVKnots(std::max(numVKnots, 0)),
      nUCVs(std::max(numUCVs, 0)),
      nVCVs(std::max(numVCVs, 0)),
      rational(w) {
  uKnots = copyArray(uKnotValues, static_cast<size_t>(nUKnots));
  vKnots = copyArray(vKnotValues, static_cast<size_t>(nVKnots));
  const int stride = (w == 1) ? 4 : 3;
  cvs = copyArray(cvValues, static_cast<size_t>(stride) * static_cast<size_t>(nUCVs) *
                                static_cast<size_t>(nVCVs));
  degU = nUKnots - nUCVs - 1;
  degV = nVKnots - nVCVs - 1;
  updateValidity();
}

SgNurbsSurface::SgNurbsSurface(const SgNurbsSurface& other)
    : SgSurface(other),
      nUKnots(other.nUKnots),
      nVKnots(other.nVKnots),
      nUCVs(other.nUCVs),
      nVCVs(other.nVCVs),
      rational(other.rational),
      degU(other.degU),
      degV(other.degV),
      evaluable(other.evaluable) {
  uKnots = copyArray(other.uKnots, static_cast<size_t>(nUKnots));
  vKnots = copyArray(other.vKnots, static_cast<size_t>(nVKnots));
  const size_t stride = (rational == 1) ? 4 : 3;
  cvs = copyArray(other.cvs,
                  other.cvs ? stride * static_cast<size_t>(nUCVs) * static_cast<size_t>(nVCVs) : 0);
}

SgNurbsSurface::SgNurbsSurface(SgNurbsSurface&& other) noexcept : SgSurface(std::move(other)) {
  *this = std::move(other);
}

SgNurbsSurface& SgNurbsSurface::operator=(const SgNurbsSurface& other) {
  if (this != &other) {
    SgNurbsSurface copy(other);
    *this = std::move(copy);
  }
  return *this;
}

SgNurbsSurface& SgNurbsSurface::operator=(SgNurbsSurface&& other) noexcept {
  if (this == &other) return *this;
  release();
  nUKnots = std::exchange(other.nUKnots, 0);
  nVKnots = std::exchange(other.nVKnots, 0);
  uKnots = std::exchange(other.uKnots, nullptr);
  vKnots = std::exchange(other.vKnots, nullptr);
  nUCVs = std::exchange(other.nUCVs, 0);
  nVCVs = std::exchange(other.nVCVs, 0);
  rational = std::exchange(other.rational, 0);
  cvs = std::exchange(other.cvs, nullptr);
  degU = std::exchange(other.degU, 0);
  degV = std::exchange(other.degV, 0);
  evaluable = std::exchange(other.evaluable, false);
  return *this;
}

SgNurbsSurface::~SgNurbsSurface() { release(); }

void SgNurbsSurface::release() {
  delete[] uKnots;
  delete[] vKnots;
  delete[] cvs;
  uKnots = vKnots = cvs = nullptr;
}

void SgNurbsSurface::updateValidity() {
  evaluable = uKnots && vKnots && cvs && (rational == 0 || rational == 1) && nUCVs > 0 &&
              nVCVs > 0 && degU >= 0 && degU <= kMaxDegree && degV >= 0 &&
              degV <= kMaxDegree && knotsUsable(nUCVs, degU, uKnots) &&
              knotsUsable(nVCVs, degV, vKnots);
}

// ---------------------------------------------------------------------------------------------
// Basis functions

int SgNurbsSurface::findSpan(int n, int p, double u, const double* knots) {
  if (u >= knots[n]) return n - 1;
  if (u < knots[p]) u = knots[p];
  int low = p;
  int high = n;
  int mid = (low + high) / 2;
  // The guard only matters for knot vectors that are not sorted; a sorted one needs at most
  // log2(n) steps.
  for (int step = 0; step < 64 && (u < knots[mid] || u >= knots[mid + 1]); ++step) {
    if (u < knots[mid])
      high = mid;
    else
      low = mid;
    mid = (low + high) / 2;
  }
  return mid;
}

void SgNurbsSurface::basisFuns(int span, double u, int p, const double* knots, double N[8]) {
  double left[8];
  double right[8];
  N[0] = 1.0;
  for (int j = 1; j <= p; ++j) {
    left[j] = u - knots[span + 1 - j];
    right[j] = knots[span + j] - u;
    double saved = 0.0;
    for (int r = 0; r < j; ++r) {
      const double temp = N[r] / (right[r + 1] + left[j - r]);
      N[r] = saved + right[r + 1] * temp;
      saved = left[j - r] * temp;
    }
    N[j] = saved;
  }
}

void SgNurbsSurface::basisFunsDers(int span, double u, int p, const double* knots,
                                   double ders[2][8]) {
  // ndu[r][j] (r <= j) holds basis values of degree j, ndu[j][r] (j > r) knot differences.
  double ndu[8][8];
  double left[8];
  double right[8];
  ndu[0][0] = 1.0;
  for (int j = 1; j <= p; ++j) {
    left[j] = u - knots[span + 1 - j];
    right[j] = knots[span + j] - u;
    double saved = 0.0;
    for (int r = 0; r < j; ++r) {
      ndu[j][r] = right[r + 1] + left[j - r];
      const double temp = ndu[r][j - 1] / ndu[j][r];
      ndu[r][j] = saved + right[r + 1] * temp;
      saved = left[j - r] * temp;
    }
    ndu[j][j] = saved;
  }
  for (int r = 0; r <= p; ++r) {
    ders[0][r] = ndu[r][p];
    double d = 0.0;
    if (r >= 1) d += ndu[r - 1][p - 1] / ndu[p][r - 1];
    if (r <= p - 1) d -= ndu[r][p - 1] / ndu[p][r];
    ders[1][r] = p * d;
  }
}

// ---------------------------------------------------------------------------------------------
// Evaluation

template <bool Rational>
bool SgNurbsSurface::derivsImpl(double u, double v, SgVec3T<double>& P, SgVec3T<double>* dPdu,
                                SgVec3T<double>* dPdv) const {
  P = SgVec3T<double>();
  if (dPdu) *dPdu = SgVec3T<double>();
  if (dPdv) *dPdv = SgVec3T<double>();
  if (!evaluable || rational != (Rational ? 1 : 0)) return false;

  constexpr int dim = Rational ? 4 : 3;
  const bool withDerivs = dPdu || dPdv;
  u = clampParam(u, uKnots[degU], uKnots[nUCVs]);
  v = clampParam(v, vKnots[degV], vKnots[nVCVs]);
  const int su = findSpan(nUCVs, degU, u, uKnots);
  const int sv = findSpan(nVCVs, degV, v, vKnots);
  double Nu[2][8];
  double Nv[2][8];
  if (withDerivs) {
    basisFunsDers(su, u, degU, uKnots, Nu);
    basisFunsDers(sv, v, degV, vKnots, Nv);
  } else {
    basisFuns(su, u, degU, uKnots, Nu[0]);
    basisFuns(sv, v, degV, vKnots, Nv[0]);
  }

  // Sums of N_k(u) N_l(v) CV (S), N'_k(u) N_l(v) CV (Su) and N_k(u) N'_l(v) CV (Sv); the CVs of
  // one V row are summed first. Plain scalars keep the accumulators in registers.
  double S[4] = {0, 0, 0, 0};
  double Su[4] = {0, 0, 0, 0};
  double Sv[4] = {0, 0, 0, 0};
  for (int l = 0; l <= degV; ++l) {
    const double* row = cvs + (static_cast<size_t>(sv - degV + l) * nUCVs + (su - degU)) * dim;
    double rx = 0, ry = 0, rz = 0, rw = 0;
    double dx = 0, dy = 0, dz = 0, dw = 0;
    for (int k = 0; k <= degU; ++k) {
      const double* cv = row + k * dim;
      const double n0 = Nu[0][k];
      rx += n0 * cv[0];
      ry += n0 * cv[1];
      rz += n0 * cv[2];
      if (Rational) rw += n0 * cv[dim - 1];
      if (withDerivs) {
        const double n1 = Nu[1][k];
        dx += n1 * cv[0];
        dy += n1 * cv[1];
        dz += n1 * cv[2];
        if (Rational) dw += n1 * cv[dim - 1];
      }
    }
    const double m0 = Nv[0][l];
    S[0] += m0 * rx;
    S[1] += m0 * ry;
    S[2] += m0 * rz;
    S[3] += m0 * rw;
    if (withDerivs) {
      const double m1 = Nv[1][l];
      Su[0] += m0 * dx;
      Su[1] += m0 * dy;
      Su[2] += m0 * dz;
      Su[3] += m0 * dw;
      Sv[0] += m1 * rx;
      Sv[1] += m1 * ry;
      Sv[2] += m1 * rz;
      Sv[3] += m1 * rw;
    }
  }

  if (Rational) {
    const double wt = S[3];
    if (wt == 0.0) return false;
    const double inv = 1.0 / wt;
    P = SgVec3T<double>(S[0] * inv, S[1] * inv, S[2] * inv);
    // Quotient rule: d(A/w) = (dA - dw * P) / w.
    if (dPdu)
      *dPdu = SgVec3T<double>((Su[0] - Su[3] * P.x) * inv, (Su[1] - Su[3] * P.y) * inv,
                              (Su[2] - Su[3] * P.z) * inv);
    if (dPdv)
      *dPdv = SgVec3T<double>((Sv[0] - Sv[3] * P.x) * inv, (Sv[1] - Sv[3] * P.y) * inv,
                              (Sv[2] - Sv[3] * P.z) * inv);
  } else {
    P = SgVec3T<double>(S[0], S[1], S[2]);
    if (dPdu) *dPdu = SgVec3T<double>(Su[0], Su[1], Su[2]);
    if (dPdv) *dPdv = SgVec3T<double>(Sv[0], Sv[1], Sv[2]);
  }
  return true;
}

bool SgNurbsSurface::eval(double u, double v, SgVec3T<double>& P, SgVec3T<double>& dPdu,
                          SgVec3T<double>& dPdv) const {
  return rational ? surfaceDerivsw(u, v, P, dPdu, dPdv) : surfaceDerivs(u, v, P, dPdu, dPdv);
}

bool SgNurbsSurface::surfacePoint(double u, double v, SgVec3T<double>& P) const {
  if (rational) return surfacePointw(u, v, P);
  return derivsImpl<false>(u, v, P, nullptr, nullptr);
}

bool SgNurbsSurface::surfacePointw(double u, double v, SgVec3T<double>& P) const {
  return derivsImpl<true>(u, v, P, nullptr, nullptr);
}

bool SgNurbsSurface::surfaceDerivs(double u, double v, SgVec3T<double>& P, SgVec3T<double>& dPdu,
                                   SgVec3T<double>& dPdv) const {
  if (rational) return surfaceDerivsw(u, v, P, dPdu, dPdv);
  return derivsImpl<false>(u, v, P, &dPdu, &dPdv);
}

bool SgNurbsSurface::surfaceDerivsw(double u, double v, SgVec3T<double>& P, SgVec3T<double>& dPdu,
                                    SgVec3T<double>& dPdv) const {
  return derivsImpl<true>(u, v, P, &dPdu, &dPdv);
}

// ---------------------------------------------------------------------------------------------
// Grids

template <bool Rational>
bool SgNurbsSurface::gridPoints(int nu, int nv, int i0, int i1, int j0, int j1,
                                SgVec3T<double>* out) const {
  const char* opName = Rational ? "surfaceMeshw" : "surfaceMesh";
  constexpr int dim = Rational ? 4 : 3;
  const int cols = i1 - i0;
  const int rows = j1 - j0;
  const int pu = degU + 1;
  const int pv = degV + 1;

  ScratchArray<double, 1024> Nu;
  ScratchArray<int, 128> uspan;
  ScratchArray<double, 1024> Nv;
  ScratchArray<int, 128> vspan;
  if (!Nu.allocate(static_cast<size_t>(cols) * pu)) {
    std::fprintf(stderr, "SgNurbsSurface::%s: Unable to alloca Nu. Bad news.\n", opName);
    return false;
  }
  if (!uspan.allocate(static_cast<size_t>(cols))) {
    std::fprintf(stderr, "SgNurbsSurface::%s: Unable to alloca uspan. Bad news.\n", opName);
    return false;
  }
  if (!Nv.allocate(static_cast<size_t>(rows) * pv)) {
    std::fprintf(stderr, "SgNurbsSurface::%s: Unable to alloca Nv. Bad news.\n", opName);
    return false;
  }
  if (!vspan.allocate(static_cast<size_t>(rows))) {
    std::fprintf(stderr, "SgNurbsSurface::%s: Unable to alloca vspan. Bad news.\n", opName);
    return false;
  }

  const double u0 = uKnots[degU];
  const double u1 = uKnots[nUCVs];
  const double v0 = vKnots[degV];
  const double v1 = vKnots[nVCVs];
  const double du = nu > 1 ? (u1 - u0) / (nu - 1) : 0.0;
  const double dv = nv > 1 ? (v1 - v0) / (nv - 1) : 0.0;
  for (int i = 0; i < cols; ++i) {
    const double u = std::min(u0 + (i0 + i) * du, u1);
    uspan[i] = findSpan(nUCVs, degU, u, uKnots);
    basisFuns(uspan[i], u, degU, uKnots, Nu.data() + static_cast<size_t>(i) * pu);
  }
  for (int j = 0; j < rows; ++j) {
    const double v = std::min(v0 + (j0 + j) * dv, v1);
    vspan[j] = findSpan(nVCVs, degV, v, vKnots);
    basisFuns(vspan[j], v, degV, vKnots, Nv.data() + static_cast<size_t>(j) * pv);
  }

  for (int j = 0; j < rows; ++j) {
    const double* nvj = Nv.data() + static_cast<size_t>(j) * pv;
    const int sv = vspan[j];
    for (int i = 0; i < cols; ++i) {
      const double* nui = Nu.data() + static_cast<size_t>(i) * pu;
      const int su = uspan[i];
      double S[4] = {0, 0, 0, 0};
      for (int l = 0; l < pv; ++l) {
        const double* row = cvs + (static_cast<size_t>(sv - degV + l) * nUCVs + (su - degU)) * dim;
        double rx = 0, ry = 0, rz = 0, rw = 0;
        for (int k = 0; k < pu; ++k) {
          const double* cv = row + k * dim;
          rx += nui[k] * cv[0];
          ry += nui[k] * cv[1];
          rz += nui[k] * cv[2];
          if (Rational) rw += nui[k] * cv[dim - 1];
        }
        S[0] += nvj[l] * rx;
        S[1] += nvj[l] * ry;
        S[2] += nvj[l] * rz;
        S[3] += nvj[l] * rw;
      }
      SgVec3T<double>& P = out[static_cast<size_t>(j) * cols + i];
      if (Rational) {
        const double inv = S[3] != 0.0 ? 1.0 / S[3] : 0.0;
        P = SgVec3T<double>(S[0] * inv, S[1] * inv, S[2] * inv);
      } else {
        P = SgVec3T<double>(S[0], S[1], S[2]);
      }
    }
  }
  return true;
}

bool SgNurbsSurface::surfaceMesh(int nu, int nv, SgVec3T<double>* out) const {
  if (rational) return surfaceMeshw(nu, nv, out);
  if (!evaluable || !out || nu < 1 || nv < 1) return false;
  return gridPoints<false>(nu, nv, 0, nu, 0, nv, out);
}

bool SgNurbsSurface::surfaceMeshw(int nu, int nv, SgVec3T<double>* out) const {
  if (!evaluable || rational != 1 || !out || nu < 1 || nv < 1) return false;
  return gridPoints<true>(nu, nv, 0, nu, 0, nv, out);
}

bool SgNurbsSurface::mesh(SgNurbsSurfaceMesh& out, int subdiv) const {
  out.nu = out.nv = 0;
  out.points.clear();
  if (!evaluable || subdiv < 1) return false;
  const int64_t nu = int64_t(nUCVs) * subdiv;
  const int64_t nv = int64_t(nVCVs) * subdiv;
  if (nu > INT_MAX || nv > INT_MAX || nu * nv > kMaxGridPoints ||
      !tryResize(out.points, static_cast<size_t>(nu * nv))) {
    out.points.clear();
    reportMalloc(rational ? "meshw" : "mesh");
    return false;
  }
  const bool ok = rational ? gridPoints<true>(int(nu), int(nv), 0, int(nu), 0, int(nv), out.points.data())
                           : gridPoints<false>(int(nu), int(nv), 0, int(nu), 0, int(nv), out.points.data());
  if (!ok) {
    out.points.clear();
    return false;
  }
  out.nu = int(nu);
  out.nv = int(nv);
  return true;
}

// ---------------------------------------------------------------------------------------------
// Lengths and areas

template <bool Rational>
double SgNurbsSurface::arcLengthImpl(bool alongV, double t, int subdiv, SgNurbsArcLength* out,
                                     const char* opName) const {
  if (out) {
    out->length = 0.0;
    out->numSegments = 0;
    out->segments.clear();
  }
  if (!evaluable || rational != (Rational ? 1 : 0) || subdiv < 1) return 0.0;
  const int64_t nu = int64_t(nUCVs) * subdiv;
  const int64_t nv = int64_t(nVCVs) * subdiv;
  const int64_t count = alongV ? nv : nu;
  std::vector<SgVec3T<double>> pts;
  if (nu > INT_MAX || nv > INT_MAX || count > kMaxGridPoints ||
      !tryResize(pts, static_cast<size_t>(count)) ||
      (out && !tryResize(out->segments, static_cast<size_t>(count - 1)))) {
    if (out) out->segments.clear();
    reportMalloc(opName);
    return 0.0;
  }
  t = clampParam(t, 0.0, 1.0);
  bool ok;
  if (alongV) {
    const int c = static_cast<int>((nu - 1) * t);
    ok = gridPoints<Rational>(int(nu), int(nv), c, c + 1, 0, int(nv), pts.data());
  } else {
    const int r = static_cast<int>((nv - 1) * t);
    ok = gridPoints<Rational>(int(nu), int(nv), 0, int(nu), r, r + 1, pts.data());
  }
  if (!ok) {
    if (out) out->segments.clear();
    return 0.0;
  }
  double length = 0.0;
  for (int64_t k = 0; k + 1 < count; ++k) {
    const double d = (pts[k + 1] - pts[k]).length();
    length += d;
    if (out) out->segments[static_cast<size_t>(k)] = d;
  }
  if (out) {
    out->length = length;
    out->numSegments = static_cast<int>(count - 1);
  }
  return length;
}

double SgNurbsSurface::arcLengthU(double t, int subdiv, SgNurbsArcLength* out) const {
  if (rational) return arcLengthUw(t, subdiv, out);
  return arcLengthImpl<false>(true, t, subdiv, out, "arcLengthU");
}

double SgNurbsSurface::arcLengthUw(double t, int subdiv, SgNurbsArcLength* out) const {
  return arcLengthImpl<true>(true, t, subdiv, out, "arcLengthUw");
}

double SgNurbsSurface::arcLengthV(double t, int subdiv, SgNurbsArcLength* out) const {
  if (rational) return arcLengthVw(t, subdiv, out);
  return arcLengthImpl<false>(false, t, subdiv, out, "arcLengthV");
}

double SgNurbsSurface::arcLengthVw(double t, int subdiv, SgNurbsArcLength* out) const {
  return arcLengthImpl<true>(false, t, subdiv, out, "arcLengthVw");
}

template <bool Rational>
bool SgNurbsSurface::allArcLengthsImpl(int& nu, int& nv, std::vector<double>& lengthsU,
                                       std::vector<double>& lengthsV, std::vector<double>& segsU,
                                       std::vector<double>& segsV, int subdiv,
                                       const char* opName) const {
  nu = nv = 0;
  lengthsU.clear();
  lengthsV.clear();
  segsU.clear();
  segsV.clear();
  if (!evaluable || rational != (Rational ? 1 : 0) || subdiv < 1) return false;
  const int64_t gu = int64_t(nUCVs) * subdiv;
  const int64_t gv = int64_t(nVCVs) * subdiv;
  std::vector<SgVec3T<double>> pts;
  if (gu > INT_MAX || gv > INT_MAX || gu * gv > kMaxGridPoints ||
      !tryResize(pts, static_cast<size_t>(gu * gv)) ||
      !tryResize(lengthsU, static_cast<size_t>(gv)) ||
      !tryResize(lengthsV, static_cast<size_t>(gu)) ||
      !tryResize(segsU, static_cast<size_t>(gv * (gu - 1))) ||
      !tryResize(segsV, static_cast<size_t>(gu * (gv - 1)))) {
    lengthsU.clear();
    lengthsV.clear();
    segsU.clear();
    segsV.clear();
    reportMalloc(opName);
    return false;
  }
  if (!gridPoints<Rational>(int(gu), int(gv), 0, int(gu), 0, int(gv), pts.data())) {
    lengthsU.clear();
    lengthsV.clear();
    segsU.clear();
    segsV.clear();
    return false;
  }
  const size_t cols = static_cast<size_t>(gu);
  const size_t rows = static_cast<size_t>(gv);
  for (size_t j = 0; j < rows; ++j) {
    const SgVec3T<double>* row = pts.data() + j * cols;
    double rowLength = 0.0;
    for (size_t i = 0; i + 1 < cols; ++i) {
      const double d = (row[i + 1] - row[i]).length();
      segsU[j * (cols - 1) + i] = d;
      rowLength += d;
    }
    lengthsU[j] = rowLength;
    for (size_t i = 0; i < cols; ++i) {
      if (j == 0) {
        lengthsV[i] = 0.0;
      } else {
        const double d = (row[i] - row[i - cols]).length();
        segsV[i * (rows - 1) + (j - 1)] = d;
        lengthsV[i] += d;
      }
    }
  }
  nu = int(gu);
  nv = int(gv);
  return true;
}

bool SgNurbsSurface::getAllArcLengths(int& nu, int& nv, std::vector<double>& lengthsU,
                                      std::vector<double>& lengthsV, std::vector<double>& segsU,
                                      std::vector<double>& segsV, int subdiv) const {
  if (rational) return getAllArcLengthsw(nu, nv, lengthsU, lengthsV, segsU, segsV, subdiv);
  return allArcLengthsImpl<false>(nu, nv, lengthsU, lengthsV, segsU, segsV, subdiv,
                                  "getAllArcLengths");
}

bool SgNurbsSurface::getAllArcLengthsw(int& nu, int& nv, std::vector<double>& lengthsU,
                                       std::vector<double>& lengthsV, std::vector<double>& segsU,
                                       std::vector<double>& segsV, int subdiv) const {
  return allArcLengthsImpl<true>(nu, nv, lengthsU, lengthsV, segsU, segsV, subdiv,
                                 "getAllArcLengthsw");
}

template <bool Rational>
double SgNurbsSurface::areaImpl(int subdiv, SgNurbsSurfaceArea* out, const char* opName) const {
  if (out) {
    out->area = 0.0;
    out->numU = out->numV = 0;
    out->cells.clear();
  }
  if (!evaluable || rational != (Rational ? 1 : 0) || subdiv < 1) return 0.0;
  int64_t gu = int64_t(nUCVs) * subdiv;
  int64_t gv = int64_t(nVCVs) * subdiv;
  if (out) {
    // Holder grids have power-of-two cell counts.
    gu = powerOfTwoAtLeast(gu - 1) + 1;
    gv = powerOfTwoAtLeast(gv - 1) + 1;
  }
  std::vector<SgVec3T<double>> pts;
  if (gu > INT_MAX || gv > INT_MAX || gu * gv > kMaxGridPoints ||
      !tryResize(pts, static_cast<size_t>(gu * gv)) ||
      (out && !tryResize(out->cells, static_cast<size_t>((gu - 1) * (gv - 1))))) {
    if (out) out->cells.clear();
    reportMalloc(opName);
    return 0.0;
  }
  if (!gridPoints<Rational>(int(gu), int(gv), 0, int(gu), 0, int(gv), pts.data())) {
    if (out) out->cells.clear();
    return 0.0;
  }
  const size_t cols = static_cast<size_t>(gu);
  const size_t rows = static_cast<size_t>(gv);
  double area = 0.0;
  for (size_t j = 0; j + 1 < rows; ++j) {
    for (size_t i = 0; i + 1 < cols; ++i) {
      const SgVec3T<double>& p00 = pts[j * cols + i];
      const SgVec3T<double>& p10 = pts[j * cols + i + 1];
      const SgVec3T<double>& p01 = pts[(j + 1) * cols + i];
      const SgVec3T<double>& p11 = pts[(j + 1) * cols + i + 1];
      const double cell = triangleArea(p00, p10, p11) + triangleArea(p00, p11, p01);
      area += cell;
      if (out) out->cells[j * (cols - 1) + i] = cell;
    }
  }
  if (out) {
    out->area = area;
    out->numU = int(gu - 1);
    out->numV = int(gv - 1);
  }
  return area;
}

double SgNurbsSurface::surfaceArea(int subdiv, SgNurbsSurfaceArea* out) const {
  if (rational) return surfaceAreaw(subdiv, out);
  return areaImpl<false>(subdiv, out, "surfaceArea");
}

double SgNurbsSurface::surfaceAreaw(int subdiv, SgNurbsSurfaceArea* out) const {
  return areaImpl<true>(subdiv, out, "surfaceAreaw");
}

// ---------------------------------------------------------------------------------------------
// Bounds

template <bool Rational>
SgBox3T<double> SgNurbsSurface::boxImpl() const {
  SgBox3T<double> box;
  if (!evaluable || rational != (Rational ? 1 : 0)) return box;
  constexpr int dim = Rational ? 4 : 3;
  const size_t count = static_cast<size_t>(nUCVs) * static_cast<size_t>(nVCVs);
  double lo[3] = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max(),
                  std::numeric_limits<double>::max()};
  double hi[3] = {-lo[0], -lo[1], -lo[2]};
  bool any = false;
  for (size_t k = 0; k < count; ++k) {
    const double* cv = cvs + k * dim;
    double inv = 1.0;
    if (Rational) {
      if (cv[3] == 0.0) continue;
      inv = 1.0 / cv[3];
    }
    for (int c = 0; c < 3; ++c) {
      const double x = cv[c] * inv;
      lo[c] = std::min(lo[c], x);
      hi[c] = std::max(hi[c], x);
    }
    any = true;
  }
  if (any)
    box = SgBox3T<double>::fromCorners(SgVec3T<double>(lo[0], lo[1], lo[2]),
                                       SgVec3T<double>(hi[0], hi[1], hi[2]));
  return box;
}

SgBox3T<double> SgNurbsSurface::boundingBox() const {
  if (rational) return boundingBoxw();
  return boxImpl<false>();
}

SgBox3T<double> SgNurbsSurface::boundingBoxw() const { return boxImpl<true>(); }

bool SgNurbsSurface::boundingBox(double& xmin, double& ymin, double& zmin, double& xmax,
                                 double& ymax, double& zmax) const {
  const SgBox3T<double> box = boundingBox();
  const SgVec3T<double> hi = box.maxCorner();
  xmin = box.valid ? box.min.x : 0.0;
  ymin = box.valid ? box.min.y : 0.0;
  zmin = box.valid ? box.min.z : 0.0;
  xmax = box.valid ? hi.x : 0.0;
  ymax = box.valid ? hi.y : 0.0;
  zmax = box.valid ? hi.z : 0.0;
  return box.valid;
}

// ---------------------------------------------------------------------------------------------
// Text form

bool SgNurbsSurface::exportToStream(std::ostream& out) const {
  const std::streamsize oldPrecision = out.precision(std::numeric_limits<double>::max_digits10);
  out << "\t\t" << nUKnots << " " << nVKnots << "\n";
  out << "\t\t" << nUCVs << " " << nVCVs << "\n";
  out << "\t\t" << rational << "\n";
  out << "\t\t";
  for (int k = 0; uKnots && k < nUKnots; ++k) out << uKnots[k] << " ";
  out << "\n";
  out << "\t\t";
  for (int k = 0; vKnots && k < nVKnots; ++k) out << vKnots[k] << " ";
  out << "\n";
  out << "\t\t";
  const size_t numValues =
      cvs ? static_cast<size_t>(rational == 1 ? 4 : 3) * nUCVs * static_cast<size_t>(nVCVs) : 0;
  for (size_t k = 0; k < numValues; ++k) out << cvs[k] << " ";
  out << "\n";
  out.precision(oldPrecision);
  return out.good();
}

bool SgNurbsSurface::importFromStream(std::istream& in) {
  int numUKnots = 0, numVKnots = 0, numUCVs = 0, numVCVs = 0, w = 0;
  in >> numUKnots >> numVKnots >> numUCVs >> numVCVs >> w;
  if (!in) return false;
  const int du = numUKnots - numUCVs - 1;
  const int dv = numVKnots - numVCVs - 1;
  if (numUCVs < 1 || numVCVs < 1 || numUKnots > kMaxImportCount ||
      numVKnots > kMaxImportCount || numUCVs > kMaxImportCount || numVCVs > kMaxImportCount ||
      int64_t(numUCVs) * numVCVs > kMaxGridPoints || (w != 0 && w != 1) || du < 0 ||
      du > kMaxDegree || dv < 0 || dv > kMaxDegree) {
    in.setstate(std::ios::failbit);
    return false;
  }
  std::vector<double> uk(static_cast<size_t>(numUKnots));
  std::vector<double> vk(static_cast<size_t>(numVKnots));
  std::vector<double> cv(static_cast<size_t>(3 + w) * numUCVs * static_cast<size_t>(numVCVs));
  for (double& x : uk) in >> x;
  for (double& x : vk) in >> x;
  for (double& x : cv) in >> x;
  if (in.fail()) return false;
  *this = SgNurbsSurface(numUKnots, uk.data(), numVKnots, vk.data(), numUCVs, numVCVs, cv.data(), w);
  return in.good();
}
