#include "geometry/vrutilSamples.h"

#include <cstdint>

// The table's bytes are the file's little-endian doubles, used in place.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "the embedded sample table holds little-endian doubles");
static_assert(sizeof(double) == 8, "the embedded sample table holds 64-bit doubles");

// Defined in vrutilSamples.S.
extern "C" {
__attribute__((visibility("hidden"))) extern const double vornSampleTable[];
__attribute__((visibility("hidden"))) extern const std::uint64_t vornSampleTableBytes;
}

namespace vrutil {

namespace {

constexpr unsigned kSetShift = 15;  // kSamplesPerSet == 1 << kSetShift
static_assert(kSamplesPerSet == 1u << kSetShift, "a set's size is a power of two");

// 1/k for the tiling levels k = 1, 2, 4, ..., 512; an unsigned index never reaches k = 1024.
constexpr double kCellScale[] = {1.0,        0.5,         0.25,         0.125,         0.0625,
                                 0.03125,    0.015625,    0.0078125,    0.00390625,    0.001953125};

}  // namespace

void getSample(unsigned index, unsigned flip, unsigned set, double& u, double& v) {
  const double* points = vornSampleTable + static_cast<size_t>(set & 15) * kSamplesPerSet * 2;

  // Level L (k = 2^L) starts at index 32768 * (4^L - 1) / 3, a multiple of 32768, so the index
  // is in level L or above exactly when 3 * (index / 32768) + 1 >= 4^L. Level 0 is the table
  // itself and comes out of the same arithmetic with k = 1.
  const std::uint64_t q = 3 * static_cast<std::uint64_t>(index >> kSetShift) + 1;
  const unsigned level = static_cast<unsigned>(63 - __builtin_clzll(q)) / 2;
  const std::uint64_t levelStart = (((std::uint64_t{1} << (2 * level)) - 1) / 3) << kSetShift;
  const std::uint64_t r = index - levelStart;
  const std::uint64_t cellMask = (std::uint64_t{1} << level) - 1;
  const std::uint64_t p = r >> (2 * level);
  const double cellU = static_cast<double>(r & cellMask);
  const double cellV = static_cast<double>((r >> level) & cellMask);
  // 1/k is a power of two, so the products below are exactly (cell + p) / k.
  const double scale = kCellScale[level];
  const double su = (cellU + points[2 * p]) * scale;
  const double sv = (cellV + points[2 * p + 1]) * scale;

  switch (flip & 7) {
    case 0: u = su;       v = sv;       break;
    case 1: u = 1.0 - sv; v = su;       break;
    case 2: u = 1.0 - su; v = 1.0 - sv; break;
    case 3: u = sv;       v = 1.0 - su; break;
    case 4: u = 1.0 - su; v = sv;       break;
    case 5: u = sv;       v = su;       break;
    case 6: u = su;       v = 1.0 - sv; break;
    default: u = 1.0 - sv; v = 1.0 - su; break;
  }
}

const double* sampleTable() { return vornSampleTable; }

size_t sampleTableSize() { return static_cast<size_t>(vornSampleTableBytes / sizeof(double)); }

}  // namespace vrutil
