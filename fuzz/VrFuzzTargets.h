#pragma once
// The readers that the fuzz harnesses drive, by name. Each target hands one input to one reader
// and throws the answer away: a crash, a hang or a leak is the only failure. The harnesses of
// this folder (one program per target) and the suite's replay of tests/data/fuzz/ call the same
// functions, so a crasher saved by scripts/fuzz.sh replays exactly as it was found.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vrfuzz {

struct Target {
  const char* name;  ///< also the folder of its regression files under tests/data/fuzz/
  void (*feed)(const uint8_t* data, size_t size);
};

/// Every target, in a fixed order.
const std::vector<Target>& targets();

/// The target called `name`; null when there is none.
const Target* findTarget(const std::string& name);

/// Silences the library's messages (a harness runs millions of inputs) and sets the limits a
/// hostile file meets; called once per process before the first input.
void initialise();

}  // namespace vrfuzz
