#pragma once
// One sample of a scalar or array property as read from an archive: its type, its dimensions
// (one entry for an ordinary array: the number of values) and its bytes, or its strings for a
// string property. Reused across reads to avoid reallocating.

#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

class VrAbcSample {
 public:
  VrAbcDataType dataType;
  std::vector<uint64_t> dims;     ///< at least one entry
  std::vector<uint8_t> bytes;     ///< the values, for non-string types
  std::vector<std::string> strings;  ///< the values of string and wide-string types (as UTF-8)

  /// Number of values (points): the product of the dimensions.
  uint64_t numValues() const;
  /// Number of elements: values times extent.
  uint64_t numElements() const { return numValues() * dataType.extent; }

  /// Copies the elements out as T when T is the stored element type (float for float32_t,
  /// int32_t for int32_t, ...); false, with `out` emptied, when the types differ.
  template <class T>
  bool as(std::vector<T>& out) const {
    static_assert(std::is_arithmetic<T>::value, "numbers only");
    out.clear();
    if (vrabc::podBytes(dataType.pod) != sizeof(T) || vrabc::isStringPod(dataType.pod)) return false;
    if (std::is_floating_point<T>::value !=
        (dataType.pod == VrAbcPod::Float32 || dataType.pod == VrAbcPod::Float64))
      return false;
    out.resize(bytes.size() / sizeof(T));
    if (!out.empty()) std::memcpy(out.data(), bytes.data(), out.size() * sizeof(T));
    return true;
  }
};
