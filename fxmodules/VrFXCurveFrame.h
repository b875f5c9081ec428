#pragma once
// VrFXCurveFrame: the frame a shaping module works in along a spline. It starts from the surface
// at the root (the normal as the first direction of the spline, the unit U tangent across it)
// and is carried CV to CV by parallel transport. Per CV: `side` (U carried along), `across`
// (the second vector across the spline) and `along(i)` = side x across, along the spline; the
// three are orthonormal. Also the control polygon's step lengths and total. A worker keeps one
// per module, so that the buffers are reused from one primitive to the next.

#include "geometry/SgCurve.h"

#include <vector>

struct VrFXCurveFrame {
  using Vec = SgVec3T<double>;

  /// False (and nothing to walk) for fewer than two CVs or a polygon shorter than 1e-10.
  bool build(const std::vector<Vec>& cvs, const Vec& normal, const Vec& unitU) {
    if (cvs.size() < 2) return false;
    length = SgCurve::cpolyLength(cvs, steps);
    if (!(length > 1e-10)) return false;
    SgCurve::frame(cvs, normal, unitU, side, across);
    return true;
  }
  Vec along(size_t i) const {
    Vec e = side[i].cross(across[i]);
    e.normalize();
    return e;
  }

  std::vector<double> steps;  // steps[i]: CV i to CV i + 1
  std::vector<Vec> side, across;
  double length = 0.0;
};
