// The cached writer and reader: many threads, each with its own context, writing and reading
// one point/primitive file. The file must not depend on the number of threads.

#include <gtest/gtest.h>
#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "io/vpd/VpdFileCachedReader.h"
#include "io/vpd/VpdFileCachedWriter.h"
#include "io/vpd/VpdReader.h"
#include "io/vpd/VpdWriter.h"
#include "support/Examples.h"
#include "support/TempDir.h"

namespace {

using vrtest::readText;

using Record = std::pair<std::uint32_t, std::vector<float>>;

// A patch of 50 faces, 100 to 149, named in a scrambled order. Every face but 105 and 106 has
// a "BakedGroom" run of splines, and every third face also a "NoiseFX" run.
struct Scene {
  std::vector<int> faces;
  std::map<int, std::vector<Record>> groom;
  std::map<int, std::vector<Record>> noise;

  Scene() {
    for (int i = 0; i < 50; ++i) faces.push_back((i * 29) % 50 + 100);
    for (int i = 0; i < 50; ++i) {
      const int face = faces[static_cast<std::size_t>(i)];
      if (face == 105 || face == 106) continue;
      const int count = face % 13 + 1;
      for (int n = 0; n < count; ++n) {
        std::vector<float> values = {float(n) / float(count), 0.5f};
        for (int cv = 0; cv < 9; ++cv) values.push_back(float(face) * 0.01f + float(cv));
        values.push_back(0.0f);  // key "width"
        values.push_back(0.02f * float(n));
        groom[face].push_back({static_cast<std::uint32_t>(n * 3 + 1), values});
      }
      if (face % 3 == 0) noise[face].push_back({1u, {3.0f, 0.1f, -0.1f, float(face)}});
    }
  }

  Vpd::Header header() const {
    Vpd::Header h;
    h.faceIds = faces;
    h.primType = Vpd::SplinePrimitive;
    h.cvCount = 3;
    h.coordSpace = Vpd::ObjectSpace;
    h.blockNames = {"BakedGroom", "NoiseFX"};
    h.time = 24.0f;
    h.attrVersion = 2;
    h.keyNames = {"width", "pPlaneShape1"};
    return h;
  }

  // The faces that hold records: scrambled, that reversed, or ascending.
  enum Order { Scrambled, Reversed, Ascending };
  std::vector<int> writtenFaces(Order order) const {
    std::vector<int> out;
    for (const auto& entry : groom) out.push_back(entry.first);
    if (order == Ascending) return out;
    std::stable_partition(out.begin(), out.end(), [](int face) { return face % 2 == 1; });
    if (order == Reversed) std::reverse(out.begin(), out.end());
    return out;
  }
};

// Writes the scene through the cached writer on `threads` threads, faces in the given order.
bool writeCached(const Scene& scene, const std::string& path, int threads, Scene::Order faceOrder) {
  tbb::global_control allow(tbb::global_control::max_allowed_parallelism,
                            static_cast<std::size_t>(threads));
  tbb::task_arena arena(threads);
  std::string why;
  auto writer = VpdFileCachedWriter::openWrite(path, scene.header(), &why);
  EXPECT_TRUE(writer) << why;
  if (!writer) return false;
  const std::vector<int> order = scene.writtenFaces(faceOrder);
  tbb::enumerable_thread_specific<VpdFileCachedWriterContext> contexts;
  std::atomic<int> failures{0};
  arena.execute([&] {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, order.size(), 1), [&](const auto& range) {
      VpdFileCachedWriterContext& context = contexts.local();
      for (std::size_t i = range.begin(); i != range.end(); ++i) {
        const int face = order[i];
        bool ok = writer->startFace(context, face) && writer->startBlock(context, "BakedGroom");
        for (const Record& r : scene.groom.at(face))
          ok = ok && writer->writePrim(context, r.first, r.second);
        const auto noise = scene.noise.find(face);
        if (noise != scene.noise.end()) {
          ok = ok && writer->startBlock(context, 1);
          for (const Record& r : noise->second)
            ok = ok && writer->writePrim(context, r.first, r.second);
        }
        // Half the faces say they are complete; the others are once their context moves on.
        if (face % 2 == 0) writer->finishFace(context);
        if (!ok) ++failures;
      }
    });
  });
  EXPECT_EQ(failures.load(), 0);
  const bool committed = writer->commitAndClose();
  EXPECT_TRUE(committed) << writer->error();
  return committed;
}

// What a refused call says through its context; "accepted" when it was not refused.
template <class Context>
std::string refusal(bool accepted, const Context& context) {
  return accepted ? "accepted" : context.error();
}

}  // namespace

