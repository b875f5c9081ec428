#pragma once
// A scalar property of an archive being read: one fixed-size value per sample (a bool, a box of
// six doubles, a string...). A cheap handle; copies share the archive.

#include "io/alembic/VrAbcSample.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct VrAbcArchiveCore;
class VrAbcTimeSampling;

class VrAbcScalarProperty {
 public:
  VrAbcScalarProperty() = default;

  bool valid() const { return core != nullptr; }
  const VrAbcPropertyHeader& header() const { return head; }
  /// Path inside the archive, "/object/.geom/P" style; used in messages.
  const std::string& path() const { return where; }
  uint32_t numSamples() const { return head.numSamples; }
  bool isConstant() const { return head.isConstant(); }
  const VrAbcTimeSampling& timeSampling() const;

  /// Reads sample `index` (< numSamples). False with an Error naming the file when the index is
  /// out of range or the stored sample is missing or of the wrong size.
  bool read(uint32_t index, VrAbcSample& out) const;
  /// The digest stored with sample `index` (zero for empty data).
  bool key(uint32_t index, VrAbcDigest& out) const;
  /// Position of the stored sample that sample `index` reads, for telling shared samples apart.
  uint32_t storedIndex(uint32_t index) const { return head.storedIndex(index); }

 private:
  friend class VrAbcCompoundProperty;
  bool sampleData(uint32_t index, uint64_t& pointer) const;

  std::shared_ptr<const VrAbcArchiveCore> core;
  VrAbcPropertyHeader head;
  std::string where;
  std::vector<uint64_t> children;  // one data block per stored sample
};
