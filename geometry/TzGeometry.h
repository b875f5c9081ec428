#pragma once
// Exact (double precision) queries against one triangle, for the collision geometry: the
// bounding tree finds candidate triangles, these settle the answer.

#include "geometry/SgVec3T.h"

namespace TzGeometry {

using Vec = SgVec3T<double>;

/// The point of triangle (a, b, c) nearest to p (on a face, an edge or a corner).
Vec closestPointOnTri(const Vec& p, const Vec& a, const Vec& b, const Vec& c);

}  // namespace TzGeometry
