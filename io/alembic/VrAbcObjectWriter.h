#pragma once
// An object of an archive being written: a node of the hierarchy with its metadata, its top
// compound of properties and its children, all owned by it.

#include "io/alembic/VrAbcCompoundWriter.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

struct VrAbcWriterCore;

class VrAbcObjectWriter {
 public:
  ~VrAbcObjectWriter();

  const std::string& name() const { return head.name; }
  const std::string& fullName() const { return head.fullName; }
  const VrAbcMetaData& metaData() const { return head.metaData; }

  /// Creates a child object; the name must be non-empty, hold no '/' and be new among the
  /// children. Null with an Error otherwise.
  VrAbcObjectWriter* createChild(const std::string& name, const VrAbcMetaData& metaData = VrAbcMetaData());
  size_t numChildren() const { return children.size(); }
  /// The top compound of the object's properties.
  VrAbcCompoundWriter& properties() { return *top; }

 private:
  friend class VrAbcArchiveWriter;
  VrAbcObjectWriter(VrAbcWriterCore& core, const VrAbcObjectHeader& header);
  /// Writes the object's properties, children and headers; `digest` is what its parent folds
  /// in for it.
  bool finish(uint64_t& group, VrAbcDigest& digest);

  VrAbcWriterCore& core;
  VrAbcObjectHeader head;
  std::unique_ptr<VrAbcCompoundWriter> top;
  std::vector<std::unique_ptr<VrAbcObjectWriter>> children;
  std::unordered_set<std::string> childNames;  // a transform may hold a million children
};
