#pragma once
// A fresh directory under the system's temporary folder, removed with its contents at the end.

#include <filesystem>
#include <fstream>
#include <string>

namespace vrtest {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vorn-test-XXXXXX").string();
    root = mkdtemp(pattern.data()) ? pattern : std::string();
  }
  ~TempDir() {
    std::error_code ignored;
    if (!root.empty()) std::filesystem::remove_all(root, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return root; }
  std::string file(const std::string& name) const { return root + "/" + name; }
  /// Writes `content` to `name` under the directory and returns the full path.
  std::string write(const std::string& name, const std::string& content) const {
    const std::string full = file(name);
    std::filesystem::create_directories(std::filesystem::path(full).parent_path());
    std::ofstream(full, std::ios::binary) << content;
    return full;
  }

 private:
  std::string root;
};

}  // namespace vrtest
