#include "io/output/VrAlembicOutput.h"

#include "io/alembic/VrAbcMotionSpools.h"

#include <cstring>

namespace {

// An object name from a description and patch: path separators and name-space colons become
// underscores.
std::string objectNameOf(const char* description, const std::string& patch) {
  std::string name = (description && *description ? std::string(description) + "_" : std::string()) + patch;
  for (char& c : name)
    if (c == '/' || c == ':' || c == '\\') c = '_';
  return name.empty() ? std::string("shape") : name;
}

// True when the primitives' CVs of one sample follow each other in one block, and their widths
// in another, as the render's runs hold them.
bool inOneBlock(const VrOutputPrimitive* primitives, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const VrOutputPrimitive& prim = primitives[i];
    if (!prim.cvs || !prim.widths) return false;
    if (i > 0) {
      const VrOutputPrimitive& before = primitives[i - 1];
      if (prim.cvs != before.cvs + 3 * before.numCVs || prim.widths != before.widths + before.numCVs) return false;
    }
  }
  return true;
}

}  // namespace

bool VrAlembicOutput::begin() {
  VrAbcCurvesStreamWriter::Options options;
  options.objectName = settings.objectName;
  options.frame = settings.frame;
  options.framesPerSecond = settings.framesPerSecond;
  options.sampleOffsets = settings.sampleOffsets;
  options.archive.applicationName = settings.applicationName;
  if (!curves.open(path, options) || !archive.open(path, options.archive)) return false;
  objectNames = {settings.objectName};
  sampleTimes = VrAbcMotionSpools::sampleTimes(settings.frame, settings.framesPerSecond, settings.sampleOffsets);
  if (settings.archivesInline)
    inlined = std::make_unique<VrArchiveInstances>(
        archive, archive.addTimeSampling(VrAbcMotionSpools::timeSampling(sampleTimes, settings.framesPerSecond)),
        settings.framesPerSecond);
  points.assign(curves.numSamples(), {});
  rows.assign(curves.numSamples(), nullptr);
  return true;
}

std::string VrAlembicOutput::uniqueName(const std::string& wanted) {
  std::string name = wanted;
  for (int n = 1; objectNames.count(name); ++n) name = wanted + "_" + std::to_string(n);
  objectNames.insert(name);
  return name;
}

bool VrAlembicOutput::abort(const std::string& what) {
  curves.abort();
  shape.reset();
  return fail(what);
}

bool VrAlembicOutput::write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) {
  const size_t samples = points.size();
  size_t from = 0;
  while (from < count) {
    // Runs of one kind: splines go to the curves, each other kind to its shape object.
    const char* kind = primitives[from].kind;
    size_t to = from + 1;
    while (to < count && (primitives[to].kind == kind ||
                          (kind && primitives[to].kind && std::strcmp(kind, primitives[to].kind) == 0)))
      ++to;
    for (size_t i = from; i < to; ++i)
      if (primitives[i].numSamples != samples)
        return abort("a primitive of " + std::to_string(primitives[i].numSamples) + " samples where " +
                     std::to_string(samples) + " were asked for");
    if (!VrShapeSpool::hasObjectOfItsOwn(kind)) {
      if (!writeCurves(primitives + from, to - from)) return false;
    } else {
      const char* description = primitives[from].description;
      const std::string key = std::string(kind) + "\n" + (description ? description : "") + "\n" + patch;
      if (!shape || key != shapeKey) {
        if (!flushShape()) return false;
        shape = VrShapeSpool::forKind(kind);
        std::string error;
        if (!shape->open(sampleTimes, "", error)) return abort(error);
        shapeKey = key;
        shapeName = uniqueName(objectNameOf(description, patch));
        if (inlined && VrIsArchive(primitives[from])) inlineName = uniqueName(shapeName + "_inline");
      }
      const bool alsoInline = inlined && VrIsArchive(primitives[from]);
      for (size_t i = from; i < to; ++i) {
        if (!shape->add(primitives[i]))
          return abort(std::string(kind) + " " + std::to_string(primitives[i].id) + " on face " +
                       std::to_string(primitives[i].face) + " could not be added to " + shapeName);
        if (alsoInline && !inlined->add(inlineName, primitives[i]))
          return abort("archive " + std::to_string(primitives[i].id) + " on face " +
                       std::to_string(primitives[i].face) + " could not be written inline");
      }
    }
    from = to;
  }
  return true;
}

bool VrAlembicOutput::writeCurves(const VrOutputPrimitive* primitives, size_t count) {
  const size_t samples = points.size();
  if (settings.splinesOnly && !inlined && !anySplines && !streamingPoints && count > 0) {
    if (!curves.streamInto(archive)) return abort("the points could not be streamed into the archive");
    streamingPoints = true;
  }
  counts.clear();
  size_t numPoints = 0;
  for (size_t i = 0; i < count; ++i) {
    counts.push_back(static_cast<int32_t>(primitives[i].numCVs));
    numPoints += primitives[i].numCVs;
  }
  anySplines = anySplines || count > 0;
  // One sample held as the render holds its runs goes to the curves without a copy.
  if (count > 0 && samples == 1 && inOneBlock(primitives, count)) {
    rows[0] = primitives[0].cvs;
    return curves.appendSamples(rows.data(), numPoints, counts.data(), counts.size(), primitives[0].widths);
  }
  for (std::vector<float>& row : points) row.clear();
  widths.clear();
  for (size_t i = 0; i < count; ++i) {
    const VrOutputPrimitive& prim = primitives[i];
    const size_t n = prim.numCVs;
    for (size_t s = 0; s < samples; ++s) points[s].insert(points[s].end(), prim.cvs + 3 * n * s, prim.cvs + 3 * n * (s + 1));
    widths.insert(widths.end(), prim.widths, prim.widths + n);
  }
  for (size_t s = 0; s < samples; ++s) rows[s] = points[s].data();
  return curves.appendSamples(rows.data(), widths.size(), counts.data(), counts.size(), widths.data());
}

bool VrAlembicOutput::flushShape() {
  if (!shape) return true;
  if (streamingPoints) {
    waitingShapes.push_back({std::move(shape), shapeName});
    return true;
  }
  const bool ok = writeShape(*shape, shapeName);
  shape.reset();
  return ok;
}

bool VrAlembicOutput::writeShape(VrShapeSpool& spool, const std::string& name) {
  const uint32_t sampling =
      archive.addTimeSampling(VrAbcMotionSpools::timeSampling(sampleTimes, settings.framesPerSecond));
  if (spool.writeInto(archive.top(), name, sampling)) return true;
  curves.abort();
  return false;
}

bool VrAlembicOutput::end() {
  if (!flushShape()) return false;
  if (streamingPoints) {
    if (!curves.endStream()) return false;
    streamingPoints = false;
    for (FinishedShape& waiting : waitingShapes)
      if (!writeShape(*waiting.spool, waiting.name)) return false;
    waitingShapes.clear();
  }
  // An archive with shapes only leaves the empty curves out; an empty render keeps them.
  const bool withCurves = anySplines || objectNames.size() == 1;
  if (withCurves) {
    if (!curves.writeInto(archive)) return false;
  } else {
    curves.abort();
  }
  return archive.close();
}
