#pragma once
// Austin Appleby's MurmurHash3, x64 128-bit variant with seed 0 (public domain algorithm). The
// format keys every stored sample with this digest of its bytes; equal keys let a writer store
// equal samples once.

#include "io/alembic/VrAbcTypes.h"

#include <cstddef>

class VrAbcMurmur3 {
 public:
  /// The digest of `length` bytes (little-endian reading, as on every machine the format is
  /// written on).
  static VrAbcDigest hash(const void* data, size_t length);
};
