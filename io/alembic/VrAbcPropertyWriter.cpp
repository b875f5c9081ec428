#include "io/alembic/VrAbcPropertyWriter.h"

#include "io/alembic/VrAbcMurmur3.h"
#include "io/alembic/VrAbcSpookyHash.h"
#include "io/alembic/VrAbcSpool.h"
#include "io/alembic/VrAbcWriterCore.h"

#include <algorithm>

namespace {

// Decodes UTF-8 into code points, replacing malformed bytes by U+FFFD.
void appendCodePoints(const std::string& text, std::vector<uint32_t>& out) {
  for (size_t i = 0; i < text.size();) {
    const auto b = static_cast<unsigned char>(text[i]);
    int extra = b < 0x80 ? 0 : (b >> 5) == 6 ? 1 : (b >> 4) == 14 ? 2 : (b >> 3) == 30 ? 3 : -1;
    if (extra < 0 || i + static_cast<size_t>(extra) >= text.size()) {
      out.push_back(0xfffd);
      ++i;
      continue;
    }
    uint32_t c = extra == 0 ? b : b & (0x3f >> extra);
    bool good = true;
    for (int k = 1; k <= extra; ++k) {
      const auto next = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
      if ((next & 0xc0) != 0x80) good = false;
      c = (c << 6) | (next & 0x3f);
    }
    out.push_back(good ? c : 0xfffd);
    i += good ? static_cast<size_t>(extra) + 1 : 1;
  }
}

}  // namespace

VrAbcPropertyWriter::VrAbcPropertyWriter(VrAbcWriterCore& core, const VrAbcPropertyHeader& header,
                                         std::string path)
    : core(core), head(header), where(std::move(path)) {}

bool VrAbcPropertyWriter::roomForSample() {
  const VrAbcTimeSampling& ts = core.timeSamplings[head.timeSamplingIndex];
  if (ts.type() == VrAbcTimeSampling::Type::Acyclic && head.numSamples >= ts.storedTimes().size())
    return core.fail(where + ": sample " + std::to_string(head.numSamples) +
                     " has no time in the property's acyclic time sampling");
  if (head.numSamples == 0xfffffffeu) return core.fail(where + ": too many samples");
  return true;
}

void VrAbcPropertyWriter::foldDigest(const VrAbcDigest& key, const std::vector<uint64_t>& dims) {
  VrAbcDigest digest = key;
  if (head.isArray() && !dims.empty()) {
    VrAbcSpookyHash hash;
    hash.update(dims.data(), dims.size() * 8);
    hash.update(digest.bytes, 16);
    uint64_t w0, w1;
    hash.final(w0, w1);
    digest.setWords(w0, w1);
  }
  uint64_t d0 = digest.word(0), d1 = digest.word(1);
  if (head.numSamples == 0) {
    hash0 = d0;
    hash1 = d1;
  } else {
    VrAbcSpookyHash::shortEnd(hash0, hash1, d0, d1);
  }
}

bool VrAbcPropertyWriter::store(const uint8_t* payload, uint64_t bytes, const std::vector<uint64_t>& dims) {
  const VrAbcDigest key = VrAbcMurmur3::hash(payload, static_cast<size_t>(bytes));
  return store(key, bytes, dims, [&] { return core.file.appendData(payload, bytes); });
}

bool VrAbcPropertyWriter::wholeValues(uint64_t bytes, bool failed, std::vector<uint64_t>& dims) {
  if (!head.isArray() || vrabc::isStringPod(head.dataType.pod))
    return core.fail(where + ": only arrays of numbers take a spooled or streamed sample");
  const uint64_t valueBytes = head.dataType.valueBytes();
  if (failed || valueBytes == 0 || bytes % valueBytes != 0)
    return core.fail(where + ": the spooled or streamed sample is not a whole number of values");
  dims.assign(1, bytes / valueBytes);
  return true;
}

bool VrAbcPropertyWriter::setSample(const VrAbcSpool& spool) {
  std::vector<uint64_t> dims;
  if (!wholeValues(spool.size(), spool.failed(), dims)) return false;
  return store(spool.digest(), spool.size(), dims, [&] {
    const int fd = spool.descriptor();
    return fd >= 0 && core.file.appendDataFrom(fd, 0, spool.size());
  });
}

bool VrAbcPropertyWriter::setSample(const VrAbcWrittenSample& sample) {
  std::vector<uint64_t> dims;
  if (!wholeValues(sample.bytes, false, dims)) return false;
  return store(sample.key, sample.bytes, dims, nullptr, sample.pointer);
}

