// vorn: the command-line front of the library, for scripts and render farms.
// Exit codes: 0 success, 1 the command ran and failed, 2 bad usage.

#include "document/VrConfig.h"
#include "document/VrMessage.h"
#include "document/VrModules.h"
#include "document/VrTaskManager.h"
#include "document/VrVersion.h"
#include "document/vrutilPath.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <unistd.h>
#include <iostream>
#include <string>
#include <vector>

namespace {

// The installation root is the folder above the one holding this program, unless
// VORN_LOCATION says otherwise; presets and documentation are found below it.
void defaultInstallationRoot() {
  if (std::getenv("VORN_LOCATION")) return;
  char exe[4096];
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0) return;
  std::string path(exe, static_cast<size_t>(n));
  for (int up = 0; up < 2; ++up) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return;
    path.resize(slash);
  }
  setenv("VORN_LOCATION", (path + "/").c_str(), 0);
}

int runInfo() {
  VrConfig& config = VrConfig::state();
  std::string projectPath;
  if (const char* cwd = std::getenv("PWD")) projectPath = cwd;
  config.init(projectPath);

  std::cout << "Vorn " << vornLibraryVersion() << "\n";
  std::cout << "installation version: " << vrutil::version() << "\n";
  std::cout << "threads: " << VrTaskManager::threadCount() << "\n";
  std::cout << "texture cache per thread: " << VrTaskManager::ptexCacheSize() << " bytes\n";
  std::cout << "global repository: " << config.globalRepo() << "\n";
  std::cout << "local repository: " << config.localRepo() << "\n";
  std::cout << "user repository: " << config.userRepo() << "\n";
  std::cout << "documentation: " << config.docs() << "\n";
  std::cout << "flip parameter: " << (config.flipParam() ? "true" : "false") << "\n";

  std::vector<std::string> modules;
  VrGetRegisteredModules(modules);
  std::cout << "modules (" << modules.size() << "):\n";
  for (const std::string& name : modules) std::cout << "  " << name << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  defaultInstallationRoot();
  CLI::App app{"vorn: grows primitives on surfaces and edits collection files"};
  app.require_subcommand(1);
  app.fallthrough();
  CLI::App* info = app.add_subcommand("info", "print the version, configuration, thread count and modules");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    return code == 0 ? 0 : 2;
  }

  if (*info) return runInfo();
  return 2;
}
