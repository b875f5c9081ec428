#pragma once
// The blue-noise sample table and getSample, the source of every random location on a face.
//
// The table holds 16 unrelated sets of 32,768 points (u, v) in [0, 1), u first. Each set is a
// progressive blue-noise sequence on the unit torus: every prefix of N points keeps a minimum
// wrapped distance of 0.55/sqrt(N), so a prefix of any length covers the square evenly and the
// square tiles without seams. The table is constant data built into the library; it never changes,
// because every groom's locations depend on it (docs/sample-table.md).
//
// Everything here is read-only and safe to call from any number of threads.

#include <cstddef>

namespace vrutil {

/// Number of point sets in the table.
constexpr unsigned kSampleSetCount = 16;
/// Number of points (u, v) in one set.
constexpr unsigned kSamplesPerSet = 32768;

/// Sample `index` of set `set & 15`, turned by `flip & 7`, into (u, v).
///
/// Indices below 32,768 are the set's own points. Beyond them the set is tiled in levels
/// k = 2, 4, 8, ...: the next 131,072 indices use the set tiled 2x2, the next 524,288 tiled 4x4,
/// and so on; within level k, with r the index's offset into the level, table point r / k^2 is
/// placed in cell (r mod k, (r / k) mod k), so each point is used k^2 times in a row, once in
/// each cell: u = (cellU + pu) / k, v = (cellV + pv) / k. Then the flip:
///
///   flip  0: (u, v)      1: (1-v, u)     2: (1-u, 1-v)   3: (v, 1-u)
///         4: (1-u, v)    5: (v, u)       6: (u, 1-v)     7: (1-v, 1-u)
///
/// Every unsigned value of each argument is accepted. Before the flip u and v lie in [0, 1) at
/// every level (the table's values stay far enough below 1 that no cell rounds up to its edge);
/// the flips that take 1 - u or 1 - v give values in (0, 1].
void getSample(unsigned index, unsigned flip, unsigned set, double& u, double& v);

/// The whole table: sampleTableSize() doubles, set after set, each set's points in order, u then
/// v. Valid for the life of the process.
const double* sampleTable();

/// Number of doubles in sampleTable(): 16 x 32,768 x 2 = 1,048,576.
size_t sampleTableSize();

}  // namespace vrutil
