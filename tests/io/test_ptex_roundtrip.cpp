// The Ptex writer against the reader: every data type, channel count, mesh type, constant face
// and meta data type reads back as written; damaged files (truncated or with changed bytes)
// are refused or read without a crash; edits appended to a file replace faces and meta data; the
// texture cache keeps its budget.

#include "io/PtexTestSupport.h"
#include "io/ptex/VrPtexFormat.h"
#include "io/ptex/VrPtexTexture.h"
#include "io/ptex/VrPtexTextureCache.h"
#include "io/ptex/VrPtexWriter.h"
#include "support/CaptureLogger.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

using namespace vrptex;

namespace {

std::vector<uint8_t> readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                               static_cast<std::streamsize>(bytes.size()));
}

// Stored texels of a face, made from (face, texel, byte) so that every byte differs.
std::vector<uint8_t> pattern(int face, Res res, int pixelBytes, DataType type) {
  std::vector<uint8_t> bytes(static_cast<size_t>(res.size()) * pixelBytes);
  std::mt19937 random(static_cast<unsigned>(face * 7919 + res.ulog2 * 31 + res.vlog2));
  if (type == DataType::Half || type == DataType::Float) {
    // Finite values only, so that texel comparisons are meaningful.
    std::vector<float> values(bytes.size() / dataSize(type));
    for (float& v : values) v = static_cast<float>(random() % 20001) / 10000.0f - 0.5f;
    fromFloat(values.data(), type, static_cast<int>(values.size()), bytes.data());
  } else {
    for (uint8_t& b : bytes) b = static_cast<uint8_t>(random());
  }
  return bytes;
}

FaceInfo face(int ulog2, int vlog2, std::initializer_list<int32_t> adjacent = {-1, -1, -1, -1}) {
  FaceInfo info;
  info.res = Res(ulog2, vlog2);
  int e = 0;
  for (int32_t f : adjacent) {
    info.adjFaces[e] = f;
    if (f >= 0) info.setAdjEdge(e, (e + 2) % 4);
    ++e;
  }
  return info;
}

// Writes a texture of four faces (two varying, one constant, one never given) with meta data
// of every type, and returns what it wrote.
struct Written {
  std::vector<FaceInfo> faces;
  std::vector<std::vector<uint8_t>> texels;  // full face data, stored form
};

Written writeSample(const std::string& path, DataType type, int channels, MeshType mesh) {
  VrPtexWriter::Options options;
  options.dataType = type;
  options.numChannels = channels;
  options.alphaChannel = channels == 4 ? 3 : -1;
  options.meshType = mesh;
  options.numFaces = 4;
  options.uBorderMode = BorderMode::Periodic;
  options.vBorderMode = BorderMode::Black;
  VrPtexWriter writer(path, options);
  const int pixel = channels * dataSize(type);
  Written w;
  const bool tri = mesh == MeshType::Triangle;
  w.faces = {face(3, 3, {1, -1, -1, 2}), face(tri ? 2 : 1, 2, {-1, 0, 3, -1}), face(2, 2, {0, 3, -1, -1}), face(0, 0)};
  for (int f = 0; f < 2; ++f) {
    w.texels.push_back(pattern(f, w.faces[f].res, pixel, type));
    EXPECT_TRUE(writer.writeFace(f, w.faces[f], w.texels.back().data()));
  }
  std::vector<uint8_t> constant = pattern(9, Res(0, 0), pixel, type);
  EXPECT_TRUE(writer.writeConstantFace(2, w.faces[2], constant.data()));
  w.texels.push_back({});
  for (int i = 0; i < 16; ++i) w.texels.back().insert(w.texels.back().end(), constant.begin(), constant.end());
  w.texels.push_back(std::vector<uint8_t>(static_cast<size_t>(pixel), 0));
  writer.metaData().setString("name", "painted \"length\"\n");
  writer.metaData().setInt8("i8", {-128, 0, 127});
  writer.metaData().setInt16("i16", {-32768, 7});
  writer.metaData().setInt32("i32", {-5, 2147483647});
  writer.metaData().setFloat("f", {0.5f, -1.25f});
  writer.metaData().setDouble("VrDCMax", std::vector<double>(200, 0.75));  // large: 1600 bytes
  EXPECT_TRUE(writer.close());
  return w;
}

}  // namespace

