// Level-of-detail factors, custom channels and motion-sample settings of the render back end,
// seen through the batches a plug-in receives.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "io/VrImportGeometry.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"
#include "renderers/VrRenderer.h"
#include "renderers/renderapi/RenderAPITestSupport.h"
#include "renderers/renderapi/VornRenderAPI.h"
#include "renderers/renderapi/VornRenderAPIRenderer.h"
#include "support/BoxMesh.h"
#include "support/CaptureLogger.h"
#include "support/TempDir.h"

namespace {

using namespace VornRenderAPI;
using vrtest::RenderedPrim;
using vrtest::polylineLength;
using Cache = PrimitiveCache;

/// Records, besides what the base keeps, u per primitive and every custom row by name.
class ChannelCallbacks : public vrtest::RecordingCallbacks {
 public:
  void flush(const char* geomName, Cache* cache) override {
    // One lock over both records, so that the primitives and their rows of a batch stay paired
    // when workers flush at once.
    std::lock_guard<std::mutex> lock(guard);
    vrtest::RecordingCallbacks::flush(geomName, cache);
    const float* u = cache->getFloatArray(Cache::EFloatArrayAttribute::U);
    us.insert(us.end(), u, u + cache->getFloatArraySize(Cache::EFloatArrayAttribute::U));
    const unsigned names = cache->getStringArraySize(Cache::EStringArrayAttribute::CustomName);
    for (unsigned row = 0; row < names; ++row) {
      const std::string name = cache->getStringArray(Cache::EStringArrayAttribute::CustomName, row);
      declarations[name] = cache->getStringArray(Cache::EStringArrayAttribute::CustomDeclaration, row);
      const float* f = cache->getFloatArray2D(Cache::EFloatArray2DAttribute::CustomFloat, row);
      const unsigned nf = cache->getFloatArray2DSize(Cache::EFloatArray2DAttribute::CustomFloat, row);
      if (f) customFloats[name].insert(customFloats[name].end(), f, f + nf);
      const int* i = cache->getIntArray2D(Cache::EIntArray2DAttribute::CustomInt, row);
      const unsigned ni = cache->getIntArray2DSize(Cache::EIntArray2DAttribute::CustomInt, row);
      if (i) customInts[name].insert(customInts[name].end(), i, i + ni);
    }
  }

  std::vector<float> us;
  std::map<std::string, std::string> declarations;
  std::map<std::string, std::vector<float>> customFloats;
  std::map<std::string, std::vector<int>> customInts;

 private:
  std::mutex guard;
};

class RenderAPIChannels : public ::testing::Test {
 protected:
  void SetUp() override {
    VrResetImportGeometry();
    geom = dir.file("grid.abc");
    ASSERT_TRUE(vrtest::writeGrid(geom));
    newCollection();
  }
  void TearDown() override {
    delete VrPalette::palette(name);
    VrResetImportGeometry();
    VRDebugLevel = debugLevel;
  }
  // A collection of a name never used before: a description is set up once per name.
  void newCollection() {
    if (!name.empty()) delete VrPalette::palette(name);
    static int serial = 0;
    name = "renderApiChannels" + std::to_string(++serial);
    file = dir.write(name + ".vorn", vrtest::collectionText(name, "\taddU\t\ttrue\n", "10.0"));
  }
  std::string args(const std::string& extra = "") const {
    return "-file " + file + " -geom " + geom + " -palette " + name +
           " -description hair -patch plane -frame 24 -fps 24 " + extra;
  }
  VrDescription* hair() const {
    VrPalette* collection = VrPalette::palette(name);
    return collection ? collection->description("hair") : nullptr;
  }
  Renderer* backEnd() const { return hair() ? dynamic_cast<Renderer*>(hair()->activeRenderer()) : nullptr; }
  // Renders every face of the patch, one by one, or through a ParallelRenderer with `threads`.
  static void renderAll(PatchRenderer* patch, ProceduralCallbacks* callbacks, int threads = 0) {
    std::vector<std::unique_ptr<FaceRenderer>> faces;
    double box[6];
    unsigned face = 0;
    while (patch->nextFace(box, face)) faces.emplace_back(FaceRenderer::init(patch, face, callbacks));
    if (threads == 0) {
      for (auto& renderer : faces) renderer->render();
      return;
    }
    std::unique_ptr<ParallelRenderer> runner(ParallelRenderer::init(patch));
    ASSERT_TRUE(runner);
    for (auto& renderer : faces) ASSERT_TRUE(runner->enqueue(renderer.get()));
    runner->setThreads(threads);
    runner->setGrain(1);
    runner->run();
    runner->release();
  }
  // The primitives of a render without level-of-detail factors, in (face, id) order.
  std::vector<RenderedPrim> plainRender() {
    vrtest::RecordingCallbacks callbacks;
    std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args().c_str()));
    EXPECT_TRUE(patch);
    if (!patch) return {};
    renderAll(patch.get(), &callbacks);
    return callbacks.prims;
  }

  vrtest::TempDir dir;
  vrtest::CaptureLogger log;
  unsigned debugLevel = VRDebugLevel;
  std::string name, geom, file;
};

