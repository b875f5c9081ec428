// map, vmap and triplanar over textures written by the project's writer: the channel rule, the
// nearest-texel clamping, the NURBS v flip, vertex maps, the projected texture, the folder rule
// of map names, names resolved at every evaluation, the files a map stands for, and 1 against 2
// threads.

#include "expressions/VrExpression.h"
#include "expressions/VrMapFunctions.h"

#include "base/VrTaskManager.h"
#include "document/vrutilFiles.h"
#include "geometry/VrNurbsPatch.h"
#include "io/ptex/VrPtexWriter.h"
#include "support/CaptureLogger.h"
#include "support/ExpectNear.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <cmath>
#include <filesystem>

using namespace vrptex;
using Vec = SgVec3T<double>;

namespace {

FaceInfo faceOf(int ulog2, int vlog2) {
  FaceInfo info;
  info.res = Res(ulog2, vlog2);
  return info;
}

// maps/<patch>.ptx: 16 faces of 4 by 2 texels, 3 float channels; texel (x, y) of face f holds
// f*100 + y*10 + x + c/4 in channel c.
void writeFaceMap(const std::string& path) {
  VrPtexWriter::Options options;
  options.dataType = DataType::Float;
  options.numChannels = 3;
  options.numFaces = 16;
  VrPtexWriter writer(path, options);
  for (int f = 0; f < 16; ++f) {
    std::vector<float> texels;
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < 4; ++x)
        for (int c = 0; c < 3; ++c) texels.push_back(static_cast<float>(f * 100 + y * 10 + x) + c * 0.25f);
    ASSERT_TRUE(writer.writeFace(f, faceOf(2, 1), texels.data()));
  }
  ASSERT_TRUE(writer.close());
}

// vmaps/body.ptx: face 0 is 2 by 2 with two half channels, corner (x, y) = (x, 1 - y); face 1
// is 4 by 4.
void writeVertexMap(const std::string& path) {
  VrPtexWriter::Options options;
  options.dataType = DataType::Half;
  options.numChannels = 2;
  options.numFaces = 2;
  VrPtexWriter writer(path, options);
  const float corners[8] = {0, 1, 1, 1, 0, 0, 1, 0};
  std::vector<uint8_t> stored(16);
  fromFloat(corners, DataType::Half, 8, stored.data());
  ASSERT_TRUE(writer.writeFace(0, faceOf(1, 1), stored.data()));
  std::vector<uint8_t> big(16 * 4);
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<uint8_t>(i);
  ASSERT_TRUE(writer.writeFace(1, faceOf(2, 2), big.data()));
  ASSERT_TRUE(writer.close());
}

// tri.ptx: one 4 by 4 face, one float channel, texel (x, y) = x + 4y.
void writePicture(const std::string& path) {
  VrPtexWriter::Options options;
  options.dataType = DataType::Float;
  options.numFaces = 1;
  VrPtexWriter writer(path, options);
  std::vector<float> texels;
  for (int i = 0; i < 16; ++i) texels.push_back(static_cast<float>(i));
  ASSERT_TRUE(writer.writeFace(0, faceOf(2, 2), texels.data()));
  ASSERT_TRUE(writer.close());
}

// A 4 by 4 grid patch "body" and a NURBS patch "sheet" (unbound: map needs only its type), with
// the maps under the collection's data path.
struct MapScene : vrtest::PatchScene {
  MapScene() : PatchScene(vrtest::gridSurface(4)) {
    sheet = new VrNurbsPatch(description);
    sheet->setName("sheet");
    description->addPatch(sheet);
    std::filesystem::create_directories(dir.file("maps"));
    std::filesystem::create_directories(dir.file("vmaps"));
    writeFaceMap(dir.file("maps/body.ptx"));
    std::filesystem::copy_file(dir.file("maps/body.ptx"), dir.file("maps/sheet.ptx"));
    writeVertexMap(dir.file("vmaps/body.ptx"));
    writePicture(dir.file("tri.ptx"));
    palette->setAttr("vrDataPath", dir.path());
  }
  ~MapScene() { VrExpression::clearPtexs(); }

  Vec eval(const std::string& text, const std::string& patchName, int face, double u, double v,
           const std::string& type = "vector") const {
    VrExpression e("test", "Test", description, text, type);
    std::string error;
    EXPECT_TRUE(e.isValid(&error)) << error;
    return e.eval(u, v, face, &patchName);
  }

  vrtest::TempDir dir;
  VrNurbsPatch* sheet;
};

}  // namespace

