#pragma once
// Reading point and primitive files (VpdFormat.h). VpdReader walks a file from one thread;
// VpdFileCachedReader (VpdFileCachedReader.h) shares one open file among threads.
//
// Typical use:
//   std::string why;
//   std::unique_ptr<VpdReader> reader = VpdReader::open(path, &why);
//   int block = reader->blockIndex(Vpd::LocationBlock);
//   if (reader->findFace(face) && reader->findBlock(block))
//     while (reader->readPrim(id, values)) ...;   // values: u, v, ...
//   if (!reader->error().empty()) ...;             // damage found on the way

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "io/vpd/VpdFormat.h"

namespace Vpd {
namespace detail {
class OpenFile;
class Cursor;
}  // namespace detail
}  // namespace Vpd

/// The header of an opened file and the questions answered from it. The header stays readable
/// after `close`.
class VpdFileInfo {
 public:
  virtual ~VpdFileInfo();
  VpdFileInfo(const VpdFileInfo&) = delete;
  VpdFileInfo& operator=(const VpdFileInfo&) = delete;

  const std::string& path() const;
  const Vpd::Header& header() const;
  Vpd::PrimType primType() const { return header().primType; }
  unsigned char cvCount() const { return header().cvCount; }
  Vpd::CoordSpace coordSpace() const { return header().coordSpace; }
  float time() const { return header().time; }
  unsigned attrVersion() const { return header().attrVersion; }
  const std::vector<int>& faceIds() const { return header().faceIds; }
  const std::vector<std::string>& blockNames() const { return header().blockNames; }
  const std::vector<std::string>& keyNames() const { return header().keyNames; }
  /// The minor layout version the file was written with (the major is always Vpd::FormatMajor).
  unsigned formatMinor() const;

  /// Index of the block called `name`, or -1.
  int blockIndex(const std::string& name) const;
  /// Key names to their ids, as the writer assigned them.
  const std::unordered_map<std::string, int>& keyToId() const;
  /// Faces that hold records, ascending: a subset of `faceIds`.
  const std::vector<int>& facesInFile() const;
  /// Records of `block` on `face`; 0 when the face or block holds none.
  std::uint64_t numPrims(int face, int block) const;

  /// True until `close`.
  bool isOpen() const;

 protected:
  explicit VpdFileInfo(std::unique_ptr<Vpd::detail::OpenFile> file);
  std::unique_ptr<Vpd::detail::OpenFile> file;
};

/// A point/primitive file opened for reading by one thread at a time: a header, a current face
/// and block, and the next record.
class VpdReader : public VpdFileInfo {
 public:
  /// Opens and checks `path`. Null when the file cannot be read or is not a whole, undamaged
  /// file of a layout version this library reads; the cause, one of the texts of VpdFormat.h,
  /// goes to `error` when given. Nothing is reported through the message channel: callers say
  /// "Failed to open VPD file: " and the path in their own words.
  static std::unique_ptr<VpdReader> open(const std::string& path, std::string* error = nullptr);
  ~VpdReader() override;

  /// Releases the file. False when the system refuses, or when it was closed already. Later
  /// reads fail; the header stays readable.
  virtual bool close();

  /// Selects `face`; false when the file holds no records of it.
  bool findFace(int face);
  /// Selects block `block` of the current face and reads its records into memory; false when
  /// no face is selected, the index is out of range, the block was never written on the face,
  /// or the file cannot be read (error() says which).
  bool findBlock(int block);
  /// Records of the current block.
  std::uint64_t numPrims() const;
  using VpdFileInfo::numPrims;
  /// The next record of the current block: its id, and its values in `values` (u, v, then
  /// what the file's kind puts there). False at the end of the block with error() empty, or
  /// on a damaged block with error() set.
  bool readPrim(std::uint32_t& id, std::vector<float>& values);
  /// Moves to the record of the current block with `id` and reads it. False when there is
  /// none (error() empty) or the block is damaged (error() set).
  bool findPrim(std::uint32_t id, std::vector<float>& values);

  /// Why the last call answered false; empty after a plain end of block or missing id.
  const std::string& error() const;

 private:
  explicit VpdReader(std::unique_ptr<Vpd::detail::OpenFile> file);
  std::unique_ptr<Vpd::detail::Cursor> cursor;
};
