#pragma once
// Paths and texts of the bundled example files.

#include <fstream>
#include <sstream>
#include <string>

namespace vrtest {

inline std::string examplePath(const std::string& name) {
  return std::string(VORN_SOURCE_DIR) + "/examples/" + name;
}

inline std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

/// The text from the line "FileVersion" on: what stays the same between two saves.
inline std::string fromFileVersion(const std::string& text) {
  const size_t at = text.find("FileVersion");
  return at == std::string::npos ? text : text.substr(at);
}

}  // namespace vrtest
