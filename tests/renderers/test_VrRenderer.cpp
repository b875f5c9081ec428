#include "renderers/VrNullRenderer.h"

#include "renderers/VrGuideRenderer.h"

#include "base/VrModules.h"
#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "generators/VrGenerator.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrPrimitive.h"
#include "support/CaptureLogger.h"
#include "support/QuadGrid.h"

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>
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

// A null renderer that also records (face, id, u, v) of sample 0.
class RecordingRenderer : public VrNullRenderer {
 public:
  explicit RecordingRenderer(VrDescription* description) : VrNullRenderer(description) {}
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override {
    VrNullRenderer::emitPrimitive(sample, u, v, face, patches);
    if (sample == 0) records.push_back({face, description()->activePrimitive()->context().id(), u, v});
  }
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override {
    VrNullRenderer::emitPrimitiveInParallel(context, sample, u, v, face, patches);
    if (sample != 0) return;
    std::lock_guard<std::mutex> lock(mutex);
    records.push_back({face, context.id(), u, v});
  }
  Records take() {
    Records out;
    out.swap(records);
    std::sort(out.begin(), out.end());
    return out;
  }

  Records records;

 private:
  std::mutex mutex;
};

// One description "fur" with a random generator and a subdivision patch "skin" on an n x m grid.
struct Scene {
  Scene(int n, int m) {
    palette.reset(new VrPalette);
    palette->setAttr("name", "renderGroom");
    description = add(*palette, n, m);
    description->activeGenerator()->setAttr("density", "40");
    renderer = std::make_unique<RecordingRenderer>(description);
    description->setActiveRenderer(renderer.get());
  }
  ~Scene() {
    description->setActiveRenderer(nullptr);
    for (VrDescription* sample : motion) sample->setActiveRenderer(nullptr);
  }

  VrDescription* add(VrPalette& owner, int n, int m) {
    surfaces.push_back(vrtest::quadGrid(n, m).surface());
    auto* desc = new VrDescription;
    owner.addDescription(desc);
    desc->setAttr("name", "fur");
    desc->setActive("SplinePrimitive");
    EXPECT_TRUE(desc->setActive("RandomGenerator"));
    auto* patch = new VrSubdPatch(desc);
    patch->setName("skin");
    desc->addPatch(patch);
    patch->bindGeometry(nullptr, surfaces.back().get(), false);
    return desc;
  }
  // A motion sample of the same description on an n x m grid.
  void addMotionSample(int n, int m) {
    motionPalettes.emplace_back(new VrPalette);
    motionPalettes.back()->setAttr("name", "renderGroom");
    VrDescription* sample = add(*motionPalettes.back(), n, m);
    sample->activeGenerator()->setAttr("density", "40");
    description->addSample(sample);
    motion.push_back(sample);
  }
  VrPatch* patch() const { return description->patch("skin"); }
  int faces() const { return static_cast<int>(patch()->numFaces()); }

  Records renderAll() {
    renderer->initDescription();
    for (int face = 0; face < faces(); ++face) renderer->render(face, "skin");
    renderer->finishDescription();
    return renderer->take();
  }
  Records renderFace(int face) {
    renderer->initDescription();
    renderer->render(face, "skin");
    renderer->finishDescription();
    return renderer->take();
  }
  Records renderInParallel(size_t threads) {
    const size_t saved = VrTaskManager::threadCount();
    VrTaskManager::setThreadCount(threads);
    renderer->initDescription();
    EXPECT_TRUE(renderer->renderPatchInParallel("skin"));
    renderer->finishDescription();
    VrTaskManager::setThreadCount(saved);
    return renderer->take();
  }

  std::vector<std::unique_ptr<SgSubdSurface>> surfaces;
  std::vector<std::unique_ptr<VrPalette>> motionPalettes;
  std::unique_ptr<VrPalette> palette;
  std::vector<VrDescription*> motion;
  VrDescription* description = nullptr;
  std::unique_ptr<RecordingRenderer> renderer;
};

// Records the window each face is generated with.
class WindowGenerator : public VrGenerator {
 public:
  explicit WindowGenerator(VrDescription* description) : VrGenerator(description) {}
  std::string typeName() const override { return "RendererTestWindowGenerator"; }
  void genPrimitives(int, const std::vector<VrPatch*>&, double start, double percent) override {
    window = {start, percent};
  }
  std::pair<double, double> window{-1.0, -1.0};
};

