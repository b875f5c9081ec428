#pragma once
// Helpers shared by the Alembic tests: where the test archives are, scratch file names, the
// dump of an archive as text, and the rule for comparing a dump with a reference dump.

#include "io/alembic/VrAbcDump.h"
#include "support/Examples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace vrtest {

inline std::string alembicData(const std::string& relative) {
  return std::string(VORN_TEST_DATA_DIR) + "/alembic/" + relative;
}

/// The archives (not the .ref.txt files) of one test data folder, sorted.
inline std::vector<std::string> alembicFiles(const std::string& folder) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(alembicData(folder)))
    if (entry.path().extension() == ".abc") files.push_back(entry.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

/// A file name in the temporary folder that no other test process uses.
inline std::string scratchFile(const std::string& name) {
  return (std::filesystem::temp_directory_path() /
          ("vorn-abc-" + std::to_string(getpid()) + "-" + name))
      .string();
}

inline std::string dumpText(const std::string& path, VrAbcDump::Result* result = nullptr,
                            const VrAbcDump::Options& options = VrAbcDump::Options()) {
  std::ostringstream out;
  const VrAbcDump::Result r = VrAbcDump::write(path, out, options);
  if (result) *result = r;
  return out.str();
}

/// The dump without its "file:" line, which names the file: the dumps of two files compare.
inline std::string dumpWithoutFileLine(const std::string& path) {
  std::string text = dumpText(path);
  const size_t at = text.find("\nfile: ");
  if (at != std::string::npos) text.erase(at, text.find('\n', at + 1) - at);
  return text;
}

/// The lines a comparison looks at: blank lines and the lines about the dumping process or
/// the reference library's own choices (exit status, sample reading totals, sample times and
/// schema time samplings) are dropped.
inline std::vector<std::string> comparedLines(const std::string& dump) {
  static const char* dropped[] = {"exit_status", "stderr", "read_all_samples", "samples_read",
                                  "read_all_samples_error", "time", "time_sampling",
                                  "time_sampling_index"};
  std::vector<std::string> lines;
  std::istringstream in(dump);
  std::string line;
  while (std::getline(in, line)) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    const std::string key = line.substr(0, line.find(':'));
    bool drop = false;
    for (const char* d : dropped) drop = drop || key == d;
    if (!drop) lines.push_back(line);
  }
  return lines;
}

/// The first line where two line lists differ, for failure messages.
inline std::string firstDifference(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  for (size_t i = 0; i < a.size() || i < b.size(); ++i) {
    const std::string x = i < a.size() ? a[i] : "<end>";
    const std::string y = i < b.size() ? b[i] : "<end>";
    if (x != y) return "line " + std::to_string(i + 1) + ":\n  got      " + x + "\n  expected " + y;
  }
  return "no difference";
}

/// Two dumps agree on their compared lines.
inline ::testing::AssertionResult sameDump(const std::string& got, const std::string& expected) {
  const std::vector<std::string> a = comparedLines(got), b = comparedLines(expected);
  if (a == b) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << firstDifference(a, b);
}

}  // namespace vrtest
