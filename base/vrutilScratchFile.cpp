#include "base/vrutilScratchFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace vrutil {

std::FILE* openScratchFile(const std::string& directory, std::string& error) {
  std::string dir = directory;
  if (dir.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    dir = tmp && *tmp ? tmp : "/tmp";
  }
  const std::string pattern = dir + "/vornScratchXXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int fd = mkstemp(name.data());
  if (fd < 0) {
    error = "cannot make a temporary file in " + dir + ": " + std::strerror(errno);
    return nullptr;
  }
  unlink(name.data());
  std::FILE* file = fdopen(fd, "w+b");
  if (!file) {
    close(fd);
    error = "cannot open a temporary file in " + dir;
  }
  return file;
}

}  // namespace vrutil
