// Reading per-face texture files.
//
// Checking: the whole file is held in memory, and every block is located by adding sizes read
// from the file; each sum is compared with the file's length before the block is touched, and
// every zlib block must inflate to exactly the size the file claims for it (claims beyond what
// deflate can reach are refused before allocating). Face records are checked for sane
// resolutions and neighbour ids. So a damaged file ends in an error text, never in a read past
// the buffer or an unbounded allocation.
//
// Lifetime: inflated faces stay until `purgeData`; the owning cache decides when, from
// `memoryUsed`.

#include "io/ptex/VrPtexTexture.h"

#include "base/VrMessage.h"
#include "io/ptex/VrPtexFormat.h"

#include <algorithm>
#include <cstring>
#include <fstream>

using namespace vrptex;

namespace {

const FaceInfo outOfRangeFace;

std::string bareName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// True when [pos, pos + size) lies within `length`, without overflow.
bool fits(uint64_t pos, uint64_t size, uint64_t length) { return pos <= length && size <= length - pos; }

// Largest face we accept: texels * texel bytes.
constexpr uint64_t MaxFaceBytes = static_cast<uint64_t>(1) << 31;

// Halves a face's resolution in u and/or v: each texel of the result averages the 2 (or 4)
// texels it covers. Integer types average with rounding half up; half and float in float.
void reduceStep(const std::vector<uint8_t>& in, Res from, bool halveU, bool halveV, DataType type, int channels,
                std::vector<uint8_t>& out) {
  const int size = dataSize(type);
  const int pixel = size * channels;
  const int outU = halveU ? from.u() / 2 : from.u();
  const int outV = halveV ? from.v() / 2 : from.v();
  const int du = halveU ? 2 : 1, dv = halveV ? 2 : 1, n = du * dv;
  out.assign(static_cast<size_t>(outU) * outV * pixel, 0);
  for (int v = 0; v < outV; ++v)
    for (int u = 0; u < outU; ++u)
      for (int c = 0; c < channels; ++c) {
        float sum = 0.0f;
        uint32_t isum = 0;
        for (int j = 0; j < dv; ++j)
          for (int i = 0; i < du; ++i) {
            const uint8_t* src =
                in.data() + ((static_cast<size_t>(v * dv + j) * from.u() + static_cast<size_t>(u * du + i)) * pixel + c * size);
            float value;
            toFloat(src, type, 1, &value);
            sum += value;
            if (type == DataType::UInt8) isum += src[0];
            if (type == DataType::UInt16) isum += format::get16(src);
          }
        uint8_t* dst = out.data() + ((static_cast<size_t>(v) * outU + u) * pixel + c * size);
        switch (type) {
          case DataType::UInt8: dst[0] = static_cast<uint8_t>(isum / n); break;
          case DataType::UInt16: {
            const uint16_t value = static_cast<uint16_t>(isum / n);
            std::memcpy(dst, &value, 2);
            break;
          }
          case DataType::Half:
          case DataType::Float: {
            const float mean = sum / static_cast<float>(n);
            fromFloat(&mean, type, 1, dst);
            break;
          }
        }
      }
}

}  // namespace

bool VrPtexTexture::hasMagic(const uint8_t* bytes, size_t size) {
  return size >= 4 && format::get32(bytes) == format::Magic;
}

std::shared_ptr<VrPtexTexture> VrPtexTexture::open(const std::string& path, std::string& error) {
  std::shared_ptr<VrPtexTexture> texture(new VrPtexTexture);
  texture->filePath = path;
  texture->fileName = bareName(path);
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) {
    error = texture->fileName + ": cannot open the file";
    return nullptr;
  }
  const std::streamoff length = in.tellg();
  if (length < 0) {
    error = texture->fileName + ": cannot read the file";
    return nullptr;
  }
  texture->fileBytes.resize(static_cast<size_t>(length));
  in.seekg(0);
  if (length > 0 && !in.read(reinterpret_cast<char*>(texture->fileBytes.data()), length)) {
    error = texture->fileName + ": cannot read the file";
    return nullptr;
  }
  std::string reason;
  if (!texture->parse(reason)) {
    error = texture->fileName + ": " + reason;
    return nullptr;
  }
  return texture;
}

