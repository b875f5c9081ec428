#include "io/alembic/VrAbcObject.h"

#include "io/alembic/VrAbcArchiveCore.h"

namespace {

// Instances that stand for instances: the chain is followed this far and no further.
constexpr int maxInstanceHops = 32;

uint32_t load32(const uint8_t* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

// The child headers at the front of an object's last data block.
bool parseChildHeaders(const VrAbcArchiveCore& core, const uint8_t* data, uint64_t size,
                       const std::string& parentPath, std::vector<VrAbcObjectHeader>& out,
                       std::string& error) {
  uint64_t pos = 0;
  const std::string prefix = parentPath == "/" ? std::string() : parentPath;
  while (pos < size) {
    if (size - pos < 4) {
      error = "an object header is cut short";
      return false;
    }
    const uint32_t nameSize = load32(data + pos);
    pos += 4;
    if (size - pos < uint64_t{nameSize} + 1) {
      error = "an object header's name runs past its block";
      return false;
    }
    VrAbcObjectHeader header;
    header.name.assign(reinterpret_cast<const char*>(data + pos), nameSize);
    header.fullName = prefix + "/" + header.name;
    pos += nameSize;
    const uint8_t metaIndex = data[pos++];
    if (metaIndex == 0xff) {
      if (size - pos < 4) {
        error = "an object header's metadata size is cut short";
        return false;
      }
      const uint32_t metaSize = load32(data + pos);
      pos += 4;
      if (size - pos < metaSize) {
        error = "an object header's metadata runs past its block";
        return false;
      }
      header.metaData =
          VrAbcMetaData::parse(std::string(reinterpret_cast<const char*>(data + pos), metaSize));
      pos += metaSize;
    } else if (metaIndex < core.indexedMetaData.size()) {
      header.metaData = core.indexedMetaData[metaIndex];
    } else {
      error = "an object header names metadata entry " + std::to_string(metaIndex) +
              ", which the archive does not have";
      return false;
    }
    out.push_back(std::move(header));
  }
  return true;
}

}  // namespace

bool VrAbcObject::load(const std::shared_ptr<const VrAbcArchiveCore>& core, uint64_t pointer,
                       const VrAbcObjectHeader& header, VrAbcObject& out) {
  out = VrAbcObject();
  std::string error;
  std::vector<uint64_t> children;
  if (!core->file.readGroup(pointer, children, error)) return core->fail(header.fullName + ": " + error);

  std::vector<VrAbcObjectHeader> heads;
  VrAbcDigest props, kids;
  if (!children.empty() && VrAbcOgawaFile::isData(children.back())) {
    VrAbcSpan span;
    if (!core->file.readData(children.back(), span, error)) return core->fail(header.fullName + ": " + error);
    // The last 32 bytes are the digests of the object's properties and of its children.
    if (span.size > 32 &&
        !parseChildHeaders(*core, span.data, span.size - 32, header.fullName, heads, error))
      return core->fail(header.fullName + ": " + error);
    if (span.size >= 32) {
      std::memcpy(props.bytes, span.data + span.size - 32, 16);
      std::memcpy(kids.bytes, span.data + span.size - 16, 16);
    }
  }

  if (!children.empty() && !VrAbcOgawaFile::isData(children.front())) {
    VrAbcPropertyHeader topHeader;
    topHeader.metaData = header.metaData;
    if (!VrAbcCompoundProperty::load(core, children.front(), topHeader, header.fullName, out.top))
      return false;
    out.hasTop = true;
  }
  out.core = core;
  out.groupPointer = pointer;
  out.head = header;
  out.shownName = header.name;
  out.shownPath = header.fullName;
  out.children = std::move(children);
  out.childHeads = std::move(heads);
  out.propsDigest = props;
  out.childDigest = kids;
  return true;
}

bool VrAbcObject::loadTop(const std::shared_ptr<const VrAbcArchiveCore>& core, VrAbcObject& out) {
  VrAbcObjectHeader header;
  header.name = "ABC";
  header.fullName = "/";
  header.metaData = core->archiveMetaData;
  return load(core, core->topObject, header, out);
}

bool VrAbcObject::fail(const std::string& what) const { return core ? core->fail(what) : false; }

bool VrAbcObject::properties(VrAbcCompoundProperty& out) const {
  out = VrAbcCompoundProperty();
  if (!core) return false;
  if (!hasTop) return core->fail(shownPath + ": the object has no property group");
  out = top;
  return true;
}

bool VrAbcObject::childRaw(size_t i, VrAbcObject& out) const {
  out = VrAbcObject();
  if (!core) return false;
  if (i >= childHeads.size()) return core->fail(shownPath + ": no child " + std::to_string(i));
  if (i + 1 >= children.size() || VrAbcOgawaFile::isData(children[i + 1]))
    return core->fail(childHeads[i].fullName + ": the object has no group in the file");
  if (!load(core, children[i + 1], childHeads[i], out)) return false;
  if (!instancePath.empty()) {
    out.instancePath = instancePath + "/" + out.head.name;
    out.shownPath = out.instancePath;
  }
  return true;
}

bool VrAbcObject::child(size_t i, VrAbcObject& out) const {
  if (!childRaw(i, out)) return false;
  if (out.metaData().get("isInstance") == "1") return followInstance(out, 0);
  return true;
}

bool VrAbcObject::child(const std::string& childName, VrAbcObject& out) const {
  for (size_t i = 0; i < childHeads.size(); ++i)
    if (childHeads[i].name == childName) return child(i, out);
  out = VrAbcObject();
  return core && core->fail(shownPath + ": no child called " + childName);
}

bool VrAbcObject::followInstance(VrAbcObject& instance, int hops) const {
  if (hops > maxInstanceHops) return core->fail(instance.shownPath + ": instances nest too deeply");
  VrAbcCompoundProperty props;
  if (!instance.properties(props)) return false;
  const VrAbcPropertyHeader* source = props.findHeader(".instanceSource");
  if (!source || !source->isScalar() || source->dataType.pod != VrAbcPod::String)
    return core->fail(instance.shownPath + ": an instance without a source path");
  VrAbcScalarProperty sourceProp;
  VrAbcSample sample;
  if (!props.scalar(".instanceSource", sourceProp) || sourceProp.numSamples() == 0 ||
      !sourceProp.read(0, sample) || sample.strings.empty())
    return core->fail(instance.shownPath + ": the source path of the instance cannot be read");
  VrAbcObject target;
  if (!resolvePath(sample.strings[0], hops + 1, target)) return false;
  target.shownName = instance.shownName;
  target.shownPath = instance.shownPath;
  target.instancePath = instance.shownPath;
  target.instanceRoot = true;
  target.sourcePath = sample.strings[0];
  instance = std::move(target);
  return true;
}

bool VrAbcObject::resolvePath(const std::string& path, int hops, VrAbcObject& out) const {
  VrAbcObject current;
  if (!loadTop(core, current)) return false;
  size_t start = path.empty() || path[0] != '/' ? 0 : 1;
  if (start >= path.size()) return core->fail("instance source \"" + path + "\" names no object");
  while (true) {
    const size_t slash = path.find('/', start);
    const std::string part = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
    size_t index = current.childHeads.size();
    for (size_t i = 0; i < current.childHeads.size(); ++i)
      if (current.childHeads[i].name == part) index = i;
    if (index == current.childHeads.size())
      return core->fail("instance source \"" + path + "\" names no object");
    VrAbcObject next;
    if (!current.childRaw(index, next)) return false;
    if (slash == std::string::npos) {
      out = std::move(next);
      return true;
    }
    if (next.metaData().get("isInstance") == "1" && !followInstance(next, hops)) return false;
    current = std::move(next);
    start = slash + 1;
  }
}
