#include "io/alembic/VrAbcSample.h"

uint64_t VrAbcSample::numValues() const {
  if (dims.empty()) return 0;
  uint64_t n = 1;
  for (uint64_t d : dims) n *= d;
  return n;
}
