// Point and primitive files: round trips through VpdWriter and VpdReader, lookups by face,
// block and id, the writer's refusals, and files that are cut short, foreign or damaged.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "io/vpd/VpdFileImpl.h"
#include "io/vpd/VpdReader.h"
#include "io/vpd/VpdWriter.h"
#include "support/Examples.h"
#include "support/TempDir.h"

namespace {

using Records = std::vector<std::pair<std::uint32_t, std::vector<float>>>;

using vrtest::readText;

void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::uint32_t u32At(const std::string& bytes, std::size_t at) {
  return Vpd::detail::getU32(reinterpret_cast<const unsigned char*>(bytes.data() + at));
}
std::uint64_t u64At(const std::string& bytes, std::size_t at) {
  return Vpd::detail::getU64(reinterpret_cast<const unsigned char*>(bytes.data() + at));
}
void putU32At(std::string& bytes, std::size_t at, std::uint32_t v) {
  Vpd::detail::putU32(reinterpret_cast<unsigned char*>(&bytes[at]), v);
}

// Recomputes the checksum, for files edited on purpose, over the header and index where they
// stood before the edit.
void reseal(std::string& bytes, std::size_t headerSize, std::size_t indexOffset) {
  putU32At(bytes, Vpd::detail::ChecksumOffset, 0);
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  std::uint32_t crc = Vpd::detail::crc32(0, p, headerSize);
  crc = Vpd::detail::crc32(crc, p + indexOffset, bytes.size() - indexOffset);
  putU32At(bytes, Vpd::detail::ChecksumOffset, crc);
}

// Locations of one face as the point renderer writes them: u, v and the surface point.
Records locations(int face, int count) {
  Records out;
  for (int i = 0; i < count; ++i) {
    const float u = static_cast<float>((i * 37 + face) % 101) / 101.0f;
    const float v = static_cast<float>((i * 53 + 3 * face) % 97) / 97.0f;
    out.push_back({static_cast<std::uint32_t>(i + 1), {u, v, u * 2.0f, float(face), v - 1.0f}});
  }
  return out;
}

Records readBlock(VpdReader& reader, int face, int block) {
  Records out;
  EXPECT_TRUE(reader.findFace(face)) << reader.error();
  EXPECT_TRUE(reader.findBlock(block)) << reader.error();
  std::uint32_t id;
  std::vector<float> values;
  while (reader.readPrim(id, values)) out.push_back({id, values});
  EXPECT_EQ(reader.error(), "");
  return out;
}

std::unique_ptr<VpdWriter> openLocations(const std::string& path, const std::vector<int>& faces,
                                         std::string* why) {
  return VpdWriter::open(path, faces, Vpd::PointPrimitive, 1, Vpd::WorldSpace, {Vpd::LocationBlock},
                         0.0f, 1, {}, why);
}

// A point file: faces 3 and 1, in that order, with `count` records each, face 7 named but empty.
std::string writePointFile(const vrtest::TempDir& dir, int count = 5) {
  const std::string path = dir.file("pPlaneShape1.vuv");
  std::string why;
  auto writer = openLocations(path, {3, 1, 7}, &why);
  EXPECT_TRUE(writer) << why;
  for (int face : {3, 1}) {
    EXPECT_TRUE(writer->startFace(face));
    EXPECT_TRUE(writer->startBlock(Vpd::LocationBlock));
    for (const auto& [id, values] : locations(face, count))
      EXPECT_TRUE(writer->writePrim(id, values));
  }
  EXPECT_TRUE(writer->close()) << writer->error();
  return path;
}

bool onlyEntryIs(const std::string& dir, const std::string& name) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir))
    names.push_back(entry.path().filename().string());
  return names == std::vector<std::string>{name};
}

// Why the file cannot be opened; "opened" when it can.
std::string openError(const std::string& path) {
  std::string why;
  return VpdReader::open(path, &why) ? "opened" : why;
}

