#include "io/alembic/VrAbcCompoundProperty.h"

#include "io/alembic/VrAbcArchiveCore.h"

namespace {

// The packed header list of a compound (see the writer for the layout of the info word).
class HeaderParser {
 public:
  HeaderParser(const VrAbcArchiveCore& core, const VrAbcSpan& span) : core(core), span(span) {}

  bool parse(std::vector<VrAbcPropertyHeader>& out, std::string& error) {
    while (pos < span.size) {
      VrAbcPropertyHeader header;
      if (!parseOne(header, error)) return false;
      out.push_back(std::move(header));
    }
    return true;
  }

 private:
  bool u32(uint32_t hint, uint32_t& value, std::string& error) {
    const uint64_t width = hint == 0 ? 1 : hint == 1 ? 2 : hint == 2 ? 4 : 0;
    if (width == 0) {
      error = "a property header has a bad size hint";
      return false;
    }
    if (span.size - pos < width) {
      error = "a property header is cut short";
      return false;
    }
    value = 0;
    std::memcpy(&value, span.data + pos, static_cast<size_t>(width));
    pos += width;
    return true;
  }

  bool parseOne(VrAbcPropertyHeader& h, std::string& error) {
    uint32_t info = 0;
    if (!u32(2, info, error)) return false;
    const uint32_t type = info & 3;
    h.kind = type == 0 ? VrAbcPropertyKind::Compound
                       : type == 1 ? VrAbcPropertyKind::Scalar : VrAbcPropertyKind::Array;
    h.scalarLike = (type & 1) != 0;
    const uint32_t hint = (info >> 2) & 3;
    if (!h.isCompound()) {
      const uint32_t pod = (info >> 4) & 0xf;
      if (!vrabc::isValidPod(pod)) {
        error = "a property header names an invalid element type " + std::to_string(pod);
        return false;
      }
      h.dataType.pod = static_cast<VrAbcPod>(pod);
      h.dataType.extent = static_cast<uint8_t>((info >> 12) & 0xff);
      if (h.dataType.extent == 0) {
        error = "a property header has an extent of 0";
        return false;
      }
      h.homogeneous = (info & 0x400) != 0;
      if (!u32(hint, h.numSamples, error)) return false;
      if (info & 0x200) {
        if (!u32(hint, h.firstChanged, error) || !u32(hint, h.lastChanged, error)) return false;
      } else if (info & 0x800) {
        h.firstChanged = 0;
        h.lastChanged = 0;
      } else {
        h.firstChanged = 1;
        h.lastChanged = h.numSamples - 1;  // wraps for 0 samples, as stored files expect
      }
      if (info & 0x100) {
        if (!u32(hint, h.timeSamplingIndex, error)) return false;
      }
      if (h.timeSamplingIndex >= core.timeSamplings.size()) {
        error = "a property header names time sampling " + std::to_string(h.timeSamplingIndex) +
                ", which the archive does not have";
        return false;
      }
    }
    uint32_t nameSize = 0;
    if (!u32(hint, nameSize, error)) return false;
    if (span.size - pos < nameSize) {
      error = "a property header name runs past its block";
      return false;
    }
    h.name.assign(reinterpret_cast<const char*>(span.data + pos), nameSize);
    pos += nameSize;
    const uint32_t metaIndex = (info >> 20) & 0xff;
    if (metaIndex == 0xff) {
      uint32_t metaSize = 0;
      if (!u32(hint, metaSize, error)) return false;
      if (span.size - pos < metaSize) {
        error = "a property header's metadata runs past its block";
        return false;
      }
      h.metaData = VrAbcMetaData::parse(
          std::string(reinterpret_cast<const char*>(span.data + pos), metaSize));
      pos += metaSize;
    } else if (metaIndex < core.indexedMetaData.size()) {
      h.metaData = core.indexedMetaData[metaIndex];
    } else {
      error = "a property header names metadata entry " + std::to_string(metaIndex) +
              ", which the archive does not have";
      return false;
    }
    return true;
  }

  const VrAbcArchiveCore& core;
  VrAbcSpan span;
  uint64_t pos = 0;
};

const char* kindName(VrAbcPropertyKind kind) {
  switch (kind) {
    case VrAbcPropertyKind::Compound: return "compound";
    case VrAbcPropertyKind::Scalar: return "scalar";
    case VrAbcPropertyKind::Array: return "array";
  }
  return "unknown";
}

std::string joinPath(const std::string& parent, const std::string& name) {
  if (parent.empty() || parent.back() == '/') return parent + name;
  return parent + "/" + name;
}

}  // namespace

