#include "generators/VrRandomGenerator.h"

#include "base/VrModules.h"
#include "base/VrTaskManager.h"
#include "base/vrutilCodec.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "expressions/VrSeExprHash.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "geometry/vrutilSamples.h"
#include "io/ptex/VrPtexWriter.h"
#include "io/vpd/VpdWriter.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrRenderer.h"
#include "support/CaptureLogger.h"
#include "support/QuadGrid.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

namespace {

struct Record {
  int face;
  unsigned id;
  double u, v;
  bool operator<(const Record& o) const { return std::tie(face, id, u, v) < std::tie(o.face, o.id, o.u, o.v); }
  bool operator==(const Record& o) const { return face == o.face && id == o.id && u == o.u && v == o.v; }
};
using Records = std::vector<Record>;

// Records (face, id, u, v) of every primitive emitted for sample 0; `emit` false refuses all.
class CountingRenderer : public VrRenderer {
 public:
  explicit CountingRenderer(VrDescription* description) : VrRenderer(description) {}
  std::string typeName() const override { return "CountingRenderer"; }
  bool okToEmit(int, double, double) override { return emit; }
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>&) override {
    if (sample == 0) records.push_back({face, description()->activePrimitive()->context().id(), u, v});
  }
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>&) override {
    std::lock_guard<std::mutex> lock(mutex);
    if (sample == 0) records.push_back({face, context.id(), u, v});
  }
  Records take() {
    Records out;
    out.swap(records);
    std::sort(out.begin(), out.end());
    return out;
  }

  Records records;
  bool emit = true;

 private:
  std::mutex mutex;
};

using Cage = vrtest::QuadGrid;
using vrtest::quadGrid;

struct Scene {
  explicit Scene(const Cage& cage, const std::string& collection = "randomGroom") {
    surfaces.push_back(cage.surface());
    palette.reset(new VrPalette);
    palette->setAttr("name", collection);
    description = new VrDescription;
    palette->addDescription(description);
    description->setAttr("name", "fur");
    description->setActive("SplinePrimitive");
    EXPECT_TRUE(description->setActive("RandomGenerator"));
    generator = dynamic_cast<VrRandomGenerator*>(description->activeGenerator());
    patch = new VrSubdPatch(description);
    patch->setName("skin");
    description->addPatch(patch);
    patch->bindGeometry(nullptr, surfaces.back().get(), false);
    renderer = std::make_unique<CountingRenderer>(description);
    description->setActiveRenderer(renderer.get());
  }
  ~Scene() { description->setActiveRenderer(nullptr); }

  void bind(const Cage& reference, const Cage& animated) {
    surfaces.push_back(reference.surface());
    surfaces.push_back(animated.surface());
    patch->unbindGeometry();
    patch->bindGeometry(surfaces[surfaces.size() - 2].get(), surfaces.back().get(), false);
  }
  int faces() const { return static_cast<int>(patch->numFaces()); }
  unsigned id() { return description->activePrimitive()->context().id(); }

  Records run(double start = 0.0, double percent = 1.0) {
    for (int face = 0; face < faces(); ++face) generator->generate(face, {patch}, start, percent);
    return renderer->take();
  }
  Records runFace(int face, double start = 0.0, double percent = 1.0) {
    generator->generate(face, {patch}, start, percent);
    return renderer->take();
  }
  // Faces spread over `threads` workers, each with its own contexts, as a parallel render does.
  Records runInParallel(int threads) {
    VrTaskManager::setSeExprMultithreading(true);
    tbb::task_arena arena(threads);
    arena.execute([&] {
      tbb::parallel_for(tbb::blocked_range<int>(0, faces(), 1), [&](const tbb::blocked_range<int>& range) {
        VrExpression::initTLS();
        VrPrimitiveContext context(description->activePrimitive()->context());
        std::unique_ptr<VrGeneratorContext> record = generator->newGeneratorContext();
        context.setGeneratorContext(record.get());
        generator->initDescriptionInParallel(context);
        for (int face = range.begin(); face != range.end(); ++face)
          generator->generateInParallel(context, face, {patch}, 0.0, 1.0);
        generator->finishDescriptionInParallel(context);
      });
    });
    VrTaskManager::setSeExprMultithreading(false);
    return renderer->take();
  }

