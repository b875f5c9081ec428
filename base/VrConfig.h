#pragma once
// Process-wide configuration: repository and documentation paths read once from a plain text
// file ("${HOME}/.vornrc", or "config.txt" under "VORN_CONFIG_PATH"), and the loading of custom
// modules found in each repository's "plugins" folder. A singleton made on first use and never
// freed; main thread only.

#include <string>

class VrConfig {
 public:
  static VrConfig& state();

  /// Loads the configuration and the custom modules; effective once per process.
  void init(const std::string& projectPath);

  /// Reads a config file; an empty path means "${HOME}/.vornrc". False when the file cannot be
  /// opened (an Error unless `silent`) or holds an unknown token (a level-2 warning each).
  bool loadConfig(const std::string& path, bool silent);
  /// Sends one warning per setting whose (level & 15) <= VRWarningLevel.
  void printConfig(unsigned level) const;
  /// Loads every shared library in `repository` + "plugins"; a failure is reported and skipped.
  void loadModules(const std::string& repository);

  void setProjectPath(const std::string& path);
  const std::string& getProjectPath() const { return projectPath; }

  const std::string& globalRepo() const { return globalRepository; }
  const std::string& localRepo() const { return localRepository; }
  const std::string& userRepo() const { return userRepository; }
  const std::string& docs() const { return documentation; }
  const std::string& promoteFunc() const { return promoteFunction; }
  bool flipParam() const { return flipParameter; }
  bool initialised() const { return initialisedFlag; }

 private:
  VrConfig();

  std::string globalRepository;
  std::string localRepository;
  std::string userRepository;
  std::string documentation;
  std::string promoteFunction;
  std::string projectPath;
  bool initialisedFlag = false;
  bool flipParameter = false;
};
