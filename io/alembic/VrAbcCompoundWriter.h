#pragma once
// A compound property of an archive being written: creates and owns its child properties.
// Children are written out, with the compound's header block and digest, when the archive is
// closed.

#include "io/alembic/VrAbcPropertyWriter.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct VrAbcWriterCore;

class VrAbcCompoundWriter {
 public:
  ~VrAbcCompoundWriter();

  const VrAbcPropertyHeader& header() const { return head; }
  const std::string& path() const { return where; }

  /// Creates a child. The name must be non-empty, hold no '/' and be new in this compound; the
  /// time sampling must be one the archive has (0 always is). Null with an Error otherwise.
  VrAbcCompoundWriter* createCompound(const std::string& name, const VrAbcMetaData& metaData = VrAbcMetaData());
  VrAbcPropertyWriter* createScalar(const std::string& name, const VrAbcMetaData& metaData,
                                    VrAbcDataType dataType, uint32_t timeSampling);
  VrAbcPropertyWriter* createArray(const std::string& name, const VrAbcMetaData& metaData,
                                   VrAbcDataType dataType, uint32_t timeSampling);

  /// Reports a failure of whoever fills this compound (an Error naming the file, and the
  /// archive will not close); always false.
  bool fail(const std::string& what) const;

  /// An existing child compound by name, or null.
  VrAbcCompoundWriter* findCompound(const std::string& name) const;

 private:
  friend class VrAbcObjectWriter;
  VrAbcCompoundWriter(VrAbcWriterCore& core, const VrAbcPropertyHeader& header, std::string path);
  bool checkName(const std::string& name) const;
  VrAbcPropertyWriter* createValue(const std::string& name, const VrAbcMetaData& metaData,
                                   VrAbcDataType dataType, uint32_t timeSampling, VrAbcPropertyKind kind);
  /// Writes the children's groups and works out the digest. `top`: the object's own compound,
  /// whose digest leaves out its (empty) header.
  bool finishChildren(bool top, VrAbcDigest& digest);
  /// Then writes the header block and the compound's own group.
  bool finishSelf(uint64_t& group);

  struct Child {
    std::unique_ptr<VrAbcCompoundWriter> compound;
    std::unique_ptr<VrAbcPropertyWriter> value;
    const VrAbcPropertyHeader& header() const { return compound ? compound->head : value->head; }
  };

  VrAbcWriterCore& core;
  VrAbcPropertyHeader head;
  std::string where;
  std::vector<Child> children;
  std::vector<uint64_t> childGroups;  // filled by finishChildren
};