  std::vector<std::unique_ptr<SgSubdSurface>> surfaces;
  std::unique_ptr<VrPalette> palette;
  VrDescription* description = nullptr;
  VrRandomGenerator* generator = nullptr;
  VrSubdPatch* patch = nullptr;
  std::unique_ptr<CountingRenderer> renderer;
};

std::map<std::pair<int, unsigned>, std::pair<double, double>> byIdentity(const Records& records) {
  std::map<std::pair<int, unsigned>, std::pair<double, double>> out;
  for (const Record& r : records) out[{r.face, r.id}] = {r.u, r.v};
  return out;
}

// The statistics lines of a capture.
std::vector<std::string> stats(const vrtest::CaptureLogger& log) { return log.texts(vrmsg::Stats); }

// The number after `key` in a statistics line.
long statValue(const std::string& line, const std::string& key) {
  const size_t at = line.find(key);
  return at == std::string::npos ? -1 : std::stol(line.substr(at + key.size()));
}

struct StatsLevel {
  explicit StatsLevel(unsigned level) : saved(VRStatsLevel) { VRStatsLevel = level; }
  ~StatsLevel() { VRStatsLevel = saved; }
  unsigned saved;
};

// The face's table set, as the generator hashes it.
unsigned tableSet(unsigned descriptionId, const std::string& geometry, int face) {
  double key[3] = {static_cast<double>(descriptionId), static_cast<double>(vrutil::hashString(geometry)),
                   static_cast<double>(face)};
  return static_cast<unsigned>(static_cast<int>(vrSeExprHash(3, key) * 1600.0));
}

}  // namespace

TEST(VrRandomGeneratorAttrs, OrderAndConversions) {
  std::unique_ptr<VrObject> made(static_cast<VrObject*>(VrCreateObject("RandomGenerator", nullptr)));
  auto* generator = dynamic_cast<VrRandomGenerator*>(made.get());
  ASSERT_NE(generator, nullptr);
  const std::vector<std::string>& names = generator->attrNames();
  ASSERT_EQ(names.size(), 17u);
  EXPECT_EQ(std::vector<std::string>(names.begin() + 10, names.end()),
            (std::vector<std::string>{"density", "mask", "dcFlag", "scFlag", "usePoints", "pointDir", "ptLength"}));

  for (const auto& c : std::vector<std::pair<const char*, double>>{{"0", 1e-6}, {"-3", 1e-6}, {"2.5", 2.5}}) {
    EXPECT_TRUE(generator->setAttr("density", c.first));
    EXPECT_EQ(generator->density(), c.second) << c.first;
  }

  generator->setAttr("dcFlag", "true");
  EXPECT_EQ(generator->dcExprInternal().expression(), "map(\"DC/\")");
  generator->setAttr("dcFlag", "false");
  EXPECT_EQ(generator->dcExprInternal().expression(), "1.0");

  EXPECT_TRUE(generator->setAttr("inputDir", "/points/here"));
  EXPECT_FALSE(generator->hasAttr("inputDir"));
  EXPECT_EQ(generator->pointDir(), "/points/here/");
}

TEST(VrRandomGeneratorAttrs, MaskWarningsForPointForms) {
  VrRandomGenerator generator(nullptr);
  vrtest::CaptureLogger log;
  const std::string tail = " is not recommended in RandomGenerator mask. Use ";
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"$P[0] + $Nref[1] + $Pg[2]",
       {"Use of $P or $Pref" + tail + "$Pg or $Prefg instead. [mask]",
        "Use of $N or $Nref" + tail + "$Ng or $Nrefg instead. [mask]"}},
      {"$dPdvref[0] * $Prefw[1]",
       {"Use of $Pw or $Prefw" + tail + "$Pgw or $Prefgw instead. [mask]",
        "Use of $dPdv or $dPdvref is not recommendedin RandomGenerator mask. Use $dPdvg or $dPdvrefg instead. [mask]"}},
      {"$dPdu[0]",
       {"Use of $dPdu or $dPduref is not recommendedin RandomGenerator mask. Use $dPdug or $dPdurefg instead. [mask]"}},
      {"$Pgw[0] * $Nrefg[1] * $u", {}},
  };
  for (const auto& c : cases) {
    log.clear();
    generator.setAttr("mask", c.first);
    EXPECT_EQ(log.warnings(), c.second) << c.first;
  }
}

