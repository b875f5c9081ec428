#pragma once
// Component-wise comparison of vectors.

#include "geometry/SgVec3T.h"

#include <gtest/gtest.h>

namespace vrtest {

/// Expects each component of `a` within `tolerance` of that of `b`.
inline void expectNear(const SgVec3T<double>& a, const SgVec3T<double>& b, double tolerance) {
  EXPECT_NEAR(a.x, b.x, tolerance);
  EXPECT_NEAR(a.y, b.y, tolerance);
  EXPECT_NEAR(a.z, b.z, tolerance);
}

}  // namespace vrtest
