#pragma once
// Checks of the shape of texts that carry times or dates, with POSIX extended regular
// expressions (<regex> is avoided: GCC 12 warns inside it when optimising).

#include <regex.h>

#include <string>

namespace vrtest {

/// True when `pattern` matches somewhere in `text` ("^" anchors at the start of the text).
inline bool containsPattern(const std::string& text, const std::string& pattern) {
  regex_t compiled;
  if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NOSUB) != 0) return false;
  const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
  regfree(&compiled);
  return found;
}

/// True when `pattern` matches the whole of `text`.
inline bool matchesPattern(const std::string& text, const std::string& pattern) {
  return containsPattern(text, "^(" + pattern + ")$");
}

}  // namespace vrtest
