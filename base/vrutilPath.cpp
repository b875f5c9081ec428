#include "base/vrutilPath.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "base/VrMessage.h"
#include "base/vrutilString.h"

namespace vrutil {

std::string validPath(const std::string& text) {
  std::string out = stripWhitespace(text);
  if (out.empty()) return out;
  const char last = out.back();
  if (last != '/' && last != '\\' && last != '}') out += '/';
  return out;
}

bool validDirPath(const std::string& text) {
  const std::string s = stripWhitespace(text);
  return !s.empty() && (s.back() == '/' || s.back() == '\\');
}

bool isAbsolutePath(const std::string& text) {
  if (text.size() >= 3) {
    if (text[1] == ':' && (text[2] == '\\' || text[2] == '/')) return true;
    if (text[0] == '\\' && text[1] == '\\') return true;
    if (text[0] == '/' && text[1] == '/') return true;
    return false;
  }
  return !text.empty() && text[0] == '/';
}

namespace {

bool isNameChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// Appends the variable's value; false when it is not set.
bool appendVariable(std::string& out, const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (!value) return false;
  out += value;
  return true;
}

// Cuts "/prev/.." down to nothing, as long as a ".." component has a '/' before its own.
void collapseParents(std::string& text) {
  size_t from = 0;
  for (;;) {
    const size_t dots = text.find("/..", from);
    if (dots == std::string::npos) return;
    const size_t after = dots + 3;
    const bool wholeComponent = after == text.size() || text[after] == '/' || text[after] == '\\';
    if (dots == 0 || !wholeComponent) {
      from = dots + 1;
      continue;
    }
    const size_t prev = text.rfind('/', dots - 1);
    if (prev == std::string::npos) {
      from = dots + 1;
      continue;
    }
    text.erase(prev, after - prev);
    from = 0;
  }
}

}  // namespace

bool fileCleanup(std::string& text) {
  enum State { Plain, AfterBackslash, AfterDollar, InBraces, InName };
  State state = Plain;
  bool ok = true;
  std::string out;
  std::string name;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    switch (state) {
      case Plain:
        if (c == '$') state = AfterDollar;
        else if (c == '\\') state = AfterBackslash;
        else out += c;
        break;
      case AfterBackslash:
        out += c;
        state = Plain;
        break;
      case AfterDollar:
        if (c == '{') {
          name.clear();
          state = InBraces;
        } else if (isNameChar(c)) {
          name.assign(1, c);
          state = InName;
        } else {
          out += '$';
          out += c;
          state = Plain;
        }
        break;
      case InBraces:
        if (c == '}') {
          if (!appendVariable(out, name)) ok = false;
          state = Plain;
        } else {
          name += c;
        }
        break;
      case InName:
        if (isNameChar(c)) {
          name += c;
        } else {
          if (!appendVariable(out, name)) ok = false;
          state = Plain;
          --i;  // read this character again
        }
        break;
    }
  }
  switch (state) {
    case Plain:
      break;
    case AfterBackslash:
      out += '\\';
      break;
    case AfterDollar:
      out += '$';
      break;
    case InBraces:  // an unterminated "${" stays as written
      out += "${";
      out += name;
      ok = false;
      break;
    case InName:
      if (!appendVariable(out, name)) ok = false;
      break;
  }
  collapseParents(out);
  if (out.size() >= 2 && out.front() == '"' && out.back() == '"') out = out.substr(1, out.size() - 2);
  text = out;
  return ok;
}

bool pathCleanup(std::string& text) {
  const bool ok = fileCleanup(text);
  text = validPath(text);
  return ok;
}

std::string tempDir() {
  const char* value = nullptr;
  for (const char* var : {"TMP", "TMPDIR", "TEMP"}) {
    const char* v = std::getenv(var);
    if (v && *v) {
      value = v;
      break;
    }
  }
  std::string dir = forwardSlashes(value ? value : "/tmp");
  pathCleanup(dir);
  return dir;
}

std::string rootDir() {
  static const std::string root = [] {
    const char* location = std::getenv("VORN_LOCATION");
    if (location && *location) {
      std::string dir = location;
      if (dir.back() != '/' && dir.back() != '\\') dir += '/';
      return dir;
    }
    const std::string dir = tempDir();
    VR_ERROR("Can't find root of Vorn installation. Using temp directory" + dir);
    return dir;
  }();
  return root;
}

std::string iconDir() { return rootDir() + "icons/"; }

std::string versionOf(const std::string& root, const std::string& temp) {
  if (root == temp || root.find("/projects/") != std::string::npos) return "NOT VERSIONED";
  const size_t underscore = root.find('_');
  if (underscore == std::string::npos) return "NOT VERSIONED";
  std::string v = root.substr(underscore + 1);
  if (!v.empty()) v.pop_back();
  return v;
}

std::string version() { return versionOf(rootDir(), tempDir()); }

unsigned long long memUsage() {
  char name[64];
  std::snprintf(name, sizeof(name), "/proc/%d/stat", static_cast<int>(getpid()));
  std::ifstream in(name);
  std::string stat;
  if (!in || !std::getline(in, stat)) return 0;
  // The command name (field 2) may hold blanks; fields are counted from its closing ')'.
  const size_t close = stat.rfind(')');
  if (close == std::string::npos) return 0;
  std::istringstream fields(stat.substr(close + 1));
  std::string field;
  // Field 23 (vsize) is the 21st behind the command name.
  for (int i = 0; i < 21; ++i)
    if (!(fields >> field)) return 0;
  return std::strtoull(field.c_str(), nullptr, 10);
}

std::string convertPathSeperateToWindows(const std::string& path) { return path; }

bool createDir(const std::string& path, bool parentOnly) {
  std::string dir = path;
  if (parentOnly) {
    const size_t sep = dir.find_last_of("/\\");
    dir = sep == std::string::npos ? std::string() : dir.substr(0, sep);
  }
  dir = convertPathSeperateToWindows(dir);
  if (dir.empty()) return true;
  struct stat st;
  if (::stat(dir.c_str(), &st) == 0) return true;

  int err = 0;
  size_t pos = 0;
  for (;;) {
    const size_t sep = dir.find_first_of("/\\", pos);
    const std::string part = dir.substr(0, sep);
    if (!part.empty() && ::stat(part.c_str(), &st) != 0) {
      if (::mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) {
        err = errno;
        break;
      }
    }
    if (sep == std::string::npos) break;
    pos = sep + 1;
  }
  if (err == 0 && ::stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return true;
  if (err == 0) err = (::stat(dir.c_str(), &st) == 0) ? ENOTDIR : errno;
  VR_ERROR("Failed to create directory: " + dir + "\n( system = \"" + std::strerror(err) + "\")");
  return false;
}

bool filepathExists(const std::string& path, std::string& tried) {
  struct stat st;
  if (::stat(path.c_str(), &st) == 0) return true;
  const char* reason;
  switch (errno) {
    case EACCES: reason = " (Access denied)"; break;
    case EBADF: reason = " (Bad file description)"; break;
    case EFAULT: reason = " (Bad address)"; break;
    case ELOOP: reason = " (Too many symbolic links)"; break;
    case ENAMETOOLONG: reason = " (Name too long)"; break;
    case ENOENT: reason = " (Part of path doesn't exist)"; break;
    case ENOMEM: reason = " (Out of kernel memory)"; break;
    case ENOTDIR: reason = " (Part of path prefix is not a directory)"; break;
    case EOVERFLOW: reason = " (Overflow on file size)"; break;
    default: reason = " (Unknown error)"; break;
  }
  tried += path;
  tried += reason;
  return false;
}

}  // namespace vrutil
