#pragma once
// An array property of an archive being read: a variable-length array of values per sample
// (positions, face counts, knots...). A cheap handle; copies share the archive.

#include "io/alembic/VrAbcOgawaFile.h"
#include "io/alembic/VrAbcSample.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

struct VrAbcArchiveCore;
class VrAbcTimeSampling;

class VrAbcArrayProperty {
 public:
  VrAbcArrayProperty() = default;

  bool valid() const { return core != nullptr; }
  const VrAbcPropertyHeader& header() const { return head; }
  const std::string& path() const { return where; }
  uint32_t numSamples() const { return head.numSamples; }
  bool isConstant() const { return head.isConstant(); }
  const VrAbcTimeSampling& timeSampling() const;

  /// Reads sample `index` (< numSamples) with its dimensions. False with an Error naming the
  /// file when the index is out of range, the sample is missing, or its size does not agree
  /// with its dimensions.
  bool read(uint32_t index, VrAbcSample& out) const;

  /// Reads the elements of a numeric sample straight into `out` when T is the stored element
  /// type (the fast path for large arrays); false with an Error otherwise.
  template <class T>
  bool readAs(uint32_t index, std::vector<T>& out) const {
    VrAbcSpan span;
    uint64_t count = 0;
    if (!numericSpan(index, sizeof(T), std::is_floating_point<T>::value, span, count)) return false;
    out.resize(static_cast<size_t>(count));
    if (count) std::memcpy(out.data(), spanBytes(span) + 16, static_cast<size_t>(count * sizeof(T)));
    return true;
  }

  /// The digest stored with sample `index` (zero for an empty sample).
  bool key(uint32_t index, VrAbcDigest& out) const;
  /// The dimensions of sample `index`.
  bool dimensions(uint32_t index, std::vector<uint64_t>& dims) const;
  uint32_t storedIndex(uint32_t index) const { return head.storedIndex(index); }

 private:
  friend class VrAbcCompoundProperty;
  bool samplePointers(uint32_t index, uint64_t& data, uint64_t& dims) const;
  bool readDims(uint32_t index, VrAbcSpan& data, std::vector<uint64_t>& dims) const;
  bool numericSpan(uint32_t index, size_t elementSize, bool floating, VrAbcSpan& span,
                   uint64_t& count) const;
  static const uint8_t* spanBytes(const VrAbcSpan& span);

  std::shared_ptr<const VrAbcArchiveCore> core;
  VrAbcPropertyHeader head;
  std::string where;
  std::vector<uint64_t> children;  // data and dimensions of each stored sample, in turn
};
