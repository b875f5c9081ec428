#include "geometry/vrutilRandom.h"

#include <cstring>
#include <new>

namespace vrutil {

namespace {
constexpr int kN = 624;
constexpr int kM = 397;
constexpr uint32_t kMatrixA = 0x9908B0DFu;
constexpr uint32_t kUpperMask = 0x80000000u;
constexpr uint32_t kLowerMask = 0x7FFFFFFFu;
}  // namespace

// One heap block: the twister's words, a second bank holding the tempered outputs of the current
// generation, the read index into it and the output mask.
struct PRNG::State {
  int index;
  uint32_t mt[kN];
  uint32_t out[kN];
  uint32_t mask;
};

PRNG::PRNG() : state(new (std::nothrow) State) { seed32(5489u); }
PRNG::PRNG(uint64_t s) : state(new (std::nothrow) State) { seed32(fold(s)); }
PRNG::PRNG(double s) : state(new (std::nothrow) State) { seed32(foldDouble(s)); }

PRNG::PRNG(const PRNG& o) : state(o.state ? new (std::nothrow) State : nullptr) {
  if (state) std::memcpy(state, o.state, sizeof(State));
}

PRNG::PRNG(PRNG&& o) noexcept : state(o.state) { o.state = nullptr; }

PRNG& PRNG::operator=(const PRNG& o) {
  if (this == &o) return *this;
  if (!o.state) {
    delete state;
    state = nullptr;
    return *this;
  }
  if (!state) state = new (std::nothrow) State;
  if (state) std::memcpy(state, o.state, sizeof(State));
  return *this;
}

PRNG& PRNG::operator=(PRNG&& o) noexcept {
  if (this != &o) {
    delete state;
    state = o.state;
    o.state = nullptr;
  }
  return *this;
}

PRNG::~PRNG() { delete state; }

uint32_t PRNG::foldDouble(double s) {
  uint64_t bits;
  std::memcpy(&bits, &s, sizeof bits);
  return fold(bits);
}

void PRNG::seed32(uint32_t seed) {
  if (!state) return;
  state->mask = 0xFFFFFFFFu;
  state->mt[0] = seed & state->mask;
  for (int i = 1; i < kN; ++i) {
    const uint32_t w = state->mt[i - 1];
    state->mt[i] = ((w ^ (w >> 30)) * 1812433253u + static_cast<uint32_t>(i)) & state->mask;
  }
  state->index = kN;
}

// Twists the whole generation and tempers it into the output bank.
void PRNG::refill() {
  uint32_t* mt = state->mt;
  for (int i = 0; i < kN; ++i) {
    const uint32_t y = (mt[i] & kUpperMask) | (mt[(i + 1) % kN] & kLowerMask);
    mt[i] = mt[(i + kM) % kN] ^ (y >> 1) ^ ((y & 1u) ? kMatrixA : 0u);
  }
  for (int i = 0; i < kN; ++i) {
    uint32_t y = mt[i];
    y ^= y >> 11;
    y ^= (y << 7) & 0x9D2C5680u;
    y ^= (y << 15) & 0xEFC60000u;
    y ^= y >> 18;
    state->out[i] = y & state->mask;
  }
  state->index = 0;
}

uint32_t PRNG::random32() {
  if (!state) return 0;
  if (state->index >= kN) refill();
  return state->out[state->index++];
}

double PRNG::random01() {
  const double a = random32();
  const double b = random32();
  return (a + b * 4294967296.0) / 18446744073709551616.0;
}

}  // namespace vrutil