TEST(VrMapFunctions, EdgeCasesOfTheLookup) {
  vrtest::CaptureLogger log;
  MapScene scene;
  const double f = 0.001;
  struct Case {
    const char* text;
    const char* patch;
    int face;
    double u, v;
    Vec expected;
  };
  const Case cases[] = {
      // Nearest texel of face 3 at (0.6, 0.7): texel (2, 1); the three channels.
      {"map(\"maps/\")", "body", 3, 0.6, 0.7, Vec(312, 312.25, 312.5)},
      // A folder without its slash gets one; channel 7 of three reads the last.
      {"map(\"maps\", 7)", "body", 3, 0.6, 0.7, Vec(312.5, 312.5, 312.5)},
      {"map(\"maps/\", 1)", "body", 3, 0.6, 0.7, Vec(312.25, 312.25, 312.25)},
      // Explicit (u, v): a negative u clamps to texel 0, u = v = 1 to the last texel.
      {"map(\"maps/\", -0.5, 0.2)", "body", 3, 0.9, 0.9, Vec(300, 300.25, 300.5)},
      {"map(\"maps/body.ptx\", 1, 1, 0)", "body", 3, 0.0, 0.0, Vec(313, 313, 313)},
      // A NURBS patch reads v from the other side; the subdivision patch above does not.
      {"map(\"maps/\")", "sheet", 3, 0.6, 0.7, Vec(302, 302.25, 302.5)},
      // No such face, no such map: the failure value.
      {"map(\"maps/\")", "body", 99, 0.5, 0.5, Vec(f, f, f)},
      {"map(\"nomaps/\")", "body", 3, 0.5, 0.5, Vec(f, f, f)},
      // Vertex maps: bilinear corners with two channels as (first, second, second); any face
      // that is not 2 by 2 gives the failure value.
      {"vmap(\"vmaps/\")", "body", 0, 0.25, 0.5, Vec(0.25, 0.5, 0.5)},
      {"vmap(\"vmaps/\", 0.75, 0.25, 1)", "body", 0, 0.0, 0.0, Vec(0.75, 0.75, 0.75)},
      {"vmap(\"vmaps/\")", "body", 1, 0.5, 0.5, Vec(f, f, f)},
      // The flat grid faces +z: only the z projection counts, read at (x, 1 - y) of the tile.
      // Face 5 at (0.6, 0.3) is near (1.6, 1.3, 0): tile (0.6, 0.3), texel (2, 2) = 10.
      {"triplanar(\"tri.ptx\")", "body", 5, 0.6, 0.3, Vec(10, 10, 10)},
      // Scale 2 halves the coordinates: (0.8, 0.65) reads texel (3, 1) = 7.
      {"triplanar(\"tri.ptx\", [2, 2, 2])", "body", 5, 0.6, 0.3, Vec(7, 7, 7)},
      // An offset of one tile changes nothing; a zero scale is refused.
      {"triplanar(\"tri.ptx\", [1, 1, 1], 0.5, [0, 0, 0], [1, 1, 0])", "body", 5, 0.6, 0.3, Vec(10, 10, 10)},
      {"triplanar(\"tri.ptx\", [1, 0, 1])", "body", 5, 0.6, 0.3, Vec(f, f, f)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.text) + " on " + c.patch);
    vrtest::expectNear(scene.eval(c.text, c.patch, c.face, c.u, c.v), c.expected, 1e-6);
  }
  // A scalar attribute takes x.
  EXPECT_EQ(scene.eval("map(\"maps/\")", "body", 3, 0.6, 0.7, "float").x, 312.0);
  EXPECT_TRUE(log.has("Error in triplanar(): scale cannot be zero or negative. Evaluation aborted."));
}

// A reader gives what map("name") gives, bit for bit, while it moves between patches (the NURBS
// flip included), faces and a missing face or file.
TEST(VrMapFunctions, AReaderGivesTheExpressionsValues) {
  vrtest::CaptureLogger log;
  MapScene scene;
  for (const std::string name : {"maps/", " maps", "maps/body.ptx", "nomaps/"}) {
    vrexpr::MapReader reader(name);
    ASSERT_TRUE(reader.keepsItsFile());
    const std::string patches[] = {"body", "sheet"};
    for (int i = 0; i < 40; ++i) {
      const std::string& patch = patches[(i / 3) % 2];
      const int face = i == 17 ? 99 : i % 16;
      const double u = (i * 0.37) - std::floor(i * 0.37), v = (i * 0.71) - std::floor(i * 0.71);
      EXPECT_EQ(reader.at(scene.description, &patch, face, u, v), scene.eval("map(\"" + name + "\")", patch, face, u, v))
          << name << " " << patch << " face " << face;
    }
  }
  EXPECT_FALSE(vrexpr::MapReader("${PAL,maps}/").keepsItsFile());
}

