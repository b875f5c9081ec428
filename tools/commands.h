#pragma once
// The collection file commands of `vorn`. Each returns the process exit status: 0 success,
// 1 the command ran and failed (the messages on standard error say why). Argument parsing, and
// with it exit status 2, stays in vorn.cpp.

#include <string>

namespace vorncli {

constexpr int ExitOk = 0;
constexpr int ExitFailed = 1;
constexpr int ExitUsage = 2;

/// Where an attribute lives inside a collection file. Without a description it is the
/// collection itself; with a description but no object, the description. `object` is a module
/// word ("RandomGenerator"), "Description", or the name of an FX module ("Noise").
struct Address {
  bool hasDescription = false;
  std::string description;
  bool hasObject = false;
  std::string object;
};

/// `vorn check FILE`: reads the file; "ok: <collection>: <N> descriptions" on success.
int runCheck(const std::string& file);

/// `vorn ls FILE [DESCRIPTION]`: the layout of every description, or of the named one.
int runList(const std::string& file, bool hasDescription, const std::string& description);

/// `vorn get FILE ATTR [DESCRIPTION [OBJECT]]`: prints the attribute's value and a newline.
int runGet(const std::string& file, const std::string& attribute, const Address& address);

/// `vorn set FILE ATTR VALUE [DESCRIPTION [OBJECT]] [-o OUT]`: sets the attribute and saves to
/// `output`, or back onto `file` when `output` is empty.
int runSet(const std::string& file, const std::string& attribute, const std::string& value,
           const Address& address, const std::string& output);

/// `vorn resave IN OUT`: reads one collection file and writes it out again.
int runResave(const std::string& input, const std::string& output);

}  // namespace vorncli
