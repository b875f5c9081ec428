#include "io/alembic/VrAbcCurvesStreamWriter.h"

#include "document/VrMessage.h"
#include "io/alembic/VrAbcTimeSampling.h"

#include <cfloat>
#include <unistd.h>

namespace {

std::string folderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

bool VrAbcCurvesStreamWriter::fail(const std::string& what) {
  VR_ERROR("VrAbcCurvesStreamWriter: " + target + ": " + what);
  failed = true;
  return false;
}

bool VrAbcCurvesStreamWriter::open(const std::string& path, const Options& options) {
  abort();
  target = path;
  settings = options;
  failed = false;
  curves = points = 0;
  hasWidths = -1;
  box[0] = box[1] = box[2] = DBL_MAX;
  box[3] = box[4] = box[5] = -DBL_MAX;
  if (path.empty()) return fail("no output file given");
  if (options.objectName.empty() || options.objectName.find('/') != std::string::npos)
    return fail("the object name must be a plain, non-empty name");
  if (!(options.framesPerSecond > 0.0)) return fail("the frame rate must be above 0");
  const std::string folder = folderOf(path);
  if (access(folder.c_str(), W_OK) != 0) return fail("cannot write in the folder " + folder);
  positionSpool = std::make_unique<VrAbcSpool>();
  countSpool = std::make_unique<VrAbcSpool>();
  widthSpool = std::make_unique<VrAbcSpool>();
  std::string error;
  for (VrAbcSpool* spool : {positionSpool.get(), countSpool.get(), widthSpool.get()})
    if (!spool->open(options.spoolDirectory, error)) {
      positionSpool.reset();
      countSpool.reset();
      widthSpool.reset();
      return fail(error);
    }
  opened = true;
  return true;
}

bool VrAbcCurvesStreamWriter::append(const float* batchPoints, uint64_t numPoints, const int32_t* counts,
                                     uint64_t numCurves, const float* widths) {
  if (!opened) return fail("append before open");
  if (failed) return false;
  if (numCurves == 0 && numPoints == 0) return true;
  if ((numPoints && !batchPoints) || (numCurves && !counts)) return fail("a batch without its arrays");
  uint64_t total = 0;
  for (uint64_t i = 0; i < numCurves; ++i) {
    if (counts[i] < 0) return fail("curve " + std::to_string(curves + i) + " has a negative point count");
    total += static_cast<uint64_t>(counts[i]);
  }
  if (total != numPoints)
    return fail("the point counts of a batch add up to " + std::to_string(total) + ", not " +
                std::to_string(numPoints));
  if (numPoints) {
    const int given = widths ? 1 : 0;
    if (hasWidths < 0) hasWidths = given;
    if (hasWidths != given) return fail("widths must come with every batch or with none");
  }
  for (uint64_t i = 0; i < numPoints; ++i)
    for (int k = 0; k < 3; ++k) {
      const double v = batchPoints[3 * i + static_cast<uint64_t>(k)];
      if (v < box[k]) box[k] = v;
      if (v > box[3 + k]) box[3 + k] = v;
    }
  if (!positionSpool->append(batchPoints, numPoints * 3 * sizeof(float)) ||
      !countSpool->append(counts, numCurves * sizeof(int32_t)) ||
      (hasWidths == 1 && !widthSpool->append(widths, numPoints * sizeof(float))))
    return fail("a temporary file could not be written");
  curves += numCurves;
  points += numPoints;
  return true;
}

bool VrAbcCurvesStreamWriter::close() {
  if (!opened) return fail("close before open");
  if (failed) {
    abort();
    return false;
  }
  bool ok = false;
  {
    VrAbcArchiveWriter archive;
    if (archive.open(target, settings.archive)) {
      const double step = 1.0 / settings.framesPerSecond;
      const uint32_t sampling = archive.addTimeSampling(VrAbcTimeSampling::uniform(step, settings.frame * step));
      VrAbcCurvesWriter shape;
      VrAbcCurvesWriter::SpooledSample sample;
      sample.positions = positionSpool.get();
      sample.numVertices = countSpool.get();
      sample.widths = hasWidths == 1 ? widthSpool.get() : nullptr;
      sample.type = settings.type;
      sample.basis = settings.basis;
      // The format's writers store an inverted box for no points.
      for (int k = 0; k < 6; ++k) sample.bounds[k] = box[k];
      ok = shape.create(archive.top(), settings.objectName, sampling) && shape.write(sample) && archive.close();
    }
  }
  positionSpool.reset();
  countSpool.reset();
  widthSpool.reset();
  opened = false;
  if (!ok) return fail("the archive could not be written");
  return true;
}

void VrAbcCurvesStreamWriter::abort() {
  positionSpool.reset();
  countSpool.reset();
  widthSpool.reset();
  opened = false;
}
