// The embedded blue-noise sample table and getSample. The table is pinned by its SHA-256 (as
// `sha256sum geometry/data/sampleTable.bin` prints it), computed by the test's own SHA-256.

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

// SHA-256 (FIPS 180-4) of a byte buffer, as lowercase hex. Its constants are the first 32 bits of
// the fractional parts of the square roots (h) and cube roots (k) of the first primes.
std::string sha256Hex(const unsigned char* data, size_t size) {
  std::uint32_t h[8], k[64];
  auto frac = [](long double x) { return std::uint32_t((x - std::floor(x)) * 4294967296.0L); };
  for (int n = 0, p = 2; n < 64; ++p) {
    bool prime = true;
    for (int d = 2; d * d <= p; ++d) prime = prime && p % d != 0;
    if (!prime) continue;
    if (n < 8) h[n] = frac(std::sqrt(static_cast<long double>(p)));
    k[n++] = frac(std::cbrt(static_cast<long double>(p)));
  }
  // The message, 0x80, zeros, and its length in bits (big-endian) fill whole 64-byte blocks.
  std::vector<unsigned char> m(data, data + size);
  m.push_back(0x80);
  m.resize((m.size() + 8 + 63) / 64 * 64, 0);
  for (size_t i = 0; i < 8; ++i)
    m[m.size() - 1 - i] = static_cast<unsigned char>((size * 8) >> (8 * i));
  auto rotr = [](std::uint32_t x, int n) { return (x >> n) | (x << (32 - n)); };
  for (size_t at = 0; at < m.size(); at += 64) {
    std::uint32_t w[64], s[8];  // s: a, b, c, d, e, f, g, h
    for (int i = 0; i < 64; ++i) {
      const unsigned char* b = &m[at + 4 * size_t(i)];
      w[i] = i < 16 ? std::uint32_t(b[0]) << 24 | std::uint32_t(b[1]) << 16 | b[2] << 8 | b[3]
                    : w[i - 16] + (rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ (w[i - 15] >> 3)) +
                          w[i - 7] + (rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ (w[i - 2] >> 10));
    }
    std::copy(h, h + 8, s);
    for (int i = 0; i < 64; ++i) {
      const std::uint32_t t1 = s[7] + (rotr(s[4], 6) ^ rotr(s[4], 11) ^ rotr(s[4], 25)) +
                               ((s[4] & s[5]) ^ (~s[4] & s[6])) + k[i] + w[i];
      const std::uint32_t t2 = (rotr(s[0], 2) ^ rotr(s[0], 13) ^ rotr(s[0], 22)) +
                               ((s[0] & s[1]) ^ (s[0] & s[2]) ^ (s[1] & s[2]));
      std::copy_backward(s, s + 7, s + 8);  // h = g, ..., e = d, ..., b = a
      s[4] += t1;
      s[0] = t1 + t2;
    }
    for (int i = 0; i < 8; ++i) h[i] += s[i];
  }
  char hex[65];
  for (int i = 0; i < 8; ++i) std::snprintf(hex + 8 * i, 9, "%08x", static_cast<unsigned>(h[i]));
  return hex;
}

struct Point {
  double u, v;
};

Point tablePoint(unsigned set, unsigned index) {
  const double* t = vrutil::sampleTable() + (static_cast<size_t>(set) * kSamplesPerSet + index) * 2;
  return {t[0], t[1]};
}

double wrappedDistance(const Point& a, const Point& b) {
  const double du = std::min(std::fabs(a.u - b.u), 1.0 - std::fabs(a.u - b.u));
  const double dv = std::min(std::fabs(a.v - b.v), 1.0 - std::fabs(a.v - b.v));
  return std::sqrt(du * du + dv * dv);
}

double prefixBound(unsigned n) { return 0.55 / std::sqrt(static_cast<double>(n)); }

// Smallest wrapped distance between two of the first n points of a set, over every pair.
double prefixMinDistanceAllPairs(unsigned set, unsigned n) {
  double best = INFINITY;
  for (unsigned j = 1; j < n; ++j)
    for (unsigned i = 0; i < j; ++i)
      best = std::min(best, wrappedDistance(tablePoint(set, i), tablePoint(set, j)));
  return best;
}

// True when no two of the first n points of a set are closer than r (wrapped). The points are
// sorted into cells no smaller than r, so only the 3x3 neighbouring cells need searching.
bool prefixKeepsDistance(unsigned set, unsigned n, double r) {
  const int res = static_cast<int>(1.0 / r);
  if (res < 3) return prefixMinDistanceAllPairs(set, n) >= r;
  auto cell = [res](int i, int j) {
    return static_cast<size_t>((j + res) % res) * res + static_cast<size_t>((i + res) % res);
  };
  auto index = [res](double x) { return std::min(static_cast<int>(x * res), res - 1); };
  std::vector<std::vector<Point>> cells(static_cast<size_t>(res) * res);
  for (unsigned i = 0; i < n; ++i) {
    const Point p = tablePoint(set, i);
    cells[cell(index(p.u), index(p.v))].push_back(p);
  }
  for (int cj = 0; cj < res; ++cj)
    for (int ci = 0; ci < res; ++ci)
      for (const Point& a : cells[cell(ci, cj)])
        for (int dj = -1; dj <= 1; ++dj)
          for (int di = -1; di <= 1; ++di)
            for (const Point& b : cells[cell(ci + di, cj + dj)])
              if (&a != &b && wrappedDistance(a, b) < r) return false;
  return true;
}

