#pragma once
// Reads the points schema (AbcGeom_Points_v1): particles with positions, 64-bit ids and
// optional velocities and widths.

#include "io/alembic/VrAbcGeomBase.h"
#include "io/alembic/VrAbcGeomParam.h"
#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcSchema.h"

#include <cstdint>
#include <vector>

class VrAbcPoints {
 public:
  struct Sample {
    VrAbcGeomBase::Sample points;
    std::vector<uint64_t> ids;
    bool hasWidths = false;
    VrAbcGeomParam::Sample widths;
  };

  bool open(const VrAbcObject& object);

  uint32_t numSamples() const { return base.positions().numSamples(); }
  const VrAbcTimeSampling& timeSampling() const { return base.positions().timeSampling(); }
  const VrAbcGeomBase& geometry() const { return base; }

  bool read(uint32_t index, Sample& out) const;

 private:
  VrAbcGeomBase base;
  VrAbcArrayProperty ids;
  VrAbcGeomParam widths;
};
