#include "io/alembic/VrAbcCurvesStreamWriter.h"

#include "base/VrMessage.h"

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
  curves = 0;
  hasWidths = -1;
  if (path.empty()) return fail("no output file given");
  if (options.objectName.empty() || options.objectName.find('/') != std::string::npos)
    return fail("the object name must be a plain, non-empty name");
  if (!(options.framesPerSecond > 0.0)) return fail("the frame rate must be above 0");
  for (size_t i = 1; i < options.sampleOffsets.size(); ++i)
    if (!(options.sampleOffsets[i] > options.sampleOffsets[i - 1]))
      return fail("the sample offsets must be strictly increasing");
  const std::string folder = folderOf(path);
  if (access(folder.c_str(), W_OK) != 0) return fail("cannot write in the folder " + folder);
  std::string error;
  countSpool = std::make_unique<VrAbcSpool>();
  widthSpool = std::make_unique<VrAbcSpool>();
  if (!motion.open(VrAbcMotionSpools::sampleTimes(options.frame, options.framesPerSecond, options.sampleOffsets),
                   options.spoolDirectory, error) ||
      !countSpool->open(options.spoolDirectory, error) || !widthSpool->open(options.spoolDirectory, error)) {
    release();
    return fail(error);
  }
  opened = true;
  return true;
}

bool VrAbcCurvesStreamWriter::append(const float* batchPoints, uint64_t numPoints, const int32_t* counts,
                                     uint64_t numCurves, const float* widths) {
  if (opened && !failed && numSamples() != 1)
    return fail("a writer of " + std::to_string(numSamples()) + " samples needs the points of every sample");
  return appendSamples(&batchPoints, numPoints, counts, numCurves, widths);
}

bool VrAbcCurvesStreamWriter::appendSamples(const float* const* samplePoints, uint64_t numPoints,
                                            const int32_t* counts, uint64_t numCurves, const float* widths) {
  if (!opened) return fail("append before open");
  if (failed) return false;
  if (numCurves == 0 && numPoints == 0) return true;
  const unsigned samples = numSamples();
  if (numPoints && !samplePoints) return fail("a batch without its arrays");
  for (unsigned s = 0; numPoints && s < samples; ++s)
    if (!samplePoints[s]) return fail("a batch without its arrays");
  if (numCurves && !counts) return fail("a batch without its arrays");
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
  const bool written = countSpool->append(counts, numCurves * sizeof(int32_t)) &&
                       (hasWidths != 1 || widthSpool->append(widths, numPoints * sizeof(float))) &&
                       motion.append(samplePoints, numPoints);
  if (!written) return fail("a temporary file could not be written");
  curves += numCurves;
  return true;
}

bool VrAbcCurvesStreamWriter::close() {
  if (!opened) return fail("close before open");
  if (failed) {
    abort();
    return false;
  }
  VrAbcArchiveWriter archive;
  const bool ok = archive.open(target, settings.archive) && writeInto(archive) && archive.close();
  release();
  if (!ok) return fail("the archive could not be written");
  return true;
}

bool VrAbcCurvesStreamWriter::streamInto(VrAbcArchiveWriter& archive) {
  if (!opened) return fail("stream before open");
  if (failed) return false;
  if (streamed || curves || numPoints()) return fail("points can be streamed only from the first batch on");
  if (!archive.beginStreamedSample()) return fail("the archive does not take streamed points");
  streamed = &archive;
  streamEnded = false;
  motion.sendSampleZeroTo(
      [this](const void* data, uint64_t bytes) { return streamed->appendStreamedSample(data, bytes); });
  return true;
}

bool VrAbcCurvesStreamWriter::endStream() {
  if (!streamed || streamEnded) return true;
  streamEnded = true;
  if (!streamed->endStreamedSample(streamedPoints)) return fail("the streamed points could not be completed");
  return true;
}

bool VrAbcCurvesStreamWriter::writeInto(VrAbcArchiveWriter& archive) {
  if (!opened) return fail("write before open");
  if (failed) {
    abort();
    return false;
  }
  if (streamed && (streamed != &archive || !endStream())) {
    if (streamed != &archive) fail("the points were streamed into another archive");
    abort();
    return false;
  }
  const unsigned samples = numSamples();
  const uint32_t sampling = archive.addTimeSampling(VrAbcMotionSpools::timeSampling(
      VrAbcMotionSpools::sampleTimes(settings.frame, settings.framesPerSecond, settings.sampleOffsets),
      settings.framesPerSecond));
  VrAbcCurvesWriter shape;
  bool ok = shape.create(archive.top(), settings.objectName, sampling);
  for (unsigned s = 0; ok && s < samples; ++s) {
    VrAbcCurvesWriter::SpooledSample sample;
    const bool pointsInArchive = s == 0 && streamed;
    sample.positions = pointsInArchive ? nullptr : &motion.positions(s);
    sample.writtenPositions = pointsInArchive ? &streamedPoints : nullptr;
    // The counts are the same on every sample: the format stores a repeat only once, and
    // widths not given on later samples repeat those of the first.
    sample.numVertices = countSpool.get();
    sample.widths = s == 0 && hasWidths == 1 ? widthSpool.get() : nullptr;
    sample.velocities = motion.velocities(s);
    sample.type = settings.type;
    sample.basis = settings.basis;
    // The format's writers store an inverted box for no points.
    for (int k = 0; k < 6; ++k) sample.bounds[k] = motion.bounds(s)[k];
    ok = shape.write(sample);
  }
  release();
  failed = !ok;
  return ok;
}

void VrAbcCurvesStreamWriter::release() {
  motion.release();
  streamed = nullptr;
  streamEnded = false;
  countSpool.reset();
  widthSpool.reset();
  opened = false;
}

void VrAbcCurvesStreamWriter::abort() { release(); }