TEST(PtexRoundTrip, WrittenTexturesReadBackTexelForTexel) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  struct Case {
    DataType type;
    int channels;
    MeshType mesh;
  };
  const Case cases[] = {{DataType::UInt8, 1, MeshType::Quad},   {DataType::UInt16, 2, MeshType::Quad},
                        {DataType::Half, 3, MeshType::Triangle}, {DataType::Float, 4, MeshType::Quad},
                        {DataType::UInt8, 3, MeshType::Triangle}, {DataType::Float, 1, MeshType::Triangle}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(dataTypeName(c.type)) + " x" + std::to_string(c.channels) + " " + meshTypeName(c.mesh));
    const std::string path = dir.file("sample.ptx");
    const Written w = writeSample(path, c.type, c.channels, c.mesh);
    std::string error;
    const std::shared_ptr<VrPtexTexture> t = VrPtexTexture::open(path, error);
    ASSERT_TRUE(t) << error;
    EXPECT_EQ(t->dataType(), c.type);
    EXPECT_EQ(t->meshType(), c.mesh);
    EXPECT_EQ(t->numChannels(), c.channels);
    EXPECT_EQ(t->alphaChannel(), c.channels == 4 ? 3 : -1);
    EXPECT_EQ(t->uBorderMode(), BorderMode::Periodic);
    EXPECT_EQ(t->vBorderMode(), BorderMode::Black);
    ASSERT_EQ(t->numFaces(), 4);
    for (int f = 0; f < 4; ++f) {
      const FaceInfo& info = t->getFaceInfo(f);
      EXPECT_EQ(info.res, w.faces[f].res) << f;
      EXPECT_EQ(info.isConstant(), f >= 2) << f;
      for (int e = 0; e < 4; ++e) {
        EXPECT_EQ(info.adjFaces[e], w.faces[f].adjFaces[e]) << f;
        EXPECT_EQ(info.adjEdge(e), w.faces[f].adjEdge(e)) << f;
      }
      std::vector<uint8_t> data;
      ASSERT_TRUE(t->getData(f, info.res, data));
      EXPECT_TRUE(data == w.texels[f]) << "face " << f;
    }
    // getPixel converts the stored texel; a channel range past the last leaves the rest alone.
    float got[5] = {9, 9, 9, 9, 9}, expected[4];
    ASSERT_TRUE(t->getPixel(0, 5, 6, got, 1, 4));
    toFloat(w.texels[0].data() + (6 * 8 + 5) * t->pixelSize(), c.type, c.channels, expected);
    for (int k = 0; k + 1 < c.channels; ++k) EXPECT_EQ(got[k], expected[k + 1]);
    EXPECT_EQ(got[c.channels - 1], 9.0f);
    EXPECT_FALSE(t->getPixel(0, 8, 0, got, 0, 1));
    EXPECT_FALSE(t->getPixel(0, 0, -1, got, 0, 1));
    EXPECT_FALSE(t->getPixel(4, 0, 0, got, 0, 1));

    // Meta data of every type, the large entry included.
    const VrPtexMetaData& meta = t->metaData();
    ASSERT_EQ(meta.numKeys(), 6);
    std::string text;
    std::vector<double> numbers;
    EXPECT_TRUE(meta.getString("name", text));
    EXPECT_EQ(text, "painted \"length\"\n");
    const std::pair<const char*, std::vector<double>> entries[] = {{"i8", {-128, 0, 127}},
                                                                   {"i16", {-32768, 7}},
                                                                   {"i32", {-5, 2147483647}},
                                                                   {"f", {0.5, -1.25}},
                                                                   {"VrDCMax", std::vector<double>(200, 0.75)}};
    for (const auto& [key, values] : entries) {
      EXPECT_TRUE(meta.getNumbers(key, numbers)) << key;
      EXPECT_EQ(numbers, values) << key;
    }
    EXPECT_FALSE(meta.getNumbers("name", numbers));
  }
  EXPECT_TRUE(log.errors().empty());
}

