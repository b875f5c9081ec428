#include "base/VrTaskManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

// Every index is in exactly one range, whatever the thread count, and the ranges tile [0, n).
TEST(VrTaskManager, ParallelChunksCoverEveryIndexOnce) {
  const size_t saved = VrTaskManager::threadCount();
  for (size_t threads : {1u, 2u, 3u}) {
    for (size_t n : {0u, 1u, 7u, 1000u}) {
      SCOPED_TRACE(std::to_string(threads) + " threads, " + std::to_string(n) + " items");
      VrTaskManager::setThreadCount(threads);
      std::vector<int> seen(n, 0);
      std::mutex lock;
      std::vector<std::pair<size_t, size_t>> ranges;
      VrTaskManager::parallelChunks(n, [&](size_t begin, size_t end) {
        std::lock_guard<std::mutex> hold(lock);
        ranges.emplace_back(begin, end);
        for (size_t i = begin; i < end; ++i) ++seen[i];
      });
      for (size_t i = 0; i < n; ++i) EXPECT_EQ(seen[i], 1) << "index " << i;
      std::sort(ranges.begin(), ranges.end());
      for (size_t r = 0; r < ranges.size(); ++r) {
        EXPECT_LT(ranges[r].first, ranges[r].second);
        if (r > 0) {
          EXPECT_EQ(ranges[r - 1].second, ranges[r].first);
        }
      }
    }
  }
  VrTaskManager::setThreadCount(saved);
}
