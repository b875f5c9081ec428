#include "base/VrTaskManager.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <thread>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

namespace {

size_t hardwareThreads() {
  const unsigned n = std::thread::hardware_concurrency();
  return n ? n : 1;
}

struct TaskState {
  std::atomic<size_t> threads{VrTaskManager::threadCountFromEnvironment()};
  std::atomic<bool> multithreading{true};
  std::atomic<bool> patchMultithreading{false};
  std::atomic<bool> collisionMultithreading{false};
  std::atomic<bool> seExprMultithreading{false};
  std::atomic<size_t> ptexCacheBytes{0x1F400000};
};

TaskState& state() {
  static TaskState s;
  return s;
}

// Reads the environment at library load, as the thread count must be known before any caller.
const bool loadedAtStart = (state(), true);

}  // namespace

size_t VrTaskManager::threadCountFromEnvironment() {
  if (const char* limit = std::getenv("VORN_THREAD_LIMIT")) {
    const int n = std::atoi(limit);
    return n > 0 ? static_cast<size_t>(n) : 0;
  }
  return hardwareThreads();
}

size_t VrTaskManager::threadCount() { return state().threads; }

void VrTaskManager::setThreadCount(size_t n) { state().threads = n ? n : hardwareThreads(); }

bool VrTaskManager::multithreadingEnabled() { return state().multithreading; }
void VrTaskManager::setMultithreading(bool on) { state().multithreading = on; }
void VrTaskManager::setPatchMultithreading(bool on) { state().patchMultithreading = on; }
bool VrTaskManager::patchMultithreading() { return state().patchMultithreading; }
void VrTaskManager::setCollisionMultithreading(bool on) { state().collisionMultithreading = on; }
bool VrTaskManager::collisionMultithreading() { return state().collisionMultithreading; }
void VrTaskManager::setSeExprMultithreading(bool on) { state().seExprMultithreading = on; }
bool VrTaskManager::seExprMultithreading() { return state().seExprMultithreading; }

size_t VrTaskManager::ptexCacheSize() {
  const size_t stored = state().ptexCacheBytes;
  const size_t threads = threadCount();
  // A thread count of 0 (VORN_THREAD_LIMIT=0) must not divide by zero: treat it as one share.
  return multithreadingEnabled() && threads > 1 ? stored / threads : stored;
}

void VrTaskManager::setPtexCacheSize(size_t size, bool scaled, float factor) {
  if (!scaled) {
    state().ptexCacheBytes = size;
    return;
  }
  const float share = std::floor(static_cast<float>(size) * factor);
  const size_t extraThreads = threadCount() > 0 ? threadCount() - 1 : 0;
  state().ptexCacheBytes = size + static_cast<size_t>(share) * extraThreads;
}

size_t VrTaskManager::taskGrainSize(size_t n) {
  // A thread count of 0 counts as one thread here, so that no loop divides by zero.
  const size_t t = std::max<size_t>(threadCount(), 1) * 16;
  if (n <= t) return 1;
  return n / t;
}

void VrTaskManager::parallelChunks(size_t n, const std::function<void(size_t, size_t)>& chunk) {
  const bool wasMultithreaded = seExprMultithreading();
  setSeExprMultithreading(true);
  const int threads = static_cast<int>(threadCount());
  tbb::task_arena arena(threads > 0 ? threads : tbb::task_arena::automatic);
  const size_t grain = taskGrainSize(n);
  const size_t ranges = (n + grain - 1) / grain;
  std::atomic<size_t> next{0};
  arena.execute([&] {
    const int workers = std::max(1, tbb::this_task_arena::max_concurrency());
    tbb::parallel_for(0, workers, [&](int) {
      for (size_t r = next.fetch_add(1); r < ranges; r = next.fetch_add(1))
        chunk(r * grain, std::min(n, (r + 1) * grain));
    });
  });
  setSeExprMultithreading(wasMultithreaded);
}

std::mutex& VrTaskManager::globalMutex() {
  static std::mutex mutex;
  return mutex;
}
