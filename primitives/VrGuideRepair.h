#pragma once
// Readying a guide's working CVs before a pass: a guide edited by hand, read from a file or
// made for another kind may hold too few CVs or, for the kinds told by a frame of control
// points (cards, spheres, archives), handles that no longer stand square to their axes.

#include "geometry/SgVec3T.h"

#include <string>
#include <vector>

class VrBasePrimitive;
class VrGuide;

namespace vrguide {

/// Makes the control points of a frame legal again; false when there are too few.
using Straighten = bool (*)(std::vector<SgVec3T<double>>& cvs);

/// Gives `guide` working CVs that can shape a primitive of `primitive`'s kind: its original
/// CVs when it has none; the kind's default shape, with a warning naming `kindWord`, when they
/// are too few; then `straighten`, when given, repairs the frame.
void readyGuideCVs(const VrBasePrimitive& primitive, VrGuide& guide, const std::string& kindWord,
                   Straighten straighten = nullptr);

}  // namespace vrguide
