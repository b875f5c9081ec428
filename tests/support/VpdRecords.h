#pragma once
// Every record of a point/primitive file's first block, face by face, for comparisons.

#include "io/vpd/VpdReader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace vrtest {

struct VpdRecord {
  int face;
  std::uint32_t id;
  std::vector<float> values;
  bool operator==(const VpdRecord& o) const { return std::tie(face, id, values) == std::tie(o.face, o.id, o.values); }
  friend void PrintTo(const VpdRecord& r, std::ostream* out) {
    *out << "face " << r.face << " id " << r.id << " values";
    for (float x : r.values) *out << ' ' << x;
  }
};

inline std::vector<VpdRecord> readRecords(VpdReader& reader) {
  std::vector<VpdRecord> out;
  for (int face : reader.facesInFile()) {
    EXPECT_TRUE(reader.findFace(face) && reader.findBlock(0));
    VpdRecord r{face, 0, {}};
    while (reader.readPrim(r.id, r.values)) out.push_back(r);
  }
  return out;
}

/// Empty (and a failure) when the file does not open.
inline std::vector<VpdRecord> readRecords(const std::string& path) {
  std::unique_ptr<VpdReader> reader = VpdReader::open(path);
  EXPECT_TRUE(reader) << path;
  return reader ? readRecords(*reader) : std::vector<VpdRecord>();
}

}  // namespace vrtest
