#pragma once
// VrPtexWriter: makes a per-face texture file. Faces are given one by one, each with its own
// resolution (or as one constant texel), in any order; meta data is set on `metaData()`;
// `close` writes the file under a temporary name beside the target and renames it into place,
// so a failed write never leaves a half-written map. Faces never given are constant zero faces
// of resolution 1 by 1. Only the full resolution is stored (no reduction levels).
//
// One thread at a time; `close` deflates the faces on the task manager's workers. Failures: false,
// with an Error naming the file.

#include "io/ptex/VrPtexMetaData.h"
#include "io/ptex/VrPtexTypes.h"

#include <cstdint>
#include <string>
#include <vector>

class VrPtexWriter {
 public:
  struct Options {
    vrptex::MeshType meshType = vrptex::MeshType::Quad;
    vrptex::DataType dataType = vrptex::DataType::UInt8;
    int numChannels = 1;   ///< 1 to 64
    int alphaChannel = -1;  ///< -1 or a channel
    int numFaces = 0;
    vrptex::BorderMode uBorderMode = vrptex::BorderMode::Clamp;
    vrptex::BorderMode vBorderMode = vrptex::BorderMode::Clamp;
    vrptex::EdgeFilterMode edgeFilterMode = vrptex::EdgeFilterMode::None;
  };

  VrPtexWriter(const std::string& path, const Options& options);

  /// Face `faceId` in [0, numFaces) with `info.res.size()` texels of the file's data type,
  /// interleaved, u fastest; `stride` is the byte step between rows (0: packed; less than a row
  /// is refused). A face whose
  /// texels are all equal is stored as constant. The info's constant flag is set by the writer;
  /// its adjacency and subface flag are kept. False (Error) for a bad id or resolution.
  bool writeFace(int faceId, const vrptex::FaceInfo& info, const void* data, int stride = 0);
  /// A constant face: one texel of the file's data type.
  bool writeConstantFace(int faceId, const vrptex::FaceInfo& info, const void* texel);
  /// Meta data to be written; entries over 1024 bytes are stored as large meta data.
  VrPtexMetaData& metaData() { return meta; }

  /// Writes the file; false (Error, nothing left at the path) when it cannot be written or
  /// when the options were unusable.
  bool close();

 private:
  bool fail(const std::string& text);

  std::string target;
  Options options;
  int pixelBytes = 0;
  bool usable = true;
  std::vector<vrptex::FaceInfo> faces;
  std::vector<std::vector<uint8_t>> texels;  ///< interleaved, empty for constant faces
  std::vector<uint8_t> constants;
  VrPtexMetaData meta;
};
