#pragma once
// VrArchiveFrame: where an archive primitive stands, from its four placement CVs: the origin
// (the root) and the axes its file's own x, y and z go to, scaled from the file's units to the
// primitive's size (`VrArchivePrimitive::archiveSize`). The previewer draws the files' proxy (or
// their box) in it; the geometry back end writes the files' mesh (or their box) placed by it, or
// the frame as an instance transform.

#include "geometry/SgVec3T.h"

#include <vector>

class VrArchivePrimitive;
class VrPrimitiveContext;

struct VrArchiveFrame {
  SgVec3T<double> origin;
  SgVec3T<double> axes[3];

  /// The frame of `cvs` (root, tip, width handle, depth handle); false for fewer than four.
  /// `archive` may be null: the size is then 1.
  bool set(const VrArchivePrimitive* archive, const std::vector<SgVec3T<double>>& cvs);
  /// The box of the archive's files in this frame as a corner and three edges: the files' box,
  /// or the unit cube standing on the root (x and z centred, y up) with `unitCube`, without an
  /// archive or when the files give none.
  void box(const VrArchivePrimitive* archive, const VrPrimitiveContext& context, bool unitCube,
           SgVec3T<double>& corner, SgVec3T<double> edges[3]) const;
  /// The frame as a matrix for row vectors: the three axes, then the origin.
  void matrix(double out[16]) const;
};
