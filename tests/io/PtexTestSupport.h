#pragma once
// Helpers shared by the Ptex tests: where the test textures are, and the rule for comparing a
// dump with a reference dump (the reference's filter lines are not written by us).

#include "io/ptex/VrPtexDump.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace vrtest {

inline std::string ptexData(const std::string& name) { return std::string(VORN_TEST_DATA_DIR) + "/ptex/" + name; }

/// The .ptx files of tests/data/ptex, sorted.
inline std::vector<std::string> ptexFiles() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(std::string(VORN_TEST_DATA_DIR) + "/ptex"))
    if (entry.path().extension() == ".ptx") files.push_back(entry.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

inline std::string ptexDump(const std::string& path, VrPtexDump::Result* result = nullptr) {
  std::ostringstream out;
  const VrPtexDump::Result r = VrPtexDump::write(path, out);
  if (result) *result = r;
  return out.str();
}

/// The lines compared: no blank lines, no filter lines, no lines about the dumping process.
inline std::vector<std::string> ptexComparedLines(const std::string& dump) {
  std::vector<std::string> lines;
  std::istringstream in(dump);
  std::string line;
  while (std::getline(in, line)) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    const std::string key = line.substr(0, line.find(':'));
    if (key.rfind("filter", 0) == 0 || key == "exit_status" || key == "stderr") continue;
    lines.push_back(line);
  }
  return lines;
}

}  // namespace vrtest
