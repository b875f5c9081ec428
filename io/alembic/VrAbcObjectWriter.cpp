#include "io/alembic/VrAbcObjectWriter.h"

#include "io/alembic/VrAbcSpookyHash.h"
#include "io/alembic/VrAbcWriterCore.h"

VrAbcObjectWriter::VrAbcObjectWriter(VrAbcWriterCore& core, const VrAbcObjectHeader& header)
    : core(core), head(header) {
  VrAbcPropertyHeader topHeader;
  topHeader.metaData = header.metaData;
  top.reset(new VrAbcCompoundWriter(core, topHeader, header.fullName == "/" ? "" : header.fullName));
}

VrAbcObjectWriter::~VrAbcObjectWriter() = default;

VrAbcObjectWriter* VrAbcObjectWriter::createChild(const std::string& childName, const VrAbcMetaData& metaData) {
  if (childName.empty() || childName.find('/') != std::string::npos) {
    core.fail(head.fullName + ": \"" + childName + "\" cannot name an object");
    return nullptr;
  }
  if (!childNames.insert(childName).second) {
    core.fail(head.fullName + ": there is already a child " + childName);
    return nullptr;
  }
  VrAbcObjectHeader header;
  header.name = childName;
  header.fullName = (head.fullName == "/" ? "" : head.fullName) + "/" + childName;
  header.metaData = metaData;
  children.emplace_back(new VrAbcObjectWriter(core, header));
  return children.back().get();
}

bool VrAbcObjectWriter::finish(uint64_t& group, VrAbcDigest& digest) {
  // Children first, then the properties' children, this object's headers, and the properties'
  // own headers: the order in which the format's writer fills the file and its metadata table.
  std::vector<uint64_t> groups(1, 0);
  std::vector<uint64_t> childDigests;
  for (auto& child : children) {
    uint64_t childGroup = 0;
    VrAbcDigest childDigest;
    if (!child->finish(childGroup, childDigest)) return false;
    groups.push_back(childGroup);
    childDigests.push_back(childDigest.word(0));
    childDigests.push_back(childDigest.word(1));
  }

  VrAbcDigest propertiesDigest;
  if (!top->finishChildren(true, propertiesDigest)) return false;

  // Child headers, then the digests of the properties and of the children.
  std::vector<uint8_t> data;
  for (const auto& child : children) {
    const VrAbcObjectHeader& h = child->head;
    const uint32_t nameSize = static_cast<uint32_t>(h.name.size());
    const uint8_t* sizeBytes = reinterpret_cast<const uint8_t*>(&nameSize);
    data.insert(data.end(), sizeBytes, sizeBytes + 4);
    data.insert(data.end(), h.name.begin(), h.name.end());
    const std::string meta = h.metaData.serializeLenient();
    const uint32_t metaIndex = core.metaDataIndex(meta);
    data.push_back(static_cast<uint8_t>(metaIndex));
    if (metaIndex == 0xff) {
      const uint32_t metaSize = static_cast<uint32_t>(meta.size());
      const uint8_t* metaSizeBytes = reinterpret_cast<const uint8_t*>(&metaSize);
      data.insert(data.end(), metaSizeBytes, metaSizeBytes + 4);
      data.insert(data.end(), meta.begin(), meta.end());
    }
  }
  VrAbcSpookyHash hash;
  VrAbcDigest childrenDigest;
  if (!childDigests.empty()) {
    hash.update(childDigests.data(), childDigests.size() * 8);
    uint64_t w0, w1;
    hash.final(w0, w1);
    childrenDigest.setWords(w0, w1);
  }
  data.insert(data.end(), propertiesDigest.bytes, propertiesDigest.bytes + 16);
  data.insert(data.end(), childrenDigest.bytes, childrenDigest.bytes + 16);
  uint64_t pointer = 0;
  if (!core.file.writeData(data.data(), data.size(), pointer))
    return core.fail(head.fullName + ": the object could not be written");
  groups.push_back(pointer);
  if (!top->finishSelf(groups[0])) return false;
  if (!core.file.writeGroup(groups, group)) return core.fail(head.fullName + ": the object could not be written");

  // What the parent folds in: the children, the properties, the metadata and the name.
  hash.update(propertiesDigest.bytes, 16);
  const std::string meta = head.metaData.serializeLenient();
  if (!meta.empty()) hash.update(meta.data(), meta.size());
  hash.update(head.name.data(), head.name.size());
  uint64_t w0, w1;
  hash.final(w0, w1);
  digest.setWords(w0, w1);
  return true;
}
