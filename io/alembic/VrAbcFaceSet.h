#pragma once
// Reads the face set schema (AbcGeom_FaceSet_v1): a named list of face numbers of the mesh the
// face set sits under.

#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcSchema.h"

#include <cstdint>
#include <vector>

class VrAbcFaceSet {
 public:
  bool open(const VrAbcObject& object);

  /// The largest sample count of the schema's properties.
  uint32_t numSamples() const { return samples; }
  const VrAbcTimeSampling& timeSampling() const { return faces.timeSampling(); }
  /// Whether the faces belong to this set only: the last ".facesExclusive" value, 0 (not
  /// exclusive) without one.
  bool exclusive(uint32_t& value) const;

  bool read(uint32_t index, std::vector<int32_t>& out) const;

 private:
  VrAbcCompoundProperty schema;
  VrAbcArrayProperty faces;
  uint32_t samples = 0;
};
