#pragma once
// Turns about a unit axis for the modules that bend or wind splines: a turn worked out once and
// applied to several vectors, and the angle between two directions. Pure; safe from any number
// of threads.

#include "geometry/SgVec3T.h"
#include "geometry/vrutilMath.h"

#include <algorithm>
#include <cmath>

/// The angle between two unit directions, in [0, pi].
inline double vrFXAngleBetween(const SgVec3T<double>& a, const SgVec3T<double>& b) {
  return std::acos(std::clamp(a.dot(b), -1.0, 1.0));
}

/// A turn about a unit axis, its cosine and sine worked out once for the vectors it turns.
struct VrFXTurn {
  using Vec = SgVec3T<double>;
  VrFXTurn() = default;
  VrFXTurn(const Vec& axis, double radians) : axis(axis), c(std::cos(radians)), s(std::sin(radians)) {}
  VrFXTurn(const Vec& axis, double c, double s) : axis(axis), c(c), s(s) {}
  Vec operator()(const Vec& v) const { return vrutil::rotatedAbout(v, axis, c, s); }
  /// Turns the three vectors of a frame alike.
  void frame(Vec& T, Vec& A, Vec& B) const {
    T = (*this)(T);
    A = (*this)(A);
    B = (*this)(B);
  }
  Vec axis;
  double c = 1.0, s = 0.0;
};
