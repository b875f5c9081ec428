// The embedded blue-noise sample table and getSample.
//
// The table is pinned by its SHA-256 (the same digest `sha256sum geometry/data/sampleTable.bin`
// prints), computed here by a small SHA-256 of the test's own.

#include "geometry/vrutilSamples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using vrutil::getSample;
using vrutil::kSampleSetCount;
using vrutil::kSamplesPerSet;

namespace {

const char* const kTableSha256 = "5e499a76fae377326800ffc657bb94f672e0aec8e9d88fbd13f09c129787e329";
constexpr size_t kTableDoubles = 1048576;

// The first point of set 0, as the file holds it.
constexpr double kFirstU = 0x1.d3a79b35b2fc1p-1;  // 0.9133881094980937
constexpr double kFirstV = 0x1.306c74802c22ap-1;  // 0.5945774466000036
constexpr double kOneMinusFirstU = 0x1.62c32652681f8p-4;
constexpr double kOneMinusFirstV = 0x1.9f2716ffa7bacp-2;

// SHA-256 (FIPS 180-4) of a byte buffer, as lowercase hex.
std::string sha256Hex(const unsigned char* data, size_t size) {
  static const std::uint32_t k[64] = {
      0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4,
      0xab1c5ed5, 0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe,
      0x9bdc06a7, 0xc19bf174, 0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f,
      0x4a7484aa, 0x5cb0a9dc, 0x76f988da, 0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7,
      0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967, 0x27b70a85, 0x2e1b2138, 0x4d2c6dfc,
      0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85, 0xa2bfe8a1, 0xa81a664b,
      0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070, 0x19a4c116,
      0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
      0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7,
      0xc67178f2};
  std::uint32_t h[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                        0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  auto rotr = [](std::uint32_t x, int n) { return (x >> n) | (x << (32 - n)); };
  auto block = [&](const unsigned char* b) {
    std::uint32_t w[64];
    for (int i = 0; i < 16; ++i) {
      w[i] = std::uint32_t(b[4 * i]) << 24 | std::uint32_t(b[4 * i + 1]) << 16 |
             std::uint32_t(b[4 * i + 2]) << 8 | std::uint32_t(b[4 * i + 3]);
    }
    for (int i = 16; i < 64; ++i) {
      const std::uint32_t s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
      const std::uint32_t s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
      w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    std::uint32_t a = h[0], bb = h[1], c = h[2], d = h[3], e = h[4], f = h[5], g = h[6], hh = h[7];
    for (int i = 0; i < 64; ++i) {
      const std::uint32_t t1 =
          hh + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) + k[i] + w[i];
      const std::uint32_t t2 =
          (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & bb) ^ (a & c) ^ (bb & c));
      hh = g;
      g = f;
      f = e;
      e = d + t1;
      d = c;
      c = bb;
      bb = a;
      a = t1 + t2;
    }
    h[0] += a, h[1] += bb, h[2] += c, h[3] += d, h[4] += e, h[5] += f, h[6] += g, h[7] += hh;
  };
  size_t done = 0;
  for (; done + 64 <= size; done += 64) block(data + done);
  unsigned char tail[128] = {};
  const size_t rest = size - done;
  std::memcpy(tail, data + done, rest);
  tail[rest] = 0x80;
  const size_t tailSize = rest + 9 <= 64 ? 64 : 128;
  const std::uint64_t bits = static_cast<std::uint64_t>(size) * 8;
  for (int i = 0; i < 8; ++i) tail[tailSize - 1 - i] = static_cast<unsigned char>(bits >> (8 * i));
  for (size_t at = 0; at < tailSize; at += 64) block(tail + at);
  std::string hex;
  char digits[9];
  for (std::uint32_t word : h) {
    std::snprintf(digits, sizeof digits, "%08x", word);
    hex += digits;
  }
  return hex;
}

struct Point {
  double u;
  double v;
};

Point tablePoint(unsigned set, unsigned index) {
  const double* t = vrutil::sampleTable() + (static_cast<size_t>(set) * kSamplesPerSet + index) * 2;
  return {t[0], t[1]};
}

double wrappedDistance(const Point& a, const Point& b) {
  double du = std::fabs(a.u - b.u);
  double dv = std::fabs(a.v - b.v);
  du = std::min(du, 1.0 - du);
  dv = std::min(dv, 1.0 - dv);
  return std::sqrt(du * du + dv * dv);
}

double prefixBound(unsigned n) { return 0.55 / std::sqrt(static_cast<double>(n)); }

// Smallest wrapped distance between two of the first n points of a set, over every pair.
double prefixMinDistanceAllPairs(unsigned set, unsigned n) {
  double best = INFINITY;
  for (unsigned j = 1; j < n; ++j) {
    for (unsigned i = 0; i < j; ++i) {
      best = std::min(best, wrappedDistance(tablePoint(set, i), tablePoint(set, j)));
    }
  }
  return best;
}

// True when no two of the first n points of a set are closer than r (wrapped). The points are
// sorted into a grid of cells no smaller than r, so only the 3x3 neighbouring cells need to be
// searched.
bool prefixKeepsDistance(unsigned set, unsigned n, double r) {
  const int res = static_cast<int>(1.0 / r);
  if (res < 3) return prefixMinDistanceAllPairs(set, n) >= r;
  auto cellOf = [res](const Point& p) {
    const int i = std::min(static_cast<int>(p.u * res), res - 1);
    const int j = std::min(static_cast<int>(p.v * res), res - 1);
    return static_cast<size_t>(j) * res + i;
  };
  // Counting sort of the points by cell: cell c holds sorted[first[c] .. first[c + 1]).
  std::vector<unsigned> first(static_cast<size_t>(res) * res + 1, 0);
  for (unsigned i = 0; i < n; ++i) ++first[cellOf(tablePoint(set, i)) + 1];
  for (size_t c = 1; c < first.size(); ++c) first[c] += first[c - 1];
  std::vector<Point> sorted(n);
  std::vector<unsigned> fill(first.begin(), first.end() - 1);
  for (unsigned i = 0; i < n; ++i) {
    const Point p = tablePoint(set, i);
    sorted[fill[cellOf(p)]++] = p;
  }
  for (int cj = 0; cj < res; ++cj) {
    for (int ci = 0; ci < res; ++ci) {
      const size_t cell = static_cast<size_t>(cj) * res + ci;
      for (unsigned a = first[cell]; a < first[cell + 1]; ++a) {
        for (int dj = -1; dj <= 1; ++dj) {
          for (int di = -1; di <= 1; ++di) {
            const size_t other =
                static_cast<size_t>((cj + dj + res) % res) * res + (ci + di + res) % res;
            for (unsigned b = first[other]; b < first[other + 1]; ++b) {
              if (b != a && wrappedDistance(sorted[a], sorted[b]) < r) return false;
            }
          }
        }
      }
    }
  }
  return true;
}

// The tiling rule written out as a walk over the levels, for comparison with getSample.
Point tiledSample(unsigned index, unsigned set) {
  const unsigned s = set & 15;
  if (index < kSamplesPerSet) return tablePoint(s, index);
  std::uint64_t k = 1;
  std::uint64_t r = index;
  do {
    r -= k * k * kSamplesPerSet;
    k *= 2;
  } while (r >= k * k * kSamplesPerSet);
  const Point p = tablePoint(s, static_cast<unsigned>(r / (k * k)));
  const double cellU = static_cast<double>(r % k);
  const double cellV = static_cast<double>((r / k) % k);
  return {(cellU + p.u) / static_cast<double>(k), (cellV + p.v) / static_cast<double>(k)};
}

Point sample(unsigned index, unsigned flip = 0, unsigned set = 0) {
  Point p{-1.0, -1.0};
  getSample(index, flip, set, p.u, p.v);
  return p;
}

void expectSamePoint(const Point& actual, const Point& expected, const std::string& what) {
  EXPECT_EQ(actual.u, expected.u) << what;
  EXPECT_EQ(actual.v, expected.v) << what;
}

}  // namespace

