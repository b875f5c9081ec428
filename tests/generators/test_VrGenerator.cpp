#include "generators/VrGenerator.h"

#include "base/VrModules.h"
#include "base/VrTaskManager.h"
#include "base/vrutilCodec.h"
#include "document/VrDescription.h"
#include "generators/VrGeneratorContext.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrRenderer.h"
#include "support/CaptureLogger.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

namespace {

// A generator that stands a 3 x 3 grid of locations on every face.
class ProbeGenerator : public VrGenerator {
 public:
  explicit ProbeGenerator(VrDescription* description) : VrGenerator(description) {}
  std::string typeName() const override { return "ProbeGenerator"; }
  bool canRunInParallel() const override { return true; }
  void genPrimitives(int face, const std::vector<VrPatch*>& patches, double start, double percent) override {
    if (primitive) genPrimitivesInParallel(primitive->context(), face, patches, start, percent);
  }
  void genPrimitivesInParallel(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches, double,
                               double) override {
    for (int j = 0; j < 3; ++j)
      for (int i = 0; i < 3; ++i) {
        context.incrId();
        emitIfOkInParallel(context, (i + 0.5) / 3.0, (j + 0.5) / 3.0, face, patches);
      }
  }
};

void* createProbe(VrDescription* description) { return static_cast<VrObject*>(new ProbeGenerator(description)); }
const bool probeRegistered = VrRegisterModule("ProbeGenerator", &createProbe);

struct Record {
  int sample;
  int face;
  unsigned id;
  double u, v;
  double x, y, z;  // the sample's frame, from its primitive context
  bool operator<(const Record& o) const {
    return std::tie(face, id, sample, u, v) < std::tie(o.face, o.id, o.sample, o.u, o.v);
  }
  bool operator==(const Record& o) const {
    return sample == o.sample && face == o.face && id == o.id && u == o.u && v == o.v && x == o.x && y == o.y &&
           z == o.z;
  }
};

struct Cull {
  unsigned code;
  int face;
  unsigned id;
};

// Records what it is given. Answers `wantCulled` to culled primitives and refuses emission for
// the samples listed in `refuse`.
class CountingRenderer : public VrRenderer {
 public:
  explicit CountingRenderer(VrDescription* description) : VrRenderer(description) {}
  std::string typeName() const override { return "CountingRenderer"; }
  bool okToEmit(int sample, double, double) override {
    return std::find(refuse.begin(), refuse.end(), sample) == refuse.end();
  }
  bool handleCulledPrimitive(unsigned code, int face, unsigned id, VrPatch*) override {
    std::lock_guard<std::mutex> lock(mutex);
    culls.push_back({code, face, id});
    return wantCulled;
  }
  bool handleCulledPrimitiveInParallel(VrPrimitiveContext&, unsigned code, int face, unsigned id,
                                       VrPatch* patch) override {
    return handleCulledPrimitive(code, face, id, patch);
  }
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>&) override {
    VrDescription* desc = sample == 0 ? description() : description()->sample(static_cast<unsigned>(sample - 1));
    add(desc->activePrimitive()->context(), sample, u, v, face);
  }
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>&) override {
    add(sample == 0 ? context : *context.sample(static_cast<unsigned>(sample - 1)), sample, u, v, face);
  }

  std::vector<Record> sorted() const {
    std::vector<Record> out = records;
    std::sort(out.begin(), out.end());
    return out;
  }

  std::vector<Record> records;
  std::vector<Cull> culls;
  std::vector<int> refuse;
  bool wantCulled = false;

 private:
  void add(VrPrimitiveContext& context, int sample, double u, double v, int face) {
    const SgVec3T<double> P = context.cP(u, v, false);  // built by fillGeometry: answered from the cache
    std::lock_guard<std::mutex> lock(mutex);
    records.push_back({sample, face, context.id(), u, v, P.x, P.y, P.z});
  }
  std::mutex mutex;
};

// A description with the probe generator and a counting renderer, on a 2 x 2 grid; with motion
// samples, sample s lies at height s.
struct Scene {
  explicit Scene(int samples = 1) {
    for (int s = 0; s < samples; ++s) {
      stages.push_back(
          std::make_unique<vrtest::PatchScene>(vrtest::gridSurface(2, static_cast<float>(s))));
      stages.back()->description->setActive("SplinePrimitive");
      patches.push_back(stages.back()->patch);
      if (s > 0) stages[0]->description->addSample(stages.back()->description);
    }
    description = stages[0]->description;
    EXPECT_TRUE(description->setActive("ProbeGenerator"));
    generator = dynamic_cast<ProbeGenerator*>(description->activeGenerator());
    renderer = std::make_unique<CountingRenderer>(description);
    renderer->setNumSamples(samples);
    description->setActiveRenderer(renderer.get());
  }
  ~Scene() { description->setActiveRenderer(nullptr); }