TEST(PtexRoundTrip, DumpOfAWrittenTextureShowsItsMetaDataAndReducedTexels) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  VrPtexWriter::Options options;
  options.numFaces = 2;
  VrPtexWriter writer(dir.file("small.ptx"), options);
  const uint8_t texels[8] = {0, 255, 51, 102, 10, 20, 30, 41};  // 4 by 2
  ASSERT_TRUE(writer.writeFace(0, face(2, 1), texels));
  const uint8_t half = 128;
  ASSERT_TRUE(writer.writeConstantFace(1, face(1, 1), &half));
  // Bad calls are Errors and change nothing.
  EXPECT_FALSE(writer.writeFace(0, face(2, 1), texels, 3));  // a row step shorter than a row
  EXPECT_FALSE(writer.writeFace(2, face(0, 0), texels));     // no face 2
  EXPECT_FALSE(writer.writeFace(0, face(-1, 0), texels));
  EXPECT_EQ(log.errors().size(), 3u);
  log.clear();
  writer.metaData().setInt16("k", {1, -2});
  writer.metaData().setString("s", "a\tb");
  ASSERT_TRUE(writer.close());
  const std::string dump = vrtest::ptexDump(dir.file("small.ptx"));
  EXPECT_NE(dump.find("num_meta_keys: 2\nmeta[0]: key=\"k\" type=int16 count=2 values=1,-2\n"
                      "meta[1]: key=\"s\" type=string value=\"a\\tb\"\n"),
            std::string::npos)
      << dump;
  // Face 0 reduced to 2 by 1: means of (0, 255, 10, 20) and (51, 102, 30, 41), truncated.
  EXPECT_NE(dump.find("reduced_res_log2: 1 0\nreduced_texel_0_0: 0.278431\n"), std::string::npos) << dump;
  EXPECT_NE(dump.find("total_texels: 12\n"), std::string::npos);
}

TEST(PtexRoundTrip, EditsReplaceAFaceAndMetaData) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string path = dir.file("edited.ptx");
  writeSample(path, DataType::UInt8, 1, MeshType::Quad);
  std::vector<uint8_t> bytes = readBytes(path);
  const uint64_t editPos = bytes.size();
  std::vector<uint8_t> edits, body;
  // Face 1 becomes a constant 4 by 4 face of value 200.
  format::put32(body, 1);
  FaceInfo info = face(2, 2, {-1, 0, 3, -1});
  info.flags = FaceInfo::Constant;
  format::writeFaceInfo(info, body);
  body.push_back(200);
  format::put32(body, 1u);  // constant encoding, one byte
  body.push_back(200);
  edits.push_back(0);
  format::put32(edits, static_cast<uint32_t>(body.size()));
  edits.insert(edits.end(), body.begin(), body.end());
  // "name" gets a new value.
  VrPtexMetaData changed;
  changed.setString("name", "edited");
  std::vector<uint8_t> block, zipped;
  format::writeMetaData({&changed.entry(0)}, block);
  ASSERT_TRUE(format::zip(block.data(), block.size(), zipped));
  edits.push_back(1);
  format::put32(edits, static_cast<uint32_t>(8 + zipped.size()));
  format::put32(edits, static_cast<uint32_t>(zipped.size()));
  format::put32(edits, static_cast<uint32_t>(block.size()));
  edits.insert(edits.end(), zipped.begin(), zipped.end());
  bytes.insert(bytes.end(), edits.begin(), edits.end());
  for (int i = 0; i < 8; ++i) {
    bytes[format::HeaderSize + 24 + i] = static_cast<uint8_t>(static_cast<uint64_t>(edits.size()) >> (8 * i));
    bytes[format::HeaderSize + 32 + i] = static_cast<uint8_t>(editPos >> (8 * i));
  }
  writeBytes(path, bytes);

  std::string error;
  const std::shared_ptr<VrPtexTexture> t = VrPtexTexture::open(path, error);
  ASSERT_TRUE(t) << error;
  EXPECT_TRUE(t->hasEdits());
  EXPECT_TRUE(t->getFaceInfo(1).hasEdits());
  EXPECT_TRUE(t->getFaceInfo(1).isConstant());
  EXPECT_FALSE(t->getFaceInfo(0).hasEdits());
  float value = 0;
  ASSERT_TRUE(t->getPixel(1, 3, 3, &value, 0, 1));
  const uint8_t stored = 200;
  float expected = 0;
  toFloat(&stored, DataType::UInt8, 1, &expected);
  EXPECT_EQ(value, expected);
  std::string text;
  EXPECT_TRUE(t->metaData().getString("name", text));
  EXPECT_EQ(text, "edited");
  EXPECT_EQ(t->metaData().numKeys(), 6);
  EXPECT_TRUE(log.errors().empty());
}

