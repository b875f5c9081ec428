#include "base/vrutilPieces.h"

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>

namespace vrutil {

bool makeAndStoreInOrder(size_t count, const std::function<void(size_t, std::string&)>& make,
                         const std::function<bool(size_t, const std::string&)>& store,
                         std::vector<std::string>& window) {
  const size_t size = 4 * static_cast<size_t>(std::max(1, tbb::this_task_arena::max_concurrency()));
  if (window.size() < std::min(size, count)) window.resize(std::min(size, count));
  for (size_t first = 0; first < count; first += size) {
    const size_t last = std::min(count, first + size);
    tbb::parallel_for(first, last, [&](size_t k) {
      std::string& bytes = window[k - first];
      bytes.clear();
      make(k, bytes);
    });
    for (size_t k = first; k < last; ++k)
      if (!store(k, window[k - first])) return false;
  }
  return true;
}

}  // namespace vrutil