  void generateAll() {
    for (int face = 0; face < 4; ++face) generator->generate(face, patches, 0.0, 1.0);
  }
  void generateAllInParallel(int threads) {
    VrTaskManager::setSeExprMultithreading(true);
    tbb::task_arena arena(threads);
    arena.execute([&] {
      tbb::parallel_for(tbb::blocked_range<int>(0, 4, 1), [&](const tbb::blocked_range<int>& range) {
        VrExpression::initTLS();
        std::vector<VrPrimitiveContext> contexts;
        for (VrPatch* patch : patches) contexts.push_back(patch->description()->activePrimitive()->context());
        for (size_t s = 1; s < contexts.size(); ++s) contexts[0].addSample(&contexts[s]);
        std::unique_ptr<VrGeneratorContext> record = generator->newGeneratorContext();
        contexts[0].setGeneratorContext(record.get());
        for (int face = range.begin(); face != range.end(); ++face)
          generator->generateInParallel(contexts[0], face, patches, 0.0, 1.0);
      });
    });
    VrTaskManager::setSeExprMultithreading(false);
  }
  VrPrimitiveContext& context(int sample = 0) { return patches[sample]->description()->activePrimitive()->context(); }

  std::vector<std::unique_ptr<vrtest::PatchScene>> stages;
  std::vector<VrPatch*> patches;
  VrDescription* description = nullptr;
  ProbeGenerator* generator = nullptr;
  std::unique_ptr<CountingRenderer> renderer;
};

// A camera at `position` looking along -z, with half-angles `fov`.
void placeCamera(double x, double y, double z, double fov) {
  SgXform3T<double> worldToCamera;
  worldToCamera.setTranslation(SgVec3T<double>(-x, -y, -z));
  VrRenderer::setCamInverseXform(worldToCamera);
  VrRenderer::setCamFOV(fov);
  VrRenderer::setShadowPass(false);
}

const std::string wrapTail = "$__tmp__lodOffset__-(clamp($lodWidthCoefficient,0,3)-1)*$initialWidth";

}  // namespace

TEST(VrGeneratorAttrs, DeclaredInOrderWithRadiansAndTheObsoleteSkipPatch) {
  ASSERT_TRUE(probeRegistered);
  Scene scene;
  VrGenerator& g = *scene.generator;
  EXPECT_EQ(g.attrNames(), (std::vector<std::string>{"displacement", "vectorDisplacement", "bump", "offset",
                                                      "cullFlag", "cullBackface", "cullFrustrum", "cullAngleBF",
                                                      "cullAngleF", "cullExpr"}));
  EXPECT_TRUE(g.setAttr("cullAngleBF", "90"));
  EXPECT_DOUBLE_EQ(g.cullAngleBF(), 1.5707963267948966);
  EXPECT_TRUE(g.setAttr("cullAngleF", "-10"));
  EXPECT_DOUBLE_EQ(g.cullAngleF(), -0.17453292519943295);

  EXPECT_TRUE(g.setAttr("skipPatch", "true"));
  EXPECT_FALSE(g.hasAttr("skipPatch"));
  EXPECT_EQ(g.numAttrs(), 10u);
}

TEST(VrGeneratorAttrs, CopyBaseAttrsTakesOverDisplacementCullingAndRegions) {
  Scene scene;
  ProbeGenerator other(scene.description);
  other.setAttr("displacement", "0.5");
  other.setAttr("vectorDisplacement", "true");
  other.setAttr("offset", "$u");
  other.setAttr("cullBackface", "true");
  other.setAttr("cullAngleBF", "45");
  other.setAttr("cullExpr", "$v > 0.5");
  other.regionExpr().setExpression("[1,1,1]");
  other.setRegionIds({3, 4});
  scene.generator->copyBaseAttrs(&other);
  EXPECT_EQ(scene.generator->displacement().expression(), "0.5");
  EXPECT_TRUE(scene.generator->vectorDisplacement());
  EXPECT_EQ(scene.generator->offset().expression(), "$u");
  EXPECT_TRUE(scene.generator->cullBackface());
  EXPECT_DOUBLE_EQ(scene.generator->cullAngleBF(), 45 * 0.017453292519943295);
  EXPECT_EQ(scene.generator->cullExpr().expression(), "$v > 0.5");
  EXPECT_EQ(scene.generator->regionExpr().expression(), "[1,1,1]");
  EXPECT_EQ(scene.generator->regionIds(), (std::vector<unsigned>{3, 4}));
  std::string text;
  scene.generator->getAttr("cullAngleBF", text);
  EXPECT_EQ(text, "45");
}