TEST(PtexRoundTrip, DamagedFilesAreRefusedOrReadWithoutACrash) {
  vrtest::TempDir dir;
  std::vector<std::string> files = vrtest::ptexFiles();
  files.resize(4);
  for (DataType type : {DataType::UInt16, DataType::Half}) {
    files.push_back(dir.file(std::string("written-") + dataTypeName(type) + ".ptx"));
    vrtest::CaptureLogger quiet;
    writeSample(files.back(), type, 2, MeshType::Quad);
  }
  std::mt19937 random(20261125);
  int refused = 0, opened = 0;
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    const std::vector<uint8_t> original = readBytes(file);
    const std::string damagedPath = dir.file("damaged.ptx");
    for (int round = 0; round < 160; ++round) {
      std::vector<uint8_t> bytes = original;
      if (round < 40) {
        bytes.resize(bytes.size() * static_cast<size_t>(round) / 40);  // truncated
      } else {
        const int changes = 1 + round % 4;
        for (int k = 0; k < changes; ++k) {
          // Mostly the header and records, where sizes live; sometimes anywhere.
          const size_t span = round % 3 ? std::min<size_t>(bytes.size(), 160) : bytes.size();
          bytes[random() % span] = static_cast<uint8_t>(random());
        }
      }
      writeBytes(damagedPath, bytes);
      vrtest::CaptureLogger log;
      std::string error;
      const std::shared_ptr<VrPtexTexture> t = VrPtexTexture::open(damagedPath, error);
      if (!t) {
        ++refused;
        EXPECT_EQ(error.rfind("damaged.ptx: ", 0), 0u) << error;
        continue;
      }
      ++opened;
      float texel[64];
      for (int f = 0; f < t->numFaces(); ++f) {
        const FaceInfo& info = t->getFaceInfo(f);
        std::vector<uint8_t> data;
        const bool read = t->getData(f, info.res, data);
        if (read) {
          EXPECT_EQ(data.size(), static_cast<size_t>(info.res.size()) * t->pixelSize());
        } else {
          ASSERT_FALSE(log.errors().empty());
          EXPECT_EQ(log.errors().back().rfind("damaged.ptx: face " + std::to_string(f) + ": ", 0), 0u);
        }
        t->getPixel(f, info.res.u() - 1, info.res.v() - 1, texel, 0, 64);
        if (info.res.ulog2 > 0 && info.res.vlog2 > 0) t->getPixel(f, 0, 0, texel, 0, 64, Res(0, 0));
      }
    }
  }
  EXPECT_GT(refused, 100);
  EXPECT_GT(opened, 20);
}

TEST(PtexRoundTrip, TheTextureCacheKeepsItsFileCountAndMemoryBudget) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  std::vector<std::string> paths;
  for (int i = 0; i < 3; ++i) {
    paths.push_back(dir.file("t" + std::to_string(i) + ".ptx"));
    writeSample(paths.back(), DataType::Float, 4, MeshType::Quad);
  }
  std::string error;
  bool firstFailure = false;
  // Two files at most: the least recently used one is closed, a held texture stays usable.
  VrPtexTextureCache cache(2, 1 << 20);
  std::shared_ptr<VrPtexTexture> held = cache.get(paths[0], error, firstFailure);
  ASSERT_TRUE(held);
  ASSERT_TRUE(cache.get(paths[1], error, firstFailure));
  ASSERT_TRUE(cache.get(paths[0], error, firstFailure));
  ASSERT_TRUE(cache.get(paths[2], error, firstFailure));
  EXPECT_EQ(cache.numFiles(), 2);
  EXPECT_EQ(cache.get(paths[0], error, firstFailure), held);  // paths[1] was the one closed
  float texel[4];
  EXPECT_TRUE(held->getPixel(0, 1, 1, texel, 0, 4));
  // A budget below one inflated face: faces are dropped again and read back alike.
  VrPtexTextureCache tight(10, 1);
  std::shared_ptr<VrPtexTexture> t = tight.get(paths[2], error, firstFailure);
  ASSERT_TRUE(t);
  float again[4];
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(t->getPixel(0, 7, 7, round ? again : texel, 0, 4));
    tight.get(paths[round], error, firstFailure);  // opening a file checks the budget
    EXPECT_LE(t->memoryUsed(), std::filesystem::file_size(paths[2]) + 8 * 8 * 16u);
  }
  EXPECT_EQ(std::vector<float>(texel, texel + 4), std::vector<float>(again, again + 4));
  EXPECT_EQ(t->memoryUsed(), std::filesystem::file_size(paths[2]));  // purged when the budget was exceeded
  // A failure is reported as the first one once, then remembered.
  EXPECT_FALSE(cache.get(dir.file("missing.ptx"), error, firstFailure));
  EXPECT_TRUE(firstFailure);
  EXPECT_EQ(error, "missing.ptx: cannot open the file");
  EXPECT_FALSE(cache.get(dir.file("missing.ptx"), error, firstFailure));
  EXPECT_FALSE(firstFailure);
  EXPECT_EQ(error, "missing.ptx: cannot open the file");
}
