#pragma once
// Process-wide threading and cache settings. All members are static. Setting changes are plain
// stores, meant to happen while no parallel work runs.

#include <cstddef>
#include <functional>
#include <mutex>

class VrTaskManager {
 public:
  /// Worker thread count: "VORN_THREAD_LIMIT" read with atoi at load (0 stays 0), else the
  /// hardware concurrency.
  static size_t threadCount();
  /// Stores n; 0 means the hardware concurrency.
  static void setThreadCount(size_t n);

  static bool multithreadingEnabled();
  static void setMultithreading(bool on);
  /// Forwarded to the subdivision patches and the collision library once they are present.
  static void setPatchMultithreading(bool on);
  static bool patchMultithreading();
  static void setCollisionMultithreading(bool on);
  static bool collisionMultithreading();
  /// Expression evaluation on worker threads uses per-thread state while this is on.
  static void setSeExprMultithreading(bool on);
  static bool seExprMultithreading();

  /// Texture cache bytes per worker: the stored size over the thread count when multithreading.
  static size_t ptexCacheSize();
  /// Stores size, or with `scaled` size + floor(size * factor) * (threadCount - 1).
  static void setPtexCacheSize(size_t size, bool scaled, float factor);

  /// Grain for parallel loops over n items: 1 when n <= threadCount * 16, else n / (threads * 16).
  static size_t taskGrainSize(size_t n);

  /// Runs `chunk(begin, end)` over the ranges of [0, n) in an arena of threadCount() workers
  /// (every core when it is 0), with the grain of taskGrainSize(n) and expression evaluation
  /// switched to per-thread state for the duration. Each call of `chunk` gets a range of its own,
  /// so per-worker state made at its start serves the whole range. Workers take the ranges in
  /// ascending order as they become free, so the low end of [0, n) is done first (writers that
  /// store results in order can store them early) and no worker idles while ranges are left.
  static void parallelChunks(size_t n, const std::function<void(size_t begin, size_t end)>& chunk);

  /// One plain (non-recursive) mutex for the whole process.
  static std::mutex& globalMutex();

  /// The thread count the library starts with, from the environment or the hardware.
  static size_t threadCountFromEnvironment();
};
