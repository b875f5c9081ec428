#pragma once
// Point and primitive files: ".vuv" files hold scattered locations, ".vpd" files hold finished
// primitives. Both share one binary layout (docs/vpd-format.md): a header naming the patch's
// faces, the primitive type, the CV count, the coordinate space, the block names, a time, the
// attribute version and optional key names; then per face and per block a run of primitive
// records (an id and a sequence of floats); then an index of the (face, block) runs, so that a
// reader finds any run without scanning. Everything is little-endian.
//
// Readers: VpdReader (one thread) and VpdFileCachedReader (shared, with a per-thread context).
// Writers: VpdWriter (one thread, streaming) and VpdFileCachedWriter (many threads, committed in
// sorted face order). Nothing in this folder sends messages: every failure is answered with
// false or null and a text that names the file, and callers report it in their own words.

#include <cstdint>
#include <string>
#include <vector>

namespace Vpd {

/// The kind of primitive the records describe. Point files use `PointPrimitive`.
enum PrimType : std::uint8_t {
  PointPrimitive = 0,
  SplinePrimitive = 1,
  CardPrimitive = 2,
  SpherePrimitive = 3,
  ArchivePrimitive = 4,
};

/// The space the CVs of a record are written in.
enum CoordSpace : std::uint8_t {
  WorldSpace = 0,     ///< CVs multiplied by the primitive's world matrix; point files use this
  ObjectSpace = 1,    ///< CVs as the primitive holds them
  SurfaceSpace = 2,   ///< CVs relative to the surface point, on the frame (dPdu, N, dPdv)
  ReservedSpace = 3,  ///< kept in files; no writer of this library produces it
};

/// The layout version this library writes. Readers accept every minor version of their major
/// version and refuse other majors.
constexpr std::uint16_t FormatMajor = 1;
constexpr std::uint16_t FormatMinor = 0;

/// The eight bytes every file starts with.
constexpr unsigned char Magic[8] = {0x89, 'V', 'P', 'D', '\r', '\n', 0x1A, '\n'};

/// Limits the writers enforce and the readers check before they allocate.
constexpr std::uint32_t MaxRecordValues = 1u << 24;  ///< floats in one record
constexpr std::uint32_t MaxNameLength = 0xFFFF;      ///< bytes in a block or key name

/// Block names used by the library's generators, modules and back ends.
constexpr const char* LocationBlock = "Location";
constexpr const char* BakedGroomBlock = "BakedGroom";
constexpr const char* Paint3dBlock = "Paint3d";
constexpr const char* NoiseFXBlock = "NoiseFX";
constexpr const char* MeshCutFXBlock = "MeshCutFX";

/// What a file says about itself, fixed when the file is opened for writing.
struct Header {
  std::vector<int> faceIds;  ///< the patch's faces; the only faces a file may hold
  PrimType primType = SplinePrimitive;
  unsigned char cvCount = 0;  ///< CVs per primitive
  CoordSpace coordSpace = ObjectSpace;
  std::vector<std::string> blockNames;  ///< at least one, unique, non-empty
  float time = 0.0f;
  unsigned attrVersion = 0;           ///< the primitive's attribute version
  std::vector<std::string> keyNames;  ///< optional; unique, non-empty; key i has id i
};

/// The failure texts. Each names the file; the readers and writers answer with exactly these.
/// @{
/// "Cannot open Vorn point/primitive file: <path>"
std::string cannotOpenMessage(const std::string& path);
/// "Not a Vorn point/primitive file: <path>"
std::string notVpdMessage(const std::string& path);
/// "Truncated Vorn point/primitive file: <path>"
std::string truncatedMessage(const std::string& path);
/// "Damaged Vorn point/primitive file: <path>"
std::string damagedMessage(const std::string& path);
/// "Unsupported Vorn point/primitive file version <major>.<minor>: <path>"
std::string unsupportedVersionMessage(const std::string& path, unsigned major, unsigned minor);
/// "Cannot create Vorn point/primitive file: <path>"
std::string cannotCreateMessage(const std::string& path);
/// "Failed to write Vorn point/primitive file: <path>"
std::string writeFailedMessage(const std::string& path);
/// "Invalid header for Vorn point/primitive file: <path> (<reason>)"
std::string invalidHeaderMessage(const std::string& path, const std::string& reason);
/// @}

}  // namespace Vpd
