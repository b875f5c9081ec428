#include "geometry/vrutilMath.h"

#include <algorithm>
#include <cmath>

#include "expressions/VrSeExprMath.h"

namespace vrutil {

double noise(double x) {
  const double args[3] = {x, x, x};
  return vrSeNoise(1, args);
}

double noise(double x, double y) {
  const double args[6] = {x, x, x, y, y, y};
  return vrSeNoise(2, args);
}

double noise(double x, double y, double z) { return vrSeNoise3(x, y, z); }

double snoise(double x, double y, double z) {
  const double p[3] = {x, y, z};
  return vrSeSnoise(p);
}

// The library's periodic noise is already signed, like snoise; it is passed on as it is.
double pnoise(double x, double y, double z, double period) {
  const double p[3] = {x, y, z};
  const double per[3] = {period, period, period};
  return vrSePnoise(p, per);
}

double loopingNoise(double x, double y, double z, double period) {
  if (!(period > 0.0)) return 0.0;
  const double p = period;
  const double a = x - std::floor(x / p) * p;
  const double b = y - std::floor(y / p) * p;
  const double c = z - std::floor(z / p) * p;
  const double xs[2] = {a, a - p}, ys[2] = {b, b - p}, zs[2] = {c, c - p};
  // A corner at the reduced coordinate weighs p − coordinate; one shifted back by p weighs the
  // coordinate itself, so each axis blends back into its own start as it reaches p.
  const double wx[2] = {p - a, a}, wy[2] = {p - b, b}, wz[2] = {p - c, c};
  double sum = 0.0;
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j)
      for (int k = 0; k < 2; ++k) sum += wx[i] * wy[j] * wz[k] * snoise(xs[i], ys[j], zs[k]);
  return sum / (p * p * p);
}

double boxstep(double x, double a) { return vrSeBoxstep(x, a); }
double linearstep(double x, double a, double b) { return vrSeLinearstep(x, a, b); }
double smoothstep(double x, double a, double b) { return vrSeSmoothstep(x, a, b); }

double gaussstep(double x, double a, double b) {
  const double g = vrSeGaussstep(x, a, b);
  return (1.0 - std::pow(g, 50.0)) * g;
}

double pointToLineDistance(const SgVec3T<double>& p, const SgVec3T<double>& origin,
                           const SgVec3T<double>& direction) {
  const double len = direction.length();
  if (len <= 0.0) return (p - origin).length();
  return direction.cross(p - origin).length() / len;
}

double pointToSegmentDistance(const SgVec3T<double>& p, const SgVec3T<double>& a, const SgVec3T<double>& b,
                              double tolerance, SgVec3T<double>& closest) {
  const SgVec3T<double> ab = b - a;
  const double len2 = ab.lengthSquared();
  if (len2 <= tolerance * tolerance || len2 <= 0.0) {
    closest = a;
  } else {
    const double f = std::min(1.0, std::max(0.0, (p - a).dot(ab) / len2));
    closest = a + ab * f;
  }
  return (p - closest).length();
}

namespace {
template <class T>
void cramers(const SgVec3T<T>& a, const SgVec3T<T>& b, const SgVec3T<T>& p, T& s, T& t) {
  const T aa = a.dot(a), bb = b.dot(b), ab = a.dot(b);
  const T ap = a.dot(p), bp = b.dot(p);
  const T det = std::max(aa * bb - ab * ab, static_cast<T>(1e-7));
  s = (ap * bb - bp * ab) / det;
  t = (aa * bp - ab * ap) / det;
}
}  // namespace

void cramersConversion(const SgVec3T<double>& a, const SgVec3T<double>& b, const SgVec3T<double>& p,
                       double& s, double& t) {
  cramers(a, b, p, s, t);
}

void cramersConversion(const SgVec3T<float>& a, const SgVec3T<float>& b, const SgVec3T<float>& p,
                       float& s, float& t) {
  cramers(a, b, p, s, t);
}

void triangulate(const std::vector<int>& quads, std::vector<int>& triangles) {
  triangles.clear();
  triangles.reserve(quads.size() / 4 * 6);
  for (size_t i = 0; i + 4 <= quads.size(); i += 4) {
    const int a = quads[i], b = quads[i + 1], c = quads[i + 2], d = quads[i + 3];
    triangles.insert(triangles.end(), {a, b, c, d, a, c});
  }
}

}  // namespace vrutil