bool VrPtexTexture::parse(std::string& error) {
  const uint64_t length = fileBytes.size();
  const uint8_t* bytes = fileBytes.data();
  if (length < format::HeaderSize || !hasMagic(bytes, length)) {
    error = "not a Ptex texture file (no Ptex header)";
    return false;
  }
  const format::Header h = format::readHeader(bytes);
  if (h.version != format::Version) {
    error = "unsupported Ptex format version " + std::to_string(h.version);
    return false;
  }
  if (h.meshType > 1 || h.dataType > 3) {
    error = "unknown mesh type " + std::to_string(h.meshType) + " or data type " + std::to_string(h.dataType);
    return false;
  }
  mesh = static_cast<MeshType>(h.meshType);
  type = static_cast<DataType>(h.dataType);
  channels = h.numChannels;
  if (channels < 1 || channels > 64) {
    error = "unusable channel count " + std::to_string(channels);
    return false;
  }
  alpha = h.alphaChannel;
  if (alpha < -1 || alpha >= channels) {
    error = "alpha channel " + std::to_string(alpha) + " is not one of the " + std::to_string(channels) + " channels";
    return false;
  }
  pixelBytes = channels * dataSize(type);
  levels = h.numLevels;

  uint64_t pos = format::HeaderSize;
  if (!fits(pos, h.extHeaderSize, length)) {
    error = "the extended header runs past the end of the file";
    return false;
  }
  const format::ExtHeader ext = format::readExtHeader(bytes + pos, h.extHeaderSize);
  if (ext.uBorderMode > 2 || ext.vBorderMode > 2 || ext.edgeFilterMode > 1) {
    error = "unknown border or edge filter mode";
    return false;
  }
  uBorder = static_cast<BorderMode>(ext.uBorderMode);
  vBorder = static_cast<BorderMode>(ext.vBorderMode);
  edgeFilter = static_cast<EdgeFilterMode>(ext.edgeFilterMode);
  pos += h.extHeaderSize;

  // Face records.
  const uint64_t numFaces = h.numFaces;
  if (!fits(pos, h.faceInfoSize, length)) {
    error = "the face records run past the end of the file";
    return false;
  }
  std::vector<uint8_t> block;
  std::string why;
  if (!format::unzip(bytes + pos, h.faceInfoSize, numFaces * format::FaceInfoSize, block, why)) {
    error = "face records: " + why;
    return false;
  }
  faces.resize(numFaces);
  for (uint64_t f = 0; f < numFaces; ++f) {
    FaceInfo& info = faces[f];
    info = format::readFaceInfo(block.data() + f * format::FaceInfoSize);
    const bool resOk = info.res.ulog2 >= 0 && info.res.vlog2 >= 0 && info.res.ulog2 <= 30 && info.res.vlog2 <= 30 &&
                       static_cast<uint64_t>(info.res.size()) * pixelBytes <= MaxFaceBytes;
    bool adjOk = true;
    for (int32_t adj : info.adjFaces) adjOk = adjOk && adj >= -1 && adj < static_cast<int64_t>(numFaces);
    if (!resOk || !adjOk) {
      error = "face " + std::to_string(f) + " has " + (resOk ? "a neighbour out of range" : "an unusable resolution");
      return false;
    }
  }
  pos += h.faceInfoSize;

  // Constant values.
  if (!fits(pos, h.constDataSize, length) ||
      !format::unzip(bytes + pos, h.constDataSize, numFaces * pixelBytes, constants, why)) {
    error = "constant values: " + (why.empty() ? std::string("the block runs past the end of the file") : why);
    return false;
  }
  pos += h.constDataSize;

  // Levels.
  if (h.levelInfoSize != static_cast<uint64_t>(levels) * format::LevelInfoSize || !fits(pos, h.levelInfoSize, length) ||
      !fits(pos + h.levelInfoSize, h.levelDataSize, length) || (levels < 1 && numFaces > 0)) {
    error = "the level records do not match the file (" + std::to_string(levels) + " levels)";
    return false;
  }
  if (!parseLevels(pos, pos + h.levelInfoSize, error)) return false;
  pos += h.levelInfoSize + h.levelDataSize;

  // Meta data.
  if (!fits(pos, h.metaDataZipSize, length)) {
    error = "the meta data runs past the end of the file";
    return false;
  }
  if (h.metaDataZipSize > 0) {
    if (!format::unzip(bytes + pos, h.metaDataZipSize, h.metaDataMemSize, block, why) ||
        !format::parseMetaData(block, meta, why)) {
      error = "meta data: " + why;
      return false;
    }
  }
  pos += h.metaDataZipSize;

  // Large meta data, behind the barrier that older readers stop at.
  if (ext.lmdHeaderZipSize > 0 || ext.lmdDataSize > 0) {
    pos += format::BarrierSize;
    if (!fits(pos, ext.lmdHeaderZipSize, length) || !fits(pos + ext.lmdHeaderZipSize, ext.lmdDataSize, length)) {
      error = "the large meta data runs past the end of the file";
      return false;
    }
    if (!parseLargeMetaData(pos, pos + ext.lmdHeaderZipSize, error)) return false;
    pos += ext.lmdHeaderZipSize + ext.lmdDataSize;
  }

  // Edits.
  if (ext.editDataSize > 0) {
    const uint64_t editPos = ext.editDataPos ? ext.editDataPos : pos;
    if (!fits(editPos, ext.editDataSize, length)) {
      error = "the edits run past the end of the file";
      return false;
    }
    if (!parseEdits(editPos, ext.editDataSize, error)) return false;
  }
  // Faces stored as one texel keep it here, so that no face of a huge resolution is expanded.
  blockTexels.assign(faces.size() * static_cast<size_t>(pixelBytes), 0);
  for (size_t f = 0; f < faces.size(); ++f)
    if (blocks[f].encoding == static_cast<uint32_t>(format::Encoding::Constant) &&
        blocks[f].size == static_cast<size_t>(pixelBytes))
      std::memcpy(blockTexels.data() + f * pixelBytes, bytes + blocks[f].pos, static_cast<size_t>(pixelBytes));
  inflated.assign(faces.size(), std::vector<uint8_t>());
  damaged.assign(faces.size(), false);
  return true;
}