// What a refused call of a writer or reader says; "accepted" when it was not refused.
template <class File>
std::string refusal(bool accepted, const File& file) {
  return accepted ? "accepted" : file.error();
}

}  // namespace

TEST(VpdFile, LocationFileRoundTrip) {
  vrtest::TempDir dir;
  const std::string path = writePointFile(dir, 200);
  EXPECT_TRUE(onlyEntryIs(dir.path(), "pPlaneShape1.vuv"));
  std::string why;
  auto reader = VpdReader::open(path, &why);
  ASSERT_TRUE(reader) << why;
  EXPECT_EQ(reader->primType(), Vpd::PointPrimitive);
  EXPECT_EQ(reader->cvCount(), 1);
  EXPECT_EQ(reader->coordSpace(), Vpd::WorldSpace);
  EXPECT_EQ(reader->time(), 0.0f);
  EXPECT_EQ(reader->attrVersion(), 1u);
  EXPECT_EQ(reader->formatMinor(), Vpd::FormatMinor);
  EXPECT_EQ(reader->faceIds(), (std::vector<int>{3, 1, 7}));
  EXPECT_EQ(reader->blockNames(), std::vector<std::string>{"Location"});
  EXPECT_TRUE(reader->keyNames().empty());
  EXPECT_EQ(reader->facesInFile(), (std::vector<int>{1, 3}));

  const int block = reader->blockIndex("Location");
  ASSERT_EQ(block, 0);
  EXPECT_EQ(reader->blockIndex("BakedGroom"), -1);
  for (int face : {1, 3}) {
    EXPECT_EQ(reader->numPrims(face, block), 200u);
    EXPECT_EQ(readBlock(*reader, face, block), locations(face, 200)) << "face " << face;
    EXPECT_EQ(reader->numPrims(), 200u);
  }
  EXPECT_EQ(refusal(reader->findFace(7), *reader), "Face 7 not in Vorn point/primitive file: " + path);
  EXPECT_FALSE(reader->findFace(2));
  EXPECT_TRUE(reader->close());
  EXPECT_FALSE(reader->isOpen());
  EXPECT_EQ(reader->faceIds().size(), 3u);  // the header outlives the descriptor
}

