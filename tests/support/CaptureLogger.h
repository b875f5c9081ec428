#pragma once
// A host logger for tests: records every message it receives. While installed, the shell logger
// falls silent. Install it for the lifetime of one test.

#include "base/VrMessage.h"

#include <string>
#include <vector>

namespace vrtest {

class CaptureLogger : public vrutil::VrMessage {
 public:
  struct Message {
    unsigned flags;
    std::string file;
    int line;
    std::string text;
  };

  explicit CaptureLogger(std::string name = "capture") : loggerName(std::move(name)) {
    vrutil::msg::addLogger(this);
  }
  ~CaptureLogger() override { vrutil::msg::eraseLogger(this); }

  void log(unsigned flags, const char* file, int line, const std::string& text) override {
    messages.push_back({flags, file ? file : "", line, text});
  }
  std::string typeName() const override { return loggerName; }

  /// Texts of the messages of one kind (vrmsg::Error, vrmsg::Warning, ...).
  std::vector<std::string> texts(unsigned kind) const {
    std::vector<std::string> out;
    for (const Message& m : messages)
      if ((m.flags & vrmsg::KindMask) == kind) out.push_back(m.text);
    return out;
  }
  std::vector<std::string> errors() const { return texts(vrmsg::Error); }
  std::vector<std::string> warnings() const { return texts(vrmsg::Warning); }
  bool has(const std::string& text) const {
    for (const Message& m : messages)
      if (m.text == text) return true;
    return false;
  }
  void clear() { messages.clear(); }

  std::vector<Message> messages;

 private:
  std::string loggerName;
};

}  // namespace vrtest
