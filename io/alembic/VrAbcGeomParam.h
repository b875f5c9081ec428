#pragma once
// A geometry parameter of a schema (uv, N, widths, or an arbitrary one such as a reference
// pose): values with a scope saying what they attach to, stored either as a plain array or as
// a compound of ".vals" and ".indices" (an indexed parameter).

#include "io/alembic/VrAbcArrayProperty.h"
#include "io/alembic/VrAbcCompoundProperty.h"
#include "io/alembic/VrAbcSample.h"

#include <cstdint>
#include <string>
#include <vector>

/// What a parameter's values attach to, from the "geoScope" metadata.
enum class VrAbcScope { Constant, Uniform, Varying, Vertex, FaceVarying, Unknown };

class VrAbcGeomParam {
 public:
  struct Sample {
    bool indexed = false;
    VrAbcScope scope = VrAbcScope::Unknown;
    VrAbcSample values;
    std::vector<uint32_t> indices;  ///< empty unless indexed
  };

  /// Opens parameter `name` of `parent`, expecting values of the given element type and
  /// extent and, when not null, interpretation. False with an Error when it is absent or of
  /// another type.
  bool open(const VrAbcCompoundProperty& parent, const std::string& name, VrAbcPod pod, int extent,
            const char* interpretation);

  bool valid() const { return vals.valid(); }
  bool indexed() const { return isIndexed; }
  VrAbcScope scope() const { return paramScope; }
  /// The sample count: the larger of values and indices for an indexed parameter.
  uint32_t numSamples() const;
  /// Reads what schema sample `index` sees (each part clamped to its own samples).
  bool read(uint32_t index, Sample& out) const;
  const VrAbcArrayProperty& valueProperty() const { return vals; }
  const VrAbcArrayProperty& indexProperty() const { return idx; }

  static VrAbcScope scopeFromMetaData(const VrAbcMetaData& meta);
  /// "constant", "uniform", "varying", "vertex", "facevarying" or "unknown".
  static const char* scopeName(VrAbcScope scope);
  /// The stored abbreviation: "con", "uni", "var", "vtx", "fvr"; "" for Unknown.
  static const char* scopeCode(VrAbcScope scope);

 private:
  VrAbcCompoundProperty parentCompound;
  VrAbcArrayProperty vals;
  VrAbcArrayProperty idx;
  bool isIndexed = false;
  VrAbcScope paramScope = VrAbcScope::Unknown;
};
