#pragma once
// Plain value types shared by the Alembic reader and writer: the element types a property can
// hold, property and object headers, and the 128-bit digests stored beside samples and objects.
// All numbers in an archive are little-endian; so is every machine this library builds for.

#include "io/alembic/VrAbcMetaData.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

/// Element types, with the numbering the file format stores.
enum class VrAbcPod : uint8_t {
  Bool = 0,
  Uint8 = 1,
  Int8 = 2,
  Uint16 = 3,
  Int16 = 4,
  Uint32 = 5,
  Int32 = 6,
  Uint64 = 7,
  Int64 = 8,
  Float16 = 9,
  Float32 = 10,
  Float64 = 11,
  String = 12,
  Wstring = 13,
};

namespace vrabc {

/// True for the stored numbers 0..13.
inline bool isValidPod(unsigned value) { return value <= 13; }

/// Bytes of one element; strings have no fixed size and give 0.
inline size_t podBytes(VrAbcPod pod) {
  switch (pod) {
    case VrAbcPod::Bool:
    case VrAbcPod::Uint8:
    case VrAbcPod::Int8:
      return 1;
    case VrAbcPod::Uint16:
    case VrAbcPod::Int16:
    case VrAbcPod::Float16:
      return 2;
    case VrAbcPod::Uint32:
    case VrAbcPod::Int32:
    case VrAbcPod::Float32:
      return 4;
    case VrAbcPod::Uint64:
    case VrAbcPod::Int64:
    case VrAbcPod::Float64:
      return 8;
    case VrAbcPod::String:
    case VrAbcPod::Wstring:
      return 0;
  }
  return 0;
}

/// The format's own names: "float32_t", "int32_t", "string", ...
const char* podName(VrAbcPod pod);

inline bool isStringPod(VrAbcPod pod) { return pod == VrAbcPod::String || pod == VrAbcPod::Wstring; }

}  // namespace vrabc

/// An element type and how many elements make one value (3 for a point).
struct VrAbcDataType {
  VrAbcPod pod = VrAbcPod::Uint8;
  uint8_t extent = 1;

  /// Bytes of one value; 0 for strings.
  size_t valueBytes() const { return vrabc::podBytes(pod) * extent; }
  bool operator==(const VrAbcDataType& o) const { return pod == o.pod && extent == o.extent; }
  bool operator!=(const VrAbcDataType& o) const { return !(*this == o); }
};

/// A 128-bit digest, as the format stores it: 16 bytes, or two little-endian 64-bit words.
struct VrAbcDigest {
  uint8_t bytes[16] = {};

  uint64_t word(int i) const {
    uint64_t w;
    std::memcpy(&w, bytes + 8 * i, 8);
    return w;
  }
  void setWords(uint64_t w0, uint64_t w1) {
    std::memcpy(bytes, &w0, 8);
    std::memcpy(bytes + 8, &w1, 8);
  }
  /// 32 lower-case hexadecimal digits, byte 0 first.
  std::string hex() const;
  bool operator==(const VrAbcDigest& o) const { return std::memcmp(bytes, o.bytes, 16) == 0; }
  bool operator!=(const VrAbcDigest& o) const { return !(*this == o); }
};

/// An array sample's bytes already in the archive being written: their digest, their size and
/// the data block (the digest, then the bytes) that holds them.
struct VrAbcWrittenSample {
  VrAbcDigest key;
  uint64_t bytes = 0;
  uint64_t pointer = 0;
};

enum class VrAbcPropertyKind : uint8_t { Compound = 0, Scalar = 1, Array = 2 };

/// What a compound property stores about each of its children.
struct VrAbcPropertyHeader {
  std::string name;
  VrAbcPropertyKind kind = VrAbcPropertyKind::Compound;
  VrAbcMetaData metaData;
  // The rest is meaningful for scalar and array properties only.
  VrAbcDataType dataType;
  uint32_t timeSamplingIndex = 0;
  uint32_t numSamples = 0;
  /// Samples before `firstChanged` repeat sample 0, samples after `lastChanged` repeat it; both
  /// 0 means every sample is the same (a constant property).
  uint32_t firstChanged = 0;
  uint32_t lastChanged = 0;
  bool scalarLike = true;
  bool homogeneous = true;

  bool isCompound() const { return kind == VrAbcPropertyKind::Compound; }
  bool isScalar() const { return kind == VrAbcPropertyKind::Scalar; }
  bool isArray() const { return kind == VrAbcPropertyKind::Array; }
  bool isConstant() const { return firstChanged == 0; }

  /// The stored sample that sample `index` reads, after repeats are folded; `index` must be
  /// below `numSamples`.
  uint32_t storedIndex(uint32_t index) const {
    if (index < firstChanged) return 0;
    if (firstChanged == 0 && lastChanged == 0) return 0;
    if (index >= lastChanged) return lastChanged - firstChanged + 1;
    return index - firstChanged + 1;
  }
};

/// Name, full path and metadata of an object.
struct VrAbcObjectHeader {
  std::string name;
  std::string fullName;
  VrAbcMetaData metaData;
};

/// Borrowed values handed to a writer: a pointer, a count, and whether they were given at all
/// (a writer repeats the previous sample of what is not given).
template <class T>
struct VrAbcView {
  const T* data = nullptr;
  size_t size = 0;
  bool given = false;

  VrAbcView() = default;
  VrAbcView(const std::vector<T>& values) : data(values.data()), size(values.size()), given(true) {}
  VrAbcView(const T* values, size_t count) : data(values), size(count), given(true) {}
};