TEST(VrMapFunctions, AMapNameStandsForEachPatchsFile) {
  vrtest::CaptureLogger log;
  MapScene scene;
  VrExpression e("length", "Test", scene.description, "map('maps/') + vmap('vmaps/body.ptx')", "float");
  ASSERT_TRUE(e.isValid());
  std::vector<std::pair<std::string, std::string>> pairs;
  e.getExternalContext(pairs, "fur:length");
  const std::string root = scene.dir.path() + "/";
  ASSERT_EQ(pairs.size(), 4u);
  EXPECT_EQ(pairs[0], std::make_pair(std::string("fur:length"), root + "maps/body.ptx"));
  EXPECT_EQ(pairs[1].second, root + "maps/sheet.ptx");
  EXPECT_EQ(pairs[2].second, root + "vmaps/body.ptx");
  EXPECT_TRUE(e.usesFunc("map"));
}

TEST(VrMapFunctions, LookupsOnOneAndTwoThreadsAgree) {
  vrtest::CaptureLogger log;
  MapScene scene;
  VrExpression e("length", "Test", scene.description, "map('maps/') + vmap('vmaps/', 0) * 1000", "vector");
  ASSERT_TRUE(e.isValid());
  const std::string body = "body";
  constexpr size_t count = 20000;
  auto run = [&](int threads) {
    std::vector<Vec> out(count);
    auto work = [&](const tbb::blocked_range<size_t>& range) {
      VrExpression::initTLS();
      for (size_t i = range.begin(); i != range.end(); ++i)
        out[i] = e.eval(static_cast<double>(i % 97) / 97.0, static_cast<double>(i % 89) / 89.0, static_cast<int>(i % 16), &body);
    };
    if (threads == 1) {
      work(tbb::blocked_range<size_t>(0, count));
      return out;
    }
    tbb::global_control allow(tbb::global_control::max_allowed_parallelism, static_cast<size_t>(threads));
    tbb::task_arena arena(threads);
    VrTaskManager::setSeExprMultithreading(true);
    arena.execute([&] { tbb::parallel_for(tbb::blocked_range<size_t>(0, count, 256), work); });
    VrExpression::clearPtexs();
    VrTaskManager::setSeExprMultithreading(false);
    return out;
  };
  const std::vector<Vec> serial = run(1), parallel = run(2);
  size_t differing = 0;
  for (size_t i = 0; i < count; ++i) differing += serial[i] == parallel[i] ? 0 : 1;
  EXPECT_EQ(differing, 0u);
  EXPECT_EQ(serial[0].x, 0.0 + 1000.0 * 0.0);  // face 0 at (0, 0): texel 0 plus corner (0, 0)
}

TEST(VrMapFunctions, ANameWithACollectionMacroIsResolvedAtEveryEvaluation) {
  vrtest::CaptureLogger log;
  MapScene scene;
  // Two data path folders; the first one's map is removed after the first evaluations.
  vrtest::TempDir second;
  std::filesystem::create_directories(second.file("maps"));
  writeVertexMap(second.file("maps/body.ptx"));
  scene.palette->setAttr("vrDataPath", scene.dir.path() + ";" + second.path());
  const std::string body = "body";
  VrExpression plain("a", "Test", scene.description, "map('maps/')", "float");
  VrExpression dynamic("b", "Test", scene.description, "map('${PAL,x}maps/')", "vector");
  ASSERT_TRUE(plain.isValid());
  ASSERT_TRUE(dynamic.isValid());
  EXPECT_EQ(plain.eval(0.6, 0.7, 3, &body).x, 312.0);
  EXPECT_EQ(dynamic.eval(0.6, 0.7, 3, &body).x, 312.0);
  std::filesystem::remove(scene.dir.file("maps/body.ptx"));
  vrutil::clearFileCache();
  VrExpression::clearPtexs();
  // The plain name keeps the file it found for this patch and data path; the other looks again
  // and finds the second folder's map: two channels, corner (0, 0) of face 0 is (0, 1).
  EXPECT_EQ(plain.eval(0.6, 0.7, 3, &body).x, 0.001);
  EXPECT_EQ(dynamic.eval(0.0, 0.0, 0, &body), Vec(0.0, 1.0, 1.0));
  EXPECT_EQ(dynamic.eval(0.6, 0.7, 3, &body).x, 0.001);  // no face 3 there
}
