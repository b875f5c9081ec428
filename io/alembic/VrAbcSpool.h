#pragma once
// VrAbcSpool: the bytes of one array sample gathered piece by piece in a temporary file, with
// their digest taken on the way, so that a writer can store a sample larger than it wants to
// hold in memory. The file is unlinked as soon as it is made: nothing is left on disk whatever
// happens to the process. One thread at a time; the owner destroys it.

#include "io/alembic/VrAbcMurmur3.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

class VrAbcSpool {
 public:
  VrAbcSpool() = default;
  ~VrAbcSpool();
  VrAbcSpool(const VrAbcSpool&) = delete;
  VrAbcSpool& operator=(const VrAbcSpool&) = delete;

  /// Makes the temporary file in `directory` (TMPDIR, else /tmp, when empty). False with the
  /// reason in `error` when it cannot be made.
  bool open(const std::string& directory, std::string& error);
  bool isOpen() const { return file != nullptr; }
  /// Appends `bytes` bytes; false once anything failed.
  bool append(const void* data, uint64_t bytes);
  /// Bytes appended so far.
  uint64_t size() const { return hash.length(); }
  /// The digest of the bytes appended so far (as VrAbcMurmur3::hash of them all).
  VrAbcDigest digest() const { return hash.digest(); }
  bool failed() const { return broken; }
  /// The spool's file, every appended byte in it from offset 0, for a copy by descriptor; -1
  /// once anything failed.
  int descriptor() const;

 private:
  std::FILE* file = nullptr;
  std::unique_ptr<char[]> buffer;  // the file's, outlives it
  VrAbcMurmur3::Stream hash;
  bool broken = false;
};
