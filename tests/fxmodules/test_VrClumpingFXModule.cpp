// The clumping module: which guide a primitive follows, what each stage does to it, and that
// guides and renders do not depend on the number of threads.

#include "fxmodules/VrClumpingFXModule.h"

#include "fxmodules/VrClumpMaker.h"
#include "io/ptex/VrPtexTexture.h"
#include "io/vpd/VpdReader.h"

#include "base/VrTaskManager.h"
#include "base/vrutilCodec.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "io/VrImportGeometry.h"
#include "io/ptex/VrPtexWriter.h"
#include "io/vpd/VpdFileCachedReader.h"
#include "io/vpd/VpdWriter.h"
#include "primitives/VrSplinePrimitive.h"
#include "support/CVRecorder.h"
#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Vec = SgVec3T<double>;

struct Point {
  int face;
  double u, v;
};

// Writes a point file with `points` (ids counted per face) for `faces`.
void writePoints(const std::string& path, const std::vector<int>& faces, const std::vector<Point>& points) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::unique_ptr<VpdWriter> writer =
      VpdWriter::open(path, faces, Vpd::PointPrimitive, 1, Vpd::WorldSpace, {Vpd::LocationBlock}, 0.0f, 1);
  ASSERT_NE(writer, nullptr);
  for (int face : faces) {
    unsigned id = 0;
    bool started = false;
    for (const Point& p : points) {
      if (p.face != face) continue;
      if (!started) {
        ASSERT_TRUE(writer->startFace(face) && writer->startBlock(0));
      }
      started = true;
      ASSERT_TRUE(writer->writePrim(id++, {float(p.u), float(p.v), 0.0f, 0.0f, 0.0f}));
    }
  }
  ASSERT_TRUE(writer->close()) << writer->error();
}

// Writes a map with one constant texel per face, of `channels` bytes `texelOf(face)` fills.
void writeFaceMap(const std::string& path, int faces, int channels,
                  const std::function<void(int, unsigned char*)>& texelOf) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  VrPtexWriter::Options options;
  options.numChannels = channels;
  options.numFaces = faces;
  VrPtexWriter writer(path, options);
  for (int face = 0; face < faces; ++face) {
    unsigned char texel[3];
    texelOf(face, texel);
    vrptex::FaceInfo info;
    ASSERT_TRUE(writer.writeConstantFace(face, info, texel));
  }
  ASSERT_TRUE(writer.close());
}

// Writes a region map with one constant colour per face: the encoded id `idOf(face)`.
void writeRegions(const std::string& path, int faces, const std::function<unsigned(int)>& idOf) {
  writeFaceMap(path, faces, 3, [&](int face, unsigned char* rgb) { vrutil::encodeId2RGB(idOf(face), rgb); });
}

// A 4 x 4 patch with a spline primitive and one clumping module reading from a temporary folder.
struct ClumpScene : vrtest::PatchScene {
  ClumpScene() : PatchScene(vrtest::gridSurface(4), nullptr, "hair") {
    palette->setAttr("name", "coll");
    description->setActive("SplinePrimitive");
    spline = static_cast<VrSplinePrimitive*>(description->activePrimitive());
    clump = static_cast<VrClumpingFXModule*>(spline->addFXModule("ClumpingFXModule"));
    // Files are found along the collection's data path, like a user's relative folders.
    palette->setAttr("vrDataPath", dir.path() + "/", "string");
    clump->setAttr("pointDir", "points/", "string");
    clump->setAttr("mapDir", "maps/", "string");
    vrutil::clearFileCache();
  }
  int faces() const { return static_cast<int>(patch->numFaces()); }
  std::vector<int> faceIds() const {
    std::vector<int> ids;
    for (int f = 0; f < faces(); ++f) ids.push_back(f);
    return ids;
  }
  void guides(const std::vector<Point>& points) { writePoints(dir.file("points/body.vuv"), faceIds(), points); }
  void regions(const std::function<unsigned(int)>& idOf) { writeRegions(dir.file("maps/body.ptx"), faces(), idOf); }
  // Makes the guide points (`density` per unit area) and region maps (4 texels per unit) of `seed`.
  bool make(unsigned seed, double density = 3.0) {
    clump->setAttr("texelsPerUnit", "4", "float");
    VrClumpMaker::Options options;
    options.density = density;
    options.seed = seed;
    return VrClumpMaker::make(*clump, options);
  }
  // The primitive at (u, v) of `face` before and after the module.
  std::pair<std::vector<Vec>, std::vector<Vec>> build(int face, double u, double v) {
    VrPrimitiveContext& context = spline->context();
    context.setActivePatchFace(patch, face);
    spline->makeGeometry(u, v, clump);
    std::vector<Vec> before = context.cGeom();
    spline->makeGeometry(u, v, nullptr);
    return {before, context.cGeom()};
  }

