#pragma once
// Writes a points object (AbcGeom_Points_v1) from spooled samples: positions, 64-bit ids,
// optional velocities and widths, and arbitrary per-point parameters of the caller's own
// (orientations, radii, ...) and indexed strings (file names, ...) in ".arbGeomParams". The ids and arbitrary parameters given with
// the first sample repeat on later samples that do not give them.

#include "io/alembic/VrAbcGeomBaseWriter.h"
#include "io/alembic/VrAbcGeomParamWriter.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <string>
#include <vector>

class VrAbcSpool;

class VrAbcPointsWriter {
 public:
  struct SpooledSample {
    const VrAbcSpool* positions = nullptr;   ///< x, y, z floats per point
    const VrAbcSpool* ids = nullptr;         ///< uint64 per point; repeats when null after the first
    const VrAbcSpool* velocities = nullptr;  ///< x, y, z floats per point, units per second
    const VrAbcSpool* widths = nullptr;      ///< floats, one per point
    double bounds[6] = {0, 0, 0, 0, 0, 0};   ///< lower corner, then upper corner
    std::vector<VrAbcSpooledParam> arbitrary;  ///< the same names on every sample that gives any
    /// Indexed string parameters, per point; given with the first sample, repeated after.
    std::vector<VrAbcSpooledStrings> strings;
  };

  bool create(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling);
  /// The next sample. False with an Error when the first sample lacks positions or ids.
  bool write(const SpooledSample& sample);
  uint32_t numSamples() const { return base.numSamples(); }
  VrAbcObjectWriter* object() const { return base.object(); }

 private:
  VrAbcGeomBaseWriter base;
  VrAbcPropertyWriter* ids = nullptr;
  VrAbcPropertyWriter* velocities = nullptr;
  VrAbcGeomParamWriter widths;
  std::vector<VrAbcGeomParamWriter> arbitrary;
  std::vector<VrAbcGeomParamWriter> strings;
};
