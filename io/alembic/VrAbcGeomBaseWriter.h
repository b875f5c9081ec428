#pragma once
// The part every geometry schema writer shares: the object with its schema metadata, the schema
// compound ".geom", the positions "P", the sample bounds ".selfBnds", and the arbitrary
// parameters compound ".arbGeomParams".

#include "io/alembic/VrAbcGeomParam.h"
#include "io/alembic/VrAbcObjectWriter.h"
#include "io/alembic/VrAbcSchema.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <string>

class VrAbcSpool;

class VrAbcGeomBaseWriter {
 public:
  /// Creates object `name` under `parent`, marked as holding schema `kind`, with its schema
  /// compound and the bounds and positions properties. False with an Error when the name is
  /// taken or invalid.
  bool create(VrAbcObjectWriter& parent, const std::string& name, VrAbcSchema::Kind kind, uint32_t timeSampling);

  VrAbcObjectWriter* object() const { return obj; }
  VrAbcCompoundWriter* schema() const { return compound; }
  uint32_t timeSampling() const { return sampling; }
  uint32_t numSamples() const { return points ? points->numSamples() : 0; }

  /// The next positions sample (x, y, z per point), or a repeat of the last when not given.
  bool writePositions(const VrAbcView<float>& positions);
  /// The next bounds sample, from the positions when given, else a repeat.
  bool writeBounds(const VrAbcView<float>& positions);
  /// The next positions sample gathered in `spool` (x, y, z as floats per point).
  bool writePositions(const VrAbcSpool& spool);
  /// The next positions sample, streamed into the archive already.
  bool writePositions(const VrAbcWrittenSample& sample);
  /// The next bounds sample as given: x, y, z of the lower corner, then of the upper one.
  bool writeBounds(const double box[6]);

  /// The ".arbGeomParams" compound, made on first use.
  VrAbcCompoundWriter* arbGeomParams();
  /// Writes a constant arbitrary parameter of points (three floats each), such as a reference
  /// pose, in one sample.
  bool writeArbitraryPoints(const std::string& name, const VrAbcView<float>& points, VrAbcScope scope);

 private:
  VrAbcObjectWriter* obj = nullptr;
  VrAbcCompoundWriter* compound = nullptr;
  VrAbcCompoundWriter* arbitrary = nullptr;
  VrAbcPropertyWriter* bounds = nullptr;
  VrAbcPropertyWriter* points = nullptr;
  uint32_t sampling = 0;
};
