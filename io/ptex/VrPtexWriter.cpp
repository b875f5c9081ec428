// Writing per-face texture files (layout in VrPtexFormat.h). Integer texels are stored as
// differences of their channel planes, floating point ones as plain planes, both deflated.

#include "io/ptex/VrPtexWriter.h"

#include "base/VrAtomicFile.h"
#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "io/ptex/VrPtexFormat.h"

#include <cstring>

using namespace vrptex;

namespace {

std::string bareName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool resUsable(const Res& res, int pixelBytes) {
  return res.ulog2 >= 0 && res.vlog2 >= 0 && res.ulog2 <= 30 && res.vlog2 <= 30 &&
         static_cast<uint64_t>(res.size()) * static_cast<uint64_t>(pixelBytes) < (static_cast<uint64_t>(1) << 30);
}

}  // namespace

VrPtexWriter::VrPtexWriter(const std::string& path, const Options& opts) : target(path), options(opts) {
  usable = opts.numChannels >= 1 && opts.numChannels <= 64 && opts.alphaChannel >= -1 &&
           opts.alphaChannel < opts.numChannels && opts.numFaces >= 0;
  pixelBytes = usable ? opts.numChannels * dataSize(opts.dataType) : 0;
  if (!usable) return;
  faces.resize(static_cast<size_t>(opts.numFaces));
  for (FaceInfo& f : faces) f.flags = FaceInfo::Constant;
  texels.resize(faces.size());
  constants.assign(faces.size() * static_cast<size_t>(pixelBytes), 0);
}

bool VrPtexWriter::fail(const std::string& text) {
  VR_ERROR(bareName(target) + ": " + text);
  return false;
}

bool VrPtexWriter::writeFace(int faceId, const FaceInfo& info, const void* data, int stride) {
  if (!usable) return fail("the texture's options are unusable");
  if (faceId < 0 || faceId >= options.numFaces || !resUsable(info.res, pixelBytes) || !data)
    return fail("face " + std::to_string(faceId) + " is out of range or has an unusable resolution");
  const size_t rowBytes = static_cast<size_t>(info.res.u()) * pixelBytes;
  if (stride == 0) stride = static_cast<int>(rowBytes);
  if (stride < 0 || static_cast<size_t>(stride) < rowBytes)
    return fail("face " + std::to_string(faceId) + ": a row step of " + std::to_string(stride) + " bytes is shorter than a row");
  std::vector<uint8_t> packed(rowBytes * static_cast<size_t>(info.res.v()));
  for (int v = 0; v < info.res.v(); ++v)
    std::memcpy(packed.data() + v * rowBytes, static_cast<const uint8_t*>(data) + static_cast<size_t>(v) * stride, rowBytes);
  bool same = true;
  for (size_t at = pixelBytes; same && at < packed.size(); at += pixelBytes)
    same = std::memcmp(packed.data(), packed.data() + at, static_cast<size_t>(pixelBytes)) == 0;
  if (same) return writeConstantFace(faceId, info, packed.data());

  // The constant value of a varying face is its mean texel.
  const int64_t count = info.res.size();
  std::vector<double> mean(static_cast<size_t>(options.numChannels), 0.0);
  std::vector<float> texel(static_cast<size_t>(options.numChannels));
  for (int64_t i = 0; i < count; ++i) {
    toFloat(packed.data() + i * pixelBytes, options.dataType, options.numChannels, texel.data());
    for (int c = 0; c < options.numChannels; ++c) mean[static_cast<size_t>(c)] += texel[static_cast<size_t>(c)];
  }
  for (int c = 0; c < options.numChannels; ++c)
    texel[static_cast<size_t>(c)] = static_cast<float>(mean[static_cast<size_t>(c)] / static_cast<double>(count));
  fromFloat(texel.data(), options.dataType, options.numChannels, constants.data() + static_cast<size_t>(faceId) * pixelBytes);

  FaceInfo& stored = faces[static_cast<size_t>(faceId)];
  stored = info;
  stored.flags = static_cast<uint8_t>(info.flags & FaceInfo::Subface);
  texels[static_cast<size_t>(faceId)].swap(packed);
  return true;
}