  vrtest::TempDir dir;
  VrSplinePrimitive* spline = nullptr;
  VrClumpingFXModule* clump = nullptr;
};

struct Root {
  double u;
  Vec p;
};

// The guide roots of the scene's point file, in guide order.
std::vector<Root> readRoots(ClumpScene& scene) {
  std::vector<Root> roots;
  std::unique_ptr<VpdReader> points = VpdReader::open(scene.dir.file("points/body.vuv"));
  EXPECT_NE(points, nullptr);
  if (!points) return roots;
  std::vector<float> values;
  for (int face = 0; face < scene.faces(); ++face) {
    if (!points->findFace(face) || !points->findBlock(0)) continue;
    std::uint32_t id = 0;
    while (points->readPrim(id, values)) {
      Root root{values[0], Vec()};
      EXPECT_TRUE(scene.patch->evalGeom(values[0], values[1], face, root.p, true));
      roots.push_back(root);
    }
  }
  return roots;
}

// Every sampled texel of the region map names a guide whose root is nearest by distance over
// `radius(root u)`; answers how many texels were checked.
int expectNearestRegions(ClumpScene& scene, const std::vector<Root>& roots,
                         const std::function<double(double)>& radius) {
  std::string error;
  std::shared_ptr<VrPtexTexture> map = VrPtexTexture::open(scene.dir.file("maps/body.ptx"), error);
  EXPECT_NE(map, nullptr) << error;
  if (!map) return 0;
  auto score = [&](size_t g, const Vec& q) { return (roots[g].p - q).length() / radius(roots[g].u); };
  int checked = 0;
  for (int face = 0; face < scene.faces(); face += 2) {
    const vrptex::FaceInfo& info = map->getFaceInfo(face);
    for (int j = 0; j < info.res.v(); j += 2)
      for (int i = 0; i < info.res.u(); i += 3) {
        float rgb[3];
        EXPECT_TRUE(map->getPixel(face, i, j, rgb, 0, 3));
        const unsigned id = vrutil::decodeRGB2Id(255.0 * rgb[0] + 0.5, 255.0 * rgb[1] + 0.5, 255.0 * rgb[2] + 0.5);
        Vec q;
        scene.patch->evalGeom((i + 0.5) / info.res.u(), (j + 0.5) / info.res.v(), face, q, true);
        size_t best = 0;
        for (size_t g = 1; g < roots.size(); ++g)
          if (score(g, q) < score(best, q)) best = g;
        EXPECT_GE(id, 1u);
        if (id < 1 || id > roots.size()) return checked;
        EXPECT_NEAR(score(id - 1, q), score(best, q), 1e-6 * (1.0 + score(best, q)))
            << face << " " << i << " " << j;
        ++checked;
      }
  }
  return checked;
}

}  // namespace

