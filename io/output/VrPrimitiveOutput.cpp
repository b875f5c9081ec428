#include "io/output/VrPrimitiveOutput.h"

#include "base/VrMessage.h"
#include "io/output/VrAlembicOutput.h"
#include "io/output/VrJsonLinesOutput.h"
#include "io/output/VrParticleOutput.h"
#include "io/output/VrPmtOutput.h"
#include "io/particles/VrParticles.h"


namespace {

bool endsWith(const std::string& text, const char* tail) {
  const std::string end(tail);
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::unique_ptr<VrPrimitiveOutput> VrPrimitiveOutput::create(const std::string& path,
                                                             const VrOutputSettings& settings) {
  if (endsWith(path, ".abc")) return std::make_unique<VrAlembicOutput>(path, settings);
  if (endsWith(path, ".jsonl")) return std::make_unique<VrJsonLinesOutput>(path, settings);
  if (endsWith(path, ".pmt")) return std::make_unique<VrPmtOutput>(path, settings);
  if (VrParticleFormatOf(path) != VrParticleFormat::Unknown)
    return std::make_unique<VrParticleOutput>(path, settings);
  return nullptr;
}

bool VrPrimitiveOutput::knowsExtension(const std::string& path) {
  return endsWith(path, ".abc") || endsWith(path, ".jsonl") || endsWith(path, ".pmt") ||
         VrParticleFormatOf(path) != VrParticleFormat::Unknown;
}

std::string VrPrimitiveOutput::extensionList() { return ".abc, .jsonl, .pmt, .pdb, .bgeo, .bgeo.gz or .geo"; }

bool VrPrimitiveOutput::fail(const std::string& what) const {
  VR_ERROR(path + ": " + what);
  return false;
}

VrInstanceRecord VrPrimitiveOutput::instanceRecord(const VrOutputPrimitive& prim) {
  VrInstanceRecord record;
  auto point = [&](size_t c) { return SgVec3T<double>(prim.cvs[3 * c], prim.cvs[3 * c + 1], prim.cvs[3 * c + 2]); };
  if (VrIsArchive(prim) && prim.numCVs >= 4) VrInstancePlacement(point(0), point(1), point(2), point(3), record);
  // A primitive of fewer than four CVs has the missing ones at its first.
  std::vector<SgVec3T<double>> cvs(VrIsArchive(prim) ? 0 : 4);
  for (size_t c = 0; c < cvs.size() && c < prim.numCVs; ++c) cvs[c] = point(c);
  for (size_t c = prim.numCVs; c < cvs.size() && prim.numCVs > 0; ++c) cvs[c] = cvs[0];
  if (!cvs.empty()) VrInstanceFrame(cvs, record);
  record.id = static_cast<unsigned>(prim.id);
  record.descId = static_cast<unsigned>(prim.descriptionId);
  record.randInt = prim.randomInt;
  record.randFloat = prim.randomFloat;
  record.archiveIndex = prim.lodIndex;
  record.u = prim.u;
  record.v = prim.v;
  record.faceId = prim.face;
  record.geomId = static_cast<unsigned>(prim.geomId);
  return record;
}