const uint8_t* VrPtexTexture::oneTexel(int faceId) const {
  if (faceId < 0 || faceId >= numFaces()) return nullptr;
  const size_t f = static_cast<size_t>(faceId);
  if (faces[f].isConstant()) return constants.data() + f * pixelBytes;
  const Block& b = blocks[f];
  if (b.encoding == static_cast<uint32_t>(format::Encoding::Constant) && b.size == static_cast<size_t>(pixelBytes))
    return blockTexels.data() + f * pixelBytes;
  return nullptr;
}

bool VrPtexTexture::parseLevels(size_t levelInfoPos, size_t levelDataPos, std::string& error) {
  const uint8_t* bytes = fileBytes.data();
  const uint64_t length = fileBytes.size();
  uint64_t pos = levelDataPos;
  blocks.assign(faces.size(), Block());
  std::vector<uint8_t> headers;
  std::string why;
  for (int level = 0; level < levels; ++level) {
    const uint8_t* at = bytes + levelInfoPos + static_cast<size_t>(level) * format::LevelInfoSize;
    format::LevelInfo info;
    info.levelDataSize = format::get64(at);
    info.levelHeaderSize = format::get32(at + 8);
    info.numFaces = format::get32(at + 12);
    const std::string name = "level " + std::to_string(level) + ": ";
    if (!fits(pos, info.levelDataSize, length) || info.levelHeaderSize > info.levelDataSize ||
        info.numFaces > faces.size() || (level == 0 && info.numFaces != faces.size())) {
      error = name + "the record does not match the file";
      return false;
    }
    if (!format::unzip(bytes + pos, info.levelHeaderSize, static_cast<uint64_t>(info.numFaces) * 4, headers, why)) {
      error = name + "face block headers: " + why;
      return false;
    }
    uint64_t blockPos = pos + info.levelHeaderSize;
    const uint64_t end = pos + info.levelDataSize;
    for (uint32_t f = 0; f < info.numFaces; ++f) {
      const uint32_t word = format::get32(headers.data() + 4 * f);
      const uint64_t size = word & 0x3fffffffu;
      if (!fits(blockPos, size, end)) {
        error = name + "the block of face " + std::to_string(f) + " runs past the level's end";
        return false;
      }
      if (level == 0) blocks[f] = Block{static_cast<size_t>(blockPos), static_cast<size_t>(size), word >> 30};
      blockPos += size;
    }
    pos = end;
  }
  return true;
}

