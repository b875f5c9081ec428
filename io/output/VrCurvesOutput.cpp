#include "io/output/VrCurvesOutput.h"

#include <cstring>

bool VrCurvesOutput::begin() {
  VrAbcCurvesStreamWriter::Options options;
  options.objectName = settings.objectName;
  options.frame = settings.frame;
  options.framesPerSecond = settings.framesPerSecond;
  options.sampleOffsets = settings.sampleOffsets;
  options.archive.applicationName = settings.applicationName;
  if (!writer.open(path, options)) return false;
  points.assign(writer.numSamples(), {});
  rows.assign(writer.numSamples(), nullptr);
  return true;
}

bool VrCurvesOutput::write(const std::string&, const VrOutputPrimitive* primitives, size_t count) {
  const size_t samples = points.size();
  for (std::vector<float>& row : points) row.clear();
  widths.clear();
  counts.clear();
  for (size_t i = 0; i < count; ++i) {
    const VrOutputPrimitive& prim = primitives[i];
    if (prim.numSamples != samples) {
      writer.abort();
      return fail("a primitive of " + std::to_string(prim.numSamples) + " samples where " +
                  std::to_string(samples) + " were asked for");
    }
    if (prim.kind && (std::strcmp(prim.kind, "CardPrimitive") == 0 || std::strcmp(prim.kind, "SpherePrimitive") == 0 ||
                      VrIsArchive(prim))) {
      // Their control points are no curves; a mesh or points form is still to come.
      writer.abort();
      return fail(std::string(prim.kind) + " has no Alembic form yet; write .jsonl, .pmt or a particle file");
    }
    const size_t n = prim.numCVs;
    for (size_t s = 0; s < samples; ++s) points[s].insert(points[s].end(), prim.cvs + 3 * n * s, prim.cvs + 3 * n * (s + 1));
    widths.insert(widths.end(), prim.widths, prim.widths + n);
    counts.push_back(static_cast<int32_t>(n));
  }
  for (size_t s = 0; s < samples; ++s) rows[s] = points[s].data();
  return writer.appendSamples(rows.data(), widths.size(), counts.data(), counts.size(), widths.data());
}

bool VrCurvesOutput::end() { return writer.close(); }
