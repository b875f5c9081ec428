#pragma once
// The part every geometry schema shares: positions "P" (three floats per point), the bounds
// of each sample ".selfBnds" and, when present, point velocities ".velocities".

#include "io/alembic/VrAbcArrayProperty.h"
#include "io/alembic/VrAbcCompoundProperty.h"
#include "io/alembic/VrAbcScalarProperty.h"

#include <cstdint>
#include <vector>

class VrAbcGeomBase {
 public:
  struct Sample {
    std::vector<float> positions;   ///< x, y, z of each point
    double bounds[6] = {0, 0, 0, 0, 0, 0};  ///< min x, y, z, max x, y, z
    bool hasVelocities = false;
    std::vector<float> velocities;  ///< x, y, z of each point, when present
  };

  /// Opens the shared properties of a schema compound; false with an Error when "P" or
  /// ".selfBnds" is missing or of the wrong type.
  bool open(const VrAbcCompoundProperty& schema);

  const VrAbcCompoundProperty& compound() const { return schemaCompound; }
  const VrAbcArrayProperty& positions() const { return pointsProp; }
  bool hasVelocities() const { return velocitiesProp.valid(); }

  /// Reads what schema sample `index` sees of the shared properties.
  bool read(uint32_t index, Sample& out) const;
  /// Reads the positions only (the hot path of animated geometry).
  bool readPositions(uint32_t index, std::vector<float>& out) const;

 private:
  VrAbcCompoundProperty schemaCompound;
  VrAbcArrayProperty pointsProp;
  VrAbcScalarProperty boundsProp;
  VrAbcArrayProperty velocitiesProp;
};
