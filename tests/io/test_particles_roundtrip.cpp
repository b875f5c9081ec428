// Particle sets written and read back in every format: values bit for bit, string tables and
// fixed attributes where the format holds them, empty and large sets, and atomic writes.

#include "io/particles/VrParticleStream.h"
#include "io/particles/VrParticles.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <tbb/task_arena.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <thread>

namespace {

// One attribute of every type, values that need every bit (negative, tiny, huge).
VrParticleSet sampleSet(size_t n) {
  VrParticleSet set;
  const int position = set.addAttribute("position", VrParticleType::Vector, 3);
  const int life = set.addAttribute("life", VrParticleType::Float, 2);
  const int id = set.addAttribute("id", VrParticleType::Int, 1);
  const int name = set.addAttribute("name", VrParticleType::IndexedString, 1);
  set.resize(n);
  for (size_t i = 0; i < n; ++i) {
    float* p = set.floats(position, i);
    p[0] = static_cast<float>(i) * 0.1f;
    p[1] = -1.0f / static_cast<float>(i + 3);
    p[2] = std::ldexp(1.0f, static_cast<int>(i % 200) - 100);
    set.floats(life, i)[0] = 1e30f / static_cast<float>(i + 1);
    set.floats(life, i)[1] = -static_cast<float>(i % 7);
    set.ints(id, i)[0] = static_cast<int32_t>(i * 7919 % 3000017) - 100000;
    set.ints(name, i)[0] = set.indexedString(name, i % 3 == 0 ? "" : i % 3 == 1 ? "a \"quoted\" name" : "tail\\");
  }
  return set;
}

::testing::AssertionResult sameValues(const VrParticleAttribute& a, const VrParticleAttribute& b) {
  if (a.name != b.name || a.type != b.type || a.count != b.count || a.ints != b.ints || a.strings != b.strings ||
      a.floats.size() != b.floats.size())
    return ::testing::AssertionFailure() << "attribute " << a.name << " differs from " << b.name;
  for (size_t i = 0; i < a.floats.size(); ++i)
    if (std::memcmp(&a.floats[i], &b.floats[i], 4) != 0)
      return ::testing::AssertionFailure() << a.name << " value " << i << ": " << a.floats[i] << " != " << b.floats[i];
  return ::testing::AssertionSuccess();
}

}  // namespace

TEST(ParticleRoundTrip, EveryFormatKeepsWhatItHolds) {
  vrtest::TempDir dir;
  const struct {
    const char* name;
    bool strings, fixed;  // the format holds string tables and fixed attributes
  } formats[] = {{"set.bgeo", true, true}, {"set.bgeo.gz", true, true}, {"set.geo", true, true}, {"set.pdb", false, false}};
  for (size_t n : {size_t(0), size_t(1), size_t(257)}) {
    VrParticleSet set = sampleSet(n);
    const int fixedId = set.addFixedAttribute("frame", VrParticleType::Int, 1);
    set.fixedAttribute(static_cast<size_t>(fixedId)).ints[0] = 12;
    const int fixedScale = set.addFixedAttribute("scale", VrParticleType::Vector, 3);
    set.fixedAttribute(static_cast<size_t>(fixedScale)).floats = {0.5f, -2.0f, 1e-38f};
    for (const auto& format : formats) {
      SCOPED_TRACE(std::string(format.name) + ", " + std::to_string(n) + " particles");
      std::string error;
      ASSERT_TRUE(VrWriteParticles(dir.file(format.name), set, &error)) << error;
      VrParticleSet back;
      ASSERT_TRUE(VrReadParticles(dir.file(format.name), back, &error)) << error;
      ASSERT_EQ(back.numParticles(), n);
      ASSERT_EQ(back.numAttributes(), set.numAttributes());
      for (size_t a = 0; a < set.numAttributes(); ++a) {
        VrParticleAttribute expected = set.attribute(a);
        if (!format.strings && expected.type == VrParticleType::IndexedString) {
          expected.type = VrParticleType::Int;  // the indices stay, the table goes
          expected.strings.clear();
        }
        EXPECT_TRUE(sameValues(back.attribute(a), expected));
      }
      ASSERT_EQ(back.numFixedAttributes(), format.fixed ? 2u : 0u);
      for (size_t a = 0; a < back.numFixedAttributes(); ++a) EXPECT_TRUE(sameValues(back.fixedAttribute(a), set.fixedAttribute(a)));
    }
  }
  // The compressed file really is compressed, and a plain .bgeo name holding gzip bytes reads too.
  std::filesystem::copy_file(dir.file("set.bgeo.gz"), dir.file("copy.bgeo"));
  VrParticleSet back;
  EXPECT_TRUE(VrReadParticles(dir.file("copy.bgeo"), back));
  EXPECT_EQ(vrtest::readText(dir.file("copy.bgeo")).substr(0, 2), "\x1f\x8b");
}

