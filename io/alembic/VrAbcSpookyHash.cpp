#include "io/alembic/VrAbcSpookyHash.h"

#include <cstring>

namespace {

constexpr uint64_t spookyConst = 0xdeadbeefdeadbeefULL;

inline uint64_t rot64(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }

inline uint64_t load64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

inline uint64_t load32(const uint8_t* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

// One block of twelve words into the twelve-word state.
void mix(const uint8_t* block, uint64_t* s) {
  static const int rotations[12] = {11, 32, 43, 31, 17, 28, 39, 57, 55, 54, 22, 46};
  for (int i = 0; i < 12; ++i) {
    s[i] += load64(block + 8 * i);
    s[(i + 2) % 12] ^= s[(i + 10) % 12];
    s[(i + 11) % 12] ^= s[i];
    s[i] = rot64(s[i], rotations[i]);
    s[(i + 11) % 12] += s[(i + 1) % 12];
  }
}

void endPartial(uint64_t* h) {
  static const int rotations[12] = {44, 15, 34, 21, 38, 33, 10, 13, 38, 53, 42, 54};
  for (int j = 0; j < 12; ++j) {
    h[(j + 11) % 12] += h[(j + 1) % 12];
    h[(j + 2) % 12] ^= h[(j + 11) % 12];
    h[(j + 1) % 12] = rot64(h[(j + 1) % 12], rotations[j]);
  }
}

void shortMix(uint64_t& h0, uint64_t& h1, uint64_t& h2, uint64_t& h3) {
  h2 = rot64(h2, 50); h2 += h3; h0 ^= h2;
  h3 = rot64(h3, 52); h3 += h0; h1 ^= h3;
  h0 = rot64(h0, 30); h0 += h1; h2 ^= h0;
  h1 = rot64(h1, 41); h1 += h2; h3 ^= h1;
  h2 = rot64(h2, 54); h2 += h3; h0 ^= h2;
  h3 = rot64(h3, 48); h3 += h0; h1 ^= h3;
  h0 = rot64(h0, 38); h0 += h1; h2 ^= h0;
  h1 = rot64(h1, 37); h1 += h2; h3 ^= h1;
  h2 = rot64(h2, 62); h2 += h3; h0 ^= h2;
  h3 = rot64(h3, 34); h3 += h0; h1 ^= h3;
  h0 = rot64(h0, 5);  h0 += h1; h2 ^= h0;
  h1 = rot64(h1, 36); h1 += h2; h3 ^= h1;
}

}  // namespace

void VrAbcSpookyHash::shortEnd(uint64_t& h0, uint64_t& h1, uint64_t& h2, uint64_t& h3) {
  h3 ^= h2; h2 = rot64(h2, 15); h3 += h2;
  h0 ^= h3; h3 = rot64(h3, 52); h0 += h3;
  h1 ^= h0; h0 = rot64(h0, 26); h1 += h0;
  h2 ^= h1; h1 = rot64(h1, 51); h2 += h1;
  h3 ^= h2; h2 = rot64(h2, 28); h3 += h2;
  h0 ^= h3; h3 = rot64(h3, 9);  h0 += h3;
  h1 ^= h0; h0 = rot64(h0, 47); h1 += h0;
  h2 ^= h1; h1 = rot64(h1, 54); h2 += h1;
  h3 ^= h2; h2 = rot64(h2, 32); h3 += h2;
  h0 ^= h3; h3 = rot64(h3, 25); h0 += h3;
  h1 ^= h0; h0 = rot64(h0, 63); h1 += h0;
}

void VrAbcSpookyHash::shortHash(const uint8_t* p, size_t len, uint64_t& hash1, uint64_t& hash2) {
  size_t rest = len % 32;
  uint64_t a = hash1, b = hash2, c = spookyConst, d = spookyConst;
  if (len > 15) {
    const uint8_t* end = p + (len / 32) * 32;
    for (; p < end; p += 32) {
      c += load64(p);
      d += load64(p + 8);
      shortMix(a, b, c, d);
      a += load64(p + 16);
      b += load64(p + 24);
    }
    if (rest >= 16) {
      c += load64(p);
      d += load64(p + 8);
      shortMix(a, b, c, d);
      p += 16;
      rest -= 16;
    }
  }
  d += static_cast<uint64_t>(len) << 56;
  switch (rest) {
    case 15: d += static_cast<uint64_t>(p[14]) << 48; [[fallthrough]];
    case 14: d += static_cast<uint64_t>(p[13]) << 40; [[fallthrough]];
    case 13: d += static_cast<uint64_t>(p[12]) << 32; [[fallthrough]];
    case 12: d += load32(p + 8); c += load64(p); break;
    case 11: d += static_cast<uint64_t>(p[10]) << 16; [[fallthrough]];
    case 10: d += static_cast<uint64_t>(p[9]) << 8; [[fallthrough]];
    case 9: d += static_cast<uint64_t>(p[8]); [[fallthrough]];
    case 8: c += load64(p); break;
    case 7: c += static_cast<uint64_t>(p[6]) << 48; [[fallthrough]];
    case 6: c += static_cast<uint64_t>(p[5]) << 40; [[fallthrough]];
    case 5: c += static_cast<uint64_t>(p[4]) << 32; [[fallthrough]];
    case 4: c += load32(p); break;
    case 3: c += static_cast<uint64_t>(p[2]) << 16; [[fallthrough]];
    case 2: c += static_cast<uint64_t>(p[1]) << 8; [[fallthrough]];
    case 1: c += static_cast<uint64_t>(p[0]); break;
    case 0: c += spookyConst; d += spookyConst; break;
  }
  shortEnd(a, b, c, d);
  hash1 = a;
  hash2 = b;
}

void VrAbcSpookyHash::init(uint64_t seed1, uint64_t seed2) {
  length = 0;
  remainder = 0;
  state[0] = seed1;
  state[1] = seed2;
}

void VrAbcSpookyHash::update(const void* message, size_t size) {
  const uint8_t* p = static_cast<const uint8_t*>(message);
  uint8_t* buffer = reinterpret_cast<uint8_t*>(data);
  const size_t newLength = size + remainder;
  if (newLength < bufSize) {
    if (size) std::memcpy(buffer + remainder, p, size);
    length += size;
    remainder = static_cast<uint8_t>(newLength);
    return;
  }
  uint64_t h[numVars];
  if (length < bufSize) {
    h[0] = h[3] = h[6] = h[9] = state[0];
    h[1] = h[4] = h[7] = h[10] = state[1];
    h[2] = h[5] = h[8] = h[11] = spookyConst;
  } else {
    std::memcpy(h, state, sizeof h);
  }
  length += size;
  if (remainder) {
    const size_t prefix = bufSize - remainder;
    std::memcpy(buffer + remainder, p, prefix);
    mix(buffer, h);
    mix(buffer + blockSize, h);
    p += prefix;
    size -= prefix;
  }
  const size_t blocks = size / blockSize;
  for (size_t i = 0; i < blocks; ++i, p += blockSize) mix(p, h);
  remainder = static_cast<uint8_t>(size - blocks * blockSize);
  if (remainder) std::memcpy(buffer, p, remainder);
  std::memcpy(state, h, sizeof h);
}

void VrAbcSpookyHash::final(uint64_t& hash1, uint64_t& hash2) const {
  if (length < bufSize) {
    hash1 = state[0];
    hash2 = state[1];
    shortHash(reinterpret_cast<const uint8_t*>(data), length, hash1, hash2);
    return;
  }
  uint8_t buffer[bufSize];
  std::memcpy(buffer, data, bufSize);
  uint64_t h[numVars];
  std::memcpy(h, state, sizeof h);
  const uint8_t* block = buffer;
  size_t rest = remainder;
  if (rest >= blockSize) {
    mix(block, h);
    block += blockSize;
    rest -= blockSize;
  }
  uint8_t last[blockSize];
  std::memcpy(last, block, rest);
  std::memset(last + rest, 0, blockSize - rest);
  last[blockSize - 1] = static_cast<uint8_t>(rest);
  for (size_t i = 0; i < numVars; ++i) h[i] += load64(last + 8 * i);
  endPartial(h);
  endPartial(h);
  endPartial(h);
  hash1 = h[0];
  hash2 = h[1];
}
