#pragma once
// VrShapeSpool: the primitives of one description on one patch that become one Alembic object
// of their own (cards a polygon mesh, spheres and archives points), gathered in spools as they arrive so
// that memory does not grow with their number, then written into an open archive.

#include "io/alembic/VrAbcMotionSpools.h"
#include "io/alembic/VrAbcPointsWriter.h"
#include "io/output/VrPrimitiveOutput.h"

#include <functional>
#include <memory>
#include <string>

class VrAbcObjectWriter;

class VrShapeSpool {
 public:
  /// The spool for primitives of `kind`, or null when the kind has no object of its own.
  static std::unique_ptr<VrShapeSpool> forKind(const char* kind);
  /// Whether primitives of `kind` (a `typeName`; null for a spline) become an object of their own.
  static bool hasObjectOfItsOwn(const char* kind);

  virtual ~VrShapeSpool() = default;
  /// Makes the spools for samples at `times`; false with the reason in `error`.
  bool open(const std::vector<double>& times, const std::string& directory, std::string& error);
  /// Adds one primitive of the kind; false when a spool could not be written.
  virtual bool add(const VrOutputPrimitive& primitive) = 0;
  /// Writes the object `name` under `parent`, its samples on `timeSampling`.
  virtual bool writeInto(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) = 0;

 protected:
  virtual bool openOwn(const std::string& directory, std::string& error) = 0;
  /// Points `sample` (a spooled sample of a geometry writer) at the positions, velocities and
  /// bounds of motion sample `s`.
  template <class Sample>
  void motionInto(unsigned s, Sample& sample) const {
    sample.positions = &motion.positions(s);
    sample.velocities = motion.velocities(s);
    for (int k = 0; k < 6; ++k) sample.bounds[k] = motion.bounds(s)[k];
  }
  /// Writes a points object `name` under `parent` with one sample per motion sample; `first`
  /// adds what only the first sample gives (ids, widths, parameters).
  bool writePoints(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling,
                   const std::function<void(VrAbcPointsWriter::SpooledSample&)>& first) const;
  /// Opens each of `spools` in `directory`.
  static bool openAll(std::initializer_list<VrAbcSpool*> spools, const std::string& directory, std::string& error);

  VrAbcMotionSpools motion;
  std::vector<std::vector<float>> samplePoints;  // scratch: the points of one primitive per sample
  std::vector<const float*> rows;
};
