#include "io/alembic/VrAbcMurmur3.h"

#include <cstring>

namespace {

constexpr uint64_t c1 = 0x87c37b91114253d5ULL;
constexpr uint64_t c2 = 0x4cf5ad432745937fULL;

inline uint64_t rotl64(uint64_t x, int r) { return (x << r) | (x >> (64 - r)); }

inline uint64_t fmix64(uint64_t k) {
  k ^= k >> 33;
  k *= 0xff51afd7ed558ccdULL;
  k ^= k >> 33;
  k *= 0xc4ceb9fe1a85ec53ULL;
  k ^= k >> 33;
  return k;
}

}  // namespace

VrAbcDigest VrAbcMurmur3::hash(const void* key, size_t len) {
  Stream stream;
  stream.update(key, len);
  return stream.digest();
}

void VrAbcMurmur3::Stream::block(const uint8_t* data) {
  uint64_t k1, k2;
  std::memcpy(&k1, data, 8);
  std::memcpy(&k2, data + 8, 8);
  k1 *= c1;
  k1 = rotl64(k1, 31);
  k1 *= c2;
  h1 ^= k1;
  h1 = rotl64(h1, 27);
  h1 += h2;
  h1 = h1 * 5 + 0x52dce729;
  k2 *= c2;
  k2 = rotl64(k2, 33);
  k2 *= c1;
  h2 ^= k2;
  h2 = rotl64(h2, 31);
  h2 += h1;
  h2 = h2 * 5 + 0x38495ab5;
}

void VrAbcMurmur3::Stream::update(const void* key, size_t len) {
  const uint8_t* data = static_cast<const uint8_t*>(key);
  total += len;
  if (numPending) {
    const size_t take = len < 16 - numPending ? len : 16 - numPending;
    std::memcpy(pending + numPending, data, take);
    numPending += take;
    data += take;
    len -= take;
    if (numPending < 16) return;
    block(pending);
    numPending = 0;
  }
  for (; len >= 16; data += 16, len -= 16) block(data);
  if (len) std::memcpy(pending, data, len);
  numPending = len;
}

VrAbcDigest VrAbcMurmur3::Stream::digest() const {
  uint64_t a = h1, b = h2;
  const uint8_t* tail = pending;
  uint64_t k1 = 0, k2 = 0;
  const size_t rest = numPending;
  for (size_t i = rest; i > 8; --i) k2 ^= static_cast<uint64_t>(tail[i - 1]) << (8 * (i - 9));
  if (rest > 8) {
    k2 *= c2;
    k2 = rotl64(k2, 33);
    k2 *= c1;
    b ^= k2;
  }
  for (size_t i = rest < 8 ? rest : 8; i > 0; --i) k1 ^= static_cast<uint64_t>(tail[i - 1]) << (8 * (i - 1));
  if (rest > 0) {
    k1 *= c1;
    k1 = rotl64(k1, 31);
    k1 *= c2;
    a ^= k1;
  }

  a ^= total;
  b ^= total;
  a += b;
  b += a;
  a = fmix64(a);
  b = fmix64(b);
  a += b;
  b += a;

  VrAbcDigest out;
  out.setWords(a, b);
  return out;
}