TEST(VrRandomGeneratorScatter, CountTableAndStatisticsByHand) {
  Scene scene(quadGrid(2, 1));
  scene.generator->setAttr("density", "10");
  vrtest::CaptureLogger log;
  StatsLevel level(3);
  const Records records = scene.runFace(1);
  // Area 1 times density 10: exactly 10, no fraction to round.
  ASSERT_EQ(records.size(), 10u);
  const unsigned set = tableSet(scene.description->descriptionId(), "skin", 1);
  for (unsigned k = 0; k < 10; ++k) {
    double u, v;
    vrutil::getSample(k, scene.description->descriptionId(), set, u, v);
    EXPECT_EQ(records[k].id, k + 1);
    EXPECT_EQ(records[k].u, u);
    EXPECT_EQ(records[k].v, v);
  }
  EXPECT_EQ(scene.id(), 10u);
  ASSERT_EQ(stats(log).size(), 1u);
  EXPECT_EQ(stats(log)[0], "fur|skin[1] 10 emitted (max=10 density=10.00000 area=1.00000 group=" +
                               std::to_string(set) + " rounded=0 samples=10 sc=10 dc=0), 0 culled.");
  EXPECT_EQ(log.messages[0].flags, vrmsg::Stats | vrmsg::CatGenerator | 3u);
}

TEST(VrRandomGeneratorScatter, TinyDensityAndUnboundPatchGiveTheEmptyLine) {
  Scene scene(quadGrid(1, 1));
  scene.generator->setAttr("density", "0");
  const std::string name = "skin";
  const bool up = 1e-6 > scene.generator->roundOffInternal().eval(0.0, 0.0, 0, &name).x;
  vrtest::CaptureLogger log;
  StatsLevel level(3);
  EXPECT_EQ(scene.runFace(0).size(), up ? 1u : 0u);
  if (!up) {
    EXPECT_EQ(stats(log), std::vector<std::string>{"fur|skin[0] 0 emitted (max=0 density=0.00000 area=1.00000)"});
  }

  log.clear();
  scene.generator->setAttr("density", "5");
  scene.patch->unbindGeometry();
  EXPECT_TRUE(scene.runFace(0).empty());
  EXPECT_EQ(stats(log), std::vector<std::string>{"fur|skin[0] 0 emitted (max=0 density=5.00000 area=0.00000)"});
  EXPECT_EQ(scene.id(), 0u);
}

TEST(VrRandomGeneratorInvariants, OneAndTwoThreadsSerialAndParallelAreBitIdentical) {
  Scene scene(quadGrid(4, 4, 1.0f, 1.3f));
  scene.generator->setAttr("density", "23.7");
  scene.generator->setAttr("mask", "0.4 + 0.6 * $u");
  scene.generator->setAttr("cullFlag", "true");
  scene.generator->setAttr("cullExpr", "rand() < 0.1");
  const Records serial = scene.run();
  EXPECT_GT(serial.size(), 150u);
  EXPECT_EQ(scene.runInParallel(1), serial);
  EXPECT_EQ(scene.runInParallel(2), serial);
  EXPECT_EQ(scene.run(), serial);
}

TEST(VrRandomGeneratorInvariants, OnlyTheAnimatedSurfaceChangingKeepsEveryLocation) {
  Cage rest = quadGrid(3, 2, 1.0f, 2.0f);
  Scene scene(rest);
  scene.generator->setAttr("density", "12");
  const Records still = scene.run();
  Cage moved = rest;
  for (size_t i = 0; i < moved.verts.size(); i += 3) {
    moved.verts[i] *= 1.7f;
    moved.verts[i + 2] = 0.3f * static_cast<float>(i % 7);
  }
  scene.bind(rest, moved);
  EXPECT_EQ(scene.run(), still);
  scene.bind(moved, moved);  // the reference surface decides
  EXPECT_NE(scene.run(), still);
}