// Level-of-detail factors

TEST_F(RenderAPIChannels, FactorsScaleLengthAndWidthAboutTheRoot) {
  const std::vector<RenderedPrim> plain = plainRender();
  ASSERT_FALSE(plain.empty());
  newCollection();

  ChannelCallbacks callbacks;
  std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args().c_str()));
  ASSERT_TRUE(patch);
  hair()->setUseHammer(true);
  hair()->setLengthHammer("2.0");
  hair()->setWidthHammer("$u");  // a factor that differs per primitive
  renderAll(patch.get(), &callbacks);

  ASSERT_EQ(callbacks.prims.size(), plain.size());
  ASSERT_EQ(callbacks.us.size(), plain.size());
  for (size_t i = 0; i < plain.size(); ++i) {
    const RenderedPrim& got = callbacks.prims[i];
    ASSERT_EQ(got.cvs, plain[i].cvs);
    EXPECT_NEAR(polylineLength(got), 2.0 * polylineLength(plain[i]), 1e-4);
    for (int k = 0; k < 3; ++k) EXPECT_FLOAT_EQ(got.points[k], plain[i].points[k]) << "the root stays";
    for (int k = 0; k < got.cvs; ++k)
      EXPECT_NEAR(got.widths[k], plain[i].widths[k] * callbacks.us[i], 1e-6) << i << " " << k;
  }
}

// Custom channels

TEST_F(RenderAPIChannels, CustomAttributesArriveOneRowEach) {
  ChannelCallbacks callbacks;
  std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args().c_str()));
  ASSERT_TRUE(patch);
  VrPrimitive* primitive = hair()->activePrimitive();
  primitive->setAttr("custom_float_gain", "0.25");
  primitive->setAttr("custom_color_tint", "[0.5, 0.25, 2]");
  primitive->setAttr("custom_int_count", "7.9");
  primitive->setAttr("custom_float_atU", "$u * 10");
  primitive->setAttr("custom_float_off", "##0.5");
  VRDebugLevel = 3;
  renderAll(patch.get(), &callbacks);
  VRDebugLevel = debugLevel;

  EXPECT_TRUE(log.has("Declaring custom parameters."));
  EXPECT_TRUE(log.has("Number of custom attributes are 5"));
  for (const char* each : {"gain", "tint", "count", "atU", "off"})
    EXPECT_TRUE(log.has(std::string("Checking attribute ") + each)) << each;
  EXPECT_TRUE(log.has("Custom attribute off is disabled."));
  EXPECT_FALSE(log.has("Custom attribute gain is disabled."));

  const std::map<std::string, std::string> declared = {{"gain", "uniform float"},
                                                       {"tint", "uniform color"},
                                                       {"count", "uniform int"},
                                                       {"atU", "uniform float"}};
  EXPECT_EQ(callbacks.declarations, declared);

  const size_t n = callbacks.prims.size();
  ASSERT_GT(n, 0u);
  ASSERT_EQ(callbacks.us.size(), n);
  EXPECT_EQ(callbacks.customFloats["gain"], std::vector<float>(n, 0.25f));
  std::vector<float> tint;
  for (size_t i = 0; i < n; ++i) tint.insert(tint.end(), {0.5f, 0.25f, 2.0f});
  EXPECT_EQ(callbacks.customFloats["tint"], tint);
  EXPECT_EQ(callbacks.customInts["count"], std::vector<int>(n, 7)) << "ints are truncated";
  EXPECT_TRUE(callbacks.customFloats["count"].empty()) << "an int row has no floats";
  ASSERT_EQ(callbacks.customFloats["atU"].size(), n);
  for (size_t i = 0; i < n; ++i) EXPECT_NEAR(callbacks.customFloats["atU"][i], callbacks.us[i] * 10, 1e-5);
  EXPECT_EQ(callbacks.customFloats.count("off"), 0u);
}