bool VrAbcPropertyWriter::store(const VrAbcDigest& key, uint64_t bytes, const std::vector<uint64_t>& dims,
                                const std::function<bool()>& writePayload, uint64_t writtenPointer) {
  if (core.failed || !roomForSample()) return false;
  const bool repeat = hasPrevious && key == previousKey && bytes == previousBytes;
  if (!repeat) {
    // Samples since the last change were only counted; now they are stored.
    if (head.firstChanged != 0) {
      for (uint64_t i = uint64_t{head.lastChanged} + 1; i < head.numSamples; ++i) {
        children.push_back(previousData);
        if (head.isArray()) children.push_back(previousDimsPointer);
      }
    }
    VrAbcWriterCore::StoredKey storedKey;
    storedKey.digest = key;
    storedKey.numBytes = bytes;
    storedKey.podClass = head.dataType.pod == VrAbcPod::String ? 1 : head.dataType.pod == VrAbcPod::Wstring ? 2 : 0;
    uint64_t numPoints = 1;
    for (uint64_t d : dims) numPoints *= d;
    auto found = core.stored.find(storedKey);
    if (found == core.stored.end()) {
      VrAbcWriterCore::Stored entry;
      entry.numElements = bytes == 0 ? 0 : numPoints * head.dataType.extent;
      if (bytes == 0) {
        entry.pointer = VrAbcOgawaWriter::emptyData;
      } else if (!writePayload) {
        entry.pointer = writtenPointer;
      } else if (!core.file.beginData(16 + bytes, entry.pointer) || !core.file.appendData(key.bytes, 16) ||
                 !writePayload()) {
        return core.fail(where + ": the sample could not be written");
      }
      found = core.stored.emplace(storedKey, entry).first;
    }
    uint64_t dimsPointer = VrAbcOgawaWriter::emptyData;
    if (head.isArray() && (dims.size() > 1 || vrabc::isStringPod(head.dataType.pod))) {
      if (!core.file.writeData(dims.data(), dims.size() * 8, dimsPointer))
        return core.fail(where + ": the sample could not be written");
    }
    children.push_back(found->second.pointer);
    if (head.isArray()) {
      children.push_back(dimsPointer);
      if (head.scalarLike && numPoints != 1) head.scalarLike = false;
      if (head.homogeneous && numPoints != found->second.numElements) head.homogeneous = false;
    }
    if (head.firstChanged == 0) head.firstChanged = head.numSamples;
    head.lastChanged = head.numSamples;
    hasPrevious = true;
    previousKey = key;
    previousBytes = bytes;
    previousData = found->second.pointer;
    previousDimsPointer = dimsPointer;
    previousDims = dims;
  }
  foldDigest(previousKey, previousDims);
  ++head.numSamples;
  return true;
}

bool VrAbcPropertyWriter::setSample(const void* data, uint64_t numValues) {
  if (head.isScalar() && numValues != 1) return core.fail(where + ": a scalar sample is one value");
  return setSample(data, std::vector<uint64_t>(1, numValues));
}

bool VrAbcPropertyWriter::setSample(const void* data, const std::vector<uint64_t>& dims) {
  if (vrabc::isStringPod(head.dataType.pod)) return core.fail(where + ": string samples are set as strings");
  if (dims.empty() || (head.isScalar() && (dims.size() != 1 || dims[0] != 1)))
    return core.fail(where + ": the sample has impossible dimensions");
  uint64_t numValues = 1;
  for (uint64_t d : dims) numValues *= d;
  if (numValues && !data) return core.fail(where + ": the sample has no data");
  return store(static_cast<const uint8_t*>(data), numValues * head.dataType.valueBytes(), dims);
}

bool VrAbcPropertyWriter::setStrings(const std::vector<std::string>& values) {
  if (!vrabc::isStringPod(head.dataType.pod)) return core.fail(where + ": the property does not hold strings");
  const size_t extent = head.dataType.extent;
  if ((head.isScalar() && values.size() != extent) || values.size() % extent != 0)
    return core.fail(where + ": the sample does not hold a whole number of values");
  std::vector<uint8_t> bytes;
  if (head.dataType.pod == VrAbcPod::String) {
    for (const std::string& s : values) {
      if (s.find('\0') != std::string::npos) return core.fail(where + ": a string holds a zero byte");
      bytes.insert(bytes.end(), s.begin(), s.end());
      bytes.push_back(0);
    }
  } else {
    std::vector<uint32_t> points;
    for (const std::string& s : values) {
      if (s.find('\0') != std::string::npos) return core.fail(where + ": a string holds a zero byte");
      appendCodePoints(s, points);
      points.push_back(0);
    }
    bytes.resize(points.size() * 4);
    if (!points.empty()) std::memcpy(bytes.data(), points.data(), bytes.size());
  }
  return store(bytes.data(), bytes.size(), std::vector<uint64_t>(1, values.size() / extent));
}

bool VrAbcPropertyWriter::setFromPrevious() {
  if (!hasPrevious) return core.fail(where + ": no sample to repeat");
  if (core.failed || !roomForSample()) return false;
  foldDigest(previousKey, previousDims);
  ++head.numSamples;
  return true;
}

bool VrAbcPropertyWriter::finish(uint64_t& group, VrAbcDigest& digest) {
  if (!core.file.writeGroup(children, group)) return core.fail(where + ": the property could not be written");
  uint32_t counted = head.numSamples;
  if (head.lastChanged == 0 && counted > 0) counted = 1;  // a constant property counts once
  uint32_t& most = core.maxSamples[head.timeSamplingIndex];
  most = std::max(most, counted);
  VrAbcSpookyHash hash;
  core.hashHeader(head, hash);
  if (counted != 0) {
    uint8_t folded[16];
    std::memcpy(folded, &hash0, 8);
    std::memcpy(folded + 8, &hash1, 8);
    hash.update(folded, 16);
  }
  uint64_t w0, w1;
  hash.final(w0, w1);
  digest.setWords(w0, w1);
  return true;
}
