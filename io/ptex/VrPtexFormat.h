#pragma once
// The byte layout of per-face texture files, shared by VrPtexTexture and VrPtexWriter; not a
// public interface. All numbers are little-endian.
//
//   header (64 bytes) | extended header | face records (zipped) | constant values (zipped) |
//   level records | level data | meta data (zipped) | 8-byte barrier | large meta data header
//   (zipped) | large meta data values (each zipped) | edits
//
// Level data: per level, the zipped list of face block headers (one 32-bit word each: block
// size in the low 30 bits, encoding in the top 2), then the face blocks in that order. A face
// block is one texel (constant), the zipped channel planes (zipped), the same with each value
// stored as the difference to the one before it (integer types), or tiles of those (tiled).

#include "io/ptex/VrPtexMetaData.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vrptex {
namespace format {

constexpr uint32_t Magic = 0x78657450;  // "Ptex"
constexpr uint32_t Version = 1;
constexpr uint32_t MinorVersion = 4;
constexpr size_t HeaderSize = 64;
constexpr size_t ExtHeaderSize = 40;
constexpr size_t FaceInfoSize = 20;
constexpr size_t LevelInfoSize = 16;
constexpr size_t BarrierSize = 8;
/// Meta data entries above this many bytes are stored one by one as large meta data.
constexpr size_t LargeMetaDataThreshold = 1024;

enum class Encoding : uint32_t { Constant = 0, Zipped = 1, DiffZipped = 2, Tiled = 3 };
enum class EditType : uint8_t { FaceData = 0, MetaData = 1 };

struct Header {
  uint32_t magic = Magic;
  uint32_t version = Version;
  uint32_t meshType = 1;
  uint32_t dataType = 0;
  int32_t alphaChannel = -1;
  uint16_t numChannels = 0;
  uint16_t numLevels = 0;
  uint32_t numFaces = 0;
  uint32_t extHeaderSize = ExtHeaderSize;
  uint32_t faceInfoSize = 0;
  uint32_t constDataSize = 0;
  uint32_t levelInfoSize = 0;
  uint32_t minorVersion = MinorVersion;
  uint64_t levelDataSize = 0;
  uint32_t metaDataZipSize = 0;
  uint32_t metaDataMemSize = 0;
};

struct ExtHeader {
  uint16_t uBorderMode = 0;
  uint16_t edgeFilterMode = 0;
  uint16_t vBorderMode = 0;
  uint16_t pad = 0;
  uint32_t lmdHeaderZipSize = 0;
  uint32_t lmdHeaderMemSize = 0;
  uint64_t lmdDataSize = 0;
  uint64_t editDataSize = 0;
  uint64_t editDataPos = 0;
};

struct LevelInfo {
  uint64_t levelDataSize = 0;
  uint32_t levelHeaderSize = 0;
  uint32_t numFaces = 0;
};

/// Little-endian stores and loads.
void put16(std::vector<uint8_t>& out, uint16_t value);
void put32(std::vector<uint8_t>& out, uint32_t value);
void put64(std::vector<uint8_t>& out, uint64_t value);
uint16_t get16(const uint8_t* at);
uint32_t get32(const uint8_t* at);
uint64_t get64(const uint8_t* at);

void writeHeader(const Header& h, std::vector<uint8_t>& out);
Header readHeader(const uint8_t* at);
void writeExtHeader(const ExtHeader& h, std::vector<uint8_t>& out);
/// Reads the first `size` bytes that are there; fields beyond them keep their defaults.
ExtHeader readExtHeader(const uint8_t* at, size_t size);
void writeFaceInfo(const FaceInfo& info, std::vector<uint8_t>& out);
FaceInfo readFaceInfo(const uint8_t* at);

/// Deflates `size` bytes; false on a zlib failure.
bool zip(const uint8_t* data, size_t size, std::vector<uint8_t>& out);

/// Deflates block after block through one zlib stream, so that many small blocks set up its
/// tables once; every block comes out as `zip` makes it, byte for byte. One thread at a time.
class Deflater {
 public:
  Deflater();
  ~Deflater();
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;
  bool zip(const uint8_t* data, size_t size, std::vector<uint8_t>& out);

 private:
  struct Stream;
  std::unique_ptr<Stream> stream;
};
/// Inflates `size` bytes that must give exactly `expected` bytes. A size that no zlib stream of
/// `size` bytes can reach is refused before anything is allocated. False with `error` set.
bool unzip(const uint8_t* data, size_t size, size_t expected, std::vector<uint8_t>& out, std::string& error);

/// The meta data block (small entries only) and its parse. `parse` appends to `meta` and
/// checks every size against the block.
void writeMetaData(const std::vector<const VrPtexMetaData::Entry*>& entries, std::vector<uint8_t>& out);
bool parseMetaData(const std::vector<uint8_t>& block, VrPtexMetaData& meta, std::string& error);

/// Planar (one channel after the other) to interleaved and back, for `count` texels of
/// `channels` values of `size` bytes.
void interleave(const uint8_t* planar, int64_t count, int channels, int size, uint8_t* out);
void deinterleave(const uint8_t* interleaved, int64_t count, int channels, int size, uint8_t* out);
/// Differences of consecutive values of `size` bytes (1 or 2) and their sum, in place.
void encodeDifference(uint8_t* data, size_t bytes, int size);
void decodeDifference(uint8_t* data, size_t bytes, int size);

}  // namespace format
}  // namespace vrptex