TEST(VpdFile, SplineFileWithKeysRoundTrip) {
  vrtest::TempDir dir;
  const std::string path = dir.file("body.vpd");
  const std::vector<std::string> keyNames = {"width", "opacity", "ns:pPlaneShape1"};
  std::string why;
  auto writer = VpdWriter::open(path, {10, 11, 12}, Vpd::SplinePrimitive, 4, Vpd::SurfaceSpace,
                                {"BakedGroom", "NoiseFX"}, 12.5f, 3, keyNames, &why);
  ASSERT_TRUE(writer) << why;
  EXPECT_EQ(writer->keyId("width"), 0);
  EXPECT_EQ(writer->keyId("ns:pPlaneShape1"), 2);
  EXPECT_EQ(writer->keyId("missing"), -1);

  // u, v, four CVs, then (key id, value) pairs for the attributes.
  auto spline = [&](int face, std::uint32_t id) {
    std::vector<float> r = {0.25f * float(id % 4), 0.5f};
    for (int cv = 0; cv < 4; ++cv)
      for (int axis = 0; axis < 3; ++axis) r.push_back(float(face) + 0.1f * float(cv * 3 + axis));
    r.push_back(float(writer->keyToId().at("width")));
    r.push_back(0.01f * float(id));
    r.push_back(float(writer->keyToId().at("opacity")));
    r.push_back(1.0f);
    return r;
  };
  std::map<std::pair<int, int>, Records> expected;
  for (int face : {12, 10}) {
    ASSERT_TRUE(writer->startFace(face));
    // The second block first: blocks may come in any order.
    ASSERT_TRUE(writer->startBlock("NoiseFX"));
    for (std::uint32_t id = 1; id <= 3; ++id) {
      const std::vector<float> d = {4.0f, 0.1f * float(id), -0.2f, 0.3f};
      ASSERT_TRUE(writer->writePrim(id, d));
      expected[{face, 1}].push_back({id, d});
    }
    ASSERT_TRUE(writer->startBlock("BakedGroom"));
    for (std::uint32_t id = 1; id <= 40; ++id) {
      ASSERT_TRUE(writer->writePrim(id * 2, spline(face, id)));
      expected[{face, 0}].push_back({id * 2, spline(face, id)});
    }
  }
  ASSERT_TRUE(writer->startFace(11));
  ASSERT_TRUE(writer->startBlock("BakedGroom"));  // started, left empty
  ASSERT_TRUE(writer->close()) << writer->error();

  auto reader = VpdReader::open(path, &why);
  ASSERT_TRUE(reader) << why;
  EXPECT_EQ(reader->primType(), Vpd::SplinePrimitive);
  EXPECT_EQ(reader->cvCount(), 4);
  EXPECT_EQ(reader->coordSpace(), Vpd::SurfaceSpace);
  EXPECT_EQ(reader->time(), 12.5f);
  EXPECT_EQ(reader->attrVersion(), 3u);
  EXPECT_EQ(reader->keyNames(), keyNames);
  EXPECT_EQ(reader->keyToId(), writer->keyToId());
  EXPECT_EQ(reader->facesInFile(), (std::vector<int>{10, 11, 12}));
  for (const auto& [where, records] : expected)
    EXPECT_EQ(readBlock(*reader, where.first, where.second), records)
        << "face " << where.first << " block " << where.second;

  // Face 11: the empty block is there, the other one was never written.
  EXPECT_TRUE(reader->findFace(11));
  EXPECT_TRUE(reader->findBlock(0));
  EXPECT_EQ(reader->numPrims(), 0u);
  EXPECT_EQ(refusal(reader->findBlock(1), *reader),
            "Block NoiseFX not written on face 11 in Vorn point/primitive file: " + path);
  EXPECT_EQ(refusal(reader->findBlock(2), *reader), "No block 2 in Vorn point/primitive file: " + path);
  std::uint32_t id;
  std::vector<float> values;
  EXPECT_EQ(refusal(reader->readPrim(id, values), *reader),
            "No face and block selected in Vorn point/primitive file: " + path);
}

TEST(VpdFile, FloatsKeepTheirBits) {
  vrtest::TempDir dir;
  const std::string path = dir.file("bits.vpd");
  const std::vector<float> odd = {-0.0f,
                                  std::numeric_limits<float>::infinity(),
                                  -std::numeric_limits<float>::infinity(),
                                  std::numeric_limits<float>::denorm_min(),
                                  std::numeric_limits<float>::quiet_NaN(),
                                  16777217.0f,
                                  1e-38f};
  auto writer = VpdWriter::open(path, {0}, Vpd::CardPrimitive, 2, Vpd::ObjectSpace, {"BakedGroom"},
                                -1.5f, 0xFFFFFFFFu);
  ASSERT_TRUE(writer);
  ASSERT_TRUE(writer->startFace(0));
  ASSERT_TRUE(writer->startBlock(0));
  ASSERT_TRUE(writer->writePrim(0xFFFFFFFFu, odd));
  ASSERT_TRUE(writer->writePrim(0, nullptr, 0));  // a record without values
  ASSERT_TRUE(writer->close());

  auto reader = VpdReader::open(path);
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->time(), -1.5f);
  EXPECT_EQ(reader->attrVersion(), 0xFFFFFFFFu);
  EXPECT_EQ(reader->primType(), Vpd::CardPrimitive);
  const Records got = readBlock(*reader, 0, 0);
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0].first, 0xFFFFFFFFu);
  ASSERT_EQ(got[0].second.size(), odd.size());
  EXPECT_EQ(std::memcmp(got[0].second.data(), odd.data(), odd.size() * sizeof(float)), 0);
  EXPECT_TRUE(got[1].second.empty());
}

