#include "io/output/VrShapeSpool.h"

#include "io/output/VrCardMeshSpool.h"
#include "io/output/VrSpherePointsSpool.h"

#include <cstring>

namespace {

bool named(const char* kind, const char* name) { return kind && std::strcmp(kind, name) == 0; }

}  // namespace

std::unique_ptr<VrShapeSpool> VrShapeSpool::forKind(const char* kind) {
  if (named(kind, "CardPrimitive")) return std::make_unique<VrCardMeshSpool>();
  if (named(kind, "SpherePrimitive")) return std::make_unique<VrSpherePointsSpool>();
  return nullptr;
}

bool VrShapeSpool::hasObjectOfItsOwn(const char* kind) {
  return named(kind, "CardPrimitive") || named(kind, "SpherePrimitive");
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
