#include "tools/renderThreads.h"

#include "base/VrTaskManager.h"

#include <algorithm>
#include <locale>
#include <sstream>
#include <cstdlib>

namespace vorncli {

unsigned renderWorkers(int requested) {
  const unsigned available = static_cast<unsigned>(VrTaskManager::threadCount());
  unsigned workers = requested > 0 ? static_cast<unsigned>(requested) : available;
  if (std::getenv("VORN_THREAD_LIMIT")) workers = std::min(workers, available);
  workers = std::max(workers, 1u);
  VrTaskManager::setPatchMultithreading(true);
  return workers;
}

std::string workersText(unsigned workers) {
  return workers > 1 ? std::to_string(workers) + " threads" : std::string("1 thread (serial)");
}

void startSummary(std::ostringstream& summary) {
  summary.imbue(std::locale::classic());
  summary.setf(std::ios::fixed);
  summary.precision(3);
}

}  // namespace vorncli
