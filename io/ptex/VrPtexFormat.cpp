// Byte layout helpers of per-face texture files: fixed records, zlib blocks, the meta data block
// and the planar and difference forms of face data.

#include "io/ptex/VrPtexFormat.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace vrptex {
namespace format {

void put16(std::vector<uint8_t>& out, uint16_t value) {
  out.push_back(static_cast<uint8_t>(value));
  out.push_back(static_cast<uint8_t>(value >> 8));
}
void put32(std::vector<uint8_t>& out, uint32_t value) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}
void put64(std::vector<uint8_t>& out, uint64_t value) {
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}
uint16_t get16(const uint8_t* at) { return static_cast<uint16_t>(at[0] | (at[1] << 8)); }
uint32_t get32(const uint8_t* at) {
  return static_cast<uint32_t>(at[0]) | (static_cast<uint32_t>(at[1]) << 8) | (static_cast<uint32_t>(at[2]) << 16) |
         (static_cast<uint32_t>(at[3]) << 24);
}
uint64_t get64(const uint8_t* at) { return get32(at) | (static_cast<uint64_t>(get32(at + 4)) << 32); }

void writeHeader(const Header& h, std::vector<uint8_t>& out) {
  put32(out, h.magic);
  put32(out, h.version);
  put32(out, h.meshType);
  put32(out, h.dataType);
  put32(out, static_cast<uint32_t>(h.alphaChannel));
  put16(out, h.numChannels);
  put16(out, h.numLevels);
  put32(out, h.numFaces);
  put32(out, h.extHeaderSize);
  put32(out, h.faceInfoSize);
  put32(out, h.constDataSize);
  put32(out, h.levelInfoSize);
  put32(out, h.minorVersion);
  put64(out, h.levelDataSize);
  put32(out, h.metaDataZipSize);
  put32(out, h.metaDataMemSize);
}

Header readHeader(const uint8_t* at) {
  Header h;
  h.magic = get32(at);
  h.version = get32(at + 4);
  h.meshType = get32(at + 8);
  h.dataType = get32(at + 12);
  h.alphaChannel = static_cast<int32_t>(get32(at + 16));
  h.numChannels = get16(at + 20);
  h.numLevels = get16(at + 22);
  h.numFaces = get32(at + 24);
  h.extHeaderSize = get32(at + 28);
  h.faceInfoSize = get32(at + 32);
  h.constDataSize = get32(at + 36);
  h.levelInfoSize = get32(at + 40);
  h.minorVersion = get32(at + 44);
  h.levelDataSize = get64(at + 48);
  h.metaDataZipSize = get32(at + 56);
  h.metaDataMemSize = get32(at + 60);
  return h;
}

void writeExtHeader(const ExtHeader& h, std::vector<uint8_t>& out) {
  put16(out, h.uBorderMode);
  put16(out, h.edgeFilterMode);
  put16(out, h.vBorderMode);
  put16(out, h.pad);
  put32(out, h.lmdHeaderZipSize);
  put32(out, h.lmdHeaderMemSize);
  put64(out, h.lmdDataSize);
  put64(out, h.editDataSize);
  put64(out, h.editDataPos);
}

ExtHeader readExtHeader(const uint8_t* at, size_t size) {
  uint8_t bytes[ExtHeaderSize] = {};
  std::memcpy(bytes, at, size < ExtHeaderSize ? size : ExtHeaderSize);
  ExtHeader h;
  h.uBorderMode = get16(bytes);
  h.edgeFilterMode = get16(bytes + 2);
  h.vBorderMode = get16(bytes + 4);
  h.pad = get16(bytes + 6);
  h.lmdHeaderZipSize = get32(bytes + 8);
  h.lmdHeaderMemSize = get32(bytes + 12);
  h.lmdDataSize = get64(bytes + 16);
  h.editDataSize = get64(bytes + 24);
  h.editDataPos = get64(bytes + 32);
  return h;
}

void writeFaceInfo(const FaceInfo& info, std::vector<uint8_t>& out) {
  out.push_back(static_cast<uint8_t>(info.res.ulog2));
  out.push_back(static_cast<uint8_t>(info.res.vlog2));
  out.push_back(info.adjEdges);
  out.push_back(info.flags);
  for (int32_t f : info.adjFaces) put32(out, static_cast<uint32_t>(f));
}

FaceInfo readFaceInfo(const uint8_t* at) {
  FaceInfo info;
  info.res = Res(static_cast<int8_t>(at[0]), static_cast<int8_t>(at[1]));
  info.adjEdges = at[2];
  info.flags = at[3];
  for (int e = 0; e < 4; ++e) info.adjFaces[e] = static_cast<int32_t>(get32(at + 4 + 4 * e));
  return info;
}

struct Deflater::Stream {
  z_stream z{};
  bool ready = false;
};

Deflater::Deflater() : stream(new Stream) {
  stream->ready = deflateInit(&stream->z, Z_DEFAULT_COMPRESSION) == Z_OK;
}

Deflater::~Deflater() {
  if (stream->ready) deflateEnd(&stream->z);
}

bool Deflater::zip(const uint8_t* data, size_t size, std::vector<uint8_t>& out) {
  z_stream& z = stream->z;
  if (!stream->ready || size > std::numeric_limits<uInt>::max() || deflateReset(&z) != Z_OK) return false;
  out.resize(deflateBound(&z, static_cast<uLong>(size)));
  z.next_in = const_cast<Bytef*>(size ? data : reinterpret_cast<const Bytef*>(""));
  z.avail_in = static_cast<uInt>(size);
  z.next_out = out.data();
  z.avail_out = static_cast<uInt>(std::min<size_t>(out.size(), std::numeric_limits<uInt>::max()));
  if (deflate(&z, Z_FINISH) != Z_STREAM_END) return false;
  out.resize(z.total_out);
  return true;
}

