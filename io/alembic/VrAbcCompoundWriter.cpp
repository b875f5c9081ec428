#include "io/alembic/VrAbcCompoundWriter.h"

#include "io/alembic/VrAbcSpookyHash.h"
#include "io/alembic/VrAbcWriterCore.h"

#include <algorithm>

namespace {

void push(std::vector<uint8_t>& out, uint32_t value, uint32_t hint) {
  const size_t width = hint == 0 ? 1 : hint == 1 ? 2 : 4;
  uint8_t bytes[4];
  std::memcpy(bytes, &value, 4);
  out.insert(out.end(), bytes, bytes + width);
}

// The packed header of one child property. The info word holds: bits 0-1 the kind (0 compound,
// 1 scalar, 2 array; 3 an array whose samples all hold one value), 2-3 the byte width of the
// numbers that follow (1, 2 or 4 bytes), 4-7 the element type, 8 a time sampling index follows,
// 9 first and last changed sample follow, 10 every sample has the same size, 11 all samples are
// equal, 12-19 the extent, 20-27 the metadata table entry (255: the metadata follows).
void packHeader(VrAbcWriterCore& core, const VrAbcPropertyHeader& h, std::vector<uint8_t>& out) {
  const std::string meta = h.metaData.serializeLenient();
  uint32_t largest = static_cast<uint32_t>(meta.size());
  largest = std::max(largest, static_cast<uint32_t>(h.name.size()));
  largest = std::max(largest, h.numSamples);
  largest = std::max(largest, h.timeSamplingIndex);
  const uint32_t hint = largest > 255 && largest < 65536 ? 1 : largest >= 65536 ? 2 : 0;
  const uint32_t metaIndex = core.metaDataIndex(meta);
  uint32_t info = (hint << 2) | (metaIndex << 20);
  bool firstLast = false;
  if (!h.isCompound()) {
    info |= h.isScalar() ? 1u : 2u;
    if (h.isScalar() || h.scalarLike) info |= 1u;
    info |= (static_cast<uint32_t>(h.dataType.pod) & 0xf) << 4;
    if (h.timeSamplingIndex != 0) info |= 0x100;
    if (h.firstChanged == 0 && h.lastChanged == 0) {
      info |= 0x800;
    } else if (h.firstChanged != 1 || h.lastChanged != h.numSamples - 1) {
      info |= 0x200;
      firstLast = true;
    }
    info |= static_cast<uint32_t>(h.dataType.extent) << 12;
    if (h.homogeneous) info |= 0x400;
  }
  push(out, info, 2);
  if (!h.isCompound()) {
    push(out, h.numSamples, hint);
    if (firstLast) {
      push(out, h.firstChanged, hint);
      push(out, h.lastChanged, hint);
    }
    if (h.timeSamplingIndex != 0) push(out, h.timeSamplingIndex, hint);
  }
  push(out, static_cast<uint32_t>(h.name.size()), hint);
  out.insert(out.end(), h.name.begin(), h.name.end());
  if (metaIndex == 0xff) {
    push(out, static_cast<uint32_t>(meta.size()), hint);
    out.insert(out.end(), meta.begin(), meta.end());
  }
}

}  // namespace

VrAbcCompoundWriter::VrAbcCompoundWriter(VrAbcWriterCore& core, const VrAbcPropertyHeader& header,
                                         std::string path)
    : core(core), head(header), where(std::move(path)) {}

VrAbcCompoundWriter::~VrAbcCompoundWriter() = default;

bool VrAbcCompoundWriter::checkName(const std::string& name) const {
  if (name.empty() || name.find('/') != std::string::npos)
    return core.fail(where + ": \"" + name + "\" cannot name a property");
  for (const Child& child : children)
    if (child.header().name == name) return core.fail(where + ": there is already a property " + name);
  return true;
}