TEST(VrRandomGeneratorInvariants, DoublingTheDensityKeepsTheFirstPoints) {
  Scene scene(quadGrid(3, 3, 1.0f, 1.6f));
  scene.generator->setAttr("density", "17");
  const auto sparse = byIdentity(scene.run());
  scene.generator->setAttr("density", "34");
  const auto dense = byIdentity(scene.run());
  EXPECT_GT(dense.size(), sparse.size() * 19 / 10);
  for (const auto& entry : sparse) {
    auto found = dense.find(entry.first);
    ASSERT_NE(found, dense.end());
    EXPECT_EQ(found->second, entry.second);
  }
}

TEST(VrRandomGeneratorInvariants, MaskKeepsTheEarliestPointsWithTheirIds) {
  Scene scene(quadGrid(2, 2));
  scene.generator->setAttr("density", "41");
  const Records all = scene.run();
  ASSERT_EQ(all.size(), 4u * 41u);
  scene.generator->setAttr("mask", "0.5");
  const Records half = scene.run();
  // i / 41 < 0.5: the first 21 points of every face.
  ASSERT_EQ(half.size(), 4u * 21u);
  const auto full = byIdentity(all);
  for (const Record& r : half) {
    EXPECT_LE(r.id, 21u);
    EXPECT_EQ(full.at({r.face, r.id}), std::make_pair(r.u, r.v));
  }
  scene.generator->setAttr("mask", "0.01");  // below 1/41: the first point only
  const Records first = scene.run();
  ASSERT_EQ(first.size(), 4u);
  for (const Record& r : first) EXPECT_EQ(r.id, 1u);
  scene.generator->setAttr("mask", "0");
  EXPECT_TRUE(scene.run().empty());
  scene.generator->setAttr("mask", "1.0");
  EXPECT_EQ(scene.run(), all);
}

TEST(VrRandomGeneratorInvariants, WindowsKeepIdsAndHalvesMakeTheWhole) {
  Scene scene(quadGrid(2, 2));
  scene.generator->setAttr("density", "40");
  const Records all = scene.run();
  ASSERT_EQ(all.size(), 160u);
  const Records firstHalf = scene.run(0.0, 0.5);
  EXPECT_EQ(scene.id(), 40u);  // ids after a face do not depend on the window
  const Records secondHalf = scene.run(0.5, 0.5);
  ASSERT_EQ(firstHalf.size(), 80u);
  ASSERT_EQ(secondHalf.size(), 80u);
  for (const Record& r : firstHalf) EXPECT_LE(r.id, 20u);
  for (const Record& r : secondHalf) EXPECT_GT(r.id, 20u);
  Records joined = firstHalf;
  joined.insert(joined.end(), secondHalf.begin(), secondHalf.end());
  std::sort(joined.begin(), joined.end());
  EXPECT_EQ(joined, all);
}

TEST(VrRandomGeneratorCompensation, ALongFaceReadsTwiceTheTable) {
  Scene scene(quadGrid(1, 1, 2.0f, 1.0f));
  EXPECT_EQ(scene.generator->surfaceCompensation(*scene.patch, 0), 2.0);
  scene.generator->setAttr("density", "20");  // area 2: 40 points
  vrtest::CaptureLogger log;
  StatsLevel level(3);
  const Records records = scene.runFace(0);
  ASSERT_EQ(records.size(), 40u);
  const long read = statValue(stats(log).at(0), " samples=");
  EXPECT_EQ(statValue(stats(log)[0], " sc="), read);
  EXPECT_GT(read, 60);
  EXPECT_LT(read, 100);
  // Exactly the table points whose v doubled stays in the square were taken, the last one
  // read among them.
  const unsigned set = tableSet(scene.description->descriptionId(), "skin", 0);
  std::vector<std::pair<double, double>> taken;
  for (unsigned k = 0; k < static_cast<unsigned>(read); ++k) {
    double u, v;
    vrutil::getSample(k, scene.description->descriptionId(), set, u, v);
    if (v * 2.0 <= 1.0) taken.emplace_back(u, v * 2.0);
  }
  ASSERT_EQ(taken.size(), 40u);
  for (const Record& r : records) EXPECT_EQ(taken[r.id - 1], std::make_pair(r.u, r.v));

  log.clear();
  scene.generator->setAttr("scFlag", "false");
  EXPECT_EQ(scene.generator->surfaceCompensation(*scene.patch, 0), 1.0);
  EXPECT_EQ(scene.runFace(0).size(), 40u);
  EXPECT_EQ(statValue(stats(log).at(0), " samples="), 40);
  EXPECT_EQ(statValue(stats(log)[0], " sc="), 0);

  scene.generator->setAttr("scFlag", "true");
  Scene tall(quadGrid(1, 1, 1.0f, 4.0f));
  EXPECT_EQ(tall.generator->surfaceCompensation(*tall.patch, 0), 0.25);
  Scene almost(quadGrid(1, 1, 1.08f, 1.0f));
  EXPECT_EQ(almost.generator->surfaceCompensation(*almost.patch, 0), 1.0);
  Scene needle(quadGrid(1, 1, 30.0f, 1.0f));
  EXPECT_EQ(needle.generator->surfaceCompensation(*needle.patch, 0), 10.0);
}

