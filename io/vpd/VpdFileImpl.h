#pragma once
// Internal to io/vpd: the byte layout helpers, the opened file that readers share, the read
// cursor, and the temporary-file sink that writers commit through. Not part of the library's
// interface; docs/vpd-format.md is the reference for the layout these implement.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "io/vpd/VpdFormat.h"

namespace Vpd {
namespace detail {

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr bool hostIsLittleEndian = true;
#else
constexpr bool hostIsLittleEndian = false;
#endif

constexpr std::size_t FixedHeaderSize = 64;
constexpr std::size_t RecordHeaderSize = 8;    ///< id and value count
constexpr std::size_t IndexEntryHeadSize = 8;  ///< face id and a reserved word
constexpr std::size_t ExtentSize = 24;         ///< offset, byte size, record count
constexpr std::size_t ChecksumOffset = 56;     ///< of the checksum word in the fixed header

/// @name Little-endian stores and loads at a raw pointer.
/// @{
inline void putU16(unsigned char* p, std::uint16_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
}
inline void putU32(unsigned char* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
inline void putU64(unsigned char* p, std::uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
inline void putF32(unsigned char* p, float f) {
  std::uint32_t u;
  std::memcpy(&u, &f, 4);
  putU32(p, u);
}
inline std::uint16_t getU16(const unsigned char* p) {
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t getU32(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
inline std::uint64_t getU64(const unsigned char* p) {
  return static_cast<std::uint64_t>(getU32(p)) | (static_cast<std::uint64_t>(getU32(p + 4)) << 32);
}
inline float getF32(const unsigned char* p) {
  const std::uint32_t u = getU32(p);
  float f;
  std::memcpy(&f, &u, 4);
  return f;
}
/// @}

/// CRC-32 as zlib computes it (reflected polynomial 0xEDB88320); start with crc 0.
std::uint32_t crc32(std::uint32_t crc, const unsigned char* data, std::size_t size);

/// Appends one record (id, count, values) to `out`. `count` must not exceed MaxRecordValues.
void appendRecord(std::vector<unsigned char>& out, std::uint32_t id, const float* values,
                  std::uint32_t count);

/// Why `header` cannot be written, or "" when it can.
std::string headerProblem(const Header& header);

/// The header bytes, padded to a multiple of four, with file size, index offset and checksum 0.
std::vector<unsigned char> encodeHeader(const Header& header);

/// Where one block's records of one face lie. Offset 0 means the block was never started on
/// the face (records always follow the header, so no run starts at 0).
struct Extent {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t count = 0;
};

/// Index of a file being written: per face (ascending), one extent per block.
using IndexMap = std::map<int, std::vector<Extent>>;

/// A validated file opened for reading. Immutable after `open`; reads are positional, so any
/// number of threads may read through one object at once. `close` must not race with reads.
class OpenFile {
 public:
  /// Opens and checks `path`; null with `error` set to one of the failure texts otherwise.
  static std::unique_ptr<OpenFile> open(const std::string& path, std::string& error);
  ~OpenFile();
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  /// Releases the descriptor; false when the system refuses or it was already released.
  bool close();
  bool isOpen() const { return fd >= 0; }

  const std::string& path() const { return filePath; }
  const Header& header() const { return head; }
  unsigned minorVersion() const { return minor; }
  std::uint64_t fileSize() const { return size; }
  /// Differs between any two opens in the process; binds cursors to this file.
  std::uint64_t serial() const { return serialNumber; }

  int blockIndex(const std::string& name) const;
  const std::unordered_map<std::string, int>& keyToId() const { return keys; }

  /// Faces that hold records, ascending.
  const std::vector<int>& indexedFaces() const { return faces; }
  /// Place of `face` among `indexedFaces`, or -1.
  int faceSlot(int face) const;
  const Extent& extent(int slot, int block) const {
    return extents[static_cast<std::size_t>(slot) * head.blockNames.size() +
                   static_cast<std::size_t>(block)];
  }

  /// Reads `count` bytes at `offset` into `out`; on failure `error` is set.
  bool readAt(std::uint64_t offset, std::size_t count, unsigned char* out,
              std::string& error) const;

 private:
  OpenFile() = default;
  std::string check(const std::vector<unsigned char>& headerBytes,
                    const std::vector<unsigned char>& indexBytes, std::uint64_t headerSize,
                    std::uint64_t indexOffset);

  int fd = -1;
  std::string filePath;
  Header head;
  unsigned minor = 0;
  std::uint64_t size = 0;
  std::uint64_t serialNumber = 0;
  std::unordered_map<std::string, int> blocks;
  std::unordered_map<std::string, int> keys;
  std::vector<int> faces;
  std::vector<Extent> extents;
};

/// A reading position: one face, one block, the next record. One thread at a time.
class Cursor {
 public:
  bool findFace(const OpenFile& file, int face);
  bool findBlock(const OpenFile& file, int block);
  /// Records of the block found last; 0 before a block is found.
  std::uint64_t numPrims() const { return blockIdx >= 0 ? count : 0; }
  /// The next record. False at the end of the block (error() empty) or on damage (set).
  bool readPrim(const OpenFile& file, std::uint32_t& id, std::vector<float>& values);
  /// The first record of the block with `id`. False when there is none (error() empty) or on
  /// damage (set). Sequential lookups cost one record each; others index the block once.
  bool findPrim(const OpenFile& file, std::uint32_t id, std::vector<float>& values);
  /// Forgets face and block.
  void reset();

  int face() const { return slot >= 0 ? faceId : -1; }
  int block() const { return blockIdx; }
  const std::string& error() const { return err; }

 private:
  bool bound(const OpenFile& file);
  bool decodeAt(const OpenFile& file, std::size_t at, std::uint32_t& id, std::size_t& next,
                std::uint32_t& valueCount);

  std::uint64_t fileSerial = 0;
  int slot = -1;
  int faceId = -1;
  int blockIdx = -1;
  std::vector<unsigned char> data;
  std::size_t pos = 0;
  std::uint64_t count = 0;
  std::uint64_t done = 0;
  bool indexed = false;
  std::unordered_map<std::uint32_t, std::pair<std::size_t, std::uint64_t>> byId;
  std::string err;
};

/// The output side: a temporary file beside the target, holding the header from the start,
/// records appended through a buffer, and the index and final header written by `commit`,
/// which renames the file into place. Destroying an uncommitted sink removes the temporary.
class FileSink {
 public:
  static std::unique_ptr<FileSink> create(const std::string& path, const Header& header,
                                          std::string& error);
  ~FileSink();
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;

  bool append(const unsigned char* bytes, std::size_t count);
  bool appendRecord(std::uint32_t id, const float* values, std::uint32_t valueCount);
  /// Bytes of the file so far, buffered ones included.
  std::uint64_t position() const { return written + buffer.size(); }
  /// Writes `index` and the final header, and renames; false (nothing at the target) on failure.
  bool commit(const IndexMap& index);
  /// Removes the temporary file.
  void discard();

  bool failed() const { return !err.empty(); }
  const std::string& error() const { return err; }
  const std::string& path() const { return target; }

 private:
  FileSink() = default;
  bool flush();
  bool writeAll(const unsigned char* bytes, std::size_t count);
  void fail();

  int fd = -1;
  std::string target;
  std::string temporary;
  std::size_t blockCount = 0;
  std::vector<unsigned char> headerBytes;
  std::vector<unsigned char> buffer;
  std::uint64_t written = 0;
  bool done = false;
  std::string err;
};

}  // namespace detail
}  // namespace Vpd
