#include "geometry/VrPatchBindingImpl.h"

#include <algorithm>
#include <cmath>

namespace vrpatch {

bool curvatureFromDerivatives(const DerivativeFn& derivs, double u, double v, double& k1, double& k2) {
  constexpr double h = 1e-4;
  SgVec3T<double> Su, Sv, SuA, SvA, SuB, SvB, SuC, SvC, SuD, SvD;
  const double u0 = std::max(0.0, u - h), u1 = std::min(1.0, u + h);
  const double v0 = std::max(0.0, v - h), v1 = std::min(1.0, v + h);
  if (!derivs(u, v, Su, Sv) || !derivs(u1, v, SuA, SvA) || !derivs(u0, v, SuB, SvB) ||
      !derivs(u, v1, SuC, SvC) || !derivs(u, v0, SuD, SvD))
    return false;
  const SgVec3T<double> Suu = (SuA - SuB) * (1.0 / (u1 - u0));
  const SgVec3T<double> Svv = (SvC - SvD) * (1.0 / (v1 - v0));
  const SgVec3T<double> Suv = (SuC - SuD) * (1.0 / (v1 - v0));
  SgVec3T<double> n = Su.cross(Sv);
  if (n.normalize() == 0.0) return false;
  const double E = Su.dot(Su), F = Su.dot(Sv), G = Sv.dot(Sv);
  const double L = Suu.dot(n), M = Suv.dot(n), N = Svv.dot(n);
  const double det = E * G - F * F;
  if (std::fabs(det) < 1e-20) return false;
  const double K = (L * N - M * M) / det;
  const double H = (E * N - 2.0 * F * M + G * L) / (2.0 * det);
  const double root = std::sqrt(std::max(0.0, H * H - K));
  k1 = H + root;
  k2 = H - root;
  return true;
}

}  // namespace vrpatch