bool zip(const uint8_t* data, size_t size, std::vector<uint8_t>& out) { return Deflater().zip(data, size, out); }

bool unzip(const uint8_t* data, size_t size, size_t expected, std::vector<uint8_t>& out, std::string& error) {
  // Deflate cannot do better than about 1032 to 1; a larger claim is damage, not data.
  if (expected > size * 1100 + 1024 || expected > (static_cast<size_t>(1) << 32)) {
    error = "a compressed block of " + std::to_string(size) + " bytes cannot hold " + std::to_string(expected) +
            " bytes";
    return false;
  }
  out.resize(expected);
  z_stream stream;
  std::memset(&stream, 0, sizeof stream);
  if (inflateInit(&stream) != Z_OK) {
    error = "zlib could not start";
    return false;
  }
  stream.next_in = const_cast<Bytef*>(data);
  stream.avail_in = static_cast<uInt>(size);
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(expected);
  const int rc = inflate(&stream, Z_FINISH);
  const size_t produced = expected - stream.avail_out;
  inflateEnd(&stream);
  if (rc != Z_STREAM_END || produced != expected) {
    error = rc == Z_STREAM_END || rc == Z_BUF_ERROR
                ? "a compressed block holds " + std::string(produced < expected ? "fewer" : "more") + " than " +
                      std::to_string(expected) + " bytes"
                : "a compressed block is damaged (zlib: " + std::string(stream.msg ? stream.msg : "error") + ")";
    return false;
  }
  return true;
}

void writeMetaData(const std::vector<const VrPtexMetaData::Entry*>& entries, std::vector<uint8_t>& out) {
  for (const VrPtexMetaData::Entry* e : entries) {
    out.push_back(static_cast<uint8_t>(e->key.size() + 1));
    out.insert(out.end(), e->key.begin(), e->key.end());
    out.push_back(0);
    out.push_back(static_cast<uint8_t>(e->type));
    const bool text = e->type == MetaDataType::String;
    put32(out, static_cast<uint32_t>(e->bytes.size() + (text ? 1 : 0)));
    out.insert(out.end(), e->bytes.begin(), e->bytes.end());
    if (text) out.push_back(0);
  }
}

bool parseMetaData(const std::vector<uint8_t>& block, VrPtexMetaData& meta, std::string& error) {
  size_t at = 0;
  while (at < block.size()) {
    const size_t keySize = block[at];
    if (keySize == 0 || at + 1 + keySize + 5 > block.size()) {
      error = "a meta data entry runs past its block";
      return false;
    }
    const char* key = reinterpret_cast<const char*>(block.data() + at + 1);
    const std::string name(key, strnlen(key, keySize));
    at += 1 + keySize;
    const uint8_t type = block[at];
    const uint32_t dataSize = get32(block.data() + at + 1);
    at += 5;
    if (type > static_cast<uint8_t>(MetaDataType::Double)) {
      error = "meta data entry \"" + name + "\" has the unknown type " + std::to_string(type);
      return false;
    }
    if (dataSize > block.size() - at) {
      error = "meta data entry \"" + name + "\" runs past its block";
      return false;
    }
    std::vector<uint8_t> bytes(block.begin() + static_cast<long>(at), block.begin() + static_cast<long>(at + dataSize));
    at += dataSize;
    const MetaDataType t = static_cast<MetaDataType>(type);
    if (t == MetaDataType::String && !bytes.empty() && bytes.back() == 0) bytes.pop_back();
    if (!meta.set(name, t, bytes)) {
      error = "meta data entry \"" + name + "\" is malformed";
      return false;
    }
  }
  return true;
}

void interleave(const uint8_t* planar, int64_t count, int channels, int size, uint8_t* out) {
  for (int c = 0; c < channels; ++c)
    for (int64_t i = 0; i < count; ++i)
      std::memcpy(out + (i * channels + c) * size, planar + (c * count + i) * size, static_cast<size_t>(size));
}

void deinterleave(const uint8_t* interleaved, int64_t count, int channels, int size, uint8_t* out) {
  for (int c = 0; c < channels; ++c)
    for (int64_t i = 0; i < count; ++i)
      std::memcpy(out + (c * count + i) * size, interleaved + (i * channels + c) * size, static_cast<size_t>(size));
}

void encodeDifference(uint8_t* data, size_t bytes, int size) {
  if (size == 1) {
    uint8_t previous = 0;
    for (size_t i = 0; i < bytes; ++i) {
      const uint8_t value = data[i];
      data[i] = static_cast<uint8_t>(value - previous);
      previous = value;
    }
  } else {
    uint16_t previous = 0;
    for (size_t i = 0; i + 1 < bytes; i += 2) {
      const uint16_t value = get16(data + i);
      const uint16_t d = static_cast<uint16_t>(value - previous);
      data[i] = static_cast<uint8_t>(d);
      data[i + 1] = static_cast<uint8_t>(d >> 8);
      previous = value;
    }
  }
}

void decodeDifference(uint8_t* data, size_t bytes, int size) {
  if (size == 1) {
    uint8_t sum = 0;
    for (size_t i = 0; i < bytes; ++i) data[i] = sum = static_cast<uint8_t>(sum + data[i]);
  } else {
    uint16_t sum = 0;
    for (size_t i = 0; i + 1 < bytes; i += 2) {
      sum = static_cast<uint16_t>(sum + get16(data + i));
      data[i] = static_cast<uint8_t>(sum);
      data[i + 1] = static_cast<uint8_t>(sum >> 8);
    }
  }
}

}  // namespace format
}  // namespace vrptex
