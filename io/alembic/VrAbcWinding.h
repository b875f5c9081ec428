#pragma once
// Face winding. Alembic stores the vertices of a polygon clockwise seen from the side its normal
// points to; the system builds surfaces from counter-clockwise faces. Reversing every face turns
// one order into the other, and the same reversal turns it back, so a mesh written and read
// again keeps every face's first vertex and parameter directions.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vrabc {

/// Copies `values` (`components` numbers per face vertex, faces one after another as `counts`
/// says) with the vertices of each face in reverse order. False, leaving `out` empty, when the
/// values do not cover the faces exactly or a count is negative.
template <typename T>
bool reverseEachFace(const int32_t* counts, size_t numFaces, const T* values, size_t numValues, size_t components,
                     std::vector<T>& out) {
  out.clear();
  size_t total = 0;
  for (size_t f = 0; f < numFaces; ++f) {
    if (counts[f] < 0) return false;
    total += static_cast<size_t>(counts[f]);
  }
  if (components == 0 || total * components != numValues) return false;
  out.resize(numValues);
  size_t start = 0;
  for (size_t f = 0; f < numFaces; ++f) {
    const size_t n = static_cast<size_t>(counts[f]);
    for (size_t k = 0; k < n; ++k)
      for (size_t c = 0; c < components; ++c)
        out[(start + k) * components + c] = values[(start + n - 1 - k) * components + c];
    start += n;
  }
  return true;
}

}  // namespace vrabc