bool VrPtexTexture::parseLargeMetaData(size_t headerPos, size_t dataPos, std::string& error) {
  const uint8_t* bytes = fileBytes.data();
  const format::ExtHeader ext = format::readExtHeader(bytes + format::HeaderSize,
                                                      format::readHeader(bytes).extHeaderSize);
  std::vector<uint8_t> header, value;
  std::string why;
  if (!format::unzip(bytes + headerPos, ext.lmdHeaderZipSize, ext.lmdHeaderMemSize, header, why)) {
    error = "large meta data: " + why;
    return false;
  }
  size_t at = 0;
  uint64_t valuePos = dataPos;
  const uint64_t end = dataPos + ext.lmdDataSize;
  while (at < header.size()) {
    const size_t keySize = header[at];
    if (keySize == 0 || at + 1 + keySize + 9 > header.size()) {
      error = "large meta data: an entry runs past its header";
      return false;
    }
    const char* key = reinterpret_cast<const char*>(header.data() + at + 1);
    const std::string name(key, strnlen(key, keySize));
    at += 1 + keySize;
    const uint8_t entryType = header[at];
    const uint32_t dataSize = format::get32(header.data() + at + 1);
    const uint32_t zipSize = format::get32(header.data() + at + 5);
    at += 9;
    if (entryType > static_cast<uint8_t>(MetaDataType::Double) || !fits(valuePos, zipSize, end) ||
        !format::unzip(bytes + valuePos, zipSize, dataSize, value, why)) {
      error = "large meta data entry \"" + name + "\": " + (why.empty() ? "unknown type or out of the file" : why);
      return false;
    }
    valuePos += zipSize;
    const MetaDataType t = static_cast<MetaDataType>(entryType);
    if (t == MetaDataType::String && !value.empty() && value.back() == 0) value.pop_back();
    if (!meta.set(name, t, value)) {
      error = "large meta data entry \"" + name + "\" is malformed";
      return false;
    }
  }
  return true;
}

bool VrPtexTexture::parseEdits(size_t pos, size_t size, std::string& error) {
  const uint8_t* bytes = fileBytes.data();
  const uint64_t end = static_cast<uint64_t>(pos) + size;
  uint64_t at = pos;
  std::vector<uint8_t> block;
  std::string why;
  while (at < end) {
    if (!fits(at, 5, end)) {
      error = "an edit runs past the end of the edits";
      return false;
    }
    const uint8_t editType = bytes[at];
    const uint32_t editSize = format::get32(bytes + at + 1);
    at += 5;
    if (!fits(at, editSize, end)) {
      error = "an edit runs past the end of the edits";
      return false;
    }
    const uint8_t* body = bytes + at;
    if (editType == static_cast<uint8_t>(format::EditType::FaceData)) {
      const uint64_t fixed = 4 + format::FaceInfoSize + static_cast<uint64_t>(pixelBytes) + 4;
      const uint32_t faceId = editSize >= fixed ? format::get32(body) : 0;
      if (editSize < fixed || faceId >= faces.size()) {
        error = "a face edit is too short or names a face out of range";
        return false;
      }
      FaceInfo info = format::readFaceInfo(body + 4);
      if (info.res.ulog2 < 0 || info.res.vlog2 < 0 || info.res.ulog2 > 30 || info.res.vlog2 > 30 ||
          static_cast<uint64_t>(info.res.size()) * pixelBytes > MaxFaceBytes) {
        error = "the edit of face " + std::to_string(faceId) + " has an unusable resolution";
        return false;
      }
      for (int32_t& adj : info.adjFaces)
        if (adj < -1 || adj >= static_cast<int64_t>(faces.size())) adj = -1;
      const uint8_t* constant = body + 4 + format::FaceInfoSize;
      const uint32_t word = format::get32(constant + pixelBytes);
      const uint64_t dataPos = at + fixed;
      const uint64_t dataSize = word & 0x3fffffffu;
      if (!fits(dataPos, dataSize, at + editSize)) {
        error = "the edit of face " + std::to_string(faceId) + " runs past its end";
        return false;
      }
      info.flags |= FaceInfo::HasEdits;
      faces[faceId] = info;
      std::memcpy(constants.data() + static_cast<size_t>(faceId) * pixelBytes, constant, static_cast<size_t>(pixelBytes));
      blocks[faceId] = Block{static_cast<size_t>(dataPos), static_cast<size_t>(dataSize), word >> 30};
    } else if (editType == static_cast<uint8_t>(format::EditType::MetaData)) {
      if (editSize < 8) {
        error = "a meta data edit is too short";
        return false;
      }
      const uint32_t zipSize = format::get32(body), memSize = format::get32(body + 4);
      if (!fits(8, zipSize, editSize) || !format::unzip(body + 8, zipSize, memSize, block, why) ||
          !format::parseMetaData(block, meta, why)) {
        error = "meta data edit: " + (why.empty() ? std::string("runs past its end") : why);
        return false;
      }
    }
    // Edits of other types are skipped: newer writers may add them.
    at += editSize;
    edited = true;
  }
  return true;
}

