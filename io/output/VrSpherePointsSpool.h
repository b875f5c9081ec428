#pragma once
// VrSpherePointsSpool: spheres as one points object. Each sphere is a point at its centre (half
// way from root to tip) with width its full width, the id (face << 32 | id, stable from frame
// to frame), and two per-point parameters: "orient", the rotation from the sphere's own axes
// (x width, y root to tip, z depth) to the scene as a quaternion (r, x, y, z), and "radii", its
// three half sizes along those axes. Orientation and radii are those of the first sample.

#include "io/alembic/VrAbcSpool.h"
#include "io/output/VrShapeSpool.h"

class VrSpherePointsSpool : public VrShapeSpool {
 public:
  /// The centre, quaternion (r, x, y, z) and radii of a sphere from its four control points.
  static void frame(const float* controlPoints, float centre[3], float orient[4], float radii[3]);

  bool add(const VrOutputPrimitive& primitive) override;
  bool writeInto(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) override;

 private:
  bool openOwn(const std::string& directory, std::string& error) override;

  VrAbcSpool ids, widths, orients, radii;
};