TEST(VrClumpingFXModule, StagesAgainstHandValues) {
  enum Expect { Unchanged, OnGuide, FlatAlongB, FlatAlongA, PartWayToGuide };
  struct Case {
    const char* name;
    unsigned id;  // region id of every face
    const char* clump;
    const char* flatness;
    const char* twist;           // an older file's twist, in half turns; null: none
    const char* controlMask;     // null: control maps off
    unsigned char controlTexel;  // the control map of every face
    Expect expect;
    unsigned errors;
    double kept;  // PartWayToGuide: the share of the offset from the guide that stays
  };
  const Case cases[] = {
      {"id 0 leaves the primitive alone", 0, "1.0", "0.0", nullptr, nullptr, 0, Unchanged, 0, 0},
      {"a guide id beyond the file", 2, "1.0", "0.0", nullptr, nullptr, 0, Unchanged, 1, 0},
      {"clump 1 at scale 1", 1, "1.0", "0.0", nullptr, nullptr, 0, OnGuide, 0, 0},
      {"flatness 1", 1, "0.0", "1.0", nullptr, nullptr, 0, FlatAlongB, 0, 0},
      {"half a turn of twist: flat along A", 1, "0.0", "1.0", "0.5", nullptr, 0, FlatAlongA, 0, 0},
      {"control map 0.2 keeps 0.8", 1, "1.0", "0.0", nullptr, "1.0", 51, PartWayToGuide, 0, 0.8},
      {"control mask 0.5, full map", 1, "1.0", "0.0", nullptr, "0.5", 255, PartWayToGuide, 0, 0.5},
      {"control mask 0 keeps all", 1, "1.0", "0.0", nullptr, "0.0", 255, PartWayToGuide, 0, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    vrtest::CaptureLogger log;
    ClumpScene scene;
    scene.guides({{5, 0.5, 0.5}});
    scene.regions([&](int) { return c.id; });
    scene.clump->setAttr("clump", c.clump, "expr");
    scene.clump->setAttr("clumpScale", "rampUI(0,1,1)", "rampUI");
    scene.clump->setAttr("flatness", c.flatness, "expr");
    scene.clump->setAttr("flatnessScale", "rampUI(0,1,1)", "rampUI");
    scene.clump->setAttr("cvAttr", "true", "bool");
    if (c.twist) scene.clump->setAttr("twist", c.twist, "expr");
    if (c.controlMask) {
      scene.clump->setAttr("useControlMaps", "true", "bool");
      scene.clump->setAttr("controlMask", c.controlMask, "expr");
      scene.clump->setAttr("controlMapDir", "control/", "string");
      writeFaceMap(scene.dir.file("control/body.ptx"), scene.faces(), 1,
                   [&](int, unsigned char* texel) { texel[0] = c.controlTexel; });
    }
    scene.spline->initDescription();
    ASSERT_EQ(scene.clump->numClumpGuides(), 1u);
    const VrClumpGuide& guide = scene.clump->clumpGuides()[0];
    ASSERT_TRUE(guide.valid);

    const auto [before, after] = scene.build(10, 0.25, 0.75);
    ASSERT_EQ(before.size(), after.size());
    ASSERT_EQ(after.size(), guide.cvs.size());
    EXPECT_EQ(after[0], before[0]);  // the root never moves
    for (size_t i = 1; i < after.size(); ++i) {
      SCOPED_TRACE(i);
      switch (c.expect) {
        case Unchanged:
          EXPECT_EQ(after[i], before[i]);
          break;
        case OnGuide: {
          EXPECT_NEAR((after[i] - guide.cvs[i]).length(), 0.0, 1e-12);
          // cvAttr: the clump amount per CV and the guide copy travel with the primitive.
          const auto* amount = scene.spline->context().cvAttr("ClumpingAmount");
          const auto* copy = scene.spline->context().cvAttr("ClumpingGuide");
          ASSERT_TRUE(amount && copy);
          EXPECT_EQ((*amount)[i], Vec(1, 1, 1));
          EXPECT_EQ((*copy)[i], guide.cvs[i]);
          break;
        }
        case FlatAlongB:
        case FlatAlongA: {
          // Straight hairs on a flat patch: the frame stays (N, U, V), or (N, V, -U) turned a
          // quarter turn; the offset from the guide loses its part along the frame's B.
          const Vec was = before[i] - guide.cvs[i], is = after[i] - guide.cvs[i];
          const Vec& lost = c.expect == FlatAlongB ? guide.B : guide.A;
          const Vec& kept = c.expect == FlatAlongB ? guide.A : guide.B;
          EXPECT_NEAR(is.dot(lost), 0.0, 1e-12);
          EXPECT_NEAR(is.dot(kept), was.dot(kept), 1e-12);
          EXPECT_NEAR(is.dot(guide.T), was.dot(guide.T), 1e-12);
          EXPECT_GT(std::fabs(was.dot(lost)), 0.1);
          break;
        }
        case PartWayToGuide:
          EXPECT_NEAR((after[i] - guide.cvs[i] - (before[i] - guide.cvs[i]) * c.kept).length(), 0.0, 1e-6);
          break;
      }
    }
    ASSERT_EQ(log.errors().size(), c.errors);
    if (c.errors) {
      EXPECT_EQ(log.errors()[0], "Clumping guide ID larger than number in vuv file (Clumping, 1(guide ID) "
                                 "1(vuv file size) [Clumping,hair,coll]");
    }
  }
}

TEST(VrClumpingFXModule, MissingFilesLeaveTheModuleWithoutGuides) {
  vrtest::CaptureLogger log;
  ClumpScene scene;
  scene.spline->initDescription();
  EXPECT_EQ(scene.clump->numClumpGuides(), 0u);
  EXPECT_EQ(log.warnings(), std::vector<std::string>{"Skipping body since no vuv file found for it."});
  scene.dir.write("points/body.vuv", "not a point file");
  log.messages.clear();
  vrutil::clearFileCache();
  scene.spline->initDescription();
  EXPECT_EQ(scene.clump->numClumpGuides(), 0u);
  ASSERT_EQ(log.errors().size(), 1u);
  EXPECT_EQ(log.errors()[0], "Failed to open VPD file: " + scene.dir.file("points/body.vuv"));
}

TEST(VrClumpingFXModule, GuidesReadSeriallyAndInParallelAreIdentical) {
  ClumpScene scene;
  std::vector<Point> points;
  for (int face = 0; face < scene.faces(); ++face)
    for (int k = 0; k < 3; ++k) points.push_back({face, 0.2 + 0.3 * k, 0.9 - 0.25 * k});
  scene.guides(points);
  scene.spline->setAttr("length", "1 + 0.5 * $u", "expr");
  scene.spline->setAttr("offU", "0.4 * $v", "expr");
  scene.spline->initDescription();
  std::string error;
  auto reader = VpdFileCachedReader::open(scene.dir.file("points/body.vuv"), &error);
  ASSERT_NE(reader, nullptr) << error;
  VrClumpGuides serial, parallel;
  const size_t saved = VrTaskManager::threadCount();
  VrTaskManager::setThreadCount(2);
  ASSERT_TRUE(serial.readClumpGuides(scene.spline, scene.clump, scene.description, *reader, scene.patch, nullptr, "p"));
  ASSERT_TRUE(parallel.readClumpGuidesInParallel(scene.spline, scene.clump, scene.description, *reader, scene.patch,
                                                 nullptr, "p"));
  VrTaskManager::setThreadCount(saved);
  ASSERT_EQ(serial.numClumpGuides(), points.size());
  ASSERT_EQ(parallel.numClumpGuides(), points.size());
  for (size_t i = 0; i < points.size(); ++i) {
    const VrClumpGuide &a = serial.clumpGuides()[i], &b = parallel.clumpGuides()[i];
    EXPECT_EQ(a.face, points[i].face);
    EXPECT_TRUE(a.valid);
    EXPECT_EQ(std::tie(a.face, a.u, a.v, a.cvs, a.length, a.valid), std::tie(b.face, b.u, b.v, b.cvs, b.length, b.valid));
  }
}

TEST(VrClumpingFXModule, RendersOnOneAndTwoThreadsAreIdentical) {
  // Texts read the per-CV "t", the clump length and the guide id: each worker sees its own. The
  // twist and the control maps are read per primitive too.
  auto render = [](const char* offset) {
    ClumpScene scene;
    std::vector<Point> points;
    for (int face = 0; face < scene.faces(); face += 3) points.push_back({face, 0.5, 0.5});
    scene.guides(points);
    scene.regions([&](int face) { return static_cast<unsigned>(face / 3 + 1); });
    scene.description->setActive("RandomGenerator");
    scene.description->activeGenerator()->setAttr("density", "40");
    scene.spline->setAttr("offU", "0.6 * $v", "expr");
    scene.clump->setAttr("curl", "0.5 + 0.1 * $clumpLength + 0.01 * $ClumpingId", "expr");
    scene.clump->setAttr("curlScale", "rampUI(0,0.5,1:1,1,1)", "rampUI");
    scene.clump->setAttr("offset", offset, "expr");
    scene.clump->setAttr("twist", "0.02 * $ClumpingId", "expr");
    scene.clump->setAttr("useControlMaps", "true", "bool");
    scene.clump->setAttr("controlMask", "0.5 + 0.5 * $u", "expr");
    scene.clump->setAttr("controlMapDir", "control/", "string");
    writeFaceMap(scene.dir.file("control/body.ptx"), scene.faces(), 1,
                 [](int face, unsigned char* texel) { texel[0] = static_cast<unsigned char>(100 + 9 * face); });
    scene.clump->setAttr("noise", "0.1", "expr");
    scene.clump->setAttr("noiseScale", "rampUI(0,0,1:1,1,1)", "rampUI");
    return vrtest::sameThreeWays(scene.description, "body", scene.faces());
  };
  const auto cvs = render("0.4 * $t");
  // The module did reshape them: unclumped, every spline here is a straight line.
  size_t bent = 0;
  for (const auto& entry : cvs) {
    const std::vector<Vec>& p = entry.second;
    if ((p[2] - p[0]).cross(p.back() - p[0]).length() > 1e-6) ++bent;
  }
  EXPECT_GT(bent, cvs.size() / 2);
  // The per-CV offset took effect.
  EXPECT_NE(cvs, render("0"));
}

TEST(VrClumpMaker, RegionsAreTheNearestGuideAndTheSameSeedGivesTheSameFiles) {
  ClumpScene scene;
  ASSERT_TRUE(scene.make(7));
  std::string value, type;
  ASSERT_TRUE(scene.clump->getAttr("mapInitialized", value, type));
  EXPECT_EQ(value, "true");
  const std::string vuv = vrtest::readText(scene.dir.file("points/body.vuv"));
  const std::string ptx = vrtest::readText(scene.dir.file("maps/body.ptx"));
  ASSERT_TRUE(scene.make(7));
  EXPECT_EQ(vrtest::readText(scene.dir.file("points/body.vuv")), vuv);
  EXPECT_EQ(vrtest::readText(scene.dir.file("maps/body.ptx")), ptx);
  ASSERT_TRUE(scene.make(8));
  EXPECT_NE(vrtest::readText(scene.dir.file("points/body.vuv")), vuv);

  // Guide roots as the file holds them, in guide order.
  ASSERT_TRUE(scene.make(7));
  const std::vector<Root> roots = readRoots(scene);
  ASSERT_GT(roots.size(), 5u);
  EXPECT_GT(expectNearestRegions(scene, roots, [](double) { return 1.0; }), 20);

  // Clumped, hairs end much closer to their guide's tip than unclumped.
  scene.clump->setAttr("clumpScale", "rampUI(0,0.2,1:1,0.9,1)", "rampUI");
  scene.spline->setAttr("offU", "0.8 * ($u - 0.5)", "expr");
  scene.spline->setAttr("length", "2.0", "expr");
  double mean[2] = {0.0, 0.0};
  for (int on = 0; on < 2; ++on) {
    scene.clump->setAttr("clump", on ? "1.0" : "0.0", "expr");
    scene.spline->initDescription();
    int count = 0;
    for (int face = 0; face < scene.faces(); ++face)
      for (double u : {0.1, 0.45, 0.8})
        for (double v : {0.15, 0.6, 0.9}) {
          const auto built = scene.build(face, u, v);
          Vec q;
          scene.patch->evalGeom(u, v, face, q, true);
          size_t best = 0;
          for (size_t g = 1; g < roots.size(); ++g)
            if ((roots[g].p - q).length() < (roots[best].p - q).length()) best = g;
          mean[on] += (built.second.back() - scene.clump->clumpGuides()[best].cvs.back()).length();
          ++count;
        }
    mean[on] /= count;
  }
  EXPECT_LT(mean[1], 0.3 * mean[0]) << mean[0] << " " << mean[1];
}

// Dense guides crowd the cells of the search grid, which then narrows; the regions stay the
// nearest guide's and the files are the same on one and two threads.
TEST(VrClumpMaker, DenseGuidesFindTheNearestOnAnyThreadCount) {
  for (const char* variance : {"0", "2 * $u - 1.2"}) {
    SCOPED_TRACE(variance);
    ClumpScene scene;
    scene.clump->setAttr("radiusVariance", variance, "expr");
    const size_t saved = VrTaskManager::threadCount();
    std::string files[2];
    for (int threads : {1, 2}) {
      VrTaskManager::setThreadCount(static_cast<size_t>(threads));
      VrTaskManager::setPatchMultithreading(threads > 1);
      ASSERT_TRUE(scene.make(3, 40.0));
      files[threads - 1] = vrtest::readText(scene.dir.file("points/body.vuv")) +
                           vrtest::readText(scene.dir.file("maps/body.ptx"));
    }
    VrTaskManager::setThreadCount(saved);
    VrTaskManager::setPatchMultithreading(false);
    EXPECT_EQ(files[0], files[1]);
    const std::vector<Root> roots = readRoots(scene);
    ASSERT_GT(roots.size(), 500u);
    EXPECT_GT(expectNearestRegions(scene, roots, [&](double u) {
      const double r = 1.0 + std::clamp(std::string(variance) == "0" ? 0.0 : 2.0 * u - 1.2, -1.0, 1.0);
      return r > 0.0 ? r : 1e-30;
    }), 20);
  }
}

// Fully clumped splines lie on their guide; a wind that follows the clump keeps them there,
// while a wind of their own blows each at its root. A clump type without its module is refused.
TEST(VrClumpingFXModule, AWindOfTheClumpTypeBlowsTheSplinesOfAClumpTogether) {
  for (const char* clumpType : {"1", "0", "2"}) {
    SCOPED_TRACE(clumpType);
    vrtest::CaptureLogger log;
    ClumpScene scene;
    scene.guides({{5, 0.5, 0.5}});
    scene.regions([](int) { return 1u; });
    scene.clump->setAttr("clumpScale", "rampUI(0,1,1)", "rampUI");
    VrFXModule* wind = scene.spline->addFXModule("WindFXModule");
    wind->setAttr("clumpType", clumpType, "uint");
    wind->setAttr("gustStrength", "3.0", "expr");
    scene.spline->initDescription();
    if (std::string(clumpType) == "2") {
      EXPECT_FALSE(wind->isActive());
      EXPECT_EQ(log.errors(), std::vector<std::string>{"Dependency check fails. Deactivating the module. "
                                                       "[Wind,hair,coll]"});
      continue;
    }
    const std::vector<Vec> a = scene.build(2, 0.3, 0.3).second;
    const std::vector<Vec> b = scene.build(13, 0.7, 0.6).second;
    const std::vector<Vec>& guide = scene.clump->clumpGuides()[0].cvs;
    double apart = 0.0, blown = 0.0;
    for (size_t i = 1; i < a.size(); ++i) {
      apart += (a[i] - b[i]).length();
      blown += (a[i] - guide[i]).length();
    }
    EXPECT_EQ(apart < 1e-9, std::string(clumpType) == "1") << apart;
    EXPECT_GT(blown, 0.01);
  }
}

// Point placement: `radiusVariance` read at each root widens or narrows its guide's region, and
// `ptLength` scales the guides grown at the points.
TEST(VrClumpMaker, RadiusVarianceWeighsRegionsAndPtLengthScalesGuides) {
  ClumpScene scene;
  ASSERT_TRUE(scene.make(7));
  const std::string even = vrtest::readText(scene.dir.file("maps/body.ptx"));
  const std::string points = vrtest::readText(scene.dir.file("points/body.vuv"));
  scene.clump->setAttr("radiusVariance", "2 * $u - 1.2", "expr");  // radii 0 (clamped) to 1.8
  ASSERT_TRUE(scene.make(7));
  EXPECT_EQ(vrtest::readText(scene.dir.file("points/body.vuv")), points);
  EXPECT_NE(vrtest::readText(scene.dir.file("maps/body.ptx")), even);
  const std::vector<Root> roots = readRoots(scene);
  ASSERT_GT(roots.size(), 5u);
  const int checked = expectNearestRegions(scene, roots, [](double u) {
    const double r = 1.0 + std::clamp(2.0 * u - 1.2, -1.0, 1.0);
    return r > 0.0 ? r : 1e-30;  // a radius of 0 takes no texel
  });
  EXPECT_GT(checked, 20);

  // A guide twice as long at ptLength 2, about the same root.
  scene.clump->setAttr("clump", "0.0", "expr");
  std::vector<Vec> tips;
  for (const char* length : {"1.0", "2.0"}) {
    scene.clump->setAttr("ptLength", length, "float");
    scene.spline->initDescription();
    ASSERT_GT(scene.clump->numClumpGuides(), 0u);
    const VrClumpGuide& guide = scene.clump->clumpGuides()[0];
    tips.push_back(guide.cvs.back() - guide.cvs.front());
  }
  EXPECT_NEAR((tips[1] - tips[0] * 2.0).length(), 0.0, 1e-12);
}

TEST(VrClumpingFXModule, AnOlderFilesTwistReadsInDegrees) {
  struct Case {
    const char* text;
    const char* converted;
    double degrees;
  };
  const Case cases[] = {
      {"0.5", "(0.5\n)*180.0 # auto converted", 90.0},
      {"$a=0.25;#-1.0,1.0\n$a", "$a=0.25;(#-1.0,1.0\n$a\n)*180.0 # auto converted", 45.0},
      {"0.5 # was ; once", "(0.5 # was ; once\n)*180.0 # auto converted", 90.0},
      {"if ($u > 2) { $a = 1; } else { $a = -0.5; }\n$a",
       "if ($u > 2) { $a = 1; } else { $a = -0.5; }(\n$a\n)*180.0 # auto converted", -90.0},
  };
  ClumpScene scene;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const std::string converted = VrClumpingFXModule::convertedTwist(c.text);
    EXPECT_EQ(converted, c.converted);
    VrExpression expression("probe", "ClumpingFXModule", scene.description, converted, "float");
    ASSERT_TRUE(expression.isValid());
    EXPECT_DOUBLE_EQ(expression.eval(0.5, 0.5, 0)[0], c.degrees);
    // The file keeps the value as it was written.
    scene.clump->setAttr("twist", c.text, "expr");
    std::string kept;
    ASSERT_TRUE(scene.clump->getAttr("twist", kept));
    EXPECT_EQ(kept, c.text);
  }
}