const FaceInfo& VrPtexTexture::getFaceInfo(int faceId) const {
  if (faceId < 0 || faceId >= numFaces()) return outOfRangeFace;
  return faces[static_cast<size_t>(faceId)];
}

bool VrPtexTexture::decodeBlock(size_t pos, size_t size, uint32_t encoding, Res res, bool allowTiles,
                                std::vector<uint8_t>& out, std::string& error) const {
  const uint8_t* at = fileBytes.data() + pos;
  const int64_t count = res.size();
  const int size1 = dataSize(type);
  switch (static_cast<format::Encoding>(encoding)) {
    case format::Encoding::Constant:
      if (size != static_cast<size_t>(pixelBytes)) {
        error = "a constant block of " + std::to_string(size) + " bytes";
        return false;
      }
      out.resize(static_cast<size_t>(count) * pixelBytes);
      for (int64_t i = 0; i < count; ++i) std::memcpy(out.data() + i * pixelBytes, at, static_cast<size_t>(pixelBytes));
      return true;
    case format::Encoding::Zipped:
    case format::Encoding::DiffZipped: {
      const bool diff = encoding == static_cast<uint32_t>(format::Encoding::DiffZipped);
      if (diff && type != DataType::UInt8 && type != DataType::UInt16) {
        error = "differences stored for a floating point type";
        return false;
      }
      std::vector<uint8_t> planar;
      if (!format::unzip(at, size, static_cast<size_t>(count) * pixelBytes, planar, error)) return false;
      if (diff) format::decodeDifference(planar.data(), planar.size(), size1);
      out.resize(planar.size());
      format::interleave(planar.data(), count, channels, size1, out.data());
      return true;
    }
    case format::Encoding::Tiled: {
      if (!allowTiles || size < 6) {
        error = allowTiles ? "a tiled block too short for its header" : "tiles inside a tile";
        return false;
      }
      const Res tile(static_cast<int8_t>(at[0]), static_cast<int8_t>(at[1]));
      const uint32_t headerSize = format::get32(at + 2);
      if (tile.ulog2 < 0 || tile.vlog2 < 0 || tile.ulog2 > res.ulog2 || tile.vlog2 > res.vlog2 ||
          !fits(6, headerSize, size)) {
        error = "a tiled block with an unusable tile size or header";
        return false;
      }
      const int tilesU = 1 << (res.ulog2 - tile.ulog2), tilesV = 1 << (res.vlog2 - tile.vlog2);
      std::vector<uint8_t> headers, texels;
      if (!format::unzip(at + 6, headerSize, static_cast<size_t>(tilesU) * tilesV * 4, headers, error)) return false;
      out.resize(static_cast<size_t>(count) * pixelBytes);
      uint64_t tilePos = 6 + static_cast<uint64_t>(headerSize);
      const size_t rowBytes = static_cast<size_t>(tile.u()) * pixelBytes;
      for (int t = 0; t < tilesU * tilesV; ++t) {
        const uint32_t word = format::get32(headers.data() + 4 * t);
        const uint64_t tileSize = word & 0x3fffffffu;
        if (!fits(tilePos, tileSize, size)) {
          error = "tile " + std::to_string(t) + " runs past its face block";
          return false;
        }
        if (!decodeBlock(pos + tilePos, tileSize, word >> 30, tile, false, texels, error)) return false;
        tilePos += tileSize;
        const int tu = t % tilesU, tv = t / tilesU;
        for (int row = 0; row < tile.v(); ++row) {
          const size_t dst = ((static_cast<size_t>(tv) * tile.v() + row) * res.u() + static_cast<size_t>(tu) * tile.u()) *
                             pixelBytes;
          std::memcpy(out.data() + dst, texels.data() + row * rowBytes, rowBytes);
        }
      }
      return true;
    }
  }
  return false;
}

