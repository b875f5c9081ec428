#pragma once
// VrPtexCache: the texture cache of one thread, for the map functions. Each thread that reads
// a map gets its own, made at its first use with at most 500 open files and the thread's share
// of the texture budget (`VrTaskManager::ptexCacheSize`). All are kept on one list so that
// `clearPtexs` can reach every thread's cache.
//
// Threads: `forThisThread` and `get` touch only the calling thread's cache and take no lock
// once that cache exists; the list's mutex is taken when a cache is made, when a thread ends,
// and by `clearAll`/`clearThisThread`, which run while no expression evaluates.

#include "io/ptex/VrPtexTextureCache.h"

#include <memory>
#include <string>

class VrPtexCache {
 public:
  VrPtexCache() = default;
  ~VrPtexCache();
  VrPtexCache(const VrPtexCache&) = delete;
  VrPtexCache& operator=(const VrPtexCache&) = delete;

  /// The calling thread's cache.
  static VrPtexCache& forThisThread();
  /// The texture at `path`, or null with the Error "Failed to open <path>.\n             Error:
  /// <reason>" (once per file until the cache is cleared).
  std::shared_ptr<VrPtexTexture> get(const std::string& path);

  /// Drops every thread's textures and empties the list.
  static void clearAll();
  /// Drops the calling thread's textures.
  static void clearThisThread();

 private:
  void drop();

  std::unique_ptr<VrPtexTextureCache> cache;
};
