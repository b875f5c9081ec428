#pragma once
// What every reading handle of one archive shares: the mapped file and the tables read at open.
// Immutable once the archive is open, so handles on several threads may use it at once. Handles
// keep it alive through a shared pointer, so they stay valid after the archive object is gone.

#include "io/alembic/VrAbcMetaData.h"
#include "io/alembic/VrAbcOgawaFile.h"
#include "io/alembic/VrAbcTimeSampling.h"

#include <cstdint>
#include <string>
#include <vector>

struct VrAbcArchiveCore {
  VrAbcOgawaFile file;
  std::string fileName;  ///< the bare file name, for messages
  std::vector<VrAbcTimeSampling> timeSamplings;
  std::vector<int64_t> maxSamples;  ///< per time sampling, -1 where the archive stores none
  std::vector<VrAbcMetaData> indexedMetaData;  ///< entry 0 is the empty metadata
  VrAbcMetaData archiveMetaData;               ///< also the metadata of the top object
  uint64_t topObject = 0;                      ///< group of the top object

  /// Sends "<file>: <what>" as an Error, records it as the calling thread's last error, and
  /// returns false, so that a failing read can end with `return core.fail(...)`.
  bool fail(const std::string& what) const;
};