TEST(ParticleRoundTrip, AMillionParticlesInBinaryGeometry) {
  vrtest::TempDir dir;
  const VrParticleSet set = sampleSet(1000000);
  std::string error;
  ASSERT_TRUE(VrWriteParticles(dir.file("big.bgeo"), set, &error)) << error;
  // Header, definitions of life, id and name (with its strings), 1e6 records of P (4 floats),
  // life, id and name (8 words), trailer.
  EXPECT_EQ(std::filesystem::file_size(dir.file("big.bgeo")), 41u + 20 + 14 + 42 + 32000000u + 2);
  VrParticleSet back;
  ASSERT_TRUE(VrReadParticles(dir.file("big.bgeo"), back, &error)) << error;
  for (size_t a = 0; a < set.numAttributes(); ++a) EXPECT_TRUE(sameValues(back.attribute(a), set.attribute(a)));
}

// The writers make their bytes in pieces on every thread they are given: more particles than a
// window of pieces holds must still come out as on one thread.
TEST(ParticleRoundTrip, TheBytesDoNotDependOnTheThreadCount) {
  vrtest::TempDir dir;
  const VrParticleSet set = sampleSet(300000);
  for (const char* format : {"geo", "bgeo", "bgeo.gz"}) {
    SCOPED_TRACE(format);
    std::string bytes[2];
    for (int threads : {1, 2}) {
      const std::string path = dir.file(std::to_string(threads) + "." + format);
      tbb::task_arena arena(threads);
      bool written = false;
      arena.execute([&] { written = VrWriteParticles(path, set); });
      ASSERT_TRUE(written);
      bytes[threads - 1] = vrtest::readText(path);
    }
    EXPECT_EQ(bytes[0], bytes[1]);
  }
}

// Particles of [first, last) of `set`, with its attributes.
VrParticleSet batchOf(const VrParticleSet& set, size_t first, size_t last) {
  VrParticleSet batch;
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    const VrParticleAttribute& attr = set.attribute(a);
    batch.addAttribute(attr.name, attr.type, attr.count);
  }
  batch.resize(last - first);
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    const VrParticleAttribute& from = set.attribute(a);
    VrParticleAttribute& to = batch.attribute(a);
    const size_t k = static_cast<size_t>(from.count);
    if (from.isInt()) std::copy(from.ints.begin() + first * k, from.ints.begin() + last * k, to.ints.begin());
    else std::copy(from.floats.begin() + first * k, from.floats.begin() + last * k, to.floats.begin());
  }
  return batch;
}

// Writes `set` through a stream in batches that begin at `cuts`, encoded and appended on this
// thread; with `busy`, another thread keeps encoding too, deflating pieces as it goes.
std::string streamInBatches(const std::string& path, const VrParticleSet& set, const std::vector<size_t>& cuts, bool busy) {
  VrParticleStream stream(path, VrParticleFormatOf(path), set);
  EXPECT_TRUE(stream.ok()) << stream.error();
  std::atomic<bool> done{false};
  std::thread other([&] {
    const VrParticleSet some = batchOf(set, 0, std::min<size_t>(set.numParticles(), 100));
    for (std::string scratch; busy && !done; scratch.clear()) stream.encode(some, scratch);
  });
  const size_t n = set.numParticles();
  for (size_t b = 0; b + 1 < cuts.size(); ++b) {
    std::string encoded;
    const size_t from = std::min(cuts[b], n), to = std::min(cuts[b + 1], n);
    stream.encode(batchOf(set, from, to), encoded);
    EXPECT_TRUE(stream.append(encoded, to - from));
  }
  done = true;
  other.join();
  EXPECT_TRUE(stream.finish()) << stream.error();
  return vrtest::readText(path);
}

