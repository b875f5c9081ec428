#pragma once
// VrPtexTexture: one per-face texture file opened for reading. Opening reads the file into
// memory and checks every block's offset and size against it: the face records, constant
// values, level records and face block headers, meta data (small and large) and edits. Face
// texels are inflated on first use and kept until `purgeData`. Reduced resolutions are made from
// the full-resolution texels (a 2 by 2 box per step).
//
// Ownership and threads: made by `open` and shared through std::shared_ptr; one thread at a
// time (the texture caches of the expression functions are per thread). Failures: `open` gives
// null with the reason; a face whose data turns out to be damaged answers false from
// `getPixel`/`getData`, with an Error naming the file and face (once per face).

#include "io/ptex/VrPtexMetaData.h"
#include "io/ptex/VrPtexTypes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class VrPtexTexture {
 public:
  /// Opens and checks the file at `path`. Null with the reason in `error` (which starts with
  /// the bare file name) when it cannot be read or is not a sound texture file.
  static std::shared_ptr<VrPtexTexture> open(const std::string& path, std::string& error);
  /// True when `bytes` start with the file format's magic word.
  static bool hasMagic(const uint8_t* bytes, size_t size);

  /// @name Header
  /// @{
  const std::string& path() const { return filePath; }
  vrptex::MeshType meshType() const { return mesh; }
  vrptex::DataType dataType() const { return type; }
  int alphaChannel() const { return alpha; }
  int numChannels() const { return channels; }
  int numFaces() const { return static_cast<int>(faces.size()); }
  vrptex::BorderMode uBorderMode() const { return uBorder; }
  vrptex::BorderMode vBorderMode() const { return vBorder; }
  vrptex::EdgeFilterMode edgeFilterMode() const { return edgeFilter; }
  bool hasEdits() const { return edited; }
  bool hasMipMaps() const { return levels > 1; }
  int numLevels() const { return levels; }
  /// Bytes of one texel: numChannels() * dataSize(dataType()).
  int pixelSize() const { return pixelBytes; }
  const VrPtexMetaData& metaData() const { return meta; }
  /// @}

  /// @name Faces; `faceId` in [0, numFaces())
  /// @{
  /// The face's record; a record of resolution 1 by 1 and no neighbours for a face out of range.
  const vrptex::FaceInfo& getFaceInfo(int faceId) const;
  /// Texel (u, v), u in [0, ures), v in [0, vres) at the face's resolution, or at the reduced
  /// resolution `res` (each side at most the face's own), as normalised floats: channels
  /// [firstChannel, firstChannel + count) of the texel go to `result[0 .. count)`, channels past
  /// the last are left alone. False (result untouched) for a face, texel or resolution out of
  /// range, or damaged face data.
  bool getPixel(int faceId, int u, int v, float* result, int firstChannel, int count) const;
  bool getPixel(int faceId, int u, int v, float* result, int firstChannel, int count, vrptex::Res res) const;
  /// All texels of the face at `res` in stored form, interleaved, rows of u, v rows.
  bool getData(int faceId, vrptex::Res res, std::vector<uint8_t>& out) const;
  /// True when the face's data is one texel for the whole face: a constant face, or a face
  /// stored as one texel. Such a face is never expanded in memory.
  bool isOneTexel(int faceId) const { return oneTexel(faceId) != nullptr; }
  /// @}

  /// @name Memory
  /// @{
  /// Bytes held: the file and the inflated faces.
  size_t memoryUsed() const { return fileBytes.size() + inflatedBytes; }
  /// Drops inflated faces; they are inflated again when next asked for.
  void purgeData() const;
  /// @}

 private:
  VrPtexTexture() = default;
  bool parse(std::string& error);
  bool parseLevels(size_t levelInfoPos, size_t levelDataPos, std::string& error);
  bool parseLargeMetaData(size_t headerPos, size_t dataPos, std::string& error);
  bool parseEdits(size_t pos, size_t size, std::string& error);
  /// The full-resolution texels of a face (null when damaged; Error once).
  const std::vector<uint8_t>* faceData(int faceId) const;
  /// The one texel of a face stored as one texel, or null.
  const uint8_t* oneTexel(int faceId) const;
  bool decodeBlock(size_t pos, size_t size, uint32_t encoding, vrptex::Res res, bool allowTiles,
                   std::vector<uint8_t>& out, std::string& error) const;

  /// Where a face's full-resolution block lies in the file.
  struct Block {
    size_t pos = 0;
    size_t size = 0;
    uint32_t encoding = 0;
  };

  std::string filePath;
  std::string fileName;
  std::vector<uint8_t> fileBytes;
  vrptex::MeshType mesh = vrptex::MeshType::Quad;
  vrptex::DataType type = vrptex::DataType::UInt8;
  int alpha = -1;
  int channels = 0;
  int pixelBytes = 0;
  int levels = 0;
  vrptex::BorderMode uBorder = vrptex::BorderMode::Clamp;
  vrptex::BorderMode vBorder = vrptex::BorderMode::Clamp;
  vrptex::EdgeFilterMode edgeFilter = vrptex::EdgeFilterMode::None;
  bool edited = false;
  std::vector<vrptex::FaceInfo> faces;
  std::vector<uint8_t> constants;  ///< one texel per face
  std::vector<uint8_t> blockTexels;  ///< the texel of faces whose block is one texel
  std::vector<Block> blocks;       ///< level 0 (or the edit) of each face
  VrPtexMetaData meta;

  mutable std::vector<std::vector<uint8_t>> inflated;
  mutable std::vector<bool> damaged;
  mutable size_t inflatedBytes = 0;
};
