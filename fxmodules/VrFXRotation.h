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
