#include "geometry/VrPatchUtil.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

// The power of two of a side. Baked maps depend on this exact rule: the answer is 2^(e+1) for
// the unbiased exponent e of r, unless the low 53 bits of r's bit pattern are all zero (then
// 2^e). Bit 52 is the lowest exponent bit, so exact powers of two with an even exponent round
// up once more: 1 gives 2, 4 gives 8, while 2 stays 2.
unsigned short sideResolution(double length, double spacing) {
  const double r = std::max(length / spacing, 1.0);
  uint64_t bits = 0;
  std::memcpy(&bits, &r, sizeof bits);
  const int exponent = static_cast<int>((bits >> 52) & 0x7FF) - 1023;
  const bool lowBitsClear = (bits & ((uint64_t(1) << 53) - 1)) == 0;
  const int power = lowBitsClear ? exponent : exponent + 1;
  if (power >= 12) return 4096;
  return static_cast<unsigned short>(1u << power);
}

}  // namespace

namespace VrPatchUtil {

unsigned computeFaceResolution(double lenU, double lenV, double density, unsigned short& resU,
                               unsigned short& resV) {
  const double spacing = density == 0.0 ? 0.1 : 1.0 / density;
  resU = sideResolution(lenU, spacing);
  resV = sideResolution(lenV, spacing);
  return static_cast<unsigned>(resU) * resV;
}

}  // namespace VrPatchUtil
