#pragma once
// The value types of per-face texture files: the enumerations of the file's header, a face's
// resolution and its face record, and the sizes and conversions of the four texel data types.
// Plain values; any thread.

#include <cstdint>
#include <string>

namespace vrptex {

enum class MeshType : uint32_t { Triangle = 0, Quad = 1 };
enum class DataType : uint32_t { UInt8 = 0, UInt16 = 1, Half = 2, Float = 3 };
enum class BorderMode : uint32_t { Clamp = 0, Black = 1, Periodic = 2 };
enum class EdgeFilterMode : uint32_t { None = 0, TangentVector = 1 };
enum class MetaDataType : uint8_t { String = 0, Int8 = 1, Int16 = 2, Int32 = 3, Float = 4, Double = 5 };

/// Bytes of one channel value of `type` (1, 2, 2 or 4).
int dataSize(DataType type);
/// Bytes of one value of a meta data entry of `type` (1 for strings).
int metaDataSize(MetaDataType type);

/// The words of the dump and of messages: "quad", "uint16", "clamp", "tanvec", "int32", ...
const char* meshTypeName(MeshType type);
const char* dataTypeName(DataType type);
const char* borderModeName(BorderMode mode);
const char* edgeFilterModeName(EdgeFilterMode mode);
const char* metaDataTypeName(MetaDataType type);

/// Converts `count` stored values of `type` to floats in [0, 1] for the integer types (divided
/// by 255 or 65535) and as they are for half and float.
void toFloat(const void* stored, DataType type, int count, float* out);
/// Converts floats to stored values: integer types are clamped to [0, 1], scaled and rounded.
void fromFloat(const float* values, DataType type, int count, void* stored);

/// A face's resolution as two base-2 logarithms: ures = 1 << ulog2, vres = 1 << vlog2.
struct Res {
  int8_t ulog2 = 0;
  int8_t vlog2 = 0;
  Res() = default;
  Res(int u, int v) : ulog2(static_cast<int8_t>(u)), vlog2(static_cast<int8_t>(v)) {}
  int u() const { return 1 << ulog2; }
  int v() const { return 1 << vlog2; }
  int64_t size() const { return static_cast<int64_t>(u()) * v(); }
  bool operator==(const Res& r) const { return ulog2 == r.ulog2 && vlog2 == r.vlog2; }
  bool operator!=(const Res& r) const { return !(*this == r); }
};

/// One face's record: resolution, flags and its neighbours across the four edges (bottom,
/// right, top, left); -1 is no neighbour, `adjEdge(e)` the neighbour's edge that is shared.
struct FaceInfo {
  enum Flag : uint8_t { Constant = 1, HasEdits = 2, NeighborhoodConstant = 4, Subface = 8 };
  Res res;
  uint8_t adjEdges = 0;
  uint8_t flags = 0;
  int32_t adjFaces[4] = {-1, -1, -1, -1};

  int adjEdge(int edge) const { return (adjEdges >> (2 * edge)) & 3; }
  void setAdjEdge(int edge, int value) {
    adjEdges = static_cast<uint8_t>((adjEdges & ~(3 << (2 * edge))) | ((value & 3) << (2 * edge)));
  }
  bool isConstant() const { return flags & Constant; }
  bool hasEdits() const { return flags & HasEdits; }
  bool isNeighborhoodConstant() const { return flags & NeighborhoodConstant; }
  bool isSubface() const { return flags & Subface; }
};

}  // namespace vrptex