TEST(VrGeneratorLod, WrapLodOffsetTexts) {
  EXPECT_EQ(VrGenerator::wrapLodOffset(""), "");
  EXPECT_EQ(VrGenerator::wrapLodOffset("0.5"), "$__tmp__lodOffset__=0.5;\\n" + wrapTail);
  EXPECT_EQ(VrGenerator::wrapLodOffset("$a=0.0;#-1.0,1.0\\n$a"),
            "$a=0.0;#-1.0,1.0\\n$__tmp__lodOffset__=$a;\\n" + wrapTail);
  // Trailing blank lines are not the last line.
  EXPECT_EQ(VrGenerator::wrapLodOffset("$b=2;\\n$c=$b*2;\\n$c\\n  \\n"),
            "$b=2;\\n$c=$b*2;\\n$__tmp__lodOffset__=$c;\\n" + wrapTail);
  EXPECT_EQ(VrGenerator::wrapLodOffset("  "), "  ");
}

TEST(VrGeneratorLod, WidthFactorCullingByWidthAndTheSinkingOffset) {
  Scene scene;
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 36u);
  EXPECT_EQ(scene.description->lodAdjustment(), 1.0);

  scene.description->setActive("CardPrimitive");
  scene.description->activePrimitive()->setAttr("width", "0.25");
  scene.description->setAttr("lodFlag", "true");
  scene.description->setAttr("pixelCullSize", "3");
  scene.description->setAttr("pixelFadeSize", "2");
  scene.generator->initDescription();
  // Width factors below cullWidthRatio (0.01) are culled before any geometry.
  scene.description->lodWidthCoefficient().setExpression("$u < 0.3 ? 0.005 : 2");
  scene.renderer->records.clear();
  scene.generator->generate(0, scene.patches, 0.0, 1.0);
  ASSERT_EQ(scene.renderer->records.size(), 6u);
  EXPECT_EQ(scene.generator->numCulled(), 3u);
  EXPECT_TRUE(scene.renderer->culls.empty());  // no renderer call for level of detail
  for (const Record& r : scene.renderer->records) {
    EXPECT_GT(r.u, 0.3);
    // The wrapped offset sinks the primitive by what the width grew: -(2 - 1) * 0.25.
    EXPECT_NEAR(r.z, -0.25, 1e-9);
  }
  EXPECT_EQ(scene.description->lodAdjustment(), 2.0);
  SgVec3T<double> value;
  ASSERT_TRUE(VrExpression::getCustomVariable("initialWidth", value));
  EXPECT_EQ(value.x, 0.25);  // the primitive's width
  ASSERT_TRUE(VrExpression::getCustomVariable("lodPixelFadeSize", value));
  EXPECT_DOUBLE_EQ(value.x, 3.0001);  // never below the cull size
  ASSERT_TRUE(VrExpression::getCustomVariable("lodWidthCoefficient", value));
  EXPECT_EQ(value.x, 2.0);
  ASSERT_TRUE(VrExpression::getCustomVariable("lodMaxWidthRatio", value));
  EXPECT_EQ(value.x, 20.0);
  scene.generator->finishDescription();
  EXPECT_EQ(scene.generator->offset().expression(), "$a=0.0;#-1.0,1.0\\n$a");

  // The parallel path gives the same, on its own context.
  scene.generator->initDescription();
  scene.description->lodWidthCoefficient().setExpression("$u < 0.3 ? 0.005 : 2");
  const std::vector<Record> serial = scene.renderer->sorted();
  scene.renderer->records.clear();
  VrPrimitiveContext worker(scene.context());
  std::unique_ptr<VrGeneratorContext> record = scene.generator->newGeneratorContext();
  worker.setGeneratorContext(record.get());
  scene.generator->generateInParallel(worker, 0, scene.patches, 0.0, 1.0);
  EXPECT_EQ(scene.renderer->sorted(), serial);
  EXPECT_EQ(record->numCulled(), 3u);
  EXPECT_EQ(worker.lodAdjustment(), 2.0);
  scene.generator->finishDescription();
}

