#pragma once
// Writes a file under a temporary name beside its target and renames it into place on commit,
// so that a failed or interrupted save never leaves a half-written file where the old one was.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

class VrAtomicFile {
 public:
  /// Opens "<path>.tmp<pid>" for writing; `ok()` tells whether that worked.
  explicit VrAtomicFile(const std::string& path);
  /// Removes the temporary file unless `commit` succeeded.
  ~VrAtomicFile();
  VrAtomicFile(const VrAtomicFile&) = delete;
  VrAtomicFile& operator=(const VrAtomicFile&) = delete;

  bool ok() const { return stream.is_open() && stream.good(); }
  std::ostream& out() { return stream; }
  /// Appends `size` bytes at the stream's position (the end, unless the caller moved it) and
  /// counts them for `writeBehind`; false once the stream has failed.
  bool write(const void* data, size_t size) {
    stream.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    appended += static_cast<std::streamoff>(size);
    return static_cast<bool>(stream);
  }
  /// Flushes, closes, syncs the file to the disk and renames it into place (then syncs the
  /// folder, so the rename survives a crash too); false (target untouched) on any failure.
  bool commit();
  /// Hands what was written so far to the disk in the background, so that `commit` has little
  /// left to wait for; cheap to call often, it acts once every few megabytes of `write` (it
  /// counts them: asking the stream where it stands would cost a flush and a system call).
  void writeBehind();
  /// Appends `bytes` bytes of the open file `fd` from `offset`, copied inside the kernel where
  /// the system allows (no trip through memory); false when they could not all be copied.
  bool appendFrom(int fd, uint64_t offset, uint64_t bytes);

 private:
  bool openSyncHandle();
  /// Starts the disk writing what lies between `handedOver` and `upTo` (flushed, through the sync
  /// handle), without waiting for it.
  void handOver(std::streamoff upTo);

  std::string target;
  std::string temporary;
  std::ofstream stream;
  bool committed = false;
  int syncHandle = -1;              // a second handle on the temporary file: write-behind, copies
  std::streamoff appended = 0;      // bytes given to `write` and `appendFrom`
  std::streamoff handedOver = 0;    // bytes already handed to the disk
};
