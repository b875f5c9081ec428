#pragma once
// Writes a geometry parameter (uv, N, widths, or an arbitrary one such as a reference pose):
// a plain array property, or, when indexed, a compound of ".vals" and ".indices", with the
// metadata the format's readers look for (scope, element type, interpretation).

#include "io/alembic/VrAbcCompoundWriter.h"
#include "io/alembic/VrAbcGeomParam.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <string>
#include <vector>

class VrAbcSpool;

/// An arbitrary parameter whose values were gathered in a spool, for the spooled samples of the
/// geometry writers.
struct VrAbcSpooledParam {
  std::string name;
  VrAbcDataType type;
  const char* interpretation = "";  ///< "quat", "vector", "" ...
  VrAbcScope scope = VrAbcScope::Varying;
  const VrAbcSpool* values = nullptr;  ///< null repeats the previous sample
};

/// An indexed string parameter of spooled samples: the distinct texts and one uint32 index per
/// value, gathered in a spool.
struct VrAbcSpooledStrings {
  std::string name;
  const std::vector<std::string>* texts = nullptr;
  const VrAbcSpool* indices = nullptr;  ///< null repeats the previous sample
};

class VrAbcGeomParamWriter {
 public:
  /// Creates the parameter in `parent`. `interpretation` may be "" (plain numbers). False with
  /// an Error when the name is taken.
  bool create(VrAbcCompoundWriter& parent, const std::string& name, VrAbcDataType type,
              const char* interpretation, VrAbcScope scope, bool indexed, uint32_t timeSampling);
  bool valid() const { return vals != nullptr; }
  bool indexed() const { return indices != nullptr; }
  uint32_t numSamples() const { return vals ? vals->numSamples() : 0; }

  /// The next sample: `numValues` values, and for an indexed parameter the indices. Values not
  /// given repeat the previous sample.
  bool write(const void* values, uint64_t numValues, bool given, const uint32_t* index = nullptr,
             uint64_t numIndices = 0);
  /// The next sample of an indexed string parameter: its texts, and the indices gathered in
  /// `indexSpool`.
  bool writeStrings(const std::vector<std::string>& texts, const VrAbcSpool& indexSpool);
  /// The next sample of a plain (not indexed) parameter, its values gathered in `spool`.
  bool write(const VrAbcSpool& spool);
  /// An empty sample, which the format's writers use to fill samples before a parameter
  /// appeared.
  bool writeEmpty();

  /// Creates, in a geometry's first sample, the writers of `params` in `parent` (the
  /// ".arbGeomParams" compound), or checks later samples give the same number; then writes
  /// each one's next sample. False with an Error when a parameter cannot be made or written.
  static bool writeSpooled(VrAbcCompoundWriter* parent, const std::vector<VrAbcSpooledParam>& params,
                           bool first, uint32_t timeSampling, std::vector<VrAbcGeomParamWriter>& writers);

 private:
  VrAbcPropertyWriter* vals = nullptr;
  VrAbcPropertyWriter* indices = nullptr;
};