// "break" weighs the copy of the guide's shape where a spline and its clump guide stand in
// different guide regions: a = w a + (1 - w), w = sqrt(break(clump guide) x break(spline)), each
// the value of its dominant interpolation guide, here read from a guide cache.
TEST(VrClumpingFXModule, BreakBetweenRegionsCopiesTheGuideShape) {
  struct Case {
    const char* name;
    const char* regionMask;  // the spline's; "0.0" turns regions off
    int face;                // the spline at (u, v) of it
    double u, v;
    double w1, w2;  // at CVs 1 and 2
  };
  const Case cases[] = {
      {"another region", "1.0", 10, 0.5, 0.5, 0.4, 0.5},
      {"the clump guide's region", "1.0", 5, 0.2, 0.5, 1.0, 1.0},
      {"regions off", "0.0", 10, 0.5, 0.5, 1.0, 1.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    vrtest::CaptureLogger log;
    ClumpScene scene;
    VrSplinePrimitive& spline = *scene.spline;
    spline.setAttr("iMethod", "1");
    for (int face : {5, 10}) {
      VrGuide& g = spline.addGuide();
      g.setId(std::to_string(face));
      g.setPatch(scene.patch);
      g.setFaceId(face);
      g.setU(0.5);
      g.setV(0.5);
      g.setOrigIGeom({Vec(0, 0, 0), Vec(0, 1, 0), Vec(0, 2, 0)});
    }
    // Guide 0 (face 5, region 1) leans along U, guide 1 (face 10, region 2) stands straight.
    std::vector<VrCacheCurve> rig(2);
    rig[0] = {0, {Vec(0, 0, 0), Vec(0.5, 1, 0), Vec(1, 2, 0)}, "local", {{1.0f}, {0.64f}, {0.25f}}};
    rig[1] = {1, {Vec(0, 0, 0), Vec(0, 1, 0), Vec(0, 2, 0)}, "local", {{1.0f}, {0.25f}, {1.0f}}};
    ASSERT_TRUE(AlembicUtil(scene.dir.file("guides.abc")).writeCurves(rig));
    spline.setAttr("useCache", "true", "bool");
    spline.setAttr("cacheFileName", scene.dir.file("guides.abc"), "string");
    spline.setAttr("regionMask", c.regionMask, "expr");
    spline.setAttr("regionMap", "regions/", "string");
    writeRegions(scene.dir.file("regions/body.ptx"), scene.faces(), [](int face) { return face % 4 < 2 ? 1u : 2u; });
    scene.guides({{5, 0.5, 0.5}});
    scene.regions([](int) { return 1u; });
    scene.clump->setAttr("clump", "0.0", "expr");
    spline.initDescription();
    ASSERT_EQ(scene.clump->numClumpGuides(), 1u);
    const std::vector<Vec>& G = scene.clump->clumpGuides()[0].cvs;
    const auto [before, after] = scene.build(c.face, c.u, c.v);
    ASSERT_EQ(after.size(), 3u);
    ASSERT_EQ(G.size(), 3u);
    const double w[] = {1.0, c.w1, c.w2};
    for (size_t i = 1; i < 3; ++i) {
      const Vec expected = before[i] * w[i] + (G[i] - G[0] + before[0]) * (1.0 - w[i]);
      EXPECT_NEAR((after[i] - expected).length(), 0.0, 1e-6) << i;
    }
    EXPECT_EQ((after[2] - before[2]).length() > 0.1, c.w2 < 1.0);
    EXPECT_TRUE(log.errors().empty()) << log.errors()[0];
  }
}
