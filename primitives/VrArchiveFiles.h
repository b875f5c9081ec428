#pragma once
// VrArchiveFiles: the archive list of an archive primitive, parsed. The list is text, one entry
// a line, tokens separated by blanks and tabs (blanks inside double quotes belong to the token):
//
//   #ArchiveGroup <number> name="rocks" color=[1,0,0] materials=a,b thumbnail=rocks.png
//   <level> <file> material=<name> boundingbox=true objects=a,b
//
// A group line makes its number the current group for the file lines after it (group 0 before
// any). A file line files its entry under the key group * 100 + level; several lines may share a
// key. Other lines beginning with '#' are comments. Parsing runs on the main thread; the result
// is read-only while primitives are made.

#include <functional>
#include <map>
#include <string>
#include <vector>

/// One archive file of the list.
struct VrArchiveEntry {
  std::string listed;    ///< the name as the list gives it
  std::string path;      ///< the file found along the data path; empty when it was not found
  std::string baseName;  ///< the file name without folder and extension
  std::vector<std::string> objects;
  std::string material;
  bool useBox = false;  ///< stand in with the file's bounding box
};

/// One "#ArchiveGroup" line.
struct VrArchiveGroup {
  int number = 0;
  std::string name;
  std::vector<std::string> materials;
  std::string color;  ///< the colour text as given; empty when the line has none
  std::string thumbnail;
};

class VrArchiveFiles {
 public:
  /// Key of the entries of `level` in `group`.
  static int keyOf(int group, int level) { return group * 100 + level; }
  /// Finds a listed file; answers the path, or an empty text when there is none.
  using Resolver = std::function<std::string(const std::string& listed)>;

  /// Replaces the contents with the list `text`. A file line with fewer than two tokens is an
  /// Error "Error in the archive file list, this line is not understood: <line>" and is passed over.
  void parse(const std::string& text, const Resolver& findFile);
  void clear();

  const std::map<int, std::vector<VrArchiveEntry>>& entries() const { return fileMap; }
  const std::map<int, VrArchiveGroup>& groups() const { return groupMap; }
  /// The number of group lines read.
  unsigned groupCount() const { return numGroups; }
  bool empty() const { return fileMap.empty(); }
  bool hasKey(int key) const { return fileMap.count(key) != 0; }
  /// Entry `i` of `key`; null for an unknown key or index.
  const VrArchiveEntry* entry(int key, unsigned i) const;
  /// The number of entries under `key`.
  unsigned count(int key) const;
  /// The name of group `number`; empty when there is no such group.
  const std::string& groupName(int number) const;

 private:
  void readGroupLine(const std::vector<std::string>& tokens, const Resolver& findFile);
  void readFileLine(const std::vector<std::string>& tokens, const std::string& line, const Resolver& findFile);

  std::map<int, std::vector<VrArchiveEntry>> fileMap;
  std::map<int, VrArchiveGroup> groupMap;
  unsigned numGroups = 0;
  int currentGroup = 0;
};

namespace vrutil {
/// The tokens of one archive list line: split at blanks and tabs, except inside double quotes.
std::vector<std::string> archiveListTokens(const std::string& line);
}  // namespace vrutil