TEST(VpdFile, LittleEndianLayout) {
  vrtest::TempDir dir;
  const std::string bytes = readText(writePointFile(dir));
  EXPECT_EQ(bytes.substr(0, 8), std::string("\x89VPD\r\n\x1a\n", 8));
  EXPECT_EQ(bytes[8], 1);  // major version, low byte first
  EXPECT_EQ(bytes[9], 0);
  EXPECT_EQ(u64At(bytes, 16), bytes.size());
  EXPECT_EQ(u32At(bytes, 32), 3u);  // faces named in the header
  EXPECT_EQ(u32At(bytes, 64), 3u);  // the first of them
  // The first record follows the header: id 1 and five values.
  const std::size_t headerSize = u32At(bytes, 12);
  EXPECT_EQ(headerSize % 4, 0u);
  // Face 3 was written first, so its records lead.
  EXPECT_EQ(u32At(bytes, headerSize), 1u);
  EXPECT_EQ(u32At(bytes, headerSize + 4), 5u);
}

TEST(VpdFile, WriterRefusesMisuseWithItsReasons) {
  vrtest::TempDir dir;
  const std::string path = dir.file("misuse.vuv");
  auto writer = openLocations(path, {0, 1}, nullptr);
  ASSERT_TRUE(writer);
  const float uv[2] = {0.5f, 0.5f};
  const std::string file = " Vorn point/primitive file: " + path;
  EXPECT_EQ(refusal(writer->startBlock(0), *writer), "No face started in" + file);
  EXPECT_EQ(refusal(writer->writePrim(1, uv, 2), *writer), "No block started in" + file);
  EXPECT_EQ(refusal(writer->startFace(5), *writer), "Face 5 is not a face of" + file);
  ASSERT_TRUE(writer->startFace(0));
  EXPECT_EQ(refusal(writer->startBlock(1), *writer), "No block 1 in" + file);
  EXPECT_EQ(refusal(writer->startBlock("BakedGroom"), *writer), "No block BakedGroom in" + file);
  ASSERT_TRUE(writer->startBlock(0));
  EXPECT_TRUE(writer->writePrim(1, uv, 2));
  EXPECT_EQ(refusal(writer->writePrim(2, uv, std::size_t(Vpd::MaxRecordValues) + 1), *writer),
            "Record of 16777217 values is too long for" + file);
  EXPECT_EQ(refusal(writer->startBlock(0), *writer), "Block Location written twice on face 0 in" + file);
  EXPECT_FALSE(writer->writePrim(3, uv, 2));  // the refused start left no block current
  EXPECT_EQ(refusal(writer->startFace(0), *writer), "Face 0 written twice in" + file);
  // Refusals do not spoil the file.
  ASSERT_TRUE(writer->close()) << writer->error();
  EXPECT_EQ(refusal(writer->close(), *writer), "Closed" + file);
  EXPECT_FALSE(writer->startFace(1));
  auto reader = VpdReader::open(path);
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->numPrims(0, 0), 1u);
}

