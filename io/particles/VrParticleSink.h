#pragma once
// Internal to io/particles: the output of a particle writer that fills it in order (`.pdb`).
// Bytes gather in a buffer of a few megabytes that goes, when full, to a temporary file beside
// the target; `finish` renames the file into place. A sink destroyed unfinished removes its
// temporary file, so a failed write leaves nothing at the target.

#include "base/VrAtomicFile.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

namespace vrparticles {

class VrParticleSink {
 public:
  /// Opens the temporary file for `path`; `ok()` tells whether that worked.
  explicit VrParticleSink(const std::string& path);
  VrParticleSink(const VrParticleSink&) = delete;
  VrParticleSink& operator=(const VrParticleSink&) = delete;

  bool ok() const { return good; }
  /// Room for `n` bytes, to be filled at once; valid until the next call.
  unsigned char* space(size_t n) {
    if (buffer.size() - used < n) makeRoom(n);
    unsigned char* p = buffer.data() + used;
    used += n;
    return p;
  }
  /// Returns the last `n` bytes of the latest `space` unused.
  void giveBack(size_t n) { used -= n; }
  void put(const void* data, size_t n) { std::memcpy(space(n), data, n); }
  void put(const std::string& text) { put(text.data(), text.size()); }
  /// Writes what is buffered and renames the file into place. False, with
  /// the reason in `error`, when anything failed on the way; nothing is left at the path then.
  bool finish(std::string& error);

 private:
  void makeRoom(size_t n);
  void drain();

  VrAtomicFile file;
  std::vector<unsigned char> buffer;
  size_t used = 0;
  bool opened;
  bool good;
};

}  // namespace vrparticles
