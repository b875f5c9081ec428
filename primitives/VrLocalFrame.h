#pragma once
// Placing a primitive drawn in its own frame: cards and spheres describe their control points
// with the root at the origin, x across (the surface's U after the lean), y along the lean
// direction and z along the third axis. `orient` turns the location's frame by the lean, the
// angles and the twist; the local points then follow that frame.

#include "geometry/vrutilMath.h"
#include "primitives/VrPrimitive.h"

#include <vector>

namespace vrutil {

/// Sizes of cards and spheres are raised to this; shorter vectors count as zero.
constexpr double primitiveSizeFloor = 1e-06;

/// Unit vector and length of `d`; a vector shorter than the size floor counts as zero (length 0).
inline SgVec3T<double> unitOf(const SgVec3T<double>& d, double& length) {
  SgVec3T<double> unit = d;
  length = unit.normalize();
  if (length < primitiveSizeFloor) {
    length = 0.0;
    return SgVec3T<double>();
  }
  return unit;
}

/// The angles that turn a primitive's frame at its root.
struct Lean {
  double offU = 0.0, offV = 0.0;  ///< lean along U and V, in [-1, 1]
  double offN = 0.0;              ///< tilt, degrees
  double aboutN = 0.0;            ///< rotation about the normal, degrees
  double twist = 0.0;             ///< rotation about the lean direction, degrees
};

/// Replaces `points` (local coordinates) by their places on the surface: root + x·U' + y·N' +
/// z·V', where (N', U', V') is the frame `VrPrimitive::orient` makes from (N, U, V) and `lean`.
inline void placeLocalPoints(const SgVec3T<double>& root, SgVec3T<double> N, SgVec3T<double> U,
                             SgVec3T<double> V, const Lean& lean, std::vector<SgVec3T<double>>& points) {
  thread_local std::vector<SgVec3T<double>> scratch;
  scratch.clear();
  VrPrimitive::orient(root, N, U, V, lean.offU, lean.offV, lean.offN, lean.aboutN, 1.0, scratch, true, lean.twist);
  for (SgVec3T<double>& p : points) p = root + U * p.x + N * p.y + V * p.z;
}

}  // namespace vrutil