TEST(VpdFile, InvalidHeadersAreRefused) {
  vrtest::TempDir dir;
  const std::string path = dir.file("bad.vpd");
  const auto header = [](std::vector<std::string> blocks, std::vector<std::string> keys = {},
                         std::vector<int> faces = {}, int type = Vpd::SplinePrimitive) {
    Vpd::Header h;
    h.blockNames = std::move(blocks);
    h.keyNames = std::move(keys);
    h.faceIds = std::move(faces);
    h.primType = static_cast<Vpd::PrimType>(type);
    return h;
  };
  const std::pair<Vpd::Header, std::string> cases[] = {
      {header({}), "no block names"},
      {header({"a", "a"}), "duplicate block name \"a\""},
      {header({""}), "empty block name"},
      {header({"a"}, {"k", "k"}), "duplicate key name \"k\""},
      {header({"a"}, {}, {4, 2, 4}), "duplicate face id 4"},
      {header({"a"}, {}, {}, 9), "unknown primitive type 9"},
      {header({std::string(70000, 'x')}), "block name too long"},
  };
  for (const auto& [h, reason] : cases) {
    std::string why;
    EXPECT_FALSE(VpdWriter::open(path, h, &why));
    EXPECT_EQ(why, Vpd::invalidHeaderMessage(path, reason));
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(VpdFile, FailedOrAbandonedWritersLeaveNoFile) {
  vrtest::TempDir dir;
  std::string why;
  const std::string nowhere = dir.file("missing/dir/p.vuv");
  EXPECT_FALSE(openLocations(nowhere, {0}, &why));
  EXPECT_EQ(why, "Cannot create Vorn point/primitive file: " + nowhere);

  const std::string path = dir.file("p.vuv");
  {
    auto writer = openLocations(path, {0}, &why);
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->startFace(0));
    ASSERT_TRUE(writer->startBlock(0));
    ASSERT_TRUE(writer->writePrim(1, {0.1f, 0.2f}));
  }  // destroyed without close
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));

  auto discarded = openLocations(path, {0}, &why);
  ASSERT_TRUE(discarded);
  discarded->discard();
  EXPECT_FALSE(discarded->close());
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));

  // A file already in place survives a writer that is given up.
  writeBytes(path, "keep me");
  {
    auto writer = openLocations(path, {0}, &why);
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->startFace(0));
  }
  EXPECT_EQ(readText(path), "keep me");
  EXPECT_TRUE(onlyEntryIs(dir.path(), "p.vuv"));

  // A target that cannot be replaced: close fails and cleans up.
  const std::string taken = dir.file("taken.vuv");
  std::filesystem::create_directories(taken + "/inside");
  auto blocked = openLocations(taken, {0}, &why);
  ASSERT_TRUE(blocked);
  EXPECT_EQ(refusal(blocked->close(), *blocked), "Failed to write Vorn point/primitive file: " + taken);
  EXPECT_TRUE(std::filesystem::is_directory(taken));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()),
                          std::filesystem::directory_iterator()),
            2);
}

TEST(VpdFile, TruncatedAtEveryLengthFailsWithItsMessage) {
  vrtest::TempDir dir;
  const std::string whole = readText(writePointFile(dir));
  const std::string path = dir.file("cut.vuv");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    writeBytes(path, whole.substr(0, length));
    EXPECT_EQ(openError(path), "Truncated Vorn point/primitive file: " + path) << length;
  }
  writeBytes(path, whole);
  EXPECT_TRUE(VpdReader::open(path));
}

TEST(VpdFile, ForeignAndMissingFiles) {
  vrtest::TempDir dir;
  const std::string text = dir.write("notes.vuv", "# Vorn Palette File\nFileVersion 18\n");
  EXPECT_EQ(openError(text), "Not a Vorn point/primitive file: " + text);
  const std::string tiny = dir.write("tiny.vpd", "VP");
  EXPECT_EQ(openError(tiny), "Not a Vorn point/primitive file: " + tiny);
  EXPECT_EQ(openError(dir.file("missing.vpd")), "Cannot open Vorn point/primitive file: " + dir.file("missing.vpd"));
  EXPECT_EQ(openError(dir.path()), "Cannot open Vorn point/primitive file: " + dir.path());
  // Without a place for the reason the answer is still null.
  EXPECT_FALSE(VpdReader::open(text));
}

TEST(VpdFile, AnyChangedHeaderOrIndexByteIsCaught) {
  vrtest::TempDir dir;
  const std::string original = readText(writePointFile(dir));
  const std::size_t headerSize = u32At(original, 12);
  const std::size_t indexOffset = static_cast<std::size_t>(u64At(original, 24));
  const std::string path = dir.file("flip.vuv");
  const std::vector<std::string> texts = {"Not a Vorn point/primitive file: " + path,
                                          "Truncated Vorn point/primitive file: " + path,
                                          "Damaged Vorn point/primitive file: " + path};
  for (std::size_t at = 0; at < original.size(); ++at) {
    if (at == headerSize) at = indexOffset;  // record bytes are checked when read
    for (unsigned char mask : {0x01, 0x80}) {
      std::string bytes = original;
      bytes[at] = static_cast<char>(bytes[at] ^ mask);
      writeBytes(path, bytes);
      const std::string why = openError(path);
      const bool known = std::find(texts.begin(), texts.end(), why) != texts.end() ||
                         why.rfind("Unsupported Vorn point/primitive file version ", 0) == 0;
      EXPECT_TRUE(known) << at << ": " << why;
    }
  }
}

