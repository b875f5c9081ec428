#pragma once
// Austin Appleby's MurmurHash3, x64 128-bit variant with seed 0 (public domain algorithm). The
// format keys every stored sample with this digest of its bytes; equal keys let a writer store
// equal samples once.

#include "io/alembic/VrAbcTypes.h"

#include <cstddef>
#include <cstdint>

class VrAbcMurmur3 {
 public:
  /// The digest of `length` bytes (little-endian reading, as on every machine the format is
  /// written on).
  static VrAbcDigest hash(const void* data, size_t length);

  /// The same digest taken over bytes that arrive in pieces of any size: the pieces' concatenation
  /// hashes as `hash` would hash it whole. One thread at a time.
  class Stream {
   public:
    void update(const void* data, size_t length);
    /// The digest of everything given so far; the stream may go on after it.
    VrAbcDigest digest() const;
    uint64_t length() const { return total; }

   private:
    void block(const uint8_t* data);
    uint64_t h1 = 0, h2 = 0;
    uint64_t total = 0;
    uint8_t pending[16] = {};
    size_t numPending = 0;
  };
};
