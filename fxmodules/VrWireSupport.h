#pragma once
// VrWireSupport: a plain second base for modules that make a primitive follow a curve that
// another module moves, such as a clump guide. It finds the guide of a primitive and carries
// the primitive's CVs from the guide as it was to the guide as moved: each CV is bound to the
// frame of the guide at the same CV (its offset in side, across, along), and put back at the
// same offset from the moved guide's frame.
//
// The clump guides are those of the primitive's clumping modules: clump type k (1, 2, ...) is
// the k-th clumping module of the stack in front of the module that follows it, so that its
// guides are complete before they are followed. Lookups are read-only, safe from any number of
// workers.

#include "fxmodules/VrFXCurveFrame.h"

#include <string>
#include <vector>

class VrClumpingFXModule;
class VrFXModule;
class VrPrimitive;
class VrPrimitiveContext;
struct VrClumpGuide;

class VrWireSupport {
 public:
  using Vec = SgVec3T<double>;

  virtual ~VrWireSupport() = default;

  /// The clumping module of `primitive` that clump type `clumpType` names for `follower`, or
  /// null (type 0, or fewer clumping modules in front of `follower`).
  static const VrClumpingFXModule* clumpModule(const VrPrimitive& primitive, unsigned clumpType,
                                               const VrFXModule* follower);
  /// The clump guide that `clumps` names at the context's location, or null where it names
  /// none, one past its guides, or a culled or empty guide.
  static const VrClumpGuide* getClumpGuides(const VrClumpingFXModule& clumps, const VrPrimitiveContext& context);

  /// The frame along `cvs`, starting from the surface `normal` and unit U direction at the root;
  /// false (frame unusable) for fewer than two CVs or a curve of no length.
  static bool buildFrameVectors(const std::vector<Vec>& cvs, const Vec& normal, const Vec& unitU,
                                VrFXCurveFrame& frame) {
    return frame.build(cvs, normal, unitU);
  }
  /// The offset of `point` from `wire`[i] in the frame at CV i.
  static Vec bindCV(const Vec& point, const std::vector<Vec>& wire, const VrFXCurveFrame& frame, size_t i) {
    const Vec d = point - wire[i];
    return Vec(d.dot(frame.side[i]), d.dot(frame.across[i]), d.dot(frame.along(i)));
  }
  /// The point at offset `bound` from `wire`[i] in the frame at CV i.
  static Vec computeGoalPt(const Vec& bound, const std::vector<Vec>& wire, const VrFXCurveFrame& frame, size_t i) {
    return wire[i] + frame.side[i] * bound.x + frame.across[i] * bound.y + frame.along(i) * bound.z;
  }
};
