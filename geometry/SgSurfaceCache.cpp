// SgSurfaceCache: two maps, name to surface and surface to (first name, reference count). The
// maps live in function-local statics so that they exist before any static initialiser that
// might bind geometry.

#include "geometry/SgSurfaceCache.h"

#include "geometry/SgSurface.h"

std::map<std::string, SgSurface*>& SgSurfaceCache::byName() {
  static std::map<std::string, SgSurface*> names;
  return names;
}

std::map<SgSurface*, std::pair<std::string, int>>& SgSurfaceCache::bySurface() {
  static std::map<SgSurface*, std::pair<std::string, int>> surfaces;
  return surfaces;
}

bool SgSurfaceCache::addSgSurface(const std::string& name, SgSurface* surface) {
  if (name.empty() || !surface) return false;
  const auto entered = byName().emplace(name, surface);
  // A taken name: the surface stays the caller's, so the cache must not remember it (it would
  // be deleted by its owner and leave a dangling entry behind).
  if (!entered.second) return entered.first->second == surface;
  bySurface().emplace(surface, std::make_pair(name, 0));
  return true;
}

SgSurface* SgSurfaceCache::find(const std::string& name) {
  const auto it = byName().find(name);
  return it == byName().end() ? nullptr : it->second;
}

void SgSurfaceCache::ref(SgSurface* surface) {
  const auto it = bySurface().find(surface);
  if (it != bySurface().end()) ++it->second.second;
}

void SgSurfaceCache::unref(SgSurface* surface) {
  const auto it = bySurface().find(surface);
  if (it == bySurface().end()) return;
  if (--it->second.second > 0) return;
  bySurface().erase(it);
  auto& names = byName();
  for (auto n = names.begin(); n != names.end();) {
    if (n->second == surface)
      n = names.erase(n);
    else
      ++n;
  }
  delete surface;
}
