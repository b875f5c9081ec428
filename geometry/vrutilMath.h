#pragma once
// vrutil scalar helpers of the math kit: the expression library's noise and step curves wrapped
// for plain numbers, a seamlessly tiling noise, and small geometric helpers (point distances, 2D
// coordinates in a pair of axes, quad lists). All functions are pure and thread-safe.

#include <cmath>
#include <vector>

#include "geometry/SgVec3T.h"

namespace vrutil {

/// @name Noise. `noise` is in [0, 1]; `snoise`, `pnoise` and `loopingNoise` are signed, in [-1, 1].
/// @{
/// Noise of one, two or three scalars, each handed to the expression library's `noise` as a vector
/// with all components equal: one argument gives 3D noise at (x, x, x), two give 2D noise at (x, y),
/// three give 3D noise at (x, y, z).
double noise(double x);
double noise(double x, double y);
double noise(double x, double y, double z);
/// Signed 3D noise at (x, y, z).
double snoise(double x, double y, double z);
/// Signed 3D noise at (x, y, z), repeating every `period` units in each axis. The library uses the
/// integer part of the period (at least 1); inside the first period it equals snoise.
double pnoise(double x, double y, double z, double period);
/// Signed noise that repeats with any positive `period` in all three axes: the trilinear blend of
/// snoise at the eight corners (a or a − p, b or b − p, c or c − p) of the reduced position.
/// period <= 0 gives 0.
double loopingNoise(double x, double y, double z, double period);
/// @}

/// @name Step curves of the expression library, each 0 below its start and 1 at or after its end.
/// @{
double boxstep(double x, double a);
double linearstep(double x, double a, double b);
double smoothstep(double x, double a, double b);
/// (1 − g^50)·g with g the library's gaussstep: the top of the curve falls back to 0 as g reaches 1.
double gaussstep(double x, double a, double b);
/// @}

/// `v` scaled to unit length, (0,0,0) below 1e-6: the same arithmetic as `SgVec3T::normalize`,
/// written to stay in registers where a loop normalizes per CV.
inline SgVec3T<double> unit(const SgVec3T<double>& v) {
  const double len = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
  if (len < 1e-6) return SgVec3T<double>(0.0, 0.0, 0.0);
  const double inv = 1.0 / len;
  return SgVec3T<double>(v.x * inv, v.y * inv, v.z * inv);
}

/// `v` turned about the unit `axis` by the angle whose cosine and sine are `c` and `s`
/// (Rodrigues' formula): for turns worked out once and applied to several vectors, or read off
/// dot and cross products without an angle.
inline SgVec3T<double> rotatedAbout(const SgVec3T<double>& v, const SgVec3T<double>& axis, double c, double s) {
  return v * c + axis.cross(v) * s + axis * (axis.dot(v) * (1.0 - c));
}

/// `v` turned by `radians` about the unit `axis`, counter-clockwise looking down the axis.
inline SgVec3T<double> rotatedAbout(const SgVec3T<double>& v, const SgVec3T<double>& axis, double radians) {
  return rotatedAbout(v, axis, std::cos(radians), std::sin(radians));
}

/// |direction × (p − origin)| / |direction|; a zero direction gives the distance to origin.
double pointToLineDistance(const SgVec3T<double>& p, const SgVec3T<double>& origin,
                           const SgVec3T<double>& direction);
/// Distance from p to the segment a-b and the closest point on it (clamped to the ends). A segment
/// shorter than `tolerance` counts as the point a.
double pointToSegmentDistance(const SgVec3T<double>& p, const SgVec3T<double>& a, const SgVec3T<double>& b,
                              double tolerance, SgVec3T<double>& closest);
/// Solves p ≈ s·a + t·b in the least-squares sense (normal equations, Cramer's rule). The
/// determinant is clamped to at least 1e-7, so nearly parallel axes give large but finite values.
void cramersConversion(const SgVec3T<double>& a, const SgVec3T<double>& b, const SgVec3T<double>& p,
                       double& s, double& t);
void cramersConversion(const SgVec3T<float>& a, const SgVec3T<float>& b, const SgVec3T<float>& p,
                       float& s, float& t);
/// Replaces `triangles` with six indices (a,b,c,d,a,c) for every four (a,b,c,d) of `quads`; the
/// first four are the quad's own. A trailing group of fewer than four is ignored.
void triangulate(const std::vector<int>& quads, std::vector<int>& triangles);

}  // namespace vrutil
