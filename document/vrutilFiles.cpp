#include "document/vrutilFiles.h"

#include <tbb/concurrent_unordered_map.h>

#include <vector>

#include "base/VrConfig.h"
#include "base/VrDict.h"
#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "base/vrutilName.h"
#include "base/vrutilPath.h"
#include "base/vrutilString.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"

namespace vrutil {

namespace {

// "${FRAME}" in a form that the environment expansion turns back into "${FRAME}".
const char* const kProtectedFrame = "\\$\\{FRAME\\}";
const char* const kProtectedFrameAlt = "$\\{\\FRAME\\}";

// Search results: path found, or "" for a name searched without success. The plain dictionary
// serves single-threaded evaluation, the concurrent map serves worker threads.
VrDict<std::string>& plainCache() {
  static auto* cache = new VrDict<std::string>();  // never freed: used by destructors at exit
  return *cache;
}

tbb::concurrent_unordered_map<std::string, std::string>& concurrentCache() {
  static auto* cache = new tbb::concurrent_unordered_map<std::string, std::string>();
  return *cache;
}

bool cacheLookup(const std::string& key, std::string& value) {
  if (VrTaskManager::seExprMultithreading()) {
    auto& cache = concurrentCache();
    auto it = cache.find(key);
    if (it == cache.end()) return false;
    value = it->second;
    return true;
  }
  const std::string* hit = plainCache().find(key);
  if (!hit) return false;
  value = *hit;
  return true;
}

void cacheStore(const std::string& key, const std::string& value) {
  if (VrTaskManager::seExprMultithreading()) {
    auto& cache = concurrentCache();
    // Entries are never overwritten, so readers on other threads never see a value change;
    // two threads racing on one key found the same answer.
    cache.insert({key, value});
    return;
  }
  plainCache()[key] = value;
}

std::string collectionName(const VrDescription* description) {
  const VrPalette* palette = description ? description->palette() : nullptr;
  return palette ? palette->name() : std::string();
}

// The first data path directory, macro-expanded, in directory form; empty when there is none.
std::string firstDataDir(VrDescription* description, const std::string& geometryName,
                         const std::string& fxModuleName) {
  const VrPalette* palette = description ? description->palette() : nullptr;
  if (!palette || palette->vrDataPath().empty()) return std::string();
  return validPath(expandMacros(palette->vrDataPath().front(), geometryName, description,
                                fxModuleName));
}

bool endsInSeparator(const std::string& text) {
  return !text.empty() && (text.back() == '/' || text.back() == '\\');
}

// The description of this name in the first collection that holds one; null with an Error.
VrDescription* findDescription(const std::string& descriptionName) {
  for (auto it = VrPalette::palettes().begin(); it != VrPalette::palettes().end(); ++it) {
    if (VrPalette* palette = it.value())
      if (VrDescription* description = palette->description(descriptionName)) return description;
  }
  VR_ERROR("Could not find Vorn collection: [" + descriptionName + "]");
  return nullptr;
}

}  // namespace

std::string expandMacros(const std::string& text, const std::string& geometryName,
                         VrDescription* description, const std::string& fxModuleName, double u,
                         double v, int face) {
  (void)u;
  (void)v;
  (void)face;
  std::string out = text;
  if (out.size() >= 2 && out.front() == '"' && out.back() == '"') out = out.substr(1, out.size() - 2);
  if (!geometryName.empty()) replaceSubStrs(out, "$g", stripNameSpace(geometryName));

  if (!description) {
    replaceSubStrs(out, "${PROJECT}", VrConfig::state().getProjectPath());
    fileCleanup(out);
    return out;
  }

  replaceSubStrs(out, "${DESC}", stripNameSpace(description->name()));
  replaceSubStrs(out, "${NS}", objNameSpace(description->name()));
  replaceSubStrs(out, "${FRAME}", kProtectedFrame);
  std::string projectPath;
  if (const VrPalette* palette = description->palette()) palette->getAttr("vrProjectPath", projectPath);
  replaceSubStrs(out, "${PROJECT}", projectPath);
  replaceSubStrs(out, "${FXMODULE}", fxModuleName);
  // "${PAL,name}" macros are stepped over and stay: collection expressions are not evaluated yet.

  if (!fileCleanup(out)) return out;
  replaceSubStrs(out, kProtectedFrame, "${FRAME}");
  replaceSubStrs(out, kProtectedFrameAlt, "${FRAME}");
  return out;
}

std::string expandInputMapName(const std::string& text, VrDescription* description,
                               const std::string& fxModuleName) {
  return expandMacros(text, "", description, fxModuleName, 0.0, 0.0, 0);
}

bool expandOutputFileName(std::string& text, const std::string& geometryName,
                          VrDescription* description, const std::string& fxModuleName,
                          bool createDirs) {
  if (!description) return false;
  std::string result = expandMacros(text, geometryName, description, fxModuleName);
  if (!isAbsolutePath(result)) result = firstDataDir(description, geometryName, fxModuleName) + result;
  if (createDirs && !createDir(result, !endsInSeparator(result))) return false;
  text = result;
  return true;
}

std::string expandFilepath(const std::string& text, const std::string& descriptionName,
                           bool isDirectory, bool createDirs, const std::string& geometryName,
                           const std::string& fxModuleName) {
  VrDescription* description = findDescription(descriptionName);
  if (!description) return text;
  std::string path = forwardSlashes(stripWhitespace(text, true));
  if (isDirectory) path = validPath(path);
  if (!expandOutputFileName(path, geometryName, description, fxModuleName, createDirs)) return text;
  if (isDirectory) path = validPath(path);
  return path;
}

bool findFileInVrDataPath(std::string& found, const std::string& file,
                          const std::string& geometryName, VrDescription* description,
                          const std::string& fxModuleName, bool quiet, double u, double v,
                          int face) {
  if (!description) return false;

  std::vector<std::string> searchList;
  if (const VrPalette* palette = description->palette()) searchList = palette->vrDataPath();
  const VrConfig& config = VrConfig::state();
  if (!config.userRepo().empty()) searchList.push_back(config.userRepo());
  if (!config.globalRepo().empty()) searchList.push_back(config.globalRepo());

  const std::string expanded =
      expandMacros(file, geometryName, description, fxModuleName, u, v, face);
  const std::string key = collectionName(description) + " " + expanded;
  std::string cached;
  if (cacheLookup(key, cached)) {
    if (cached.empty()) return false;
    VR_DEBUG(4, vrmsg::CatExpression, "Found file " + cached + " in File cache");
    found = cached;
    return true;
  }

  const bool absolute = isAbsolutePath(expanded);
  if (searchList.empty() && !absolute) {
    if (!quiet)
      VR_ERROR("Failed to find " + expanded +
               ". Relative path is given but no VrPath is provided to expand to full path.");
    return false;
  }

  std::vector<std::string> attempts;
  if (absolute) attempts.push_back(expanded);
  else
    for (const std::string& directory : searchList)
      attempts.push_back(
          validPath(expandMacros(directory, geometryName, description, fxModuleName, u, v, face)) +
          expanded);

  std::string report;
  for (const std::string& path : attempts) {
    std::string tried;
    if (filepathExists(path, tried)) {
      cacheStore(key, path);
      found = path;
      return true;
    }
    report += "\n" + std::string(17, ' ') + tried;
  }
  cacheStore(key, std::string());
  if (!quiet) {
    VR_ERROR("Failed to find " + expanded);
    VR_ERROR("Searched path includes:" + report);
  }
  return false;
}

std::string resolveFileInVrDataPath(const std::string& file, const std::string& geometryName,
                                    VrDescription* description, const std::string& fxModuleName) {
  const std::string expanded = expandMacros(file, geometryName, description, fxModuleName);
  if (!description) return expanded;
  std::string found;
  if (findFileInVrDataPath(found, file, geometryName, description, fxModuleName, false))
    return found;
  if (isAbsolutePath(expanded)) return expanded;
  return firstDataDir(description, geometryName, fxModuleName) + expanded;
}

void clearFileCache() {
  VR_DEBUG(4, vrmsg::CatExpression, "clearing _files");
  plainCache().clear();
  concurrentCache().clear();
}

}  // namespace vrutil
