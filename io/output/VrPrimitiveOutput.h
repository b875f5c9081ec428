#pragma once
// VrPrimitiveOutput: where a render's primitives end up, one file per frame. The kind of file is
// told by the path's extension:
//
//   .abc                      Alembic: one Curves object of every spline (motion samples,
//                             widths); one PolyMesh per description and patch of cards, one
//                             Points object per description and patch of spheres, and one of
//                             archives
//   .jsonl                    one JSON object per primitive
//   .pmt                      the instance list text (header, then 13 lines per primitive)
//   .pdb .bgeo .bgeo.gz .geo  one particle per primitive with the instance channels
//
// A back end is opened, receives runs of primitives in (patch, face, id) order and is ended;
// nothing appears at the path before `end` succeeds, and a back end destroyed before that leaves
// nothing behind. Failures are Errors through the message system naming the file. One thread
// at a time.

#include "io/output/VrInstanceRecord.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// One primitive as a back end receives it. The pointers stay valid for the call only.
struct VrOutputPrimitive {
  const char* kind = nullptr;         ///< the primitive's `typeName`; null for a spline
  const char* description = nullptr;  ///< the description's name, when the caller knows it
  int face = 0;
  int id = 0;
  size_t numCVs = 0;
  size_t numSamples = 1;
  const float* cvs = nullptr;     ///< 3 * numCVs floats per sample, sample 0 first: a spline's CVs,
                                  ///< a card's five or a sphere's four control points, an
                                  ///< archive's placement (position, then the axes its own x, y
                                  ///< and z map to)
  const float* widths = nullptr;  ///< numCVs floats
  /// The instance channels, filled when `wantsInstanceChannels` says so.
  float u = 0.0f;
  float v = 0.0f;
  int descriptionId = 0;
  int geomId = 0;
  int64_t randomInt = 0;
  float randomFloat = 0.0f;
  int lodIndex = -1;  ///< the level-of-detail slot in use (2 high, 1 medium, 0 low), -1 none
  /// Archives: the group, the archive's own frame and the file of each slot (low, medium,
  /// high, proxy); "" where a slot has none.
  int archiveGroup = 0;
  float archiveFrame = 0.0f;
  const char* archiveFiles[4] = {"", "", "", ""};
};

/// Whether the primitive is an archive, whose CVs are its placement.
inline bool VrIsArchive(const VrOutputPrimitive& primitive) {
  const char* word = "ArchivePrimitive";
  const char* kind = primitive.kind;
  if (!kind) return false;
  while (*kind && *kind == *word) ++kind, ++word;
  return *kind == *word;
}

/// What every back end may need to know of the render.
struct VrOutputSettings {
  double frame = 1.0;
  double framesPerSecond = 24.0;
  std::vector<double> sampleOffsets;  ///< frame offsets of the motion samples; empty: one
  std::string objectName = "vornCurves";
  std::string applicationName = "vorn render";
  int threads = 0;  ///< workers that make the text of text outputs; 0: every core, 1: the calling thread
  bool archivesInline = false;  ///< Alembic: archives also as transforms over their files' meshes
  /// Every description makes splines: Alembic streams the points straight into the archive
  /// instead of copying them there from a spool at the end.
  bool splinesOnly = false;
};

class VrPrimitiveOutput {
 public:
  /// The back end for `path`'s extension, not yet begun; null when the extension names none.
  static std::unique_ptr<VrPrimitiveOutput> create(const std::string& path, const VrOutputSettings& settings);
  /// Whether `create` knows the extension of `path`.
  static bool knowsExtension(const std::string& path);
  /// The extensions, for messages: ".abc, .jsonl, ...".
  static std::string extensionList();

  virtual ~VrPrimitiveOutput() = default;
  /// Starts the file; false with an Error when it cannot be.
  virtual bool begin() = 0;
  /// Adds one run of primitives of `patch`; false with an Error, after which `end` fails too.
  virtual bool write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) = 0;
  /// Completes the file and puts it in place; false with an Error and no file at the path.
  virtual bool end() = 0;
  /// Whether the primitives must carry u, v, ids and random values (dearer to gather).
  virtual bool wantsInstanceChannels() const { return false; }

  /// Whether `encode` turns runs into the file's bytes ahead of `writeEncoded`: a render then
  /// encodes each run on the thread that made it, and only stores bytes in order.
  virtual bool encodesRuns() const { return false; }
  /// Appends to `bytes` what `writeEncoded` stores for these primitives of `patch`. Called from
  /// several threads at once, each with primitives of its own; nothing unless overridden.
  virtual void encode(const std::string& /*patch*/, const VrOutputPrimitive* /*primitives*/, size_t /*count*/,
                      std::string& /*bytes*/) const {}
  /// As `write`, for primitives whose bytes `encode` made; false with an Error.
  virtual bool writeEncoded(const std::string& patch, const VrOutputPrimitive* primitives, size_t count,
                            const std::string& /*bytes*/) {
    return write(patch, primitives, count);
  }

 protected:
  VrPrimitiveOutput(const std::string& path, const VrOutputSettings& settings) : path(path), settings(settings) {}
  /// Reports "<path>: <what>" as an Error and answers false.
  bool fail(const std::string& what) const;
  /// The instance record of sample 0 of a primitive.
  static VrInstanceRecord instanceRecord(const VrOutputPrimitive& primitive);

  const std::string path;
  const VrOutputSettings settings;
};
