#include "tools/cliLogger.h"

#include <iostream>

namespace vorncli {

CliLogger::CliLogger() { vrutil::msg::addLogger(this); }

CliLogger::~CliLogger() { vrutil::msg::eraseLogger(this); }

void CliLogger::log(unsigned flags, const char*, int, const std::string& text) {
  switch (flags & vrmsg::KindMask) {
    case vrmsg::Error:
      ++errorCount;
      std::cerr << "error: " << text << '\n';
      break;
    case vrmsg::Warning:
      std::cerr << "warning: " << text << '\n';
      break;
    default:
      break;
  }
}

std::string CliLogger::getLocalized(const std::string& key, const std::string& a1, const std::string& a2,
                                    const std::string& a3, const std::string& a4, const std::string& a5,
                                    const std::string& a6, const std::string& a7, const std::string& a8,
                                    const std::string& a9, const std::string& a10) const {
  std::string text = key;
  for (const std::string* arg : {&a1, &a2, &a3, &a4, &a5, &a6, &a7, &a8, &a9, &a10})
    if (!arg->empty()) text += ' ' + *arg;
  return text;
}

}  // namespace vorncli
