#pragma once
// Meshes shared by the benchmarks.

#include "support/GridSurface.h"

#include <memory>

namespace vrbench {

/// An n x n grid of unit quads in the plane z = 0, gently warped so the limit surface curves.
inline std::unique_ptr<SgSubdSurface> warpedGrid(int n) { return vrtest::gridSurface(n, 0.0f, 0.1f); }

}  // namespace vrbench
