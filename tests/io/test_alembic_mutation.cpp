// Damaged copies of the valid test archives: cut short, with bytes flipped, with 64-bit words
// (the sizes and positions the container is made of) overwritten. Reading and dumping each one
// must end, without a crash, with either a whole dump and no Error, or an Error naming the
// file. The damage is random but seeded (mt19937's output is fixed by the standard), so every
// run reads the same files.

#include "io/AlembicTestSupport.h"
#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcDump.h"
#include "support/CaptureLogger.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

struct Mutant {
  std::string what;  ///< enough to make it again by hand
  std::string bytes;
};

std::vector<Mutant> mutantsOf(const std::string& original, uint32_t seed) {
  std::vector<Mutant> out;
  std::mt19937 random(seed);
  const size_t size = original.size();
  std::vector<size_t> cuts = {0, 1, 5, 8, 15, 16, 17, 24, size / 3, size / 2, size - 32, size - 16, size - 8, size - 1};
  for (int i = 0; i < 10; ++i) cuts.push_back(random() % size);
  for (size_t cut : cuts)
    if (cut < size) out.push_back({"cut at " + std::to_string(cut), original.substr(0, cut)});
  for (int i = 0; i < 40; ++i) {
    const size_t at = random() % size;
    const uint8_t mask = static_cast<uint8_t>(1 + random() % 255);
    Mutant m{"byte " + std::to_string(at) + " xor " + std::to_string(mask), original};
    m.bytes[at] = static_cast<char>(static_cast<uint8_t>(m.bytes[at]) ^ mask);
    out.push_back(std::move(m));
  }
  // Sizes, counts and positions: small, huge, near the end of the file, pointing back.
  const uint64_t words[] = {0, 1, 7, 0xffffffffffffffffULL, 0x8000000000000000ULL, size - 4, size, 16, 0x7fffffff};
  for (int i = 0; i < 30; ++i) {
    const size_t at = 8 + random() % (size - 16);
    const uint64_t word = words[random() % (sizeof words / sizeof words[0])];
    Mutant m{"word at " + std::to_string(at) + " = " + std::to_string(word), original};
    std::memcpy(&m.bytes[at], &word, 8);
    out.push_back(std::move(m));
  }
  return out;
}

}  // namespace

TEST(AlembicMutation, DamagedArchivesGiveADumpOrAnErrorNeverACrash) {
  VrAbcDump::Options options;
  options.maxSamplesPerObject = 200;
  options.maxObjects = 2000;
  options.maxDepth = 200;
  const std::string path = vrtest::scratchFile("mutant.abc");
  const std::string name = std::filesystem::path(path).filename().string();
  size_t refused = 0, failed = 0, whole = 0;
  uint32_t seed = 1;
  for (const std::string& source : vrtest::alembicFiles("valid")) {
    const std::string original = vrtest::readText(source);
    ASSERT_GT(original.size(), 64u);
    for (const Mutant& mutant : mutantsOf(original, seed++)) {
      SCOPED_TRACE(source + ": " + mutant.what);
      std::ofstream(path, std::ios::binary | std::ios::trunc) << mutant.bytes;
      vrtest::CaptureLogger log;
      VrAbcDump::Result result;
      const std::string dump = vrtest::dumpText(path, &result, options);
      ASSERT_EQ(dump.rfind("format: alembic-ref-v1\nfile: " + name + "\n", 0), 0u);
      if (result == VrAbcDump::Result::Ok) {
        ++whole;
        EXPECT_TRUE(log.errors().empty());
        EXPECT_NE(dump.find("\nend: ok\nexit_status: 0\n"), std::string::npos);
        continue;
      }
      result == VrAbcDump::Result::Refused ? ++refused : ++failed;
      ASSERT_FALSE(log.errors().empty());
      EXPECT_EQ(log.errors()[0].rfind(name + ": ", 0), 0u) << log.errors()[0];
      EXPECT_NE(dump.find("\nexit_status: 1\n"), std::string::npos);
    }
  }
  std::remove(path.c_str());
  // The damage reaches every stage: some files are refused at open, some fail while being
  // read, and some changes (inside sample values) leave a readable archive.
  EXPECT_GT(refused, 50u);
  EXPECT_GT(failed, 50u);
  EXPECT_GT(whole, 50u);
}

TEST(AlembicMutation, GroupsThatContainThemselvesEndTheWalk) {
  // An object whose child is its own group again: a loop a damaged file can hold. The walk
  // must stop at it, not recurse until the stack or the limits give out.
  vrtest::CaptureLogger log;
  std::string bytes = vrtest::readText(vrtest::alembicData("valid/xform1.abc"));
  VrAbcArchive archive;
  const std::string path = vrtest::scratchFile("loop.abc");
  std::ofstream(path, std::ios::binary) << bytes;
  ASSERT_TRUE(archive.open(path));
  VrAbcObject a;
  ASSERT_TRUE(archive.findObject("/a", a));
  // Point /a's child group at /a's own group.
  const uint64_t own = a.groupPosition();
  uint64_t count = 0;
  std::memcpy(&count, &bytes[own], 8);
  ASSERT_EQ(count, 3u);  // properties, child b, headers
  std::memcpy(&bytes[own + 16], &own, 8);
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  VrAbcDump::Result result;
  const std::string dump = vrtest::dumpText(path, &result);
  EXPECT_EQ(result, VrAbcDump::Result::Failed);
  const std::string name = std::filesystem::path(path).filename().string();
  EXPECT_NE(dump.find("error: " + name + ": /a/b: the object is one of its own ancestors"), std::string::npos) << dump;
  std::remove(path.c_str());
}
