#pragma once
// Surface slots of the patch kinds, and the curvature both read from derivatives. Internal to
// the patches.

#include "geometry/SgSurfaceCache.h"
#include "geometry/SgVec3T.h"

#include <functional>

namespace vrpatch {

/// Puts `surface` into `slot`: the old surface is released from the cache, the new one taken,
/// unless they are the same.
template <class SurfaceT>
void takeSurface(SurfaceT*& slot, SurfaceT* surface) {
  if (slot == surface) return;
  if (slot) SgSurfaceCache::unref(slot);
  slot = surface;
  if (slot) SgSurfaceCache::ref(slot);
}

/// First derivatives at (u, v); false where the surface cannot be evaluated.
using DerivativeFn = std::function<bool(double u, double v, SgVec3T<double>& dPdu, SgVec3T<double>& dPdv)>;

/// Principal curvatures k1 >= k2 from the fundamental forms, with the second derivatives taken
/// by central differences of the first (one-sided at the edges of [0, 1]).
bool curvatureFromDerivatives(const DerivativeFn& derivs, double u, double v, double& k1, double& k2);

}  // namespace vrpatch
