#pragma once
// Turning a vector about a unit axis (Rodrigues' formula), shared by the modules that bend or
// wind splines. Pure; safe from any number of threads.

#include "geometry/SgVec3T.h"

#include <cmath>

/// `v` turned about the unit `axis` by the angle whose cosine and sine are `c` and `s`: worked
/// out once for several vectors turned alike.
inline SgVec3T<double> vrFXRotated(const SgVec3T<double>& v, const SgVec3T<double>& axis, double c, double s) {
  return v * c + axis.cross(v) * s + axis * (axis.dot(v) * (1.0 - c));
}

/// `v` turned by `radians` about the unit `axis`, counter-clockwise looking down the axis.
inline SgVec3T<double> vrFXRotated(const SgVec3T<double>& v, const SgVec3T<double>& axis, double radians) {
  return vrFXRotated(v, axis, std::cos(radians), std::sin(radians));
}

/// A turn about a unit axis, its cosine and sine worked out once for the vectors it turns.
struct VrFXTurn {
  using Vec = SgVec3T<double>;
  VrFXTurn() = default;
  VrFXTurn(const Vec& axis, double radians) : axis(axis), c(std::cos(radians)), s(std::sin(radians)) {}
  VrFXTurn(const Vec& axis, double c, double s) : axis(axis), c(c), s(s) {}
  Vec operator()(const Vec& v) const { return vrFXRotated(v, axis, c, s); }
  /// Turns the three vectors of a frame alike.
  void frame(Vec& T, Vec& A, Vec& B) const {
    T = (*this)(T);
    A = (*this)(A);
    B = (*this)(B);
  }
  Vec axis;
  double c = 1.0, s = 0.0;
};
