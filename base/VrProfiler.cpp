#include "base/VrProfiler.h"

#include <chrono>
#include <cstdio>

namespace vrutil {

int VrProfiler::sVornCategory = -1;
VrProfiler::BeginFunc VrProfiler::eventBeginFunc = nullptr;
VrProfiler::EndFunc VrProfiler::eventEndFunc = nullptr;

namespace {
long long ticksNow() {
  return std::chrono::steady_clock::now().time_since_epoch().count();
}
constexpr double ticksPerSecond =
    static_cast<double>(std::chrono::steady_clock::period::den) / std::chrono::steady_clock::period::num;
}  // namespace

void beginTiming(long long& counter) { counter = ticksNow(); }

void endTiming(long long& counter, std::string& text) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.3f seconds", (ticksNow() - counter) / ticksPerSecond);
  text += buffer;
}

}  // namespace vrutil
