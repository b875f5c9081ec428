#include <gtest/gtest.h>

#include "base/VrTaskManager.h"

// A race on purpose, disabled everywhere: scripts/tsan.sh must report it when it is switched on
//   bash scripts/tsan.sh 'ThreadSanitizerCanary.*' --gtest_also_run_disabled_tests
// which shows that the instrumented build still sees races inside the library's parallel loops
// (and that the TBB suppressions hide none of them).
TEST(ThreadSanitizerCanary, DISABLED_AnUnguardedCounterIsReported) {
  long counted = 0;
  VrTaskManager::parallelChunks(1 << 12, [&](size_t begin, size_t end) { counted += long(end - begin); });
  EXPECT_GT(counted, 0);
}
