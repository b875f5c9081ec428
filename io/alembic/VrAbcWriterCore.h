#pragma once
// What every node of an archive being written shares: the container writer, the time sampling
// table with the largest sample count of each entry, the table of short metadata strings, and
// the samples already stored, so that equal samples are stored once and shared. One writer is
// used from one thread at a time.

#include "io/alembic/VrAbcOgawaWriter.h"
#include "io/alembic/VrAbcSpookyHash.h"
#include "io/alembic/VrAbcTimeSampling.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

struct VrAbcWriterCore {
  /// Samples are shared when digest, size and kind of element (string, wide string, other) agree.
  struct StoredKey {
    VrAbcDigest digest;
    uint64_t numBytes = 0;
    uint8_t podClass = 0;
    bool operator<(const StoredKey& o) const {
      const int byDigest = std::memcmp(digest.bytes, o.digest.bytes, 16);
      if (byDigest != 0) return byDigest < 0;
      return std::tie(numBytes, podClass) < std::tie(o.numBytes, o.podClass);
    }
  };
  /// Where a stored sample is, and the element count it was stored with.
  struct Stored {
    uint64_t pointer = 0;
    uint64_t numElements = 0;
  };

  VrAbcOgawaWriter file;
  std::string fileName;
  std::vector<VrAbcTimeSampling> timeSamplings;
  std::vector<uint32_t> maxSamples;
  std::map<StoredKey, Stored> stored;
  std::map<std::string, uint32_t> metaIndex;
  std::vector<std::string> metaStrings;
  bool failed = false;

  /// The table entry for a serialized metadata string: 0 for empty, 1..254 for short strings,
  /// 255 for one written in full where it is used.
  uint32_t metaDataIndex(const std::string& serialized);
  /// Adds what a property header contributes to a digest: name, metadata and, for scalar and
  /// array properties, type and time sampling.
  void hashHeader(const VrAbcPropertyHeader& header, VrAbcSpookyHash& hash) const;
  /// Sends "<file>: <what>" as an Error and marks the archive as failed; always false.
  bool fail(const std::string& what);
};
