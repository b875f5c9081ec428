// Opening and checking a point/primitive file, and walking its records. Nothing read from the
// file is used before it is checked against the file's real size: counts and offsets are
// bounded first, then allocated for.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "io/vpd/VpdFileImpl.h"

namespace Vpd {
namespace detail {

namespace {

std::atomic<std::uint64_t> nextSerial{1};

bool preadAll(int fd, unsigned char* out, std::size_t count, std::uint64_t offset) {
  while (count > 0) {
    const ssize_t got = ::pread(fd, out, count, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    out += got;
    count -= static_cast<std::size_t>(got);
    offset += static_cast<std::uint64_t>(got);
  }
  return true;
}

// Bounded walk over a byte range; every take checks what is left first.
class ByteReader {
 public:
  ByteReader(const unsigned char* begin, std::size_t size) : p(begin), left(size) {}
  bool take(std::size_t n, const unsigned char*& out) {
    if (n > left) return false;
    out = p;
    p += n;
    left -= n;
    return true;
  }
  bool u16(std::uint16_t& v) {
    const unsigned char* q;
    if (!take(2, q)) return false;
    v = getU16(q);
    return true;
  }
  bool u32(std::uint32_t& v) {
    const unsigned char* q;
    if (!take(4, q)) return false;
    v = getU32(q);
    return true;
  }
  bool u64(std::uint64_t& v) {
    const unsigned char* q;
    if (!take(8, q)) return false;
    v = getU64(q);
    return true;
  }
  bool text(std::size_t n, std::string& v) {
    const unsigned char* q;
    if (!take(n, q)) return false;
    v.assign(reinterpret_cast<const char*>(q), n);
    return true;
  }

 private:
  const unsigned char* p;
  std::size_t left;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// OpenFile

std::unique_ptr<OpenFile> OpenFile::open(const std::string& path, std::string& error) {
  std::unique_ptr<OpenFile> file(new OpenFile);
  file->filePath = path;
  file->fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat st;
  if (file->fd < 0 || ::fstat(file->fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    error = cannotOpenMessage(path);
    return nullptr;
  }
  const std::uint64_t actual = static_cast<std::uint64_t>(st.st_size);

  // Magic, version and the fixed header, each only as far as the file reaches.
  unsigned char fixed[FixedHeaderSize];
  const std::size_t head = static_cast<std::size_t>(std::min<std::uint64_t>(actual, sizeof fixed));
  if (!preadAll(file->fd, fixed, head, 0)) {
    error = cannotOpenMessage(path);
    return nullptr;
  }
  if (std::memcmp(fixed, Magic, std::min(head, sizeof Magic)) != 0) {
    error = notVpdMessage(path);
    return nullptr;
  }
  if (head < 12) {
    error = truncatedMessage(path);
    return nullptr;
  }
  const unsigned major = getU16(fixed + 8);
  file->minor = getU16(fixed + 10);
  if (major != FormatMajor) {
    error = unsupportedVersionMessage(path, major, file->minor);
    return nullptr;
  }
  if (head < FixedHeaderSize) {
    error = truncatedMessage(path);
    return nullptr;
  }
  const std::uint64_t headerSize = getU32(fixed + 12);
  const std::uint64_t recordedSize = getU64(fixed + 16);
  const std::uint64_t indexOffset = getU64(fixed + 24);
  if (recordedSize > actual) {
    error = truncatedMessage(path);
    return nullptr;
  }
  // The rest is checked against the recorded size, which now equals the real one.
  const std::uint64_t faceCount = getU32(fixed + 32);
  const std::uint64_t blockCount = getU32(fixed + 36);
  const std::uint64_t keyCount = getU32(fixed + 40);
  if (recordedSize != actual || headerSize < FixedHeaderSize || headerSize % 4 != 0 ||
      headerSize > indexOffset || indexOffset > recordedSize || recordedSize - indexOffset < 4 ||
      blockCount == 0 ||
      4 * faceCount + 2 * blockCount + 6 * keyCount > headerSize - FixedHeaderSize) {
    error = damagedMessage(path);
    return nullptr;
  }
  file->size = actual;

  std::vector<unsigned char> headerBytes(static_cast<std::size_t>(headerSize));
  std::vector<unsigned char> indexBytes(static_cast<std::size_t>(recordedSize - indexOffset));
  if (!preadAll(file->fd, headerBytes.data(), headerBytes.size(), 0) ||
      !preadAll(file->fd, indexBytes.data(), indexBytes.size(), indexOffset)) {
    error = truncatedMessage(path);
    return nullptr;
  }
  const std::string problem = file->check(headerBytes, indexBytes, headerSize, indexOffset);
  if (!problem.empty()) {
    error = problem;
    return nullptr;
  }
  file->serialNumber = nextSerial.fetch_add(1);
  return file;
}

std::string OpenFile::check(const std::vector<unsigned char>& headerBytes,
                            const std::vector<unsigned char>& indexBytes, std::uint64_t headerSize,
                            std::uint64_t indexOffset) {
  const std::string damaged = damagedMessage(filePath);

  // The checksum covers the header, with its own word read as zero, and the index.
  std::vector<unsigned char> zeroed(headerBytes);
  const std::uint32_t stored = getU32(zeroed.data() + ChecksumOffset);
  putU32(zeroed.data() + ChecksumOffset, 0);
  std::uint32_t crc = crc32(0, zeroed.data(), zeroed.size());
  crc = crc32(crc, indexBytes.data(), indexBytes.size());
  if (crc != stored) return damaged;

  const unsigned char* fixed = headerBytes.data();
  const std::uint32_t faceCount = getU32(fixed + 32);
  const std::uint32_t blockCount = getU32(fixed + 36);
  const std::uint32_t keyCount = getU32(fixed + 40);
  head.primType = static_cast<PrimType>(fixed[44]);
  head.cvCount = fixed[45];
  head.coordSpace = static_cast<CoordSpace>(fixed[46]);
  head.time = getF32(fixed + 48);
  head.attrVersion = getU32(fixed + 52);

  // Counts were bounded by the header size before these reservations.
  ByteReader in(fixed + FixedHeaderSize, static_cast<std::size_t>(headerSize) - FixedHeaderSize);
  head.faceIds.reserve(faceCount);
  for (std::uint32_t i = 0; i < faceCount; ++i) {
    std::uint32_t face;
    if (!in.u32(face)) return damaged;
    head.faceIds.push_back(static_cast<int>(face));
  }
  head.blockNames.reserve(blockCount);
  for (std::uint32_t i = 0; i < blockCount; ++i) {
    std::uint16_t length;
    std::string name;
    if (!in.u16(length) || length == 0 || !in.text(length, name)) return damaged;
    if (!blocks.emplace(name, static_cast<int>(i)).second) return damaged;
    head.blockNames.push_back(std::move(name));
  }
  head.keyNames.reserve(keyCount);
  std::vector<std::uint32_t> keyIds;
  for (std::uint32_t i = 0; i < keyCount; ++i) {
    std::uint32_t id;
    std::uint16_t length;
    std::string name;
    if (!in.u32(id) || id > 0x7FFFFFFFu || !in.u16(length) || length == 0 || !in.text(length, name))
      return damaged;
    if (!keys.emplace(name, static_cast<int>(id)).second) return damaged;
    keyIds.push_back(id);
    head.keyNames.push_back(std::move(name));
  }
  std::sort(keyIds.begin(), keyIds.end());
  if (std::adjacent_find(keyIds.begin(), keyIds.end()) != keyIds.end()) return damaged;
  std::vector<int> headerFaces(head.faceIds);
  std::sort(headerFaces.begin(), headerFaces.end());
  if (std::adjacent_find(headerFaces.begin(), headerFaces.end()) != headerFaces.end())
    return damaged;

  // The index: its size must be exactly what its entry count makes.
  const std::uint64_t entrySize = IndexEntryHeadSize + ExtentSize * std::uint64_t(blockCount);
  const std::uint64_t entryCount = getU32(indexBytes.data());
  const std::uint64_t entryBytes = indexBytes.size() - 4;
  if (entryBytes % entrySize != 0 || entryBytes / entrySize != entryCount || entryCount > faceCount)
    return damaged;
  faces.reserve(static_cast<std::size_t>(entryCount));
  extents.reserve(static_cast<std::size_t>(entryCount * blockCount));
  ByteReader index(indexBytes.data() + 4, indexBytes.size() - 4);
  for (std::uint64_t e = 0; e < entryCount; ++e) {
    std::uint32_t face, reserved;
    index.u32(face);
    index.u32(reserved);
    const int faceId = static_cast<int>(face);
    if (!faces.empty() && faceId <= faces.back()) return damaged;
    if (!std::binary_search(headerFaces.begin(), headerFaces.end(), faceId)) return damaged;
    faces.push_back(faceId);
    for (std::uint32_t b = 0; b < blockCount; ++b) {
      Extent x;
      index.u64(x.offset);
      index.u64(x.size);
      index.u64(x.count);
      if (x.offset == 0) {
        if (x.size != 0 || x.count != 0) return damaged;
      } else if (x.offset < headerSize || x.offset > indexOffset ||
                 x.size > indexOffset - x.offset || x.size % 4 != 0 ||
                 x.count > x.size / RecordHeaderSize) {
        return damaged;
      }
      extents.push_back(x);
    }
  }
  return "";
}

OpenFile::~OpenFile() {
  if (fd >= 0) ::close(fd);
}

bool OpenFile::close() {
  if (fd < 0) return false;
  const int result = ::close(fd);
  fd = -1;
  return result == 0;
}

int OpenFile::blockIndex(const std::string& name) const {
  const auto found = blocks.find(name);
  return found == blocks.end() ? -1 : found->second;
}

int OpenFile::faceSlot(int face) const {
  const auto found = std::lower_bound(faces.begin(), faces.end(), face);
  if (found == faces.end() || *found != face) return -1;
  return static_cast<int>(found - faces.begin());
}

bool OpenFile::readAt(std::uint64_t offset, std::size_t count, unsigned char* out,
                      std::string& error) const {
  if (fd < 0) {
    error = "Closed Vorn point/primitive file: " + filePath;
    return false;
  }
  if (!preadAll(fd, out, count, offset)) {
    error = truncatedMessage(filePath);
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------------------------
// Cursor

void Cursor::reset() {
  slot = -1;
  faceId = -1;
  blockIdx = -1;
  data.clear();
  pos = 0;
  count = 0;
  done = 0;
  indexed = false;
  byId.clear();
}

bool Cursor::bound(const OpenFile& file) {
  if (fileSerial == file.serial() && slot >= 0 && blockIdx >= 0) return true;
  err = "No face and block selected in Vorn point/primitive file: " + file.path();
  return false;
}

bool Cursor::findFace(const OpenFile& file, int face) {
  reset();
  err.clear();
  fileSerial = file.serial();
  slot = file.faceSlot(face);
  if (slot < 0) {
    err = "Face " + std::to_string(face) + " not in Vorn point/primitive file: " + file.path();
    return false;
  }
  faceId = face;
  return true;
}

bool Cursor::findBlock(const OpenFile& file, int block) {
  err.clear();
  blockIdx = -1;
  data.clear();
  pos = 0;
  done = 0;
  count = 0;
  indexed = false;
  byId.clear();
  if (fileSerial != file.serial() || slot < 0) {
    err = "No face selected in Vorn point/primitive file: " + file.path();
    return false;
  }
  const std::vector<std::string>& names = file.header().blockNames;
  if (block < 0 || static_cast<std::size_t>(block) >= names.size()) {
    err = "No block " + std::to_string(block) + " in Vorn point/primitive file: " + file.path();
    return false;
  }
  const Extent& x = file.extent(slot, block);
  if (x.offset == 0) {
    err = "Block " + names[static_cast<std::size_t>(block)] + " not written on face " +
          std::to_string(faceId) + " in Vorn point/primitive file: " + file.path();
    return false;
  }
  // The extent was checked to lie inside the file when it was opened.
  data.resize(static_cast<std::size_t>(x.size));
  if (!file.readAt(x.offset, data.size(), data.data(), err)) {
    data.clear();
    return false;
  }
  blockIdx = block;
  count = x.count;
  return true;
}

bool Cursor::decodeAt(const OpenFile& file, std::size_t at, std::uint32_t& id, std::size_t& next,
                      std::uint32_t& valueCount) {
  const std::size_t left = data.size() - at;
  if (left < RecordHeaderSize) {
    err = damagedMessage(file.path());
    return false;
  }
  id = getU32(data.data() + at);
  valueCount = getU32(data.data() + at + 4);
  if (valueCount > MaxRecordValues || 4 * std::size_t(valueCount) > left - RecordHeaderSize) {
    err = damagedMessage(file.path());
    return false;
  }
  next = at + RecordHeaderSize + 4 * std::size_t(valueCount);
  return true;
}

bool Cursor::readPrim(const OpenFile& file, std::uint32_t& id, std::vector<float>& values) {
  err.clear();
  if (!bound(file)) return false;
  if (done == count) {
    if (pos != data.size()) err = damagedMessage(file.path());
    return false;
  }
  std::size_t next;
  std::uint32_t valueCount;
  if (!decodeAt(file, pos, id, next, valueCount)) return false;
  values.resize(valueCount);
  const unsigned char* p = data.data() + pos + RecordHeaderSize;
  if (hostIsLittleEndian) {
    if (valueCount) std::memcpy(values.data(), p, 4 * std::size_t(valueCount));
  } else {
    for (std::uint32_t i = 0; i < valueCount; ++i) values[i] = getF32(p + 4 * i);
  }
  pos = next;
  ++done;
  if (done < count && pos == data.size()) {
    err = damagedMessage(file.path());
    return false;
  }
  return true;
}

bool Cursor::findPrim(const OpenFile& file, std::uint32_t id, std::vector<float>& values) {
  err.clear();
  if (!bound(file)) return false;
  // The usual order of lookups is the order of writing: try the next record first.
  if (done < count && pos + RecordHeaderSize <= data.size() && getU32(data.data() + pos) == id)
    return readPrim(file, id, values);
  if (!indexed) {
    std::size_t at = 0;
    for (std::uint64_t n = 0; n < count; ++n) {
      std::uint32_t recordId, valueCount;
      std::size_t next;
      if (!decodeAt(file, at, recordId, next, valueCount)) return false;
      byId.emplace(recordId, std::make_pair(at, n));
      at = next;
    }
    if (at != data.size()) {
      err = damagedMessage(file.path());
      return false;
    }
    indexed = true;
  }
  const auto found = byId.find(id);
  if (found == byId.end()) return false;
  pos = found->second.first;
  done = found->second.second;
  return readPrim(file, id, values);
}

}  // namespace detail
}  // namespace Vpd
