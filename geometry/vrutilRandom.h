#pragma once
// vrutil::PRNG: the system's 32-bit Mersenne Twister (MT19937) with its own seeding rules, for
// per-object random streams that must repeat exactly across machines. A generator belongs to one
// thread; copies are independent streams that continue from the same place.

#include <cstdint>
#include <type_traits>

namespace vrutil {

class PRNG {
 public:
  /// Seeds with 5489, the generator's customary default.
  PRNG();
  /// Seeds with fold(s).
  explicit PRNG(uint64_t s);
  /// Seeds with foldDouble(s), the fold of its IEEE-754 bits, so equal doubles give equal streams.
  explicit PRNG(double s);
  /// Any other integer type seeds as its value converted to 64 bits.
  template <class I, std::enable_if_t<std::is_integral<I>::value && !std::is_same<I, uint64_t>::value &&
                                          !std::is_same<I, bool>::value,
                                      int> = 0>
  explicit PRNG(I s) : PRNG(static_cast<uint64_t>(s)) {}

  PRNG(const PRNG& o);
  PRNG(PRNG&& o) noexcept;
  PRNG& operator=(const PRNG& o);
  PRNG& operator=(PRNG&& o) noexcept;
  ~PRNG();

  /// False when the state could not be allocated (or was moved away); such a handle draws 0.
  bool isValid() const { return state != nullptr; }
  explicit operator bool() const { return isValid(); }

  /// Restarts the stream from a 32-bit seed (no fold).
  void seed32(uint32_t seed);
  /// Restarts the stream from fold(s).
  void seed(uint64_t s) { seed32(fold(s)); }

  /// The next tempered 32-bit output.
  uint32_t random32();
  /// (a + b·2^32) / 2^64 of the next two outputs a, b, in [0, 1].
  double random01();

  /// Low 32 bits of (s >> 32) ^ s ^ 0xAAAAAAAA.
  static uint32_t fold(uint64_t s) { return static_cast<uint32_t>((s >> 32) ^ s ^ 0xAAAAAAAAull); }
  /// fold of the bit pattern of s.
  static uint32_t foldDouble(double s);

 private:
  struct State;
  void refill();
  State* state = nullptr;
};

}  // namespace vrutil