void* createWindowGenerator(VrDescription* description) {
  return static_cast<VrObject*>(new WindowGenerator(description));
}

struct DebugLevel {
  explicit DebugLevel(unsigned level) : saved(VRDebugLevel) { VRDebugLevel = level; }
  ~DebugLevel() { VRDebugLevel = saved; }
  unsigned saved;
};

// The camera at `position`, looking along world -z, with half-angles of 0.3 radians.
struct CameraAt {
  explicit CameraAt(double x, double y, double z) {
    SgXform3T<double> worldToCamera;
    worldToCamera.m[3][0] = -x;
    worldToCamera.m[3][1] = -y;
    worldToCamera.m[3][2] = -z;
    VrRenderer::setCamInverseXform(worldToCamera);
    VrRenderer::setCamFOV(0.3);
  }
  ~CameraAt() {
    VrRenderer::setCamInverseXform(SgXform3T<double>());
    VrRenderer::setCamFOV(0.0);
  }
};

}  // namespace

TEST(VrRendererWindow, GeneratorIsGivenTheWindowCutAtOne) {
  Scene scene(1, 1);
  ASSERT_TRUE(VrRegisterModule("RendererTestWindowGenerator", &createWindowGenerator));
  ASSERT_TRUE(scene.description->setActive("RendererTestWindowGenerator"));
  auto* spy = dynamic_cast<WindowGenerator*>(scene.description->activeGenerator());
  ASSERT_NE(spy, nullptr);
  scene.renderer->setAttr("startPercent", "30");
  scene.renderer->setAttr("percent", "90");
  scene.renderFace(0);
  EXPECT_EQ(spy->window, std::make_pair(0.3, 1.0 - 0.3));
  scene.renderer->setAttr("percent", "40");
  scene.renderFace(0);
  EXPECT_EQ(spy->window, std::make_pair(0.3, 0.4));
  scene.description->setActive("RandomGenerator");
}

// A face renders, is counted, and gets its statistics line; a missing patch is an error.
TEST(VrRendererWalk, RendersAFaceAndCountsIt) {
  Scene scene(2, 1);
  const unsigned saved = VRStatsLevel;
  VRStatsLevel = 3;
  vrtest::CaptureLogger log;
  scene.renderer->setDirty(false);
  const Records records = scene.renderFace(1);
  VRStatsLevel = saved;
  ASSERT_FALSE(records.empty());
  for (const Record& r : records) EXPECT_EQ(r.face, 1);
  EXPECT_EQ(scene.renderer->emitCount(), static_cast<int>(records.size()));
  EXPECT_EQ(scene.renderer->totalEmitCount(), records.size());
  EXPECT_TRUE(scene.renderer->dirty());
  EXPECT_FALSE(scene.renderer->isRendering());
  std::string value;
  scene.renderer->getAttr("numPrimitives", value);
  EXPECT_EQ(value, std::to_string(records.size()));
  scene.renderer->getAttr("maxBound", value);
  EXPECT_EQ(value, "0.01");
  EXPECT_TRUE(log.errors().empty());
  const std::vector<std::string> lines = log.texts(vrmsg::Stats);
  const std::string head = "fur|skin[1] " + std::to_string(records.size()) + " prims (0 culled) | ";
  const auto line = std::find_if(lines.begin(), lines.end(),
                                 [&](const std::string& text) { return text.compare(0, head.size(), head) == 0; });
  ASSERT_NE(line, lines.end());
  EXPECT_EQ(line->substr(line->size() - 8), " seconds");

  scene.renderer->initDescription();
  scene.renderer->render(0, "scalp");
  EXPECT_EQ(log.errors(), std::vector<std::string>{"No patch scalp for motion sample 0"});
  EXPECT_TRUE(scene.renderer->take().empty());
}

TEST(VrRendererWalk, StochasticLodWithGuideInterpolationIsAnError) {
  Scene scene(1, 1);
  scene.description->setAttr("lodFlag", "true");
  {
    vrtest::CaptureLogger log;
    scene.renderer->initDescription();  // no guides: nothing to say
    EXPECT_TRUE(log.errors().empty());
  }
  scene.description->activePrimitive()->setAttr("iMethod", "1");  // interpolate from guides
  scene.description->activePrimitive()->addGuide();
  vrtest::CaptureLogger log;
  scene.renderer->initDescription();
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Stochastic LOD not supported for SplinePrimitive when using "
                                                   "guide interpolation. [renderGroom,fur]"});
  scene.description->activePrimitive()->setGuideCount(0);
}

