#include "primitives/VrArchiveFiles.h"

#include "base/VrMessage.h"
#include "base/vrutilString.h"

#include <cstdlib>

namespace vrutil {

std::vector<std::string> archiveListTokens(const std::string& line) {
  std::vector<std::string> tokens;
  std::string token;
  bool quoted = false;
  for (char c : line) {
    if (c == '"') quoted = !quoted;
    if (!quoted && (c == ' ' || c == '\t' || c == '\r')) {
      if (!token.empty()) tokens.push_back(token);
      token.clear();
    } else {
      token += c;
    }
  }
  if (!token.empty()) tokens.push_back(token);
  return tokens;
}

}  // namespace vrutil

namespace {

// "key=value" into its two parts; false unless the token splits at '=' into exactly two.
bool keyValue(const std::string& token, std::string& key, std::string& value) {
  const size_t eq = token.find('=');
  if (eq == std::string::npos || token.find('=', eq + 1) != std::string::npos) return false;
  key = token.substr(0, eq);
  value = token.substr(eq + 1);
  return true;
}

std::vector<std::string> commaList(const std::string& text) {
  std::vector<std::string> out;
  vrutil::stoss(text, out, ",");
  return out;
}

}  // namespace

void VrArchiveFiles::clear() {
  fileMap.clear();
  groupMap.clear();
  numGroups = 0;
  currentGroup = 0;
}

void VrArchiveFiles::parse(const std::string& text, const Resolver& findFile) {
  clear();
  const std::string lines = vrutil::prepForEditor(text);
  size_t start = 0;
  while (start <= lines.size()) {
    size_t end = lines.find('\n', start);
    if (end == std::string::npos) end = lines.size();
    const std::string line = lines.substr(start, end - start);
    start = end + 1;
    const std::vector<std::string> tokens = vrutil::archiveListTokens(line);
    if (tokens.empty()) continue;
    if (tokens[0] == "#ArchiveGroup")
      readGroupLine(tokens, findFile);
    else if (tokens[0][0] != '#')
      readFileLine(tokens, line, findFile);
  }
}

void VrArchiveFiles::readGroupLine(const std::vector<std::string>& tokens, const Resolver& findFile) {
  if (tokens.size() < 3) return;
  VrArchiveGroup group;
  group.number = std::atoi(tokens[1].c_str());
  for (size_t i = 2; i < tokens.size(); ++i) {
    std::string key, value;
    if (!keyValue(tokens[i], key, value)) continue;
    if (key == "name") {
      if (value.size() > 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
      group.name = value;
    } else if (key == "color") {
      group.color = value;
    } else if (key == "materials") {
      group.materials = commaList(value);
    } else if (key == "thumbnail") {
      const std::string found = findFile ? findFile(value) : value;
      group.thumbnail = found.empty() ? value : found;
    }
  }
  currentGroup = group.number;
  groupMap[group.number] = group;
  ++numGroups;
}

void VrArchiveFiles::readFileLine(const std::vector<std::string>& tokens, const std::string& line,
                                  const Resolver& findFile) {
  if (tokens.size() < 2) {
    VR_ERROR("Error in the archive file list, this line is not understood: " + line);
    return;
  }
  VrArchiveEntry entry;
  entry.listed = tokens[1];
  entry.path = findFile ? findFile(entry.listed) : entry.listed;
  entry.baseName = vrutil::baseFileName(entry.listed);
  for (size_t i = 2; i < tokens.size(); ++i) {
    std::string key, value;
    if (!keyValue(tokens[i], key, value)) continue;
    if (key == "material")
      entry.material = value;
    else if (key == "boundingbox")
      entry.useBox = value == "true";
    else if (key == "objects")
      entry.objects = commaList(value);
  }
  fileMap[keyOf(currentGroup, std::atoi(tokens[0].c_str()))].push_back(std::move(entry));
}

const VrArchiveEntry* VrArchiveFiles::entry(int key, unsigned i) const {
  auto found = fileMap.find(key);
  return found != fileMap.end() && i < found->second.size() ? &found->second[i] : nullptr;
}

unsigned VrArchiveFiles::count(int key) const {
  auto found = fileMap.find(key);
  return found == fileMap.end() ? 0u : static_cast<unsigned>(found->second.size());
}

const std::string& VrArchiveFiles::groupName(int number) const {
  static const std::string none;
  auto found = groupMap.find(number);
  return found == groupMap.end() ? none : found->second.name;
}
