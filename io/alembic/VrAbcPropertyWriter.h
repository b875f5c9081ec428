#pragma once
// A scalar or array property of an archive being written. Samples are stored as they are set;
// a sample equal to the one before is only counted (the format folds repeats), and a sample
// equal to one stored anywhere in the archive shares its bytes.

#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class VrAbcSpool;
struct VrAbcWriterCore;

class VrAbcPropertyWriter {
 public:
  const VrAbcPropertyHeader& header() const { return head; }
  const std::string& path() const { return where; }
  uint32_t numSamples() const { return head.numSamples; }

  /// Sets the next sample from `numValues` values of the property's type (for a scalar
  /// property, exactly one value; for float32_t[3], three floats per value). False with an
  /// Error when the count does not suit the property or an acyclic time sampling has no time
  /// left for another sample.
  bool setSample(const void* data, uint64_t numValues);
  /// An array sample with several dimensions.
  bool setSample(const void* data, const std::vector<uint64_t>& dims);
  /// A sample of a string property (a scalar takes exactly `extent` strings). Strings cannot
  /// hold a zero byte.
  bool setStrings(const std::vector<std::string>& values);
  /// Repeats the last sample.
  bool setFromPrevious();
  /// A one-dimensional array sample whose bytes were gathered in `spool` (a whole number of
  /// values of the property's type); they are copied into the archive from there.
  bool setSample(const VrAbcSpool& spool);
  /// A one-dimensional array sample whose bytes the archive took already (see
  /// VrAbcArchiveWriter::beginStreamedSample).
  bool setSample(const VrAbcWrittenSample& sample);

 private:
  friend class VrAbcCompoundWriter;
  VrAbcPropertyWriter(VrAbcWriterCore& core, const VrAbcPropertyHeader& header, std::string path);

  bool store(const uint8_t* payload, uint64_t bytes, const std::vector<uint64_t>& dims);
  /// Stores a sample of `bytes` bytes with digest `key`; `writePayload` appends them as the
  /// data block after the key, and is called only when no equal sample is stored yet. Without
  /// `writePayload` the block is at `writtenPointer` already.
  bool store(const VrAbcDigest& key, uint64_t bytes, const std::vector<uint64_t>& dims,
             const std::function<bool()>& writePayload, uint64_t writtenPointer = 0);
  /// A one-dimensional sample of `bytes` bytes: its dimensions, or false when the bytes are not
  /// a whole number of the property's values.
  bool wholeValues(uint64_t bytes, bool failed, std::vector<uint64_t>& dims);
  bool roomForSample();
  void foldDigest(const VrAbcDigest& key, const std::vector<uint64_t>& dims);
  /// Writes the property's group and gives the digest its parent folds in.
  bool finish(uint64_t& group, VrAbcDigest& digest);

  VrAbcWriterCore& core;
  VrAbcPropertyHeader head;
  std::string where;
  std::vector<uint64_t> children;
  bool hasPrevious = false;
  VrAbcDigest previousKey;
  uint64_t previousBytes = 0;
  uint64_t previousData = 0;
  uint64_t previousDimsPointer = 0;
  uint64_t previousElements = 0;
  std::vector<uint64_t> previousDims;
  uint64_t hash0 = 0, hash1 = 0;
};
