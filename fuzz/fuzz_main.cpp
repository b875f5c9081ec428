// One libFuzzer harness: VORN_FUZZ_TARGET names the reader it drives (see VrFuzzTargets.h).

#include "fuzz/VrFuzzTargets.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  vrfuzz::initialise();
  if (!vrfuzz::findTarget(VORN_FUZZ_TARGET)) {
    std::fprintf(stderr, "no fuzz target named %s\n", VORN_FUZZ_TARGET);
    std::abort();
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const vrfuzz::Target* target = vrfuzz::findTarget(VORN_FUZZ_TARGET);
  target->feed(data, size);
  return 0;
}
