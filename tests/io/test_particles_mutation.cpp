// Damaged copies of the shipped particle files (and of a compressed one): cut short, bytes
// flipped, 32-bit words (the counts and sizes the formats are made of) overwritten. Every read
// must end, without a crash, with a whole set or a message naming the file. The damage is
// seeded (mt19937's output is fixed by the standard), so every run reads the same files.

#include "io/particles/VrParticles.h"
#include "support/Examples.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

std::vector<std::pair<std::string, std::string>> mutantsOf(const std::string& original, uint32_t seed) {
  std::vector<std::pair<std::string, std::string>> out;
  std::mt19937 random(seed);
  const size_t size = original.size();
  for (int i = 0; i < 30; ++i) {
    const size_t cut = i < 12 ? static_cast<size_t>(i) * 7 : random() % size;
    if (cut < size) out.push_back({"cut at " + std::to_string(cut), original.substr(0, cut)});
  }
  for (int i = 0; i < 150; ++i) {
    std::string bytes = original;
    const size_t at = random() % size;
    const auto mask = static_cast<uint8_t>(1 + random() % 255);
    bytes[at] = static_cast<char>(static_cast<uint8_t>(bytes[at]) ^ mask);
    out.push_back({"byte " + std::to_string(at) + " xor " + std::to_string(mask), bytes});
  }
  const uint32_t words[] = {0, 1, 3, 0xffffffffu, 0x80000000u, 0x7fffffffu, 0xffffu, static_cast<uint32_t>(size)};
  for (int i = 0; i < 150; ++i) {
    std::string bytes = original;
    const size_t at = random() % (size - 4);
    const uint32_t word = words[random() % (sizeof words / sizeof words[0])];
    std::memcpy(&bytes[at], &word, 4);
    out.push_back({"word at " + std::to_string(at) + " = " + std::to_string(word), bytes});
  }
  return out;
}

}  // namespace

TEST(ParticleMutation, DamagedFilesGiveASetOrAMessageNeverACrash) {
  vrtest::TempDir dir;
  const std::string data = std::string(VORN_TEST_DATA_DIR) + "/particles/";
  VrParticleSet scatter;
  ASSERT_TRUE(VrReadParticles(data + "scatter.bgeo", scatter));
  ASSERT_TRUE(VrWriteParticles(dir.file("scatter.bgeo.gz"), scatter));
  const std::string sources[] = {data + "base.bgeo", data + "scatter.bgeo", data + "test.geo", data + "test.pdb",
                                 dir.file("scatter.bgeo.gz")};
  size_t read = 0, refused = 0;
  uint32_t seed = 1;
  for (const std::string& source : sources) {
    const std::string original = vrtest::readText(source);
    const std::string name = "mutant" + source.substr(source.find('.'));
    for (const auto& mutant : mutantsOf(original, seed++)) {
      SCOPED_TRACE(source + ": " + mutant.first);
      VrParticleSet set;
      std::string error;
      if (VrReadParticles(dir.write(name, mutant.second), set, &error)) {
        ++read;
        for (size_t a = 0; a < set.numAttributes(); ++a) {
          const VrParticleAttribute& attr = set.attribute(a);
          ASSERT_EQ((attr.isInt() ? attr.ints.size() : attr.floats.size()), set.numParticles() * size_t(attr.count));
        }
      } else {
        ++refused;
        EXPECT_EQ(error.rfind(name + ": ", 0), 0u) << error;
      }
    }
  }
  // Damage to values leaves readable files; damage to counts and structure is refused.
  EXPECT_GT(read, 300u);
  EXPECT_GT(refused, 300u);
}

// A compressed file that inflates past the limit is refused with the limit named, not read
// until memory runs out.
TEST(ParticleMutation, InflatingPastTheLimitIsRefused) {
  vrtest::TempDir dir;
  VrParticleSet scatter;
  ASSERT_TRUE(VrReadParticles(std::string(VORN_TEST_DATA_DIR) + "/particles/scatter.bgeo", scatter));
  ASSERT_TRUE(VrWriteParticles(dir.file("scatter.bgeo.gz"), scatter));
  vrtest::ScopedEnv limit("VORN_MAX_PARTICLE_BYTES", "1000");
  VrParticleSet set;
  std::string error;
  EXPECT_FALSE(VrReadParticles(dir.file("scatter.bgeo.gz"), set, &error));
  EXPECT_EQ(error, "scatter.bgeo.gz: inflates to more than 1000 bytes, the limit (VORN_MAX_PARTICLE_BYTES)");
}
