#pragma once
// The bound surfaces of a description as preview geometry: every face of every bound patch
// evaluated on a grid of the animated surface, shaded by its normal. Faces are evaluated on
// worker threads; the result does not depend on their number.

#include "renderers/VrGLCache.h"

#include <vector>

class VrDescription;

/// One cache per bound patch of `description`, each face a `grid` x `grid` quad mesh in `color`,
/// in world space (through the collection's matrix).
std::vector<VrGLCache> VrGLSurfaceCaches(const VrDescription& description, int grid, const SgVec3T<double>& color);
