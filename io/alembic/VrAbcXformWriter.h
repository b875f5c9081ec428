#pragma once
// Writes a transform (AbcGeom_Xform_v3) as the format's writers do for a transform given as one
// matrix: ".inherits" (bool), ".ops" (one matrix operation) and ".vals" (the 16 numbers), one
// sample per call. Children created under `object()` are placed by it.

#include "io/alembic/VrAbcObjectWriter.h"

#include <cstdint>
#include <string>

class VrAbcXformWriter {
 public:
  /// Creates the transform object `name` under `parent`; its samples follow `timeSampling`.
  bool create(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling);
  /// The next sample: `matrix` row by row, points as row vectors (translation in row 3);
  /// `inherits` false makes it relative to the world instead of the parent.
  bool write(const double matrix[16], bool inherits = true);
  uint32_t numSamples() const { return samples; }
  VrAbcObjectWriter* object() const { return obj; }

 private:
  VrAbcObjectWriter* obj = nullptr;
  VrAbcPropertyWriter* inherits = nullptr;
  VrAbcPropertyWriter* ops = nullptr;
  VrAbcPropertyWriter* vals = nullptr;
  uint32_t samples = 0;
};
