#pragma once
// Profiling hooks the host may install. A stretch worth profiling is bracketed by a
// `VrProfileScope`; with no hooks installed it costs one pointer test.

#include <string>

namespace vrutil {

struct VrProfiler {
  using BeginFunc = int (*)(int category, int colour, const char* name, const char* group);
  using EndFunc = void (*)(int id);

  static int sVornCategory;        ///< category passed to the host, -1 until the host sets it
  static BeginFunc eventBeginFunc;  ///< null until the host installs it
  static EndFunc eventEndFunc;      ///< null until the host installs it
};

/// Calls the begin hook on construction and the end hook on destruction.
class VrProfileScope {
 public:
  explicit VrProfileScope(const char* name)
      : id(VrProfiler::eventBeginFunc
               ? VrProfiler::eventBeginFunc(VrProfiler::sVornCategory, 9, name, "Vorn")
               : -1) {}
  ~VrProfileScope() {
    if (VrProfiler::eventEndFunc && id != -1) VrProfiler::eventEndFunc(id);
  }
  VrProfileScope(const VrProfileScope&) = delete;
  VrProfileScope& operator=(const VrProfileScope&) = delete;

 private:
  int id;
};

/// Stores the current performance counter in `counter`.
void beginTiming(long long& counter);
/// Appends "%.3f seconds" of the time elapsed since `beginTiming` to `text`.
void endTiming(long long& counter, std::string& text);

}  // namespace vrutil
