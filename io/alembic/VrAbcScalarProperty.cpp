#include "io/alembic/VrAbcScalarProperty.h"

#include "io/alembic/VrAbcArchiveCore.h"
#include "io/alembic/VrAbcStrings.h"

const VrAbcTimeSampling& VrAbcScalarProperty::timeSampling() const {
  return core->timeSamplings[head.timeSamplingIndex];
}

bool VrAbcScalarProperty::sampleData(uint32_t index, uint64_t& pointer) const {
  if (!core) return false;
  if (index >= head.numSamples)
    return core->fail(where + ": no sample " + std::to_string(index) + " (the property has " +
                      std::to_string(head.numSamples) + ")");
  const uint32_t stored = head.storedIndex(index);
  if (stored >= children.size() || !VrAbcOgawaFile::isData(children[stored]))
    return core->fail(where + ": sample " + std::to_string(index) + " is missing from the file");
  pointer = children[stored];
  return true;
}

bool VrAbcScalarProperty::key(uint32_t index, VrAbcDigest& out) const {
  out = VrAbcDigest();
  uint64_t pointer = 0;
  if (!sampleData(index, pointer)) return false;
  VrAbcSpan span;
  std::string error;
  if (!core->file.readData(pointer, span, error)) return core->fail(where + ": " + error);
  if (span.size >= 16) std::memcpy(out.bytes, span.data, 16);
  return true;
}

bool VrAbcScalarProperty::read(uint32_t index, VrAbcSample& out) const {
  uint64_t pointer = 0;
  if (!sampleData(index, pointer)) return false;
  VrAbcSpan span;
  std::string error;
  if (!core->file.readData(pointer, span, error)) return core->fail(where + ": " + error);

  out.dataType = head.dataType;
  out.dims.assign(1, 1);
  out.bytes.clear();
  out.strings.clear();
  if (vrabc::isStringPod(head.dataType.pod)) {
    out.strings.assign(head.dataType.extent, std::string());
    if (span.size > 0 && span.size < 16)
      return core->fail(where + ": sample " + std::to_string(index) + " is too short to hold its key");
    if (span.size > 16)
      vrabc::splitStrings(span.data + 16, span.size - 16, head.dataType.pod == VrAbcPod::Wstring,
                          out.strings);
    return true;
  }
  const uint64_t expected = head.dataType.valueBytes();
  if (span.size != expected + 16)
    return core->fail(where + ": sample " + std::to_string(index) + " holds " +
                      std::to_string(span.size < 16 ? 0 : span.size - 16) + " bytes instead of " +
                      std::to_string(expected));
  out.bytes.assign(span.data + 16, span.data + 16 + expected);
  return true;
}
