#pragma once
// The Ogawa container: a 16-byte header ("Ogawa", a frozen mark 0xff, version 1, the position
// of the root group), then data blocks (a 64-bit size and the bytes) and groups (a 64-bit child
// count and one 64-bit pointer per child). A child pointer with the top bit set is a data block,
// otherwise a group; position 0 stands for an empty group or empty data.
//
// This class maps a file read-only and answers bounds-checked questions about it. Every offset
// and size is checked against the file size before it is used, so a damaged file gives an error
// and never a read outside the mapping or an allocation larger than the file. After `open` the
// object is immutable: any number of threads may read through one instance.

#include <cstdint>
#include <string>
#include <vector>

/// A read-only view of bytes inside the mapped file.
struct VrAbcSpan {
  const uint8_t* data = nullptr;
  uint64_t size = 0;
};

class VrAbcOgawaFile {
 public:
  /// What the first bytes of a file say it is.
  enum class Kind { Ogawa, Hdf5, Unknown };

  static constexpr uint64_t dataFlag = 0x8000000000000000ULL;

  VrAbcOgawaFile() = default;
  ~VrAbcOgawaFile();
  VrAbcOgawaFile(const VrAbcOgawaFile&) = delete;
  VrAbcOgawaFile& operator=(const VrAbcOgawaFile&) = delete;

  /// Maps the file and checks the header. On failure `error` says why (without the file name,
  /// which the caller adds) and `kind()` still tells what the file looked like.
  bool open(const std::string& path, std::string& error);

  Kind kind() const { return fileKind; }
  uint64_t size() const { return length; }
  uint64_t rootGroup() const { return root; }

  static bool isData(uint64_t child) { return (child & dataFlag) != 0; }

  /// The child pointers of the group at `position` (top bit clear; 0 is the empty group).
  bool readGroup(uint64_t position, std::vector<uint64_t>& children, std::string& error) const;
  /// The bytes of the data block a child pointer names (top bit set; position 0 is empty data).
  bool readData(uint64_t pointer, VrAbcSpan& span, std::string& error) const;

 private:
  bool load(int fd, std::string& error);

  const uint8_t* bytes = nullptr;
  uint64_t length = 0;
  bool mapped = false;
  std::vector<uint8_t> copy;  // used when the file cannot be mapped
  Kind fileKind = Kind::Unknown;
  uint64_t root = 0;
};