TEST(VrRendererWalk, FaceMissingInOneMotionSampleGivesNothingAndSaysNothing) {
  Scene scene(2, 1);
  scene.addMotionSample(1, 1);  // face 1 is not in sample 1
  DebugLevel debug(3);
  vrtest::CaptureLogger log;
  scene.renderer->initDescription();
  EXPECT_EQ(scene.renderer->numSamples(), 2);
  EXPECT_TRUE(log.has("Initialize fur description "));
  log.clear();
  scene.renderer->render(1, "skin");
  EXPECT_TRUE(log.messages.empty());
  EXPECT_TRUE(scene.renderer->take().empty());
  EXPECT_EQ(scene.renderer->totalEmitCount(), 0u);

  // Face 0 is in both samples and renders.
  scene.renderer->render(0, "skin");
  EXPECT_FALSE(scene.renderer->take().empty());
  EXPECT_TRUE(log.errors().empty());
  scene.renderer->finishDescription();
}

TEST(VrRendererWalk, ShadowPassWithoutMotionBlurWalksOneSample) {
  Scene scene(2, 1);
  scene.addMotionSample(1, 1);
  VrRenderer::setShadowPass(true);
  VrRenderer::setMotionBlurShadows(false);
  scene.renderer->initDescription();
  VrRenderer::setShadowPass(false);
  VrRenderer::setMotionBlurShadows(true);
  EXPECT_EQ(scene.renderer->numSamples(), 1);
  scene.renderer->render(1, "skin");  // face 1 exists in sample 0, which alone counts now
  EXPECT_FALSE(scene.renderer->take().empty());
}

// With inCameraOnly a face behind the camera is skipped; one in front or around the camera renders.
TEST(VrRendererCamera, OnlyFacesInViewRender) {
  Scene scene(2, 1);
  scene.renderer->setAttr("inCameraOnly", "true");
  {
    CameraAt camera(0.5, 0.5, -5.0);  // looking away from the plane z = 0
    EXPECT_FALSE(scene.renderer->faceInCam(0, scene.patch()));
    DebugLevel debug(3);
    vrtest::CaptureLogger log;
    EXPECT_TRUE(scene.renderFace(0).empty());
    EXPECT_TRUE(log.has("fur[0] is not visible.  Skipping."));
    EXPECT_FALSE(log.has("Begin fur | skin[0] patch."));
  }
  {
    CameraAt camera(0.5, 0.5, 5.0);
    EXPECT_TRUE(scene.renderer->pointInCam(SgVec3T<double>(0.5, 0.5, 0.0)));
    EXPECT_FALSE(scene.renderer->pointInCam(SgVec3T<double>(0.6, 0.5, 10.0)));
    EXPECT_TRUE(scene.renderer->faceInCam(0, scene.patch()));
    EXPECT_FALSE(scene.renderFace(0).empty());
  }
  {
    // The camera stands on the face: no corner is in view, but the face encloses the view.
    CameraAt camera(0.5, 0.5, 0.0005);
    const SgBox3T<double> box = scene.patch()->boundingBox(0, false);
    EXPECT_FALSE(scene.renderer->pointInCam(box.min));
    EXPECT_TRUE(scene.renderer->faceInCam(0, scene.patch()));
    DebugLevel debug(3);
    vrtest::CaptureLogger log;
    EXPECT_FALSE(scene.renderFace(0).empty());
    EXPECT_TRUE(log.has("Begin fur | skin[0] patch."));
    EXPECT_TRUE(log.has("End fur | skin[0] patch."));
  }
}

TEST(VrRendererParallel, MotionSamplesGetTheirOwnContexts) {
  Scene scene(3, 2);
  scene.addMotionSample(3, 2);
  const Records serial = scene.renderAll();
  ASSERT_FALSE(serial.empty());
  tbb::global_control parallelism(tbb::global_control::max_allowed_parallelism, 4);
  EXPECT_EQ(scene.renderInParallel(4), serial);
  EXPECT_EQ(scene.renderer->totalEmitCount(), serial.size());
}

