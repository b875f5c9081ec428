#pragma once
// A compound property of an archive being read: a named group of child properties, each a
// compound, scalar or array property. An object's properties hang from one top compound; a
// schema (a mesh, a transform) is a compound of agreed name and content. A cheap handle; its
// child headers are read once, when it is made.

#include "io/alembic/VrAbcArrayProperty.h"
#include "io/alembic/VrAbcScalarProperty.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct VrAbcArchiveCore;

class VrAbcCompoundProperty {
 public:
  VrAbcCompoundProperty() = default;

  bool valid() const { return core != nullptr; }
  const VrAbcPropertyHeader& header() const { return head; }
  const std::string& path() const { return where; }

  size_t numProperties() const { return heads.size(); }
  const VrAbcPropertyHeader& propertyHeader(size_t i) const { return heads[i]; }
  /// Index of the child called `name`, or -1.
  int find(const std::string& name) const;
  /// The header of the child called `name`, or null.
  const VrAbcPropertyHeader* findHeader(const std::string& name) const;

  /// Opens child `i` (< numProperties) as the kind its header names. False with an Error
  /// naming the file when the child is of another kind or its group is missing or damaged.
  bool compound(size_t i, VrAbcCompoundProperty& out) const;
  bool scalar(size_t i, VrAbcScalarProperty& out) const;
  bool array(size_t i, VrAbcArrayProperty& out) const;
  /// The same by name; an absent child is an Error too.
  bool compound(const std::string& name, VrAbcCompoundProperty& out) const;
  bool scalar(const std::string& name, VrAbcScalarProperty& out) const;
  bool array(const std::string& name, VrAbcArrayProperty& out) const;

  /// Reports a failure found while interpreting this compound (an Error naming the file, and
  /// the thread's last error); always false.
  bool fail(const std::string& what) const;

  /// Reads the compound stored in the group `pointer` names: its child list and the headers in
  /// its last data block. Used for an object's top compound and by `compound`.
  static bool load(const std::shared_ptr<const VrAbcArchiveCore>& core, uint64_t pointer,
                   const VrAbcPropertyHeader& header, const std::string& path,
                   VrAbcCompoundProperty& out);

 private:
  bool childGroup(size_t i, VrAbcPropertyKind kind, uint64_t& pointer) const;
  /// Opens child i, a scalar or array property, with its list of sample groups.
  template <class PropertyT>
  bool sampledChild(size_t i, VrAbcPropertyKind kind, PropertyT& out) const;

  std::shared_ptr<const VrAbcArchiveCore> core;
  VrAbcPropertyHeader head;
  std::string where;
  std::vector<uint64_t> children;
  std::vector<VrAbcPropertyHeader> heads;
};
