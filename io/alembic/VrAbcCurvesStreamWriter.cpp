#include "io/alembic/VrAbcCurvesStreamWriter.h"

#include "base/VrMessage.h"
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
  if (path.empty()) return fail("no output file given");
  if (options.objectName.empty() || options.objectName.find('/') != std::string::npos)
    return fail("the object name must be a plain, non-empty name");
  if (!(options.framesPerSecond > 0.0)) return fail("the frame rate must be above 0");
  for (size_t i = 1; i < options.sampleOffsets.size(); ++i)
    if (!(options.sampleOffsets[i] > options.sampleOffsets[i - 1]))
      return fail("the sample offsets must be strictly increasing");
  const std::string folder = folderOf(path);
  if (access(folder.c_str(), W_OK) != 0) return fail("cannot write in the folder " + folder);
  const unsigned samples = numSamples();
  boxes.assign(samples, {DBL_MAX, DBL_MAX, DBL_MAX, -DBL_MAX, -DBL_MAX, -DBL_MAX});
  for (unsigned s = 0; s < samples; ++s) positionSpools.push_back(std::make_unique<VrAbcSpool>());
  for (unsigned s = 0; samples > 1 && s < samples; ++s) velocitySpools.push_back(std::make_unique<VrAbcSpool>());
  countSpool = std::make_unique<VrAbcSpool>();
  widthSpool = std::make_unique<VrAbcSpool>();
  std::vector<VrAbcSpool*> all = {countSpool.get(), widthSpool.get()};
  for (auto& spool : positionSpools) all.push_back(spool.get());
  for (auto& spool : velocitySpools) all.push_back(spool.get());
  std::string error;
  for (VrAbcSpool* spool : all)
    if (!spool->open(options.spoolDirectory, error)) {
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
  bool written = countSpool->append(counts, numCurves * sizeof(int32_t)) &&
                 (hasWidths != 1 || widthSpool->append(widths, numPoints * sizeof(float)));
  for (unsigned s = 0; written && numPoints && s < samples; ++s) {
    const float* p = samplePoints[s];
    std::array<double, 6>& box = boxes[s];
    for (uint64_t i = 0; i < numPoints; ++i)
      for (int k = 0; k < 3; ++k) {
        const double v = p[3 * i + static_cast<uint64_t>(k)];
        if (v < box[k]) box[k] = v;
        if (v > box[3 + k]) box[3 + k] = v;
      }
    written = positionSpools[s]->append(p, numPoints * 3 * sizeof(float));
  }
  for (unsigned s = 0; written && numPoints && s < velocitySpools.size(); ++s) {
    // Forward steps; the last sample takes the step that ends at it.
    const unsigned from = s + 1 < samples ? s : s - 1;
    const float* a = samplePoints[from];
    const float* b = samplePoints[from + 1];
    const double rate = 1.0 / (sampleTime(from + 1) - sampleTime(from));
    velocityRow.resize(numPoints * 3);
    for (uint64_t i = 0; i < numPoints * 3; ++i)
      velocityRow[i] = static_cast<float>((static_cast<double>(b[i]) - a[i]) * rate);
    written = velocitySpools[s]->append(velocityRow.data(), velocityRow.size() * sizeof(float));
  }
  if (!written) return fail("a temporary file could not be written");
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
      const unsigned samples = numSamples();
      VrAbcTimeSampling timing = VrAbcTimeSampling::uniform(step, sampleTime(0));
      if (samples > 1) {
        std::vector<double> times;
        for (unsigned s = 0; s < samples; ++s) times.push_back(sampleTime(s));
        timing = VrAbcTimeSampling::acyclic(times);
      }
      const uint32_t sampling = archive.addTimeSampling(timing);
      VrAbcCurvesWriter shape;
      ok = shape.create(archive.top(), settings.objectName, sampling);
      for (unsigned s = 0; ok && s < samples; ++s) {
        VrAbcCurvesWriter::SpooledSample sample;
        sample.positions = positionSpools[s].get();
        // The counts are the same on every sample: the format stores a repeat only once, and
        // widths not given on later samples repeat those of the first.
        sample.numVertices = countSpool.get();
        sample.widths = s == 0 && hasWidths == 1 ? widthSpool.get() : nullptr;
        sample.velocities = s < velocitySpools.size() ? velocitySpools[s].get() : nullptr;
        sample.type = settings.type;
        sample.basis = settings.basis;
        // The format's writers store an inverted box for no points.
        for (int k = 0; k < 6; ++k) sample.bounds[k] = boxes[s][static_cast<size_t>(k)];
        ok = shape.write(sample);
      }
      ok = ok && archive.close();
    }
  }
  release();
  if (!ok) return fail("the archive could not be written");
  return true;
}

double VrAbcCurvesStreamWriter::sampleTime(unsigned s) const {
  const double offset = s < settings.sampleOffsets.size() ? settings.sampleOffsets[s] : 0.0;
  return (settings.frame + offset) * (1.0 / settings.framesPerSecond);
}

void VrAbcCurvesStreamWriter::release() {
  positionSpools.clear();
  velocitySpools.clear();
  velocityRow = std::vector<float>();
  countSpool.reset();
  widthSpool.reset();
  boxes.clear();
  opened = false;
}

void VrAbcCurvesStreamWriter::abort() { release(); }
