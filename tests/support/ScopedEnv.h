#pragma once
// Sets (or, with a null value, unsets) an environment variable for one scope and restores it.

#include <cstdlib>
#include <string>

namespace vrtest {

class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name(name) {
    if (const char* old = std::getenv(name)) {
      hadValue = true;
      saved = old;
    }
    if (value)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
  ~ScopedEnv() {
    if (hadValue)
      setenv(name, saved.c_str(), 1);
    else
      unsetenv(name);
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name;
  std::string saved;
  bool hadValue = false;
};

}  // namespace vrtest