const std::vector<uint8_t>* VrPtexTexture::faceData(int faceId) const {
  const size_t f = static_cast<size_t>(faceId);
  if (damaged[f]) return nullptr;
  std::vector<uint8_t>& data = inflated[f];
  if (data.empty()) {
    std::string error;
    const Block& b = blocks[f];
    if (!decodeBlock(b.pos, b.size, b.encoding, faces[f].res, true, data, error)) {
      damaged[f] = true;
      data.clear();
      VR_ERROR(fileName + ": face " + std::to_string(faceId) + ": " + error);
      return nullptr;
    }
    inflatedBytes += data.size();
  }
  return &data;
}

bool VrPtexTexture::getData(int faceId, Res res, std::vector<uint8_t>& out) const {
  if (faceId < 0 || faceId >= numFaces()) return false;
  const FaceInfo& info = faces[static_cast<size_t>(faceId)];
  if (res.ulog2 < 0 || res.vlog2 < 0 || res.ulog2 > info.res.ulog2 || res.vlog2 > info.res.vlog2) return false;
  if (const uint8_t* constant = oneTexel(faceId)) {
    out.resize(static_cast<size_t>(res.size()) * pixelBytes);
    for (int64_t i = 0; i < res.size(); ++i) std::memcpy(out.data() + i * pixelBytes, constant, static_cast<size_t>(pixelBytes));
    return true;
  }
  const std::vector<uint8_t>* full = faceData(faceId);
  if (!full) return false;
  out = *full;
  Res current = info.res;
  std::vector<uint8_t> next;
  while (current != res) {
    const bool halveU = current.ulog2 > res.ulog2, halveV = current.vlog2 > res.vlog2;
    reduceStep(out, current, halveU, halveV, type, channels, next);
    out.swap(next);
    current = Res(current.ulog2 - (halveU ? 1 : 0), current.vlog2 - (halveV ? 1 : 0));
  }
  return true;
}

bool VrPtexTexture::getPixel(int faceId, int u, int v, float* result, int firstChannel, int count) const {
  const FaceInfo& info = getFaceInfo(faceId);
  return getPixel(faceId, u, v, result, firstChannel, count, info.res);
}

bool VrPtexTexture::getPixel(int faceId, int u, int v, float* result, int firstChannel, int count, Res res) const {
  if (faceId < 0 || faceId >= numFaces() || u < 0 || v < 0 || res.ulog2 < 0 || res.vlog2 < 0 || u >= res.u() ||
      v >= res.v() || firstChannel < 0 || count < 0)
    return false;
  const FaceInfo& info = faces[static_cast<size_t>(faceId)];
  if (res.ulog2 > info.res.ulog2 || res.vlog2 > info.res.vlog2) return false;
  const int n = std::min(count, channels - firstChannel);
  if (n <= 0) return true;
  const int size1 = dataSize(type);
  const uint8_t* texel;
  std::vector<uint8_t> reduced;
  if (const uint8_t* one = oneTexel(faceId)) {
    texel = one;
  } else if (res == info.res) {
    const std::vector<uint8_t>* data = faceData(faceId);
    if (!data) return false;
    texel = data->data() + (static_cast<size_t>(v) * res.u() + u) * pixelBytes;
  } else {
    if (!getData(faceId, res, reduced)) return false;
    texel = reduced.data() + (static_cast<size_t>(v) * res.u() + u) * pixelBytes;
  }
  toFloat(texel + firstChannel * size1, type, n, result);
  return true;
}

void VrPtexTexture::purgeData() const {
  for (std::vector<uint8_t>& data : inflated) std::vector<uint8_t>().swap(data);
  inflatedBytes = 0;
}
