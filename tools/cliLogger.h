#pragma once
// The host logger of the commands that run library calls for a script or a shell: Errors and
// Warnings go to standard error as "error: <text>" and "warning: <text>", Stats and Debug are
// dropped. It is the "orlo" logger, the one the library asks for message texts: a key's text is
// the key followed by its non-empty arguments, so a script reads which key was sent for which
// names. Installed for the lifetime of the object.

#include "base/VrMessage.h"

#include <string>

namespace vorncli {

class CliLogger : public vrutil::VrMessage {
 public:
  CliLogger();
  ~CliLogger() override;
  CliLogger(const CliLogger&) = delete;
  CliLogger& operator=(const CliLogger&) = delete;

  std::string typeName() const override { return "orlo"; }
  void log(unsigned flags, const char* file, int line, const std::string& text) override;
  std::string getLocalized(const std::string& key, const std::string& a1, const std::string& a2,
                           const std::string& a3, const std::string& a4, const std::string& a5,
                           const std::string& a6, const std::string& a7, const std::string& a8,
                           const std::string& a9, const std::string& a10) const override;

  /// Errors received since the logger was installed.
  unsigned errors() const { return errorCount; }

 private:
  unsigned errorCount = 0;
};

}  // namespace vorncli