TEST(VrGeneratorCulling, BackfacesByAngle) {
  Scene scene;
  scene.generator->setAttr("cullBackface", "true");
  placeCamera(1, 1, -10, 0.7);  // below the grid: every normal points away
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 36u);  // cullFlag off: no camera culling

  scene.generator->setAttr("cullFlag", "true");
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 36u);
  EXPECT_EQ(scene.renderer->culls.size(), 36u);
  EXPECT_EQ(scene.renderer->culls[0].code, 4u);

  // A hand-culled primitive that the renderer wants is still culled by the camera.
  scene.renderer->records.clear();
  scene.renderer->culls.clear();
  scene.renderer->wantCulled = true;
  scene.patches[0]->cullPrim(0, 5);
  scene.generator->generate(0, scene.patches, 0.0, 1.0);
  ASSERT_EQ(scene.renderer->culls.size(), 10u);
  EXPECT_EQ(scene.renderer->culls[4].code, 2u);
  EXPECT_EQ(scene.renderer->culls[5].code, 4u);
  EXPECT_EQ(scene.renderer->culls[5].id, 5u);
  EXPECT_EQ(scene.generator->numCulled(), 10u);
  scene.renderer->wantCulled = false;
  scene.patches[0]->cullReset();

  // Above the grid nothing faces away; below, an angle of 90 degrees spares all.
  scene.renderer->records.clear();
  scene.renderer->culls.clear();
  placeCamera(1, 1, 10, 0.7);
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 36u);
  placeCamera(1, 1, -10, 0.7);
  scene.generator->setAttr("cullAngleBF", "90");
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 72u);
  EXPECT_TRUE(scene.renderer->culls.empty());

  // At 60 degrees, from (1, 1, -1): a point stays while the camera sees it at 60 degrees above
  // the plane or less.
  scene.renderer->records.clear();
  scene.generator->setAttr("cullAngleBF", "60");
  placeCamera(1, 1, -1, 0.7);
  scene.generateAll();
  unsigned expected = 0;
  for (int face = 0; face < 4; ++face)
    for (int j = 0; j < 3; ++j)
      for (int i = 0; i < 3; ++i) {
        SgVec3T<double> P;
        ASSERT_TRUE(scene.patches[0]->evalGeom((i + 0.5) / 3.0, (j + 0.5) / 3.0, face, P, false));
        const double x = P.x - 1.0, y = P.y - 1.0;
        if (std::atan2(1.0, std::sqrt(x * x + y * y)) <= 60 * 0.017453292519943295) ++expected;
      }
  EXPECT_EQ(scene.renderer->records.size(), expected);
  EXPECT_GT(expected, 0u);
  EXPECT_LT(expected, 36u);
  VrRenderer::setCamInverseXform(SgXform3T<double>());
}

TEST(VrGeneratorCulling, FrustumInXAndYAndNeverInAShadowPass) {
  Scene scene;
  scene.generator->setAttr("cullFlag", "true");
  scene.generator->setAttr("cullFrustrum", "true");
  placeCamera(1, 1, 10, 0.7);  // the grid is well inside the view
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 36u);

  placeCamera(100, 1, 10, 0.7);  // far to the side: outside horizontally
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 36u);
  EXPECT_EQ(scene.renderer->culls.size(), 36u);
  placeCamera(1, 100, 10, 0.7);  // outside vertically
  scene.generateAll();
  EXPECT_EQ(scene.renderer->culls.size(), 72u);
  scene.generator->setAttr("cullAngleF", "60");  // the margin takes the side in: 84.3 < 40 + 60
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 72u);

  scene.generator->setAttr("cullAngleF", "0");
  VrRenderer::setShadowPass(true);
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 108u);
  VrRenderer::setShadowPass(false);

  // From a distance of 2 a point stays while atan(|x| / 2) is within the half-angle 0.2: the
  // points at 1/6 from the axis (atan(1/12) = 0.083) and not those at 1/2 (atan(1/4) = 0.245).
  scene.renderer->records.clear();
  placeCamera(1, 1, 2, 0.2);
  scene.generateAll();
  EXPECT_EQ(scene.renderer->records.size(), 4u);
  for (const Record& r : scene.renderer->records) {
    EXPECT_NEAR(std::fabs(r.x - 1.0), 1.0 / 6.0, 1e-9);
    EXPECT_NEAR(std::fabs(r.y - 1.0), 1.0 / 6.0, 1e-9);
  }
  EXPECT_EQ(scene.renderer->culls.size(), 72u + 32u);
  VrRenderer::setCamInverseXform(SgXform3T<double>());
}