// A stream makes the same bytes whatever its batches and whichever threads encode them; they are
// the bytes of the whole set for .bgeo and .geo, and hold the same particles for .bgeo.gz.
TEST(ParticleRoundTrip, AStreamMakesOneFileWhateverItsBatchesAndThreads) {
  vrtest::TempDir dir;
  const VrParticleSet set = sampleSet(6000);
  EXPECT_FALSE(VrParticleStream::streams(VrParticleFormat::Bgeo, set));  // string tables come first
  // The same particles without the string attribute.
  VrParticleSet plain;
  for (size_t a = 0; a < 3; ++a) plain.addAttribute(set.attribute(a).name, set.attribute(a).type, set.attribute(a).count);
  plain.resize(set.numParticles());
  for (size_t a = 0; a < 3; ++a) plain.attribute(a) = set.attribute(a);
  const std::vector<size_t> few = {0, 0, 1, 700, 700, 4096, 6000}, many = {0, 3000, 3001, 6000};
  for (const char* format : {".bgeo", ".bgeo.gz", ".geo"}) {
    for (size_t n : {size_t(0), plain.numParticles()}) {
      SCOPED_TRACE(std::string(format) + ", " + std::to_string(n) + " particles");
      VrParticleSet expected = batchOf(plain, 0, n);
      expected.addFixedAttribute("frame", VrParticleType::Int, 1);
      expected.fixedAttribute(0).ints[0] = 12;
      const std::string streamed = dir.file(std::string("streamed") + format);
      const std::string bytes = streamInBatches(streamed, expected, few, false);
      EXPECT_EQ(streamInBatches(dir.file(std::string("busy") + format), expected, many, true), bytes);
      if (std::string(format) != ".bgeo.gz") {
        const std::string whole = dir.file(std::string("whole") + format);
        ASSERT_TRUE(VrWriteParticles(whole, expected));
        EXPECT_EQ(vrtest::readText(whole), bytes);
      }
      VrParticleSet back;
      std::string error;
      ASSERT_TRUE(VrReadParticles(streamed, back, &error)) << error;
      ASSERT_EQ(back.numParticles(), n);
      for (size_t a = 0; a < expected.numAttributes(); ++a) EXPECT_TRUE(sameValues(back.attribute(a), expected.attribute(a)));
      ASSERT_EQ(back.numFixedAttributes(), 1u);
      EXPECT_TRUE(sameValues(back.fixedAttribute(0), expected.fixedAttribute(0)));
    }
  }
  // A stream never finished leaves nothing behind.
  { VrParticleStream abandoned(dir.file("abandoned.bgeo.gz"), VrParticleFormat::BgeoGz, plain); }
  EXPECT_FALSE(std::filesystem::exists(dir.file("abandoned.bgeo.gz")));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), std::filesystem::directory_iterator()), 8);
}

TEST(ParticleRoundTrip, RefusedWritesLeaveNothingBehind) {
  vrtest::TempDir dir;
  VrParticleSet noPosition;
  noPosition.addAttribute("id", VrParticleType::Int, 1);
  noPosition.resize(3);
  VrParticleSet spaced = sampleSet(2);
  spaced.addAttribute("two words", VrParticleType::Float, 1);
  const struct {
    const char* name;
    const VrParticleSet* set;
    std::string message;
  } cases[] = {
      {"a.bgeo", &noPosition, "a.bgeo: the set has no 'position' attribute of three floats to store as the point position P"},
      {"a.geo", &spaced, "a.geo: attribute name 'two words' cannot be stored in an ASCII geometry file"},
      {"a.txt", &spaced, "a.txt: not a particle file of a known kind (.bgeo, .bgeo.gz, .geo, .pdb)"},
      {"missing/a.pdb", &spaced, "a.pdb: cannot create the file"},
  };
  for (const auto& c : cases) {
    std::string error;
    EXPECT_FALSE(VrWriteParticles(dir.file(c.name), *c.set, &error));
    EXPECT_EQ(error, c.message);
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(ParticleSet, AttributesAreFoundAddedOnceAndSized) {
  VrParticleSet set;
  EXPECT_EQ(set.addAttribute("v", VrParticleType::Vector, 3), 0);
  EXPECT_EQ(set.addAttribute("v", VrParticleType::Vector, 3), 0);
  EXPECT_EQ(set.addAttribute("v", VrParticleType::Float, 3), -1);
  EXPECT_EQ(set.addAttribute("n", VrParticleType::Int, 0), -1);
  EXPECT_EQ(set.addAttribute("s", VrParticleType::IndexedString, 1), 1);
  EXPECT_EQ(set.addParticle(), 0u);
  EXPECT_EQ(set.addParticle(), 1u);
  EXPECT_EQ(set.attribute(0).floats.size(), 6u);
  EXPECT_EQ(set.indexedString(1, "x"), 0);
  EXPECT_EQ(set.indexedString(1, "y"), 1);
  EXPECT_EQ(set.indexedString(1, "x"), 0);
  EXPECT_EQ(set.indexedString(0, "x"), -1);
  EXPECT_EQ(set.findAttribute("s"), 1);
  EXPECT_EQ(VrParticleFormatOf("/a/B.BGEO.GZ"), VrParticleFormat::BgeoGz);
  EXPECT_EQ(VrParticleFormatOf("x.pdb"), VrParticleFormat::Pdb32);
}