TEST(VpdFile, HostileCountsAndOffsetsAreRefusedBeforeUse) {
  vrtest::TempDir dir;
  const std::string original = readText(writePointFile(dir));
  const std::string path = dir.file("hostile.vuv");
  const std::string damaged = "Damaged Vorn point/primitive file: " + path;
  const std::size_t index = static_cast<std::size_t>(u64At(original, 24));
  struct Edit {
    std::size_t at;
    std::uint64_t value;
    bool wide;
  };
  const Edit edits[] = {
      {32, 0xFFFFFFFFu, false},                       // face count
      {36, 0, false},                                 // no blocks
      {40, 0x40000000u, false},                       // key count
      {12, 0xFFFFFFF0u, false},                       // header size beyond the file
      {24, 3, true},                                  // index inside the fixed header
      {index, 0xFFFFFFFFu, false},                    // index entries
      {index + 4 + 8, std::uint64_t(1) << 40, true},  // a block's offset
      {index + 4 + 16, 1u << 30, true},               // a block's size
      {index + 4 + 24, 1u << 30, true},               // a block's record count
      {index + 4, 99, false},                         // a face the header does not name
  };
  for (const Edit& edit : edits) {
    std::string bytes = original;
    if (edit.wide)
      Vpd::detail::putU64(reinterpret_cast<unsigned char*>(&bytes[edit.at]), edit.value);
    else
      putU32At(bytes, edit.at, static_cast<std::uint32_t>(edit.value));
    reseal(bytes, u32At(original, 12), index);
    writeBytes(path, bytes);
    EXPECT_EQ(openError(path), damaged) << edit.at;
  }
}

TEST(VpdFile, DamagedRecordsFailWhenRead) {
  vrtest::TempDir dir;
  const std::string original = readText(writePointFile(dir));
  const std::size_t first = u32At(original, 12);  // face 3's first record
  const std::string path = dir.file("records.vuv");
  for (std::uint32_t count : {6u, 4u, 0xFFFFFFFFu}) {
    std::string bytes = original;
    putU32At(bytes, first + 4, count);  // a value count that breaks the block's framing
    writeBytes(path, bytes);
    auto reader = VpdReader::open(path);  // records are not covered by the checksum
    ASSERT_TRUE(reader);
    ASSERT_TRUE(reader->findFace(3));
    ASSERT_TRUE(reader->findBlock(0));
    std::uint32_t id;
    std::vector<float> values;
    int read = 0;
    while (reader->readPrim(id, values)) ++read;
    EXPECT_LT(read, 5) << count;
    EXPECT_EQ(reader->error(), "Damaged Vorn point/primitive file: " + path) << count;
    ASSERT_TRUE(reader->findBlock(0));
    EXPECT_EQ(refusal(reader->findPrim(4, values), *reader), "Damaged Vorn point/primitive file: " + path) << count;
    // The other face is untouched.
    EXPECT_EQ(readBlock(*reader, 1, 0), locations(1, 5));
  }
}

TEST(VpdFile, FileShortenedAfterOpeningFailsOnRead) {
  vrtest::TempDir dir;
  const std::string path = writePointFile(dir);
  auto reader = VpdReader::open(path);
  ASSERT_TRUE(reader);
  std::filesystem::resize_file(path, 70);
  ASSERT_TRUE(reader->findFace(3));
  EXPECT_EQ(refusal(reader->findBlock(0), *reader), "Truncated Vorn point/primitive file: " + path);
}