VrAbcCompoundWriter* VrAbcCompoundWriter::createCompound(const std::string& name, const VrAbcMetaData& metaData) {
  if (!checkName(name)) return nullptr;
  VrAbcPropertyHeader h;
  h.name = name;
  h.kind = VrAbcPropertyKind::Compound;
  h.metaData = metaData;
  Child child;
  child.compound.reset(new VrAbcCompoundWriter(core, h, where + "/" + name));
  children.push_back(std::move(child));
  return children.back().compound.get();
}

VrAbcPropertyWriter* VrAbcCompoundWriter::createValue(const std::string& name, const VrAbcMetaData& metaData,
                                                      VrAbcDataType dataType, uint32_t timeSampling,
                                                      VrAbcPropertyKind kind) {
  if (!checkName(name)) return nullptr;
  if (dataType.extent == 0 || !vrabc::isValidPod(static_cast<unsigned>(dataType.pod))) {
    core.fail(where + "/" + name + ": an invalid element type");
    return nullptr;
  }
  if (timeSampling >= core.timeSamplings.size()) {
    core.fail(where + "/" + name + ": the archive has no time sampling " + std::to_string(timeSampling));
    return nullptr;
  }
  VrAbcPropertyHeader h;
  h.name = name;
  h.kind = kind;
  h.metaData = metaData;
  h.dataType = dataType;
  h.timeSamplingIndex = timeSampling;
  Child child;
  child.value.reset(new VrAbcPropertyWriter(core, h, where + "/" + name));
  children.push_back(std::move(child));
  return children.back().value.get();
}

VrAbcPropertyWriter* VrAbcCompoundWriter::createScalar(const std::string& name, const VrAbcMetaData& metaData,
                                                       VrAbcDataType dataType, uint32_t timeSampling) {
  return createValue(name, metaData, dataType, timeSampling, VrAbcPropertyKind::Scalar);
}

VrAbcPropertyWriter* VrAbcCompoundWriter::createArray(const std::string& name, const VrAbcMetaData& metaData,
                                                      VrAbcDataType dataType, uint32_t timeSampling) {
  return createValue(name, metaData, dataType, timeSampling, VrAbcPropertyKind::Array);
}

bool VrAbcCompoundWriter::fail(const std::string& what) const { return core.fail(where + ": " + what); }

VrAbcCompoundWriter* VrAbcCompoundWriter::findCompound(const std::string& name) const {
  for (const Child& child : children)
    if (child.compound && child.compound->head.name == name) return child.compound.get();
  return nullptr;
}

bool VrAbcCompoundWriter::finishChildren(bool top, VrAbcDigest& digest) {
  childGroups.clear();
  std::vector<uint64_t> digests;
  for (Child& child : children) {
    uint64_t childGroup = 0;
    VrAbcDigest childDigest;
    const bool done = child.compound ? child.compound->finishChildren(false, childDigest) &&
                                           child.compound->finishSelf(childGroup)
                                     : child.value->finish(childGroup, childDigest);
    if (!done) return false;
    childGroups.push_back(childGroup);
    digests.push_back(childDigest.word(0));
    digests.push_back(childDigest.word(1));
  }
  VrAbcSpookyHash hash;
  if (!digests.empty()) hash.update(digests.data(), digests.size() * 8);
  if (!top) core.hashHeader(head, hash);
  uint64_t w0, w1;
  hash.final(w0, w1);
  digest.setWords(w0, w1);
  return true;
}

bool VrAbcCompoundWriter::finishSelf(uint64_t& group) {
  std::vector<uint8_t> headers;
  for (const Child& child : children) packHeader(core, child.header(), headers);
  if (!headers.empty()) {
    uint64_t pointer = 0;
    if (!core.file.writeData(headers.data(), headers.size(), pointer))
      return core.fail(where + ": the property headers could not be written");
    childGroups.push_back(pointer);
  }
  if (!core.file.writeGroup(childGroups, group)) return core.fail(where + ": the compound could not be written");
  return true;
}