TEST(VrGeneratorMotion, OnlyTheSecondSampleSurvivesPreGeometryCulling) {
  Scene scene(3);
  // Primitive 4 of face 2 is culled by hand on samples 0 and 2, primitive 6 on all three.
  scene.patches[0]->cullPrim(2, 4);
  scene.patches[2]->cullPrim(2, 4);
  for (VrPatch* patch : scene.patches) patch->cullPrim(2, 6);
  vrtest::CaptureLogger log;
  VRDebugLevel = 2;
  scene.generator->generate(2, scene.patches, 0.0, 1.0);
  VRDebugLevel = 0;
  std::vector<Record> records = scene.renderer->sorted();
  ASSERT_EQ(records.size(), 8u * 3u);
  for (size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(records[i].sample, static_cast<int>(i % 3));
    EXPECT_NEAR(records[i].z, records[i].sample, 1e-9);  // each sample's own surface was built
    EXPECT_EQ(records[i].u, records[i - i % 3].u);
  }
  EXPECT_EQ(records[9].id, 4u);  // all three samples of primitive 4, with its id
  EXPECT_EQ(records[12].id, 5u);
  // Samples 0 and 1 asked about 4 (2 stops the tests); all three about 6.
  ASSERT_EQ(scene.renderer->culls.size(), 4u);
  EXPECT_EQ(scene.generator->numCulled(), 4u);
  EXPECT_TRUE(log.has("Primitive 6 on face 2is culled before geometry is made."));
  EXPECT_EQ(scene.context(1).id(), scene.context(0).id());
}

TEST(VrGeneratorMotion, EmissionMismatchBetweenSamples) {
  Scene scene(2);
  scene.renderer->refuse = {1};
  vrtest::CaptureLogger log;
  scene.generator->generate(0, scene.patches, 0.0, 1.0);
  EXPECT_TRUE(scene.renderer->records.empty());
  EXPECT_EQ(log.warnings().size(), 9u);
  EXPECT_EQ(log.warnings()[0], "Emission mismatch between sample 1and 0");

  // Refusing every sample is no mismatch.
  log.clear();
  scene.renderer->refuse = {0, 1};
  scene.generator->generate(0, scene.patches, 0.0, 1.0);
  EXPECT_TRUE(scene.renderer->records.empty());
  EXPECT_TRUE(log.warnings().empty());
}

TEST(VrGeneratorPaths, SerialAndParallelGiveTheSameRecords) {
  Scene scene(2);
  scene.generator->setAttr("cullFlag", "true");
  scene.generator->setAttr("cullExpr", "rand() < 0.3");
  scene.patches[1]->cullPrim(3, 1);
  scene.patches[0]->cullPrim(3, 1);
  scene.generateAll();
  const std::vector<Record> serial = scene.renderer->sorted();
  const size_t culls = scene.renderer->culls.size();
  EXPECT_GT(culls, 1u);
  EXPECT_LT(serial.size(), 72u);
  for (int threads : {1, 2}) {
    scene.renderer->records.clear();
    scene.renderer->culls.clear();
    scene.generateAllInParallel(threads);
    EXPECT_EQ(scene.renderer->sorted(), serial) << threads;
    EXPECT_EQ(scene.renderer->culls.size(), culls);
  }
}

TEST(VrGeneratorPaths, NoRendererAndNoPrimitiveEmitNothing) {
  Scene scene;
  scene.description->setActiveRenderer(nullptr);
  scene.generateAll();
  EXPECT_TRUE(scene.renderer->records.empty());

  vrtest::CaptureLogger log;
  EXPECT_FALSE(scene.generator->cullPreGeometry(0.5, 0.5, 0, nullptr, scene.patches[0]));
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Null pointer to active primitive.  Motion sample??"});
}

TEST(VrGeneratorRegions, ColourDecodesToAListedId) {
  Scene scene;
  unsigned char five[3], seven[3];
  vrutil::encodeId2RGB(5, five);
  vrutil::encodeId2RGB(7, seven);
  auto colour = [](const unsigned char c[3]) {
    return "[" + std::to_string(c[0]) + "," + std::to_string(c[1]) + "," + std::to_string(c[2]) + "]";
  };
  scene.generator->regionExpr().setExpression("$u < 0.5 ? " + colour(five) + " : " + colour(seven));
  const std::string name = "body";
  EXPECT_FALSE(scene.generator->renderRegionCheck());
  EXPECT_FALSE(scene.generator->validRenderRegion(0.2, 0.5, 0, name));
  scene.generator->setRegionIds({5});
  EXPECT_TRUE(scene.generator->renderRegionCheck());
  EXPECT_TRUE(scene.generator->validRenderRegion(0.2, 0.5, 0, name));
  EXPECT_FALSE(scene.generator->validRenderRegion(0.7, 0.5, 0, name));
  scene.generator->setRegionIds({5, 7});
  EXPECT_TRUE(scene.generator->validRenderRegion(0.7, 0.5, 0, name));
  scene.generator->clearRegions();
  EXPECT_FALSE(scene.generator->renderRegionCheck());
}
