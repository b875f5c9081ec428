#include "base/VrMessage.h"

#include "base/VrDict.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <unistd.h>

unsigned VRWarningLevel = 2;
unsigned VRDebugLevel = 0;
unsigned VRStatsLevel = 0;
bool VRQuitOnError = false;
unsigned VRMessageFilter = vrmsg::FilterAll;
unsigned VRImportFileVersion = 18;
unsigned VRLowestImportFileVersion = 18;

namespace {

// The logger table lives from its first use to the end of the process. The shell logger is the
// only logger it owns.
struct LoggerTable {
  VrDict<vrutil::VrMessage*> loggers;
  std::unique_ptr<vrutil::VrMessage> shell;
  std::mutex firstLoggerLock;
  // Workers of a parallel render report at the same time; loggers get one message at a time.
  // Recursive, so that a logger may itself report.
  std::recursive_mutex deliveryLock;
};

LoggerTable& table() {
  static LoggerTable* t = new LoggerTable;  // never destroyed: messages may come during exit
  return *t;
}

void ensureShellLogger() {
  LoggerTable& t = table();
  if (!t.loggers.empty()) return;
  std::lock_guard<std::mutex> lock(t.firstLoggerLock);
  if (!t.loggers.empty()) return;
  if (!t.shell) t.shell.reset(new vrutil::VrMessage);
  t.loggers.insert(t.shell->typeName(), t.shell.get());
}

std::string localTimeText() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char buffer[16];
  std::strftime(buffer, sizeof buffer, "%H:%M:%S", &local);
  return buffer;
}

}  // namespace

int vrmessage(unsigned flags, const char* file, int line, const std::string& text) {
  ensureShellLogger();
  std::lock_guard<std::recursive_mutex> lock(table().deliveryLock);
  const auto& loggers = table().loggers;
  const bool several = loggers.size() > 1;
  for (auto it = loggers.begin(); it != loggers.end(); ++it) {
    vrutil::VrMessage* logger = it.value();
    if (several && logger->typeName() == "shell") continue;
    logger->log(flags, file ? file : "", line, text);
  }
  return 1;
}

std::string vrLocName(const std::string& key, const std::string& a1, const std::string& a2,
                      const std::string& a3, const std::string& a4, const std::string& a5,
                      const std::string& a6, const std::string& a7, const std::string& a8,
                      const std::string& a9, const std::string& a10) {
  std::string result;
  const auto& loggers = table().loggers;
  for (auto it = loggers.begin(); it != loggers.end(); ++it)
    if (it.value()->typeName() == "orlo")
      result = it.value()->getLocalized(key, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10);
  return result;
}

namespace vrutil {

std::string VrMessage::getLocalized(const std::string&, const std::string&, const std::string&,
                                    const std::string&, const std::string&, const std::string&,
                                    const std::string&, const std::string&, const std::string&,
                                    const std::string&, const std::string&) const {
  return std::string();
}

bool VrMessage::colourOnStandardError() {
  const char* noColour = std::getenv("NO_COLOR");
  return isatty(fileno(stderr)) && !(noColour && *noColour);
}

std::string VrMessage::formatLine(unsigned flags, const char* file, int line,
                                  const std::string& text, const std::string& timeText, bool colour) {
  const unsigned level = flags & vrmsg::LevelMask;
  char prefix[32];
  const char* code = "";
  switch (flags & vrmsg::KindMask) {
    case vrmsg::Error:
      std::snprintf(prefix, sizeof prefix, "%-13s", "Error:  ");
      code = "[31m";
      break;
    case vrmsg::Warning:
      std::snprintf(prefix, sizeof prefix, "Warning(%u):  ", level);
      code = "[33m";
      break;
    case vrmsg::Stats:
      std::snprintf(prefix, sizeof prefix, "Stats(%u):    ", level);
      code = "[34m";
      break;
    case vrmsg::Debug:
      std::snprintf(prefix, sizeof prefix, "Debug(%u):    ", level);
      code = "[32m";
      break;
    default:
      std::snprintf(prefix, sizeof prefix, "Help");
      break;
  }

  std::string location;
  {
    const std::string path = file ? file : "";
    const size_t slash = path.rfind('/');
    location = slash == std::string::npos ? path : path.substr(slash + 1);
    char number[24];
    std::snprintf(number, sizeof number, ":%d", line);
    location += number;
  }

  std::string out;
  if (colour) {
    out += '\x1b';
    out += code;
  }
  out += timeText;
  out += " Vorn ";
  out += prefix;
  out += text;
  if (location != ":0") {
    out += "  (";
    out += location;
    out += ")";
  } else {
    out += "  ";
  }
  if (colour) {
    out += '\x1b';
    out += "[0m";
  }
  out += '\n';
  return out;
}

void VrMessage::log(unsigned flags, const char* file, int line, const std::string& text) {
  const std::string out = formatLine(flags, file, line, text, localTimeText(), colourOnStandardError());
  std::fwrite(out.data(), 1, out.size(), stderr);
  if ((flags & vrmsg::KindMask) == vrmsg::Error && VRQuitOnError) {
    std::fputs("Vorn set to quit on error. Bye.\n\n", stderr);
    std::fflush(stderr);
    std::exit(-1);
  }
}

namespace msg {

void addLogger(VrMessage* logger) {
  ensureShellLogger();
  if (!logger) return;
  auto& loggers = table().loggers;
  const std::string name = logger->typeName();
  if (loggers.contains(name)) {
    if (name != "qt") return;
    loggers.erase(name);
  }
  loggers.insert(name, logger);
}

void eraseLogger(VrMessage* logger) {
  if (logger) table().loggers.erase(logger->typeName());
}

void clearLogger() { table().loggers.clear(); }

unsigned numLoggers() { return table().loggers.size(); }

}  // namespace msg
}  // namespace vrutil