TEST(VpdCachedWriter, RefusesMisuseWithItsReasons) {
  vrtest::TempDir dir;
  const Scene scene;
  const std::string path = dir.file("misuse.vpd");
  auto writer = VpdFileCachedWriter::openWrite(path, scene.header());
  ASSERT_TRUE(writer);
  EXPECT_EQ(writer->keyId("pPlaneShape1"), 1);
  VpdFileCachedWriterContext a, b;
  const float uv[2] = {0.5f, 0.5f};
  EXPECT_EQ(refusal(writer->startBlock(a, 0), a), "No face started in Vorn point/primitive file: " + path);
  EXPECT_EQ(refusal(writer->startFace(a, 7), a), "Face 7 is not a face of Vorn point/primitive file: " + path);
  ASSERT_TRUE(writer->startFace(a, 100));
  EXPECT_EQ(refusal(writer->startFace(b, 100), b), "Face 100 written twice in Vorn point/primitive file: " + path);
  EXPECT_EQ(refusal(writer->writePrim(a, 1, uv, 2), a), "No block started in Vorn point/primitive file: " + path);
  EXPECT_EQ(refusal(writer->startBlock(a, "Paint3d"), a), "No block Paint3d in Vorn point/primitive file: " + path);
  ASSERT_TRUE(writer->startBlock(a, "NoiseFX"));
  EXPECT_EQ(a.block(), 1);
  ASSERT_TRUE(writer->writePrim(a, 1, uv, 2));
  EXPECT_EQ(refusal(writer->startBlock(a, 1), a),
            "Block NoiseFX written twice on face 100 in Vorn point/primitive file: " + path);
  ASSERT_TRUE(writer->commitAndClose());
  EXPECT_EQ(refusal(writer->writePrim(a, 2, uv, 2), a), "Closed Vorn point/primitive file: " + path);
  EXPECT_FALSE(writer->commitAndClose());

  // A context that still points into an earlier writer is refused by a new one.
  auto next = VpdFileCachedWriter::openWrite(dir.file("next.vpd"), scene.header());
  ASSERT_TRUE(next);
  ASSERT_TRUE(next->startFace(b, 101));
  ASSERT_TRUE(next->startBlock(b, 0));
  EXPECT_FALSE(writer->writePrim(b, 1, uv, 2));
  EXPECT_EQ(refusal(next->startBlock(a, 0), a),
            "No face started in Vorn point/primitive file: " + dir.file("next.vpd"));
  EXPECT_TRUE(next->writePrim(b, 1, uv, 2));
  ASSERT_TRUE(next->commitAndClose());

  auto reader = VpdReader::open(path);
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->numPrims(100, 1), 1u);
  EXPECT_EQ(reader->facesInFile(), std::vector<int>{100});
}

TEST(VpdCachedWriter, CloseDiscardsAndFailuresLeaveNoFile) {
  vrtest::TempDir dir;
  const Scene scene;
  const std::string path = dir.file("body.vpd");
  std::ofstream(path, std::ios::binary) << "previous bake";
  {
    auto writer = VpdFileCachedWriter::openWrite(path, scene.header());
    ASSERT_TRUE(writer);
    VpdFileCachedWriterContext context;
    ASSERT_TRUE(writer->startFace(context, 100));
    ASSERT_TRUE(writer->startBlock(context, 0));
    ASSERT_TRUE(writer->writePrim(context, 1, {0.5f, 0.5f}));
    writer->close();
    EXPECT_FALSE(writer->isOpen());
    EXPECT_FALSE(writer->commitAndClose());
    EXPECT_FALSE(writer->startFace(context, 101));
  }
  EXPECT_EQ(readText(path), "previous bake");
  std::filesystem::remove(path);
  {
    auto writer = VpdFileCachedWriter::openWrite(path, scene.header());
    ASSERT_TRUE(writer);
    VpdFileCachedWriterContext context;
    ASSERT_TRUE(writer->startFace(context, 100));
  }  // destroyed without a commit
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));

  std::string why;
  EXPECT_FALSE(VpdFileCachedWriter::openWrite(dir.file("no/such/dir.vpd"), scene.header(), &why));
  EXPECT_EQ(why, "Cannot create Vorn point/primitive file: " + dir.file("no/such/dir.vpd"));
  Vpd::Header noBlocks = scene.header();
  noBlocks.blockNames.clear();
  EXPECT_FALSE(VpdFileCachedWriter::openWrite(path, noBlocks, &why));
  EXPECT_EQ(why, "Invalid header for Vorn point/primitive file: " + path + " (no block names)");
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

