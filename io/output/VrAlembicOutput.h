#pragma once
// VrAlembicOutput: a render as one Alembic archive. Splines become one Curves object with their
// widths and every motion sample, streamed through the spooling curves writer; cards and
// spheres become an object of their own per description and patch (see VrShapeSpool), named
// "<description>_<patch>", written as soon as the primitives of that pair are complete. Memory
// does not grow with the number of primitives. The Curves object is left out when the render
// has primitives of other kinds only. With `archivesInline`, archives are also written as
// transforms over their files' meshes (see VrArchiveInstances).
//
// With `splinesOnly` the points of the first sample go straight into the archive as the runs
// come, so that the largest array is written while the render goes on rather than copied after
// it; the archive takes nothing else meanwhile, so a shape object that turns up all the same
// waits, spooled, until the end.

#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcCurvesStreamWriter.h"
#include "io/output/VrArchiveInstances.h"
#include "io/output/VrPrimitiveOutput.h"
#include "io/output/VrShapeSpool.h"

#include <memory>
#include <set>

class VrAlembicOutput : public VrPrimitiveOutput {
 public:
  VrAlembicOutput(const std::string& path, const VrOutputSettings& settings) : VrPrimitiveOutput(path, settings) {}

  bool begin() override;
  bool write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) override;
  bool end() override;

 private:
  bool writeCurves(const VrOutputPrimitive* primitives, size_t count);
  /// Writes the open shape object into the archive and drops its spools.
  bool flushShape();
  bool abort(const std::string& what);
  /// `wanted`, or with "_<n>" after it when an object of the top has that name; taken.
  std::string uniqueName(const std::string& wanted);

  VrAbcArchiveWriter archive;
  VrAbcCurvesStreamWriter curves;
  std::vector<double> sampleTimes;
  std::vector<std::vector<float>> points;  // one row per sample
  std::vector<const float*> rows;
  std::vector<float> widths;
  std::vector<int32_t> counts;

  struct FinishedShape {
    std::unique_ptr<VrShapeSpool> spool;
    std::string name;
  };
  /// Writes a complete shape object into the archive.
  bool writeShape(VrShapeSpool& spool, const std::string& name);

  bool streamingPoints = false;                // the curves' points go straight into the archive
  std::vector<FinishedShape> waitingShapes;    // complete while the points streamed
  std::unique_ptr<VrShapeSpool> shape;  // the shape object being gathered, if any
  std::string shapeKey;                 // kind, description and patch of `shape`
  std::string shapeName;
  std::string inlineName;                     // the group of the inline archives of `shape`
  std::unique_ptr<VrArchiveInstances> inlined;  // with `archivesInline`
  std::set<std::string> objectNames;
  bool anySplines = false;
};