TEST_F(RenderAPIChannels, PerCVAttributesOfTheWrongLengthAreReportedAndZeroed) {
  ChannelCallbacks callbacks;
  std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args().c_str()));
  ASSERT_TRUE(patch);
  VrPrimitive* primitive = hair()->activePrimitive();
  // The values stay in the context from primitive to primitive; the spline has 5 CVs.
  primitive->addCVAttr("dir", "vector");
  primitive->addCVAttr("bad", "float");
  auto& values = primitive->context().getCVAttrs();
  values["dir"] = {{0, 0, 1}, {0, 1, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 1}};
  values["bad"] = {{3, 3, 3}, {4, 4, 4}};
  renderAll(patch.get(), &callbacks);

  const size_t n = callbacks.prims.size();
  ASSERT_GT(n, 0u);
  ASSERT_EQ(callbacks.prims[0].cvs, 5);
  EXPECT_EQ(callbacks.declarations["dir"], "varying vector");
  EXPECT_EQ(callbacks.declarations["bad"], "varying float");
  std::vector<float> dir;
  for (size_t i = 0; i < n; ++i) dir.insert(dir.end(), {0, 0, 1, 0, 1, 0, 1, 0, 0, 1, 1, 0, 0, 1, 1});
  EXPECT_EQ(callbacks.customFloats["dir"], dir);
  EXPECT_EQ(callbacks.customFloats["bad"], std::vector<float>(5 * n, 0.0f)) << "one zero per CV";
  size_t reports = 0;
  for (const std::string& error : log.errors())
    if (error.rfind("CV attribute length doesnt match number of cvs in primitive [bad, ", 0) == 0) ++reports;
  EXPECT_EQ(reports, n);
  EXPECT_EQ(log.errors().size(), n) << "the matching attribute is not reported";
}

TEST_F(RenderAPIChannels, CustomRowsAreTheSameOnTwoThreads) {
  std::vector<std::vector<std::pair<int, float>>> rows;
  for (int threads : {0, 2}) {
    newCollection();
    ChannelCallbacks callbacks;
    std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args().c_str()));
    ASSERT_TRUE(patch);
    hair()->activePrimitive()->setAttr("custom_float_r", "rand()");
    // One batch per face and one face per task keep the rows in face order on any thread count.
    renderAll(patch.get(), &callbacks, threads);
    ASSERT_EQ(callbacks.customFloats["r"].size(), callbacks.prims.size());
    std::vector<std::pair<int, float>> byFace;
    for (size_t i = 0; i < callbacks.prims.size(); ++i)
      byFace.push_back({callbacks.prims[i].face, callbacks.customFloats["r"][i]});
    std::stable_sort(byFace.begin(), byFace.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    rows.push_back(byFace);
  }
  EXPECT_EQ(rows[0], rows[1]);
}

// Motion samples and the shutter

// One sample renders without a shutter report, with or without a shutter (which goes unchecked).
TEST_F(RenderAPIChannels, OneSampleRendersWithoutShutterReport) {
  for (const std::vector<float>& shutter : {std::vector<float>{}, std::vector<float>{0.0f, 0.5f}}) {
    newCollection();
    ChannelCallbacks callbacks;
    if (!shutter.empty())
      callbacks.arrays[static_cast<int>(ProceduralCallbacks::EFloatArrayAttribute::Shutter)] = shutter;
    std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args().c_str()));
    ASSERT_TRUE(patch);
    renderAll(patch.get(), &callbacks);
    ASSERT_FALSE(callbacks.batches.empty());
    EXPECT_EQ(callbacks.batches[0].samples, 1u);
    EXPECT_TRUE(log.errors().empty()) << log.errors()[0];
    EXPECT_EQ(backEnd()->motionSamples(), std::vector<double>{0.0});
    if (shutter.empty()) {
      EXPECT_TRUE(backEnd()->shutter().empty());
    }
  }
}

TEST_F(RenderAPIChannels, PlacementsAndAMatchingShutterRenderEverySample) {
  for (int threads : {0, 2}) {
    newCollection();
    ChannelCallbacks callbacks;
    callbacks.arrays[static_cast<int>(ProceduralCallbacks::EFloatArrayAttribute::Shutter)] = {0.0f, 0.25f,
                                                                                              0.5f};
    const std::string motion = "-motionSamplesLookup 0,0.5,1 -motionSamplesPlacement \"0 0.5 1\"";
    std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args(motion).c_str()));
    ASSERT_TRUE(patch);
    ASSERT_TRUE(backEnd());
    EXPECT_EQ(backEnd()->motionSamples(), (std::vector<double>{0.0, 0.5, 1.0}));
    EXPECT_EQ(backEnd()->shutter().size(), 3u);
    log.clear();
    renderAll(patch.get(), &callbacks, threads);
    EXPECT_TRUE(log.errors().empty()) << threads << ": " << log.errors()[0];
    ASSERT_FALSE(callbacks.prims.empty());
    for (const auto& batch : callbacks.batches) EXPECT_EQ(batch.samples, 3u);
    // The last sample stands on the geometry of frame 25, one unit up.
    for (const RenderedPrim& prim : callbacks.prims) EXPECT_NEAR(prim.last[2], 1.0, 1e-5);
  }
}

}  // namespace