// The plain null renderer bounds every motion sample's face, on one worker or several: a sample
// on a coarser grid reaches past the first sample's faces.
TEST(VrRendererParallel, TheNullRendererBoundsEveryMotionSample) {
  Scene scene(4, 4);
  scene.addMotionSample(2, 2);
  VrNullRenderer plain(scene.description);
  scene.description->setActiveRenderer(&plain);
  std::string bounds[2];
  for (size_t threads : {1u, 3u}) {
    const size_t saved = VrTaskManager::threadCount();
    VrTaskManager::setThreadCount(threads);
    plain.initDescription();
    if (threads == 1)
      for (int face = 0; face < scene.faces(); ++face) plain.render(face, "skin");
    else
      EXPECT_TRUE(plain.renderPatchInParallel("skin"));
    plain.finishDescription();
    VrTaskManager::setThreadCount(saved);
    plain.getAttr("maxBound", bounds[threads == 1 ? 0 : 1]);
  }
  scene.description->setActiveRenderer(scene.renderer.get());
  EXPECT_GT(std::stod(bounds[0]), 0.01);
  EXPECT_EQ(bounds[1], bounds[0]);
}

namespace {

// The guides of the primitive as (face, u, v, id), in list order.
std::vector<std::tuple<int, double, double, std::string>> guideList(const VrPrimitive& primitive) {
  std::vector<std::tuple<int, double, double, std::string>> out;
  for (unsigned i = 0; i < primitive.numGuides(); ++i) {
    const VrGuide& g = primitive.guide(i);
    out.emplace_back(g.faceId(), g.patchU(), g.patchV(), g.id());
  }
  return out;
}

}  // namespace

TEST(VrGuideRenderer, GuidesReplaceOrFollowAndMatchInParallel) {
  Scene scene(3, 2);
  std::unique_ptr<VrObject> object(static_cast<VrObject*>(VrCreateObject("GuideRenderer", scene.description)));
  ASSERT_NE(dynamic_cast<VrGuideRenderer*>(object.get()), nullptr);
  VrGuideRenderer& guides = *dynamic_cast<VrGuideRenderer*>(object.get());
  EXPECT_TRUE(guides.replace() && guides.applyFX() && guides.canRunInParallel());
  scene.description->setActiveRenderer(&guides);
  VrPrimitive& primitive = *scene.description->activePrimitive();

  guides.initDescription();
  for (int face = 0; face < scene.faces(); ++face) guides.render(face, "skin");
  const unsigned made = guides.totalEmitCount();
  ASSERT_GT(made, 10u);
  EXPECT_EQ(guides.numNewGuides(), made);
  guides.finishDescription();
  EXPECT_EQ(guides.numNewGuides(), 0u);
  ASSERT_EQ(primitive.numGuides(), made);
  EXPECT_EQ(primitive.guide(0u).patch(), scene.patch());
  EXPECT_EQ(primitive.guide(0u).faceId(), 0);
  const auto serial = guideList(primitive);

  // Without replace the new guides follow the old ones.
  guides.setAttr("replace", "false");
  guides.initDescription();
  guides.render(0, "skin");
  const unsigned onFace = guides.emitCount();
  guides.finishDescription();
  EXPECT_EQ(primitive.numGuides(), made + onFace);

  // A serial and a parallel render, each from a fresh guide counter, leave the same list.
  guides.setAttr("replace", "true");
  scene.palette->setMaxGuideId(0);
  guides.initDescription();
  for (int face = 0; face < scene.faces(); ++face) guides.render(face, "skin");
  guides.finishDescription();
  const auto again = guideList(primitive);
  ASSERT_EQ(again.size(), made);
  EXPECT_EQ(std::get<3>(again.front()), "1");
  for (size_t i = 0; i < made; ++i) EXPECT_EQ(std::get<0>(again[i]), std::get<0>(serial[i]));
  {
    tbb::global_control parallelism(tbb::global_control::max_allowed_parallelism, 4);
    const size_t saved = VrTaskManager::threadCount();
    VrTaskManager::setThreadCount(4);
    scene.palette->setMaxGuideId(0);
    guides.initDescription();
    EXPECT_TRUE(guides.renderPatchInParallel("skin"));
    guides.finishDescription();
    VrTaskManager::setThreadCount(saved);
  }
  EXPECT_EQ(guideList(primitive), again);
  EXPECT_EQ(guides.totalEmitCount(), made);
  scene.description->setActiveRenderer(scene.renderer.get());
}
