#include "io/alembic/VrAbcArrayProperty.h"

#include "io/alembic/VrAbcArchiveCore.h"
#include "io/alembic/VrAbcStrings.h"

namespace {

// Products of dimensions above this cannot describe anything a file holds.
constexpr uint64_t productLimit = uint64_t{1} << 60;

}  // namespace

const uint8_t* VrAbcArrayProperty::spanBytes(const VrAbcSpan& span) { return span.data; }

const VrAbcTimeSampling& VrAbcArrayProperty::timeSampling() const {
  return core->timeSamplings[head.timeSamplingIndex];
}

bool VrAbcArrayProperty::samplePointers(uint32_t index, uint64_t& data, uint64_t& dims) const {
  if (!core) return false;
  if (index >= head.numSamples)
    return core->fail(where + ": no sample " + std::to_string(index) + " (the property has " +
                      std::to_string(head.numSamples) + ")");
  const uint64_t stored = head.storedIndex(index);
  if (2 * stored + 1 >= children.size() || !VrAbcOgawaFile::isData(children[2 * stored]) ||
      !VrAbcOgawaFile::isData(children[2 * stored + 1]))
    return core->fail(where + ": sample " + std::to_string(index) + " is missing from the file");
  data = children[2 * stored];
  dims = children[2 * stored + 1];
  return true;
}

bool VrAbcArrayProperty::readDims(uint32_t index, VrAbcSpan& data,
                                  std::vector<uint64_t>& dims) const {
  uint64_t dataPointer = 0, dimsPointer = 0;
  if (!samplePointers(index, dataPointer, dimsPointer)) return false;
  VrAbcSpan dimsSpan;
  std::string error;
  if (!core->file.readData(dataPointer, data, error) || !core->file.readData(dimsPointer, dimsSpan, error))
    return core->fail(where + ": " + error);
  const std::string sample = where + ": sample " + std::to_string(index);
  if (data.size > 0 && data.size < 16) return core->fail(sample + " is too short to hold its key");
  const uint64_t payload = data.size == 0 ? 0 : data.size - 16;
  const VrAbcDataType& type = head.dataType;
  const bool strings = vrabc::isStringPod(type.pod);

  if (dimsSpan.size == 0) {
    // One dimension, implied by the size of the data.
    if (strings) {
      const uint64_t count =
          payload ? vrabc::countStrings(data.data + 16, payload, type.pod == VrAbcPod::Wstring) : 0;
      dims.assign(1, count / type.extent);
      return true;
    }
    if (payload % type.valueBytes() != 0)
      return core->fail(sample + " holds " + std::to_string(payload) +
                        " bytes, not a whole number of values");
    dims.assign(1, payload / type.valueBytes());
    return true;
  }

  const uint64_t rank = dimsSpan.size / 8;
  dims.assign(static_cast<size_t>(rank), 0);
  if (rank) std::memcpy(dims.data(), dimsSpan.data, static_cast<size_t>(rank * 8));
  uint64_t product = rank ? 1 : 0;
  for (uint64_t d : dims) {
    if (d != 0 && product > productLimit / d) return core->fail(sample + " has impossible dimensions");
    product *= d;
  }
  if (rank == 0) dims.assign(1, 0);
  if (strings) {
    // Every string takes at least its terminating zero.
    const uint64_t unit = type.pod == VrAbcPod::Wstring ? 4 : 1;
    if (product > productLimit / type.extent || product * type.extent * unit > payload)
      return core->fail(sample + " has more strings than bytes");
    return true;
  }
  // Stored dimensions may describe less than the block holds; the rest is not part of the
  // sample. More than it holds is damage.
  if (product > productLimit / type.valueBytes() || product * type.valueBytes() > payload)
    return core->fail(sample + ": its dimensions ask for more values than it holds");
  return true;
}

bool VrAbcArrayProperty::read(uint32_t index, VrAbcSample& out) const {
  VrAbcSpan data;
  if (!readDims(index, data, out.dims)) return false;
  out.dataType = head.dataType;
  out.bytes.clear();
  out.strings.clear();
  const uint64_t payload = data.size == 0 ? 0 : data.size - 16;
  if (vrabc::isStringPod(head.dataType.pod)) {
    out.strings.assign(static_cast<size_t>(out.numValues() * head.dataType.extent), std::string());
    if (payload) vrabc::splitStrings(data.data + 16, payload, head.dataType.pod == VrAbcPod::Wstring, out.strings);
    return true;
  }
  const uint64_t used = out.numValues() * head.dataType.valueBytes();
  if (used) out.bytes.assign(data.data + 16, data.data + 16 + used);
  return true;
}

bool VrAbcArrayProperty::numericSpan(uint32_t index, size_t elementSize, bool floating,
                                     VrAbcSpan& span, uint64_t& count) const {
  const VrAbcPod pod = head.dataType.pod;
  const bool podFloating = pod == VrAbcPod::Float32 || pod == VrAbcPod::Float64 || pod == VrAbcPod::Float16;
  if (core && (vrabc::isStringPod(pod) || vrabc::podBytes(pod) != elementSize || podFloating != floating))
    return core->fail(where + ": holds " + vrabc::podName(pod) + " values, not the type asked for");
  std::vector<uint64_t> dims;
  if (!readDims(index, span, dims)) return false;
  count = head.dataType.extent;
  for (uint64_t d : dims) count *= d;
  return true;
}

bool VrAbcArrayProperty::key(uint32_t index, VrAbcDigest& out) const {
  out = VrAbcDigest();
  uint64_t dataPointer = 0, dimsPointer = 0;
  if (!samplePointers(index, dataPointer, dimsPointer)) return false;
  VrAbcSpan span;
  std::string error;
  if (!core->file.readData(dataPointer, span, error)) return core->fail(where + ": " + error);
  if (span.size >= 16) std::memcpy(out.bytes, span.data, 16);
  return true;
}

bool VrAbcArrayProperty::dimensions(uint32_t index, std::vector<uint64_t>& dims) const {
  VrAbcSpan data;
  return readDims(index, data, dims);
}
