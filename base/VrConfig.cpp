#include "base/VrConfig.h"

#include "base/VrMessage.h"
#include "base/vrutilPath.h"
#include "base/vrutilString.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <fstream>
#include <limits>
#include <vector>

namespace {
// Custom modules are shared libraries of this platform.
constexpr const char* moduleExtension = ".so";

void cleanPath(std::string& path) { vrutil::pathCleanup(path); }
}  // namespace

VrConfig& VrConfig::state() {
  static VrConfig* config = new VrConfig;  // never freed: modules may consult it at exit
  return *config;
}

VrConfig::VrConfig()
    : globalRepository("${VORN_LOCATION}presets/"),
      userRepository("${HOME}/vorn/"),
      documentation("${VORN_LOCATION}/docs/vorn/") {}

void VrConfig::setProjectPath(const std::string& path) {
  projectPath = path;
  cleanPath(projectPath);
}

void VrConfig::init(const std::string& path) {
  if (initialisedFlag) return;
  setProjectPath(path);
  localRepository = projectPath + "/vorn/";

  if (const char* configDir = std::getenv("VORN_CONFIG_PATH")) {
    if (!loadConfig(std::string(configDir) + "/config.txt", false))
      VR_WARNING(1, "Error loading Vorn config file, using following settings:");
    printConfig(1);
  } else {
    loadConfig("", true);
  }

  cleanPath(globalRepository);
  cleanPath(localRepository);
  cleanPath(userRepository);
  cleanPath(documentation);

  loadModules(userRepository);
  loadModules(localRepository);
  loadModules(globalRepository);
  initialisedFlag = true;
}

bool VrConfig::loadConfig(const std::string& givenPath, bool silent) {
  std::string path = givenPath.empty() ? std::string("${HOME}/.vornrc") : givenPath;
  vrutil::fileCleanup(path);

  std::ifstream in(path);
  if (!in) {
    if (!silent) VR_ERROR("Failed to open config file: " + path);
    return false;
  }

  bool unknownToken = false;
  std::string token;
  std::string value;
  auto skipLine = [&in] { in.ignore(std::numeric_limits<std::streamsize>::max(), '\n'); };
  for (;;) {
    in >> token;
    // A token ending exactly at the end of the file is not processed.
    if (in.fail() || in.eof()) break;
    if (token[0] == '#') {
      skipLine();
    } else if (token == "GlobalRepo") {
      in >> globalRepository;
    } else if (token == "LocalRepo") {
      in >> localRepository;
    } else if (token == "UserRepo") {
      in >> userRepository;
    } else if (token == "Documentation") {
      in >> documentation;
    } else if (token == "PromoteFunction") {
      in >> promoteFunction;
    } else if (token == "FlipParam") {
      if (in >> value) flipParameter = vrutil::stob(value);
    } else {
      VR_WARNING(2, "Unrecognized token: " + token + " in config file " + path);
      skipLine();
      unknownToken = true;
    }
  }
  return in.eof() && !unknownToken;
}

void VrConfig::printConfig(unsigned level) const {
  if ((level & 15) > VRWarningLevel) return;
  const unsigned flags = level | vrmsg::Warning;
  vrmessage(flags, "", 0, "Vorn: GlobalRepo       " + globalRepository);
  vrmessage(flags, "", 0, "Vorn: LocalRepo        " + localRepository);
  vrmessage(flags, "", 0, "Vorn: UserRepo         " + userRepository);
  vrmessage(flags, "", 0, "Vorn: Documentation    " + documentation);
  vrmessage(flags, "", 0, "Vorn: PromoteFunction  " + promoteFunction);
  vrmessage(flags, "", 0, std::string("Vorn: FlipParam        ") + (flipParameter ? "True" : "False"));
}

void VrConfig::loadModules(const std::string& repository) {
  const std::string directory = vrutil::validPath(repository + "plugins");
  DIR* dir = opendir(directory.c_str());
  if (!dir) return;  // a repository without plugins is normal
  std::vector<std::string> names;
  while (dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos && name.compare(dot, std::string::npos, moduleExtension) == 0)
      names.push_back(name);
  }
  closedir(dir);
  // Directory order differs between file systems; load in name order so runs are repeatable.
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    const std::string path = directory + name;
    if (!dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL)) {
      std::fprintf(stderr, "Vorn: Failed to load custom module %s: %s\n", path.c_str(), dlerror());
    }
  }
}