// Faces reach the file early once the lowest ones are complete, or at the commit: the bytes
// are the same whatever the thread count and the order the faces were written in.
TEST(VpdCachedWriter, TheFileDoesNotDependOnThreadsOrFaceOrder) {
  vrtest::TempDir dir;
  const Scene scene;
  ASSERT_TRUE(writeCached(scene, dir.file("first.vpd"), 1, Scene::Ascending));
  const std::string expected = readText(dir.file("first.vpd"));
  const struct {
    int threads;
    Scene::Order order;
  } runs[] = {{2, Scene::Ascending}, {1, Scene::Scrambled}, {2, Scene::Scrambled}, {2, Scene::Reversed}};
  for (const auto& run : runs) {
    SCOPED_TRACE(std::to_string(run.threads) + " threads, order " + std::to_string(run.order));
    ASSERT_TRUE(writeCached(scene, dir.file("again.vpd"), run.threads, run.order));
    EXPECT_EQ(readText(dir.file("again.vpd")), expected);
  }
}

TEST(VpdCachedReader, ThreadsReadThroughTheirOwnContexts) {
  vrtest::TempDir dir;
  const Scene scene;
  const std::string path = dir.file("body.vpd");
  ASSERT_TRUE(writeCached(scene, path, 1, Scene::Scrambled));
  std::string why;
  auto reader = VpdFileCachedReader::open(path, &why);
  ASSERT_TRUE(reader) << why;
  EXPECT_EQ(reader->primType(), Vpd::SplinePrimitive);
  EXPECT_EQ(reader->cvCount(), 3);
  EXPECT_EQ(reader->time(), 24.0f);
  EXPECT_EQ(reader->blockIndex("NoiseFX"), 1);

  const std::vector<int> faces = scene.writtenFaces(Scene::Scrambled);
  tbb::global_control allow(tbb::global_control::max_allowed_parallelism, 2);
  tbb::task_arena arena(2);
  tbb::enumerable_thread_specific<VpdFileCachedReaderContext> contexts;
  std::atomic<int> mismatches{0};
  arena.execute([&] {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, faces.size(), 1), [&](const auto& range) {
      VpdFileCachedReaderContext& context = contexts.local();
      std::uint32_t id;
      std::vector<float> values;
      for (std::size_t i = range.begin(); i != range.end(); ++i) {
        const int face = faces[i];
        const std::vector<Record>& expected = scene.groom.at(face);
        if (!reader->findFace(context, face) || !reader->findBlock(context, 0) ||
            reader->numPrims(context) != expected.size()) {
          ++mismatches;
          continue;
        }
        std::vector<Record> got;
        while (reader->readPrim(context, id, values)) got.push_back({id, values});
        if (got != expected || !context.error().empty()) ++mismatches;
        // Look-ups by id, last first, as a module asks for the primitives it meets.
        for (auto r = expected.rbegin(); r != expected.rend(); ++r)
          if (!reader->findPrim(context, r->first, values) || values != r->second) ++mismatches;
        if (reader->findPrim(context, 2, values) || !context.error().empty()) ++mismatches;
      }
    });
  });
  EXPECT_EQ(mismatches.load(), 0);

  VpdFileCachedReaderContext context;
  EXPECT_EQ(refusal(reader->findFace(context, 105), context), "Face 105 not in Vorn point/primitive file: " + path);
  EXPECT_TRUE(reader->findFace(context, 103));
  EXPECT_EQ(refusal(reader->findBlock(context, 1), context),
            "Block NoiseFX not written on face 103 in Vorn point/primitive file: " + path);
  EXPECT_TRUE(reader->close());
  EXPECT_TRUE(reader->findFace(context, 103));
  EXPECT_EQ(refusal(reader->findBlock(context, 0), context), "Closed Vorn point/primitive file: " + path);
}

TEST(VpdCachedReader, RefusesCutAndForeignFiles) {
  vrtest::TempDir dir;
  const Scene scene;
  const std::string whole = dir.file("whole.vpd");
  ASSERT_TRUE(writeCached(scene, whole, 1, Scene::Scrambled));
  const std::string bytes = readText(whole);
  const std::string path = dir.file("cut.vpd");
  std::string why;
  for (std::size_t length = 0; length < bytes.size(); length += 97) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes.substr(0, length);
    EXPECT_FALSE(VpdFileCachedReader::open(path, &why)) << length;
    EXPECT_EQ(why, "Truncated Vorn point/primitive file: " + path) << length;
  }
  const std::string foreign = dir.write("foreign.vpd", std::string(200, '\0'));
  EXPECT_FALSE(VpdFileCachedReader::open(foreign, &why));
  EXPECT_EQ(why, "Not a Vorn point/primitive file: " + foreign);
}
