#pragma once
// Bob Jenkins' SpookyHash, version 2 (public domain algorithm): the 128-bit hash Alembic archives
// use for the digests of properties and objects. Incremental: `update` any number of times, then
// `final`, which leaves the state as it was so that more can be added afterwards (the object
// digests rely on that).

#include <cstddef>
#include <cstdint>

class VrAbcSpookyHash {
 public:
  VrAbcSpookyHash() { init(0, 0); }

  void init(uint64_t seed1, uint64_t seed2);
  void update(const void* message, size_t length);
  /// The two 64-bit halves of the hash of everything added so far.
  void final(uint64_t& hash1, uint64_t& hash2) const;

  /// The format's way of folding one 128-bit digest (h2, h3) into another (h0, h1).
  static void shortEnd(uint64_t& h0, uint64_t& h1, uint64_t& h2, uint64_t& h3);

 private:
  static constexpr size_t numVars = 12;
  static constexpr size_t blockSize = numVars * 8;  // 96
  static constexpr size_t bufSize = 2 * blockSize;  // 192

  static void shortHash(const uint8_t* message, size_t length, uint64_t& hash1, uint64_t& hash2);

  uint64_t data[2 * numVars] = {};  // unhashed tail, up to two blocks
  uint64_t state[numVars] = {};
  size_t length = 0;
  uint8_t remainder = 0;
};