// The tiling rule written out as a walk over the levels, for comparison with getSample.
Point tiledSample(unsigned index, unsigned set) {
  const unsigned s = set & 15;
  if (index < kSamplesPerSet) return tablePoint(s, index);
  std::uint64_t k = 1, r = index;
  do {
    r -= k * k * kSamplesPerSet;
    k *= 2;
  } while (r >= k * k * kSamplesPerSet);
  const Point p = tablePoint(s, static_cast<unsigned>(r / (k * k)));
  const double cellU = static_cast<double>(r % k), cellV = static_cast<double>((r / k) % k);
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
  // The digest routine itself, on the standard test vectors of one and two blocks.
  EXPECT_EQ(sha256Hex(reinterpret_cast<const unsigned char*>("abc"), 3),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  const char* twoBlocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
  EXPECT_EQ(sha256Hex(reinterpret_cast<const unsigned char*>(twoBlocks), std::strlen(twoBlocks)),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(SampleTable, PrefixesKeepTheirSpacing) {
  for (unsigned set = 0; set < kSampleSetCount; ++set) {
    for (unsigned n = 2; n <= 64; ++n)
      EXPECT_GE(prefixMinDistanceAllPairs(set, n), prefixBound(n)) << "set " << set << " n " << n;
    for (unsigned n : {65u, 100u, 127u, 257u, 1000u, 1024u, 4096u, 10000u, 32768u})
      EXPECT_TRUE(prefixKeepsDistance(set, n, prefixBound(n))) << "set " << set << " n " << n;
  }
  // Both checks see a close pair where the bound is out of reach: 32768 points cannot all keep
  // 1.5/sqrt(N) apart (discs of radius 0.75/sqrt(N) would cover more than the square).
  EXPECT_FALSE(prefixKeepsDistance(0, 32768, 1.5 / std::sqrt(32768.0)));
  EXPECT_LT(prefixMinDistanceAllPairs(0, 64), 1.5 / std::sqrt(64.0));
}

TEST(GetSample, LevelBoundaries) {
  // index: table point p in cell (cu, cv) of level k, i.e. ((cu + p.u) / k, (cv + p.v) / k).
  const struct {
    unsigned index, point, cu, cv, k;
  } cases[] = {
      {32767, 32767, 0, 0, 1},   // the last point of the table itself
      {32768, 0, 0, 0, 2},       // the 2x2 level starts with point 0 in cell (0, 0),
      {32769, 0, 1, 0, 2},       // then (1, 0),
      {32770, 0, 0, 1, 2},       // (0, 1),
      {32771, 0, 1, 1, 2},       // (1, 1),
      {32772, 1, 0, 0, 2},       // and moves on to point 1
      {163839, 32767, 1, 1, 2},  // the last of the 2x2 level: r = 131071
      {163840, 0, 0, 0, 4},      // the 4x4 level starts
      // The largest index: level 512 starts at 2863300608, r = 1431666687.
      {UINT_MAX, 5461, 511, 191, 512}};
  for (unsigned set : {0u, 5u, 15u})
    for (const auto& c : cases) {
      const Point p = tablePoint(set, c.point);
      expectSamePoint(sample(c.index, 0, set), {(c.cu + p.u) / c.k, (c.cv + p.v) / c.k},
                      "set " + std::to_string(set) + " index " + std::to_string(c.index));
    }
}

TEST(GetSample, MatchesTheLevelWalk) {
  // Every level's first and last index and neighbours, then a spread across the whole range.
  std::vector<unsigned> indices;
  std::uint64_t start = 0;
  for (std::uint64_t k = 1; start <= UINT_MAX; start += k * k * kSamplesPerSet, k *= 2)
    for (std::uint64_t d = 0; d < 6; ++d) {
      if (start + d <= UINT_MAX) indices.push_back(static_cast<unsigned>(start + d));
      if (start >= d + 1) indices.push_back(static_cast<unsigned>(start - d - 1));
    }
  for (std::uint64_t i = 0; i < 4000; ++i)
    indices.push_back(static_cast<unsigned>((i * 0x9E3779B97F4A7C15ull) >> 32));
  for (unsigned index : indices)
    for (unsigned set : {0u, 9u}) {
      const std::string what = "index " + std::to_string(index) + " set " + std::to_string(set);
      const Point actual = sample(index, 0, set);
      expectSamePoint(actual, tiledSample(index, set), what);
      EXPECT_TRUE(actual.u >= 0.0 && actual.u < 1.0 && actual.v >= 0.0 && actual.v < 1.0) << what;
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
  for (unsigned flip = 0; flip < 8; ++flip)
    expectSamePoint(sample(0, flip, 0), flips[flip], "flip " + std::to_string(flip));
  // At the 2x2 level the flip applies to the tiled value.
  expectSamePoint(sample(32771, 2, 0), {1.0 - (1 + kFirstU) / 2, 1.0 - (1 + kFirstV) / 2},
                  "index 32771 flip 2");
}
