#pragma once
// Internal to io/particles: a particle file's bytes in memory, and a cursor that reads them with
// every length checked against what is left. A plain file is read whole rather than mapped: a
// file that another program rewrites in place while it is read then gives a short read and a
// message, not a bus error. A gzip-compressed one is inflated first, so the counts a reader meets
// are always checked against the bytes that are really there.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace vrparticles {

/// True when the bytes start with the gzip magic (1f 8b).
bool isGzip(const unsigned char* bytes, size_t size);

/// A whole file's bytes, as read or inflated.
class FileBytes {
 public:
  FileBytes() = default;
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;

  const unsigned char* data() const { return held.data(); }
  size_t size() const { return held.size(); }

 private:
  friend bool loadFile(const std::string&, bool, FileBytes&, std::string&);
  std::vector<unsigned char> held;
};

/// Loads the whole file at `path` into `bytes`, inflating it when it is gzip-compressed and
/// `inflateGzip` is set. False with the reason in `error` ("cannot open the file", "damaged
/// gzip data ...").
bool loadFile(const std::string& path, bool inflateGzip, FileBytes& bytes, std::string& error);

/// The last part of a path, for messages.
std::string fileName(const std::string& path);

inline uint32_t loadBE32(const unsigned char* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return __builtin_bswap32(v);
}
inline uint32_t loadLE32(const unsigned char* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline void storeBE32(unsigned char* p, uint32_t v) {
  v = __builtin_bswap32(v);
  std::memcpy(p, &v, 4);
}
inline void storeLE32(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
  p[2] = static_cast<unsigned char>(v >> 16);
  p[3] = static_cast<unsigned char>(v >> 24);
}

/// Reads forward through a byte range; every call that would run past the end answers false
/// (or null) and moves nothing.
class ByteCursor {
 public:
  ByteCursor(const unsigned char* data, size_t size) : at(data), end(data + size) {}
  size_t remaining() const { return static_cast<size_t>(end - at); }
  /// The next `n` bytes, stepped over; null when fewer are left.
  const unsigned char* take(size_t n) {
    if (n > remaining()) return nullptr;
    const unsigned char* p = at;
    at += n;
    return p;
  }
  bool skip(size_t n) { return take(n) != nullptr; }
  bool u8(uint8_t& v) {
    const unsigned char* p = take(1);
    if (p) v = *p;
    return p;
  }
  bool be16(uint16_t& v) {
    const unsigned char* p = take(2);
    if (p) v = static_cast<uint16_t>(p[0] << 8 | p[1]);
    return p;
  }
  bool be32(int32_t& v) {
    const unsigned char* p = take(4);
    if (p) v = static_cast<int32_t>(loadBE32(p));
    return p;
  }
  bool le16(uint16_t& v) {
    const unsigned char* p = take(2);
    if (p) v = static_cast<uint16_t>(p[0] | p[1] << 8);
    return p;
  }
  bool le32(uint32_t& v) {
    const unsigned char* p = take(4);
    if (p) v = loadLE32(p);
    return p;
  }
  /// `n` bytes as text.
  bool text(size_t n, std::string& out) {
    const unsigned char* p = take(n);
    if (p) out.assign(reinterpret_cast<const char*>(p), n);
    return p;
  }

 private:
  const unsigned char* at;
  const unsigned char* end;
};

}  // namespace vrparticles
