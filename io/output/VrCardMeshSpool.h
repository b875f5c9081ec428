#pragma once
// VrCardMeshSpool: cards as one polygon mesh. Each card is a grid of 5 x 5 points centred on its
// root that follows its bend: the control points give one half of the card along each axis
// (root, bend centre, edge), and the other half mirrors it across the plane through the root
// that is square to that axis. 16 quads per card, uv running over the card by length along
// each axis, and the primitive's id and face as per-face integers "vorn_id" and "vorn_face".

#include "io/alembic/VrAbcSpool.h"
#include "io/output/VrShapeSpool.h"

class VrCardMeshSpool : public VrShapeSpool {
 public:
  static constexpr int side = 5;  ///< grid points along each axis

  /// The grid of one card from its five control points (x, y, z each): side * side points,
  /// U running fastest, and the u, v of each.
  static void grid(const float* controlPoints, float* points, float* uvs);

  bool add(const VrOutputPrimitive& primitive) override;
  bool writeInto(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) override;

 private:
  bool openOwn(const std::string& directory, std::string& error) override;

  VrAbcSpool counts, indices, uvs, ids, faces;
  uint64_t cards = 0;
};