// A density past any count (1e300) is the largest count: the face runs to the tiling stop with
// its warnings instead of wrapping round to nothing.
TEST(VrRandomGeneratorTiling, AnOverflowingDensityRunsToTheStopInsteadOfNothing) {
  Scene scene(quadGrid(1, 1), "hugeGroom");
  scene.generator->setAttr("density", "1e300");
  scene.renderer->emit = false;
  vrtest::CaptureLogger log;
  scene.runFace(0);
  ASSERT_EQ(log.warnings().size(), 2u);
  EXPECT_NE(log.warnings()[1].find("You have exceeded the number of samples"), std::string::npos);
  EXPECT_EQ(scene.id(), 2147483646u);
}

TEST(VrRandomGeneratorScatter, RegionPreviewKeepsIdsAndDensityCompensationCounts) {
  Scene scene(quadGrid(2, 1));
  scene.generator->setAttr("density", "30");
  const Records all = scene.run();
  unsigned char five[3];
  vrutil::encodeId2RGB(5, five);
  scene.generator->regionExpr().setExpression("$faceId == 1 ? [" + std::to_string(five[0]) + "," +
                                              std::to_string(five[1]) + "," + std::to_string(five[2]) +
                                              "] : [0,0,0]");
  scene.generator->setRegionIds({5});
  const Records region = scene.run();
  ASSERT_EQ(region.size(), 30u);
  const auto full = byIdentity(all);
  for (const Record& r : region) {
    EXPECT_EQ(r.face, 1);
    EXPECT_EQ(full.at({r.face, r.id}), std::make_pair(r.u, r.v));
  }
  scene.generator->clearRegions();

  // Density compensation: the map's value is asked once per point of the window; without a
  // map the face keeps floor(samples).
  scene.generator->setAttr("density", "30.4");
  scene.generator->setAttr("dcFlag", "true");
  vrtest::CaptureLogger log;
  StatsLevel level(3);
  scene.runFace(0, 0.0, 0.5);
  ASSERT_EQ(stats(log).size(), 1u);
  const long max = statValue(stats(log)[0], "(max=");
  EXPECT_TRUE(max == 15) << stats(log)[0];  // floor(30.4 or 31.4) / 2
  EXPECT_EQ(statValue(stats(log)[0], " dc="), 15);
}

