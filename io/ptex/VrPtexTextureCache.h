#pragma once
// VrPtexTextureCache: open texture files by path, at most `maxFiles` of them and about
// `maxMemory` bytes of file and inflated texels. The least recently used file is closed when a
// new one would exceed the count, and the least recently used textures drop their inflated
// texels when the memory is exceeded. A file that failed to open is remembered as failed, so it
// is not read (nor reported) again until `purge`.
//
// One thread at a time: the expression functions keep one cache per thread, so that a lookup
// takes no lock.

#include "io/ptex/VrPtexTexture.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

class VrPtexTextureCache {
 public:
  VrPtexTextureCache(int maxFiles, size_t maxMemory) : maxFiles(maxFiles < 1 ? 1 : maxFiles), maxMemory(maxMemory) {}

  /// The texture at `path`, opened on first use. Null when it cannot be opened: `error` then
  /// holds the reason and `firstFailure` is true the first time that file fails.
  std::shared_ptr<VrPtexTexture> get(const std::string& path, std::string& error, bool& firstFailure);
  /// Closes every file and forgets failures.
  void purge() { entries.clear(); }
  int numFiles() const { return static_cast<int>(entries.size()); }
  /// Bytes held by the open files (as of their last use).
  size_t memoryUsed() const;

 private:
  struct Entry {
    std::shared_ptr<VrPtexTexture> texture;
    std::string error;
    uint64_t lastUse = 0;
  };
  void trim(const std::string& keep);

  int maxFiles;
  size_t maxMemory;
  uint64_t clock = 0;
  std::unordered_map<std::string, Entry> entries;
};
