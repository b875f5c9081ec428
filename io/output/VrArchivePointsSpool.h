#pragma once
// VrArchivePointsSpool: archives as one points object. Each archive is a point at its position
// with its id (face << 32 | id, stable from frame to frame) and these per-point parameters:
// "aim" and "up", the unit directions its own x and y go to, "scale", the lengths of its three
// axes, "archiveGroup", "archiveFrame", and the chosen file of each slot as an indexed string
// ("archiveFileLow", "archiveFileMedium", "archiveFileHigh", "archiveFileProxy"; "" where the
// archive has none). Everything but the position is that of the first sample.

#include "io/alembic/VrAbcSpool.h"
#include "io/output/VrShapeSpool.h"

#include <map>
#include <string>
#include <vector>

class VrArchivePointsSpool : public VrShapeSpool {
 public:
  bool add(const VrOutputPrimitive& primitive) override;
  bool writeInto(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) override;

 private:
  /// The distinct file names of one slot and the index of each archive's.
  struct FileColumn {
    std::vector<std::string> texts;
    std::map<std::string, uint32_t> indexOf;
    VrAbcSpool indices;
  };

  bool openOwn(const std::string& directory, std::string& error) override;

  VrAbcSpool ids, aims, ups, scales, groups, frames;
  FileColumn files[4];
};