bool VrPtexWriter::writeConstantFace(int faceId, const FaceInfo& info, const void* texel) {
  if (!usable) return fail("the texture's options are unusable");
  if (faceId < 0 || faceId >= options.numFaces || !resUsable(info.res, pixelBytes) || !texel)
    return fail("face " + std::to_string(faceId) + " is out of range or has an unusable resolution");
  FaceInfo& stored = faces[static_cast<size_t>(faceId)];
  stored = info;
  stored.flags = static_cast<uint8_t>((info.flags & FaceInfo::Subface) | FaceInfo::Constant);
  std::memcpy(constants.data() + static_cast<size_t>(faceId) * pixelBytes, texel, static_cast<size_t>(pixelBytes));
  std::vector<uint8_t>().swap(texels[static_cast<size_t>(faceId)]);
  return true;
}

bool VrPtexWriter::close() {
  if (!usable) return fail("the texture's options are unusable");
  const int size1 = dataSize(options.dataType);
  const bool diff = options.dataType == DataType::UInt8 || options.dataType == DataType::UInt16;
  std::vector<uint8_t> faceInfo, faceInfoZip, constZip;
  for (const FaceInfo& f : faces) format::writeFaceInfo(f, faceInfo);
  if (!format::zip(faceInfo.data(), faceInfo.size(), faceInfoZip) ||
      !format::zip(constants.data(), constants.size(), constZip))
    return fail("cannot compress the face records");

  // Level 0: block headers, then the blocks. The varying faces are deflated in parallel, each
  // worker through a stream of its own, and joined in face order; a face that zlib failed on is
  // left empty, as no deflated block is.
  std::vector<std::vector<uint8_t>> zippedFaces(faces.size());
  VrTaskManager::parallelChunks(faces.size(), [&](size_t begin, size_t end) {
    format::Deflater deflater;
    std::vector<uint8_t> planar;
    for (size_t f = begin; f < end; ++f) {
      if (faces[f].isConstant()) continue;
      const std::vector<uint8_t>& data = texels[f];
      planar.resize(data.size());
      format::deinterleave(data.data(), faces[f].res.size(), options.numChannels, size1, planar.data());
      if (diff) format::encodeDifference(planar.data(), planar.size(), size1);
      if (!deflater.zip(planar.data(), planar.size(), zippedFaces[f])) zippedFaces[f].clear();
    }
  });
  std::vector<uint8_t> headers, blocks;
  for (size_t f = 0; f < faces.size(); ++f) {
    uint32_t word;
    if (faces[f].isConstant()) {
      blocks.insert(blocks.end(), constants.begin() + static_cast<long>(f * pixelBytes),
                    constants.begin() + static_cast<long>((f + 1) * pixelBytes));
      word = static_cast<uint32_t>(pixelBytes) | (static_cast<uint32_t>(format::Encoding::Constant) << 30);
    } else {
      const std::vector<uint8_t>& zipped = zippedFaces[f];
      if (zipped.empty() || zipped.size() >= (static_cast<size_t>(1) << 30))
        return fail("cannot compress face " + std::to_string(f));
      blocks.insert(blocks.end(), zipped.begin(), zipped.end());
      const format::Encoding encoding = diff ? format::Encoding::DiffZipped : format::Encoding::Zipped;
      word = static_cast<uint32_t>(zipped.size()) | (static_cast<uint32_t>(encoding) << 30);
      std::vector<uint8_t>().swap(zippedFaces[f]);
    }
    format::put32(headers, word);
  }
  std::vector<uint8_t> headersZip;
  if (!format::zip(headers.data(), headers.size(), headersZip)) return fail("cannot compress the face headers");

  // Meta data: small entries in one block, large ones one by one.
  std::vector<const VrPtexMetaData::Entry*> small;
  std::vector<uint8_t> metaBlock, metaZip, lmdHeader, lmdHeaderZip, lmdData;
  for (int i = 0; i < meta.numKeys(); ++i) {
    const VrPtexMetaData::Entry& e = meta.entry(i);
    const size_t stored = e.bytes.size() + (e.type == MetaDataType::String ? 1 : 0);
    if (stored <= format::LargeMetaDataThreshold) {
      small.push_back(&e);
      continue;
    }
    std::vector<uint8_t> value(e.bytes), valueZip;
    if (e.type == MetaDataType::String) value.push_back(0);
    if (!format::zip(value.data(), value.size(), valueZip)) return fail("cannot compress meta data \"" + e.key + "\"");
    lmdHeader.push_back(static_cast<uint8_t>(e.key.size() + 1));
    lmdHeader.insert(lmdHeader.end(), e.key.begin(), e.key.end());
    lmdHeader.push_back(0);
    lmdHeader.push_back(static_cast<uint8_t>(e.type));
    format::put32(lmdHeader, static_cast<uint32_t>(value.size()));
    format::put32(lmdHeader, static_cast<uint32_t>(valueZip.size()));
    lmdData.insert(lmdData.end(), valueZip.begin(), valueZip.end());
  }
  format::writeMetaData(small, metaBlock);
  if (!metaBlock.empty() && !format::zip(metaBlock.data(), metaBlock.size(), metaZip))
    return fail("cannot compress the meta data");
  if (!lmdHeader.empty() && !format::zip(lmdHeader.data(), lmdHeader.size(), lmdHeaderZip))
    return fail("cannot compress the meta data");

  format::Header h;
  h.meshType = static_cast<uint32_t>(options.meshType);
  h.dataType = static_cast<uint32_t>(options.dataType);
  h.alphaChannel = options.alphaChannel;
  h.numChannels = static_cast<uint16_t>(options.numChannels);
  h.numLevels = 1;
  h.numFaces = static_cast<uint32_t>(faces.size());
  h.faceInfoSize = static_cast<uint32_t>(faceInfoZip.size());
  h.constDataSize = static_cast<uint32_t>(constZip.size());
  h.levelInfoSize = format::LevelInfoSize;
  h.levelDataSize = headersZip.size() + blocks.size();
  h.metaDataZipSize = static_cast<uint32_t>(metaZip.size());
  h.metaDataMemSize = static_cast<uint32_t>(metaBlock.size());
  format::ExtHeader ext;
  ext.uBorderMode = static_cast<uint16_t>(options.uBorderMode);
  ext.vBorderMode = static_cast<uint16_t>(options.vBorderMode);
  ext.edgeFilterMode = static_cast<uint16_t>(options.edgeFilterMode);
  ext.lmdHeaderZipSize = static_cast<uint32_t>(lmdHeaderZip.size());
  ext.lmdHeaderMemSize = static_cast<uint32_t>(lmdHeader.size());
  ext.lmdDataSize = lmdData.size();
  if (faceInfoZip.size() > UINT32_MAX || constZip.size() > UINT32_MAX || metaZip.size() > UINT32_MAX)
    return fail("the texture is too large for the file format");

  std::vector<uint8_t> head;
  format::writeHeader(h, head);
  format::writeExtHeader(ext, head);
  head.insert(head.end(), faceInfoZip.begin(), faceInfoZip.end());
  head.insert(head.end(), constZip.begin(), constZip.end());
  format::put64(head, h.levelDataSize);
  format::put32(head, static_cast<uint32_t>(headersZip.size()));
  format::put32(head, h.numFaces);
  head.insert(head.end(), headersZip.begin(), headersZip.end());

  VrAtomicFile file(target);
  if (!file.ok()) return fail("cannot create the file");
  std::ostream& out = file.out();
  out.write(reinterpret_cast<const char*>(head.data()), static_cast<std::streamsize>(head.size()));
  out.write(reinterpret_cast<const char*>(blocks.data()), static_cast<std::streamsize>(blocks.size()));
  out.write(reinterpret_cast<const char*>(metaZip.data()), static_cast<std::streamsize>(metaZip.size()));
  if (!lmdHeader.empty()) {
    const uint8_t barrier[format::BarrierSize] = {};
    out.write(reinterpret_cast<const char*>(barrier), sizeof barrier);
    out.write(reinterpret_cast<const char*>(lmdHeaderZip.data()), static_cast<std::streamsize>(lmdHeaderZip.size()));
    out.write(reinterpret_cast<const char*>(lmdData.data()), static_cast<std::streamsize>(lmdData.size()));
  }
  if (!out || !file.commit()) return fail("cannot write the file");
  return true;
}
