#include "io/vpd/VpdFormat.h"

#include <array>
#include <unordered_set>

#include "io/vpd/VpdFileImpl.h"

namespace Vpd {

namespace {
const std::string kind = "Vorn point/primitive file";
}

std::string cannotOpenMessage(const std::string& path) {
  return "Cannot open " + kind + ": " + path;
}
std::string notVpdMessage(const std::string& path) { return "Not a " + kind + ": " + path; }
std::string truncatedMessage(const std::string& path) { return "Truncated " + kind + ": " + path; }
std::string damagedMessage(const std::string& path) { return "Damaged " + kind + ": " + path; }
std::string unsupportedVersionMessage(const std::string& path, unsigned major, unsigned minor) {
  return "Unsupported " + kind + " version " + std::to_string(major) + "." + std::to_string(minor) +
         ": " + path;
}
std::string cannotCreateMessage(const std::string& path) {
  return "Cannot create " + kind + ": " + path;
}
std::string writeFailedMessage(const std::string& path) {
  return "Failed to write " + kind + ": " + path;
}
std::string invalidHeaderMessage(const std::string& path, const std::string& reason) {
  return "Invalid header for " + kind + ": " + path + " (" + reason + ")";
}

namespace detail {

namespace {

std::array<std::uint32_t, 256> makeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t n = 0; n < 256; ++n) {
    std::uint32_t c = n;
    for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    table[n] = c;
  }
  return table;
}

const std::array<std::uint32_t, 256> crcTable = makeCrcTable();

// Names must be non-empty, short enough for their 16-bit length, and unique.
std::string namesProblem(const std::vector<std::string>& names, const char* what) {
  std::unordered_set<std::string> seen;
  for (const std::string& name : names) {
    if (name.empty()) return std::string("empty ") + what + " name";
    if (name.size() > MaxNameLength) return std::string(what) + " name too long";
    if (!seen.insert(name).second)
      return std::string("duplicate ") + what + " name \"" + name + "\"";
  }
  return "";
}

}  // namespace

std::uint32_t crc32(std::uint32_t crc, const unsigned char* data, std::size_t size) {
  crc = ~crc;
  for (std::size_t i = 0; i < size; ++i) crc = crcTable[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

void appendRecord(std::vector<unsigned char>& out, std::uint32_t id, const float* values,
                  std::uint32_t count) {
  unsigned char head[RecordHeaderSize];
  putU32(head, id);
  putU32(head + 4, count);
  out.insert(out.end(), head, head + RecordHeaderSize);
  if (hostIsLittleEndian) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(values);
    if (count) out.insert(out.end(), bytes, bytes + 4 * static_cast<std::size_t>(count));
  } else {
    unsigned char word[4];
    for (std::uint32_t i = 0; i < count; ++i) {
      putF32(word, values[i]);
      out.insert(out.end(), word, word + 4);
    }
  }
}

std::string headerProblem(const Header& header) {
  if (header.faceIds.size() > 0xFFFFFFFFu) return "too many faces";
  if (header.blockNames.empty()) return "no block names";
  if (header.blockNames.size() > 0xFFFFFFFFu || header.keyNames.size() > 0xFFFFFFFFu)
    return "too many names";
  if (header.primType > ArchivePrimitive)
    return "unknown primitive type " + std::to_string(static_cast<unsigned>(header.primType));
  if (header.coordSpace > ReservedSpace)
    return "unknown coordinate space " + std::to_string(static_cast<unsigned>(header.coordSpace));
  std::unordered_set<int> faces;
  for (int face : header.faceIds)
    if (!faces.insert(face).second) return "duplicate face id " + std::to_string(face);
  std::string problem = namesProblem(header.blockNames, "block");
  if (problem.empty()) problem = namesProblem(header.keyNames, "key");
  return problem;
}

std::vector<unsigned char> encodeHeader(const Header& header) {
  std::size_t size = FixedHeaderSize + 4 * header.faceIds.size();
  for (const std::string& name : header.blockNames) size += 2 + name.size();
  for (const std::string& name : header.keyNames) size += 6 + name.size();
  size = (size + 3) & ~static_cast<std::size_t>(3);

  std::vector<unsigned char> out(size, 0);
  unsigned char* p = out.data();
  std::memcpy(p, Magic, sizeof Magic);
  putU16(p + 8, FormatMajor);
  putU16(p + 10, FormatMinor);
  putU32(p + 12, static_cast<std::uint32_t>(size));
  // 16: file size and 24: index offset stay 0 until the file is committed.
  putU32(p + 32, static_cast<std::uint32_t>(header.faceIds.size()));
  putU32(p + 36, static_cast<std::uint32_t>(header.blockNames.size()));
  putU32(p + 40, static_cast<std::uint32_t>(header.keyNames.size()));
  p[44] = header.primType;
  p[45] = header.cvCount;
  p[46] = header.coordSpace;
  putF32(p + 48, header.time);
  putU32(p + 52, header.attrVersion);
  // 56: checksum, 60: reserved.

  std::size_t at = FixedHeaderSize;
  for (int face : header.faceIds) {
    putU32(p + at, static_cast<std::uint32_t>(face));
    at += 4;
  }
  for (const std::string& name : header.blockNames) {
    putU16(p + at, static_cast<std::uint16_t>(name.size()));
    std::memcpy(p + at + 2, name.data(), name.size());
    at += 2 + name.size();
  }
  std::uint32_t id = 0;
  for (const std::string& name : header.keyNames) {
    putU32(p + at, id++);
    putU16(p + at + 4, static_cast<std::uint16_t>(name.size()));
    std::memcpy(p + at + 6, name.data(), name.size());
    at += 6 + name.size();
  }
  return out;
}

}  // namespace detail
}  // namespace Vpd
