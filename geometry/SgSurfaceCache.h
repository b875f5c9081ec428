#pragma once
// SgSurfaceCache: the process-wide table of bound surfaces, so that patches bound to the same
// named geometry share one surface object. It keeps a surface alive exactly as long as patches
// hold references to it and destroys it when the last one lets go. Static data only; not locked:
// it is touched only while geometry is bound, on one thread.

#include <map>
#include <string>
#include <utility>

class SgSurface;

class SgSurfaceCache {
 public:
  SgSurfaceCache() = delete;

  /// Enters `surface` under `name` and answers whether the cache holds it now. An empty name, a
  /// null surface or a name already taken by another surface enters nothing (false: the caller
  /// still owns `surface`). A surface already present gains the name and keeps its count; a new
  /// one starts with a count of 0 and is owned by the cache from here on.
  static bool addSgSurface(const std::string& name, SgSurface* surface);
  /// The surface entered under `name`, or null.
  static SgSurface* find(const std::string& name);
  /// Counts one more reference; a surface that is not in the cache is left alone.
  static void ref(SgSurface* surface);
  /// Counts one reference less. At zero the surface leaves the cache (under every name that
  /// leads to it) and is destroyed. A surface that is not in the cache is left alone.
  static void unref(SgSurface* surface);

 private:
  static std::map<std::string, SgSurface*>& byName();
  static std::map<SgSurface*, std::pair<std::string, int>>& bySurface();
};
