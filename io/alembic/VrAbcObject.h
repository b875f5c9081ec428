#pragma once
// An object of an archive being read: a node of the scene hierarchy with a name, metadata, a
// top compound of properties and child objects. A cheap handle; the headers of its children and
// of its top-level properties are read once, when it is made.
//
// Instances: an object whose metadata says isInstance=1 stands for another object of the
// archive, named by its ".instanceSource" property. Opening such a child gives the object it
// stands for, seen under the instance's name and path, as the format's own reader does.

#include "io/alembic/VrAbcCompoundProperty.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct VrAbcArchiveCore;

class VrAbcObject {
 public:
  VrAbcObject() = default;

  bool valid() const { return core != nullptr; }
  /// The name and path it is seen under (an instance's own for an instance).
  const std::string& name() const { return shownName; }
  const std::string& fullName() const { return shownPath; }
  /// The header of the object itself (the instance's target for an instance).
  const VrAbcObjectHeader& header() const { return head; }
  const VrAbcMetaData& metaData() const { return head.metaData; }

  size_t numChildren() const { return childHeads.size(); }
  const VrAbcObjectHeader& childHeader(size_t i) const { return childHeads[i]; }
  /// Opens child `i`, following it when it is an instance. False with an Error naming the file
  /// when the child's group is missing or damaged or an instance cannot be followed.
  bool child(size_t i, VrAbcObject& out) const;
  bool child(const std::string& name, VrAbcObject& out) const;

  /// The top compound of the object's properties; false with an Error when the object has no
  /// property group.
  bool properties(VrAbcCompoundProperty& out) const;

  /// The digests stored for the object's properties and for its children (zero when absent).
  const VrAbcDigest& propertiesHash() const { return propsDigest; }
  const VrAbcDigest& childrenHash() const { return childDigest; }

  /// Where the object's group lies in the file; two handles with the same position read the
  /// same object (an instance and its source, or a damaged file looping back on itself).
  uint64_t groupPosition() const { return groupPointer; }

  bool isInstanceRoot() const { return instanceRoot; }
  bool isInstanceDescendant() const { return !instancePath.empty(); }
  /// The path an instance root stands for.
  const std::string& instanceSource() const { return sourcePath; }

  /// Reports a failure found while interpreting this object; always false.
  bool fail(const std::string& what) const;

  /// The top object of an archive ("/", named "ABC").
  static bool loadTop(const std::shared_ptr<const VrAbcArchiveCore>& core, VrAbcObject& out);

 private:
  static bool load(const std::shared_ptr<const VrAbcArchiveCore>& core, uint64_t pointer,
                   const VrAbcObjectHeader& header, VrAbcObject& out);
  bool childRaw(size_t i, VrAbcObject& out) const;
  bool followInstance(VrAbcObject& instance, int hops) const;
  bool resolvePath(const std::string& path, int hops, VrAbcObject& out) const;

  std::shared_ptr<const VrAbcArchiveCore> core;
  VrAbcObjectHeader head;
  std::string shownName;
  std::string shownPath;
  uint64_t groupPointer = 0;
  std::vector<uint64_t> children;  // property group, child groups, headers
  std::vector<VrAbcObjectHeader> childHeads;
  bool hasTop = false;
  VrAbcCompoundProperty top;
  VrAbcDigest propsDigest;
  VrAbcDigest childDigest;
  bool instanceRoot = false;
  std::string instancePath;  // set on instance roots and everything below them
  std::string sourcePath;
};
