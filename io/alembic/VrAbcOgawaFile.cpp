#include "io/alembic/VrAbcOgawaFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint64_t headerSize = 16;

uint64_t load64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

bool hasHdf5Signature(const uint8_t* bytes, uint64_t length) {
  static const uint8_t signature[8] = {0x89, 'H', 'D', 'F', '\r', '\n', 0x1a, '\n'};
  // The superblock sits at 0 or a power of two from 512 on.
  for (uint64_t at = 0; at + 8 <= length && at <= (uint64_t{1} << 20); at = at == 0 ? 512 : at * 2)
    if (std::memcmp(bytes + at, signature, 8) == 0) return true;
  return false;
}

}  // namespace

VrAbcOgawaFile::~VrAbcOgawaFile() {
  if (mapped) munmap(const_cast<uint8_t*>(bytes), static_cast<size_t>(length));
}

bool VrAbcOgawaFile::load(int fd, std::string& error) {
  struct stat info;
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    error = "not a regular file";
    return false;
  }
  length = static_cast<uint64_t>(info.st_size);
  if (length == 0) {
    error = "the file is empty";
    return false;
  }
  void* view = mmap(nullptr, static_cast<size_t>(length), PROT_READ, MAP_PRIVATE, fd, 0);
  if (view != MAP_FAILED) {
    bytes = static_cast<const uint8_t*>(view);
    mapped = true;
    return true;
  }
  // Some file systems cannot map; read the whole file instead.
  copy.resize(static_cast<size_t>(length));
  uint64_t done = 0;
  while (done < length) {
    const ssize_t got = pread(fd, copy.data() + done, static_cast<size_t>(length - done),
                              static_cast<off_t>(done));
    if (got <= 0) {
      error = "the file cannot be read";
      return false;
    }
    done += static_cast<uint64_t>(got);
  }
  bytes = copy.data();
  return true;
}

bool VrAbcOgawaFile::open(const std::string& path, std::string& error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = std::string("cannot open the file: ") + std::strerror(errno);
    return false;
  }
  const bool loaded = load(fd, error);
  ::close(fd);
  if (!loaded) return false;

  if (length >= 5 && std::memcmp(bytes, "Ogawa", 5) == 0) {
    fileKind = Kind::Ogawa;
  } else if (hasHdf5Signature(bytes, length)) {
    fileKind = Kind::Hdf5;
    error = "an HDF5 Alembic archive; only Ogawa archives are read";
    return false;
  } else {
    error = "not an Alembic archive (no Ogawa header)";
    return false;
  }
  if (length < headerSize) {
    error = "the Ogawa header is cut short";
    return false;
  }
  if (bytes[5] != 0xff) {
    error = "the archive was never closed by its writer (not frozen)";
    return false;
  }
  const unsigned version = (static_cast<unsigned>(bytes[6]) << 8) | bytes[7];
  if (version != 1) {
    error = "unsupported Ogawa version " + std::to_string(version);
    return false;
  }
  root = load64(bytes + 8);
  if (isData(root)) {
    error = "the root of the archive is not a group";
    return false;
  }
  return true;
}

bool VrAbcOgawaFile::readGroup(uint64_t position, std::vector<uint64_t>& children,
                               std::string& error) const {
  children.clear();
  if (isData(position)) {
    error = "a data block where a group was expected";
    return false;
  }
  if (position == 0) return true;
  if (position < headerSize || position > length || length - position < 8) {
    error = "a group lies outside the file";
    return false;
  }
  const uint64_t count = load64(bytes + position);
  const uint64_t room = (length - position - 8) / 8;
  if (count > room) {
    error = "a group has more children than fit in the file";
    return false;
  }
  children.resize(static_cast<size_t>(count));
  if (count) std::memcpy(children.data(), bytes + position + 8, static_cast<size_t>(count * 8));
  return true;
}

bool VrAbcOgawaFile::readData(uint64_t pointer, VrAbcSpan& span, std::string& error) const {
  span = VrAbcSpan();
  if (!isData(pointer)) {
    error = "a group where a data block was expected";
    return false;
  }
  const uint64_t position = pointer & ~dataFlag;
  if (position == 0) return true;
  if (position < headerSize || position > length || length - position < 8) {
    error = "a data block lies outside the file";
    return false;
  }
  const uint64_t size = load64(bytes + position);
  if (size > length - position - 8) {
    error = "a data block is larger than the rest of the file";
    return false;
  }
  span.data = bytes + position + 8;
  span.size = size;
  return true;
}
