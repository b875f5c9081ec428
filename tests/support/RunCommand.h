#pragma once
// Runs a shell command line and collects its standard output and exit status.

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace vrtest {

struct CommandResult {
  int exitCode = -1;
  std::string output;
};

/// Runs `commandLine` through the shell; standard error is merged into the output.
inline CommandResult runCommand(const std::string& commandLine) {
  CommandResult result;
  FILE* pipe = popen((commandLine + " 2>&1").c_str(), "r");
  if (!pipe) return result;
  std::array<char, 4096> buffer;
  size_t n;
  while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) result.output.append(buffer.data(), n);
  const int status = pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

/// The command-line tool of this build.
inline std::string vornCli() { return VORN_CLI_PATH; }

/// One shell word, whatever `text` holds.
inline std::string shellWord(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

/// Runs the tool of this build with `arguments` (already shell words).
inline CommandResult vorn(const std::string& arguments) { return runCommand(vornCli() + " " + arguments); }

/// The same, run from `folder`: the collections whose data path is "./" are run from their own.
inline CommandResult vornIn(const std::string& folder, const std::string& arguments) {
  return runCommand("cd " + shellWord(folder) + " && " + vornCli() + " " + arguments);
}

}  // namespace vrtest