TEST(SampleTable, SizeAndDigest) {
  ASSERT_EQ(vrutil::sampleTableSize(), kTableDoubles);
  ASSERT_EQ(vrutil::sampleTableSize(), size_t{kSampleSetCount} * kSamplesPerSet * 2);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(vrutil::sampleTable()) % alignof(double), 0u);
  const auto* bytes = reinterpret_cast<const unsigned char*>(vrutil::sampleTable());
  EXPECT_EQ(sha256Hex(bytes, kTableDoubles * sizeof(double)), kTableSha256);
  // The digest routine itself, on the standard test vectors.
  EXPECT_EQ(sha256Hex(reinterpret_cast<const unsigned char*>("abc"), 3),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  const char* twoBlocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
  EXPECT_EQ(sha256Hex(reinterpret_cast<const unsigned char*>(twoBlocks), std::strlen(twoBlocks)),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(SampleTable, EmbeddedBytesAreTheCommittedFile) {
  const std::string path = std::string(VORN_SOURCE_DIR) + "/geometry/data/sampleTable.bin";
  std::FILE* f = std::fopen(path.c_str(), "rb");
  ASSERT_NE(f, nullptr) << path;
  std::vector<unsigned char> file(kTableDoubles * sizeof(double) + 1);
  const size_t read = std::fread(file.data(), 1, file.size(), f);
  std::fclose(f);
  ASSERT_EQ(read, kTableDoubles * sizeof(double));
  EXPECT_EQ(std::memcmp(file.data(), vrutil::sampleTable(), read), 0);
  // The file's first little-endian double is the table's first value.
  std::uint64_t bits = 0;
  for (int b = 7; b >= 0; --b) bits = bits << 8 | file[static_cast<size_t>(b)];
  double first;
  std::memcpy(&first, &bits, sizeof first);
  EXPECT_EQ(first, kFirstU);
  EXPECT_EQ(vrutil::sampleTable()[0], kFirstU);
  EXPECT_EQ(vrutil::sampleTable()[1], kFirstV);
}

TEST(SampleTable, ValuesLieInTheUnitInterval) {
  const double* t = vrutil::sampleTable();
  // Far enough below 1 that (k - 1 + value) / k stays below 1 for every tiling level k <= 512.
  const double top = 1.0 - 0x1.0p-44;
  size_t outside = 0;
  for (size_t i = 0; i < kTableDoubles; ++i) {
    if (!(t[i] >= 0.0 && t[i] < top)) ++outside;
  }
  EXPECT_EQ(outside, 0u);
}

TEST(SampleTable, ShortPrefixesKeepTheirSpacing) {
  for (unsigned set = 0; set < kSampleSetCount; ++set) {
    for (unsigned n = 2; n <= 64; ++n) {
      EXPECT_GE(prefixMinDistanceAllPairs(set, n), prefixBound(n)) << "set " << set << " n " << n;
    }
  }
}

TEST(SampleTable, LongPrefixesKeepTheirSpacing) {
  const unsigned lengths[] = {65, 100, 127, 257, 1000, 1024, 4096, 10000, 32768};
  for (unsigned set = 0; set < kSampleSetCount; ++set) {
    for (unsigned n : lengths) {
      EXPECT_TRUE(prefixKeepsDistance(set, n, prefixBound(n))) << "set " << set << " n " << n;
    }
  }
}

TEST(SampleTable, SpacingCheckSeesAClosePair) {
  // The prefix check must fail where the bound is out of reach: 32768 points cannot all keep
  // 1.5/sqrt(N) apart (discs of radius 0.75/sqrt(N) would cover more than the square).
  EXPECT_FALSE(prefixKeepsDistance(0, 32768, 1.5 / std::sqrt(32768.0)));
  EXPECT_LT(prefixMinDistanceAllPairs(0, 64), 1.5 / std::sqrt(64.0));
}

TEST(GetSample, LevelBoundaries) {
  for (unsigned set : {0u, 5u, 15u}) {
    const std::string where = "set " + std::to_string(set);
    const Point last = tablePoint(set, 32767);
    const Point first = tablePoint(set, 0);
    // The last point of the table itself.
    expectSamePoint(sample(32767, 0, set), last, where + " index 32767");
    // The 2x2 level starts with point 0 in cell (0, 0).
    expectSamePoint(sample(32768, 0, set), {first.u / 2, first.v / 2}, where + " index 32768");
    // Index 32769 puts point 0 in cell (1, 0), 32770 in (0, 1), 32771 in (1, 1).
    expectSamePoint(sample(32769, 0, set), {(1 + first.u) / 2, first.v / 2}, where + " 32769");
    expectSamePoint(sample(32770, 0, set), {first.u / 2, (1 + first.v) / 2}, where + " 32770");
    expectSamePoint(sample(32771, 0, set), {(1 + first.u) / 2, (1 + first.v) / 2}, where + " 32771");
    // Index 32772 moves on to point 1.
    const Point second = tablePoint(set, 1);
    expectSamePoint(sample(32772, 0, set), {second.u / 2, second.v / 2}, where + " 32772");
    // The last of the 2x2 level: r = 131071, point 32767 in cell (1, 1).
    expectSamePoint(sample(163839, 0, set), {(1 + last.u) / 2, (1 + last.v) / 2},
                    where + " index 163839");
    // The 4x4 level starts with point 0 in cell (0, 0).
    expectSamePoint(sample(163840, 0, set), {first.u / 4, first.v / 4}, where + " index 163840");
    // The largest index: level 512 starts at 2863300608, r = 1431666687, point 5461 in cell
    // (511, 191).
    const Point p = tablePoint(set, 5461);
    expectSamePoint(sample(UINT_MAX, 0, set), {(511 + p.u) / 512, (191 + p.v) / 512},
                    where + " index 4294967295");
  }
}

TEST(GetSample, MatchesTheLevelWalk) {
  // Every level's first and last index and neighbours, then a spread across the whole range.
  std::vector<unsigned> indices;
  std::uint64_t start = 0;
  for (std::uint64_t k = 1; start <= UINT_MAX; k *= 2) {
    for (std::uint64_t d = 0; d < 6; ++d) {
      if (start + d <= UINT_MAX) indices.push_back(static_cast<unsigned>(start + d));
      if (start >= d + 1) indices.push_back(static_cast<unsigned>(start - d - 1));
    }
    start += k * k * kSamplesPerSet;
  }
  for (std::uint64_t i = 0; i < 4000; ++i) {
    indices.push_back(static_cast<unsigned>((i * 0x9E3779B97F4A7C15ull) >> 32));
  }
  for (unsigned index : indices) {
    for (unsigned set : {0u, 9u}) {
      const std::string what = "index " + std::to_string(index) + " set " + std::to_string(set);
      const Point expected = tiledSample(index, set);
      const Point actual = sample(index, 0, set);
      expectSamePoint(actual, expected, what);
      EXPECT_TRUE(actual.u >= 0.0 && actual.u < 1.0 && actual.v >= 0.0 && actual.v < 1.0) << what;
    }
  }
}

TEST(GetSample, SetAndFlipWrap) {
  for (unsigned index : {0u, 1u, 777u, 32767u, 32768u, 200000u, 4000000000u}) {
    for (unsigned flip = 0; flip < 8; ++flip) {
      const std::string what = "index " + std::to_string(index) + " flip " + std::to_string(flip);
      const Point base = sample(index, flip, 0);
      expectSamePoint(sample(index, flip, 16), base, what + " set 16");
      expectSamePoint(sample(index, flip, 32), base, what + " set 32");
      expectSamePoint(sample(index, flip + 8, 0), base, what + " +8");
      expectSamePoint(sample(index, flip + 0xFFFFFFF8u, 0), base, what + " +0xFFFFFFF8");
      expectSamePoint(sample(index, flip, 3), sample(index, flip, 19), what + " set 19");
    }
    expectSamePoint(sample(index, 0, UINT_MAX), sample(index, 0, 15), "set 4294967295");
  }
  // The 16 sets are different sequences, each read from its own place in the table.
  for (unsigned set = 0; set < kSampleSetCount; ++set) {
    expectSamePoint(sample(5, 0, set), tablePoint(set, 5), "set " + std::to_string(set));
    for (unsigned other = 0; other < set; ++other) {
      const Point a = sample(5, 0, set);
      const Point b = sample(5, 0, other);
      EXPECT_TRUE(a.u != b.u || a.v != b.v) << "sets " << set << " and " << other;
    }
  }
}

TEST(GetSample, FlipsOfTheFirstPoint) {
  const Point flips[8] = {
      {kFirstU, kFirstV},                  // 0: (u, v)
      {kOneMinusFirstV, kFirstU},          // 1: (1-v, u)
      {kOneMinusFirstU, kOneMinusFirstV},  // 2: (1-u, 1-v)
      {kFirstV, kOneMinusFirstU},          // 3: (v, 1-u)
      {kOneMinusFirstU, kFirstV},          // 4: (1-u, v)
      {kFirstV, kFirstU},                  // 5: (v, u)
      {kFirstU, kOneMinusFirstV},          // 6: (u, 1-v)
      {kOneMinusFirstV, kOneMinusFirstU},  // 7: (1-v, 1-u)
  };
  for (unsigned flip = 0; flip < 8; ++flip) {
    expectSamePoint(sample(0, flip, 0), flips[flip], "flip " + std::to_string(flip));
  }
  // At the 2x2 level the flip applies to the tiled value.
  expectSamePoint(sample(32771, 2, 0), {1.0 - (1 + kFirstU) / 2, 1.0 - (1 + kFirstV) / 2},
                  "index 32771 flip 2");
}
