#include "io/output/VrShapeSpool.h"

#include "io/output/VrArchivePointsSpool.h"
#include "io/output/VrCardMeshSpool.h"
#include "io/output/VrSpherePointsSpool.h"

#include <cstring>

std::unique_ptr<VrShapeSpool> VrShapeSpool::forKind(const char* kind) {
  if (!kind) return nullptr;
  if (std::strcmp(kind, "CardPrimitive") == 0) return std::make_unique<VrCardMeshSpool>();
  if (std::strcmp(kind, "SpherePrimitive") == 0) return std::make_unique<VrSpherePointsSpool>();
  if (std::strcmp(kind, "ArchivePrimitive") == 0) return std::make_unique<VrArchivePointsSpool>();
  return nullptr;
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