TEST(VrRandomGeneratorScatter, DensityCompensationMapsLimitEachFace) {
  // DC/skin.ptx over two unit faces: painted values 1.0 and 110/255; the per-face maxima 0.5 and 1.
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  std::filesystem::create_directories(dir.file("DC"));
  VrPtexWriter::Options options;
  options.numFaces = 2;
  VrPtexWriter writer(dir.file("DC/skin.ptx"), options);
  vrptex::FaceInfo info;
  const uint8_t full = 255, partly = 110;
  ASSERT_TRUE(writer.writeConstantFace(0, info, &full));
  ASSERT_TRUE(writer.writeConstantFace(1, info, &partly));
  writer.metaData().setDouble("VrDCMax", {0.5, 1.0});
  ASSERT_TRUE(writer.close());

  Scene scene(quadGrid(2, 1));
  scene.palette->setAttr("vrDataPath", dir.path());
  scene.generator->setAttr("density", "40");
  const Records plain = scene.run();
  scene.generator->setAttr("dcFlag", "true");
  const Records compensated = scene.run();
  auto onFace = [](const Records& records, int face) {
    return std::count_if(records.begin(), records.end(), [&](const Record& r) { return r.face == face; });
  };
  EXPECT_EQ(onFace(plain, 0), 40);
  EXPECT_EQ(onFace(plain, 1), 40);
  // Face 0: floor(0.5 * 40) samples, all kept by the painted 1.0. Face 1: all 40 samples, the
  // painted 0.431 keeping those with i / 40 below it: the first 18.
  EXPECT_EQ(onFace(compensated, 0), 20);
  EXPECT_EQ(onFace(compensated, 1), 18);
  // The kept points are the earliest ones of the face's sequence, with their ids.
  const auto full1 = byIdentity(plain);
  for (const Record& r : compensated) EXPECT_EQ(full1.at({r.face, r.id}), std::make_pair(r.u, r.v));

  // A map whose maxima do not reach a face is an Error; the face keeps its samples.
  VrPtexWriter shorter(dir.file("DC/skin.ptx"), options);
  ASSERT_TRUE(shorter.writeConstantFace(0, info, &full));
  ASSERT_TRUE(shorter.writeConstantFace(1, info, &full));
  shorter.metaData().setDouble("VrDCMax", {0.5});
  ASSERT_TRUE(shorter.close());
  VrExpression::clearPtexs();
  EXPECT_EQ(onFace(scene.run(), 1), 40);
  EXPECT_TRUE(log.has("Invalid dcMax in density compensation map " + dir.path() + "/DC/skin.ptx"));
  VrExpression::clearPtexs();
}

TEST(VrRandomGeneratorPoints, PointFilesAddTheirPointsAfterTheScatter) {
  vrtest::TempDir dir;
  Scene scene(quadGrid(1, 1));
  scene.palette->setAttr("vrDataPath", dir.path());
  VrObject::ExternalContext pairs;
  scene.generator->getExternalContext(pairs, "g:");
  EXPECT_TRUE(pairs.empty());
  scene.generator->setAttr("usePoints", "true");
  scene.generator->setAttr("pointDir", "points/");
  scene.generator->setAttr("density", "3");
  EXPECT_EQ(scene.run().size(), 3u);  // no file yet: the scatter alone

  std::filesystem::create_directories(dir.file("points"));
  {
    auto writer = VpdWriter::open(dir.file("points/skin.vuv"), {0}, Vpd::PointPrimitive, 1, Vpd::SurfaceSpace,
                                  {Vpd::LocationBlock}, 0.0f, 0);
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->startFace(0));
    ASSERT_TRUE(writer->startBlock(Vpd::LocationBlock));
    for (unsigned k = 0; k < 4; ++k) writer->writePrim(k, {0.1f * static_cast<float>(k + 1), 0.5f});
    ASSERT_TRUE(writer->close());
  }
  scene.generator->getExternalContext(pairs, "g:");
  ASSERT_EQ(pairs.size(), 1u);
  EXPECT_EQ(pairs[0].first, "g:Point");
  vrutil::clearFileCache();
  scene.generator->initDescription();
  const Records all = scene.run();
  ASSERT_EQ(all.size(), 7u);
  // The file's points follow the scatter's ids on the face.
  EXPECT_EQ(all[3].id, 4u);
  EXPECT_FLOAT_EQ(static_cast<float>(all[3].u), 0.1f);
  EXPECT_EQ(all.back().id, 7u);
  // Half the points: every second one, the second being the first kept.
  const Records half = scene.run(0.0, 0.5);
  ASSERT_FALSE(half.empty());
  EXPECT_FLOAT_EQ(static_cast<float>(half.back().u), 0.4f);

  // A foreign file is reported once for its geometry.
  dir.write("points/skin.vuv", "not a point file");
  vrutil::clearFileCache();
  scene.generator->initDescription();
  vrtest::CaptureLogger log;
  scene.run();
  scene.run();
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Failed to open VPD file: " + dir.file("points/skin.vuv")});
}
