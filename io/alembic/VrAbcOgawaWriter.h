#pragma once
// Writes the Ogawa container (see VrAbcOgawaFile.h for the layout). Data blocks go to the file
// as they come; a group is written once all its children are known, after them. The header is
// first written with the frozen mark clear and only completed, root position and mark, by a
// successful `close`; the file is written under a temporary name and renamed into place then,
// so a failed write never leaves a half-written archive behind.

#include "base/VrAtomicFile.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class VrAbcOgawaWriter {
 public:
  static constexpr uint64_t emptyData = 0x8000000000000000ULL;
  static constexpr uint64_t emptyGroup = 0;

  /// Starts the file; false with a reason when it cannot be created.
  bool open(const std::string& path, std::string& error);
  bool isOpen() const { return file != nullptr; }

  /// Appends one data block made of `count` parts; the child pointer to it (top bit set) comes
  /// back in `pointer`, or the empty-data pointer when all parts are empty.
  bool writeData(const void* const* parts, const uint64_t* sizes, size_t count, uint64_t& pointer);
  bool writeData(const void* data, uint64_t size, uint64_t& pointer);
  /// Starts a data block of `total` bytes that arrive through `appendData`; the block must be
  /// complete before anything else is written. `total` 0 gives the empty-data pointer.
  bool beginData(uint64_t total, uint64_t& pointer);
  bool appendData(const void* data, uint64_t size);
  /// As `appendData`, with `size` bytes of the open file `fd` from `offset`.
  bool appendDataFrom(int fd, uint64_t offset, uint64_t size);
  /// Starts a data block whose size is not known yet: its bytes arrive through `appendData`
  /// (any number) until `endOpenData`, and nothing else may be written meanwhile.
  bool beginOpenData(uint64_t& pointer);
  /// Completes the open block: its size is written at its start and `head` (`headSize` bytes,
  /// reserved by the caller's first append) over its first bytes.
  bool endOpenData(const void* head, uint64_t headSize);
  /// Appends a group of these children; its position comes back (0, the empty group, for none).
  bool writeGroup(const std::vector<uint64_t>& children, uint64_t& position);

  /// Points the header at the root group, marks the archive frozen and renames it into place.
  bool close(uint64_t rootGroup, std::string& error);
  /// Drops the file without renaming it into place.
  void abandon() { file.reset(); }

 private:
  bool put(const void* data, uint64_t size);

  std::unique_ptr<VrAtomicFile> file;
  uint64_t position = 0;
  uint64_t pendingData = 0;  // bytes still owed to a block begun by beginData
  uint64_t openStart = 0;    // where a block begun by beginOpenData starts
  bool openData = false;
  bool failed = false;
};