bool VrAbcCompoundProperty::load(const std::shared_ptr<const VrAbcArchiveCore>& core,
                                 uint64_t pointer, const VrAbcPropertyHeader& header,
                                 const std::string& path, VrAbcCompoundProperty& out) {
  out = VrAbcCompoundProperty();
  std::string error;
  std::vector<uint64_t> children;
  if (!core->file.readGroup(pointer, children, error)) return core->fail(path + ": " + error);
  std::vector<VrAbcPropertyHeader> heads;
  if (!children.empty() && VrAbcOgawaFile::isData(children.back())) {
    VrAbcSpan span;
    if (!core->file.readData(children.back(), span, error)) return core->fail(path + ": " + error);
    HeaderParser parser(*core, span);
    if (!parser.parse(heads, error)) return core->fail(path + ": " + error);
  }
  out.core = core;
  out.head = header;
  out.where = path;
  out.children = std::move(children);
  out.heads = std::move(heads);
  return true;
}

bool VrAbcCompoundProperty::fail(const std::string& what) const {
  return core ? core->fail(what) : false;
}

int VrAbcCompoundProperty::find(const std::string& name) const {
  for (size_t i = 0; i < heads.size(); ++i)
    if (heads[i].name == name) return static_cast<int>(i);
  return -1;
}

const VrAbcPropertyHeader* VrAbcCompoundProperty::findHeader(const std::string& name) const {
  const int i = find(name);
  return i < 0 ? nullptr : &heads[static_cast<size_t>(i)];
}

bool VrAbcCompoundProperty::childGroup(size_t i, VrAbcPropertyKind kind, uint64_t& pointer) const {
  if (!core) return false;
  if (i >= heads.size()) return core->fail(where + ": no property " + std::to_string(i));
  const VrAbcPropertyHeader& h = heads[i];
  const std::string path = joinPath(where, h.name);
  if (h.kind != kind)
    return core->fail(path + ": a " + kindName(h.kind) + " property read as a " + kindName(kind) + " one");
  if (i >= children.size() || VrAbcOgawaFile::isData(children[i]))
    return core->fail(path + ": the property has no group in the file");
  pointer = children[i];
  return true;
}

bool VrAbcCompoundProperty::compound(size_t i, VrAbcCompoundProperty& out) const {
  uint64_t pointer = 0;
  if (!childGroup(i, VrAbcPropertyKind::Compound, pointer)) return false;
  return load(core, pointer, heads[i], joinPath(where, heads[i].name), out);
}

template <class PropertyT>
bool VrAbcCompoundProperty::sampledChild(size_t i, VrAbcPropertyKind kind, PropertyT& out) const {
  out = PropertyT();
  uint64_t pointer = 0;
  if (!childGroup(i, kind, pointer)) return false;
  std::string error;
  std::vector<uint64_t> samples;
  const std::string path = joinPath(where, heads[i].name);
  if (!core->file.readGroup(pointer, samples, error)) return core->fail(path + ": " + error);
  out.core = core;
  out.head = heads[i];
  out.where = path;
  out.children = std::move(samples);
  return true;
}

bool VrAbcCompoundProperty::scalar(size_t i, VrAbcScalarProperty& out) const {
  return sampledChild(i, VrAbcPropertyKind::Scalar, out);
}

bool VrAbcCompoundProperty::array(size_t i, VrAbcArrayProperty& out) const {
  return sampledChild(i, VrAbcPropertyKind::Array, out);
}

bool VrAbcCompoundProperty::compound(const std::string& name, VrAbcCompoundProperty& out) const {
  const int i = find(name);
  if (i < 0) return core && core->fail(joinPath(where, name) + ": no such property");
  return compound(static_cast<size_t>(i), out);
}

bool VrAbcCompoundProperty::scalar(const std::string& name, VrAbcScalarProperty& out) const {
  const int i = find(name);
  if (i < 0) return core && core->fail(joinPath(where, name) + ": no such property");
  return scalar(static_cast<size_t>(i), out);
}

bool VrAbcCompoundProperty::array(const std::string& name, VrAbcArrayProperty& out) const {
  const int i = find(name);
  if (i < 0) return core && core->fail(joinPath(where, name) + ": no such property");
  return array(static_cast<size_t>(i), out);
}
