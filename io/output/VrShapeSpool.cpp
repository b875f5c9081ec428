#include "io/output/VrShapeSpool.h"

#include "io/output/VrArchivePointsSpool.h"
#include "io/output/VrCardMeshSpool.h"
#include "io/output/VrSpherePointsSpool.h"

#include <cstring>

namespace {

bool named(const char* kind, const char* name) { return kind && std::strcmp(kind, name) == 0; }

}  // namespace

std::unique_ptr<VrShapeSpool> VrShapeSpool::forKind(const char* kind) {
  if (named(kind, "CardPrimitive")) return std::make_unique<VrCardMeshSpool>();
  if (named(kind, "SpherePrimitive")) return std::make_unique<VrSpherePointsSpool>();
  if (named(kind, "ArchivePrimitive")) return std::make_unique<VrArchivePointsSpool>();
  return nullptr;
}

bool VrShapeSpool::hasObjectOfItsOwn(const char* kind) {
  return named(kind, "CardPrimitive") || named(kind, "SpherePrimitive") || named(kind, "ArchivePrimitive");
}

bool VrShapeSpool::open(const std::vector<double>& times, const std::string& directory, std::string& error) {
  samplePoints.assign(times.empty() ? 1 : times.size(), {});
  rows.assign(samplePoints.size(), nullptr);
  return motion.open(times, directory, error) && openOwn(directory, error);
}

bool VrShapeSpool::openAll(std::initializer_list<VrAbcSpool*> spools, const std::string& directory,
                           std::string& error) {
  for (VrAbcSpool* spool : spools)
    if (!spool->open(directory, error)) return false;
  return true;
}

bool VrShapeSpool::writePoints(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling,
                               const std::function<void(VrAbcPointsWriter::SpooledSample&)>& first) const {
  VrAbcPointsWriter points;
  if (!points.create(parent, name, timeSampling)) return false;
  for (unsigned s = 0; s < motion.numSamples(); ++s) {
    VrAbcPointsWriter::SpooledSample sample;
    motionInto(s, sample);
    if (s == 0) first(sample);
    if (!points.write(sample)) return false;
  }
  return true;
}