// Archives: four placement vectors each, the ranges of the slots in use, a file per range and a
// proxy file per archive, and the box of the archive's file. The file is a cube from (-0.5, 0,
// -0.5) to (0.5, 1, 0.5); `archiveSize` 2 halves every axis.
TEST_F(RenderAPIChannels, ArchivesArriveWithRangesFilesAndBoxes) {
  const std::string rock = dir.file("rock.abc");
  ASSERT_TRUE(vrtest::writeMeshFile(rock, {vrtest::boxMesh(SgVec3T<double>(-0.5, 0, -0.5),
                                                           SgVec3T<double>(0.5, 1, 0.5))}));
  newCollection();
  std::string text = vrtest::collectionText(name, "\taddU\t\ttrue\n", "10.0");
  for (size_t at = text.find("SplinePrimitive"); at != std::string::npos; at = text.find("SplinePrimitive", at))
    text.replace(at, 15, "ArchivePrimitive");
  std::string files = "#ArchiveGroup 0 name=rock";
  for (int level = 0; level < 6; ++level) files += "\\n" + std::to_string(level) + " " + rock;
  text.insert(text.find("\tlength\t"), "\tfiles\t\t\t" + files + "\n\tmedIndex\t\t# off\n\tarchiveSize\t\t2.0\n");
  file = dir.write(name + ".vorn", text);

  struct ArchiveCallbacks : vrtest::RecordingCallbacks {
    void flush(const char*, Cache* cache) override {
      std::lock_guard<std::mutex> lock(guard);
      const unsigned count = cache->getUInt(Cache::EUIntAttribute::BatchCount);
      ranges = cache->getInt(Cache::EIntAttribute::NumLodRanges);
      for (int r = 0; r < ranges; ++r) {
        const double* range = cache->getVec3(static_cast<Cache::EVec3Attribute>(r));
        rangeValues.insert(rangeValues.end(), range, range + 3);
      }
      EXPECT_EQ(cache->getStringArraySize(Cache::EStringArrayAttribute::ArchiveFile), count * unsigned(ranges));
      EXPECT_EQ(cache->getStringArraySize(Cache::EStringArrayAttribute::ArchiveProxy), count);
      EXPECT_EQ(cache->getVec3Array2DSize(Cache::EVec3Array2DAttribute::Points, 0), 4 * count);
      const float* points = cache->getVec3Array2D(Cache::EVec3Array2DAttribute::Points, 0);
      for (unsigned i = 0; i < count; ++i) {
        files.insert(cache->getStringArray(Cache::EStringArrayAttribute::ArchiveFile, 2 * i + 1));
        files.insert(cache->getStringArray(Cache::EStringArrayAttribute::ArchiveProxy, i));
        double box[6] = {};
        EXPECT_TRUE(cache->cachedBound(i, box));
        boxes.emplace_back(box, box + 6);
        const float* up = points + 12 * i + 6;  // the axis the archive's own y goes to
        upLengths.push_back(std::sqrt(up[0] * up[0] + up[1] * up[1] + up[2] * up[2]));
      }
      EXPECT_FALSE(cache->cachedBound(count, nullptr));
      total += count;
    }
    std::mutex guard;
    int ranges = 0;
    unsigned total = 0;
    std::vector<double> rangeValues;
    std::set<std::string> files;
    std::vector<std::vector<double>> boxes;
    std::vector<float> upLengths;
  } callbacks;
  std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args().c_str()));
  ASSERT_TRUE(patch);
  renderAll(patch.get(), &callbacks, 2);
  ASSERT_GT(callbacks.total, 5u);
  EXPECT_EQ(callbacks.ranges, 2);
  EXPECT_EQ(std::vector<double>(callbacks.rangeValues.begin(), callbacks.rangeValues.begin() + 6),
            (std::vector<double>{0, 2500, 0, 62500, 160000, 2}));
  EXPECT_EQ(callbacks.files, (std::set<std::string>{rock}));
  for (const std::vector<double>& box : callbacks.boxes)
    EXPECT_EQ(box, (std::vector<double>{-0.5, 0.5, 0.0, 1.0, -0.5, 0.5}));
  for (float length : callbacks.upLengths) EXPECT_NEAR(length, 0.25, 1e-6);  // length 0.5 over 2
}
