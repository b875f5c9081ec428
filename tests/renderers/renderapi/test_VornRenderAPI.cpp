#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/VrMessage.h"
#include "base/VrModules.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/VrPatch.h"
#include "io/VrImportGeometry.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrRenderer.h"
#include "renderers/renderapi/RenderAPITestSupport.h"
#include "renderers/renderapi/VornRenderAPI.h"
#include "renderers/renderapi/VornRenderAPIBatch.h"
#include "renderers/renderapi/VornRenderAPIRenderer.h"
#include "support/CaptureLogger.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

namespace {

using namespace VornRenderAPI;
using vrtest::RecordingCallbacks;
using vrtest::RenderedPrim;

using Shutter = ProceduralCallbacks::EFloatArrayAttribute;

// Restores the message settings that argument strings change.
struct MessageLevels {
  unsigned debug = VRDebugLevel, stats = VRStatsLevel, warning = VRWarningLevel;
  bool quit = VRQuitOnError;
  ~MessageLevels() {
    VRDebugLevel = debug;
    VRStatsLevel = stats;
    VRWarningLevel = warning;
    VRQuitOnError = quit;
  }
};

class RenderAPI : public ::testing::Test {
 protected:
  void SetUp() override {
    VrResetImportGeometry();
    static int serial = 0;
    name = "renderApiTest" + std::to_string(++serial);
    geom = dir.file("grid.abc");
    ASSERT_TRUE(vrtest::writeGrid(geom));
    file = writeCollection();
  }
  void TearDown() override {
    for (const std::string& palette : {name, "ns:" + name, "VR_RENDER_:ns:" + name})
      delete VrPalette::palette(palette);
    VrResetImportGeometry();
    // The render camera is process-wide: leave it as the process started.
    VrRenderer::setCamInverseXform(SgXform3T<double>());
    VrRenderer::setCamFOV(0.0);
    VrRenderer::setCamRatio(1.0);
    VrRenderer::setCamDir(SgVec3T<double>());
    VrRenderer::setRealCamDir(SgVec3T<double>());
    VrRenderer::setCamIsOrtho(false);
    VrRenderer::setRealCamIsOrtho(false);
  }

  std::string writeCollection(const std::string& rendererAttrs = "", const std::string& density = "40.0") {
    return dir.write(name + ".vorn", vrtest::collectionText(name, rendererAttrs, density));
  }
  // Inits a patch renderer on the test's collection.
  std::unique_ptr<PatchRenderer> init(ProceduralCallbacks& callbacks, const std::string& extra = "") {
    std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args(extra).c_str()));
    EXPECT_TRUE(patch) << (log.errors().empty() ? "" : log.errors()[0]);
    return patch;
  }
  static void renderFace(PatchRenderer* patch, unsigned face = 0) {
    std::unique_ptr<FaceRenderer>(FaceRenderer::init(patch, face, nullptr))->render();
  }
  std::string args(const std::string& extra = "", const std::string& frame = "24") const {
    return "-file " + file + " -geom " + geom + " -palette " + name +
           " -description hair -patch plane -frame " + frame + " -fps 24 " + extra;
  }
  // Every face of the patch, as (face, box).
  static std::vector<std::pair<unsigned, std::vector<double>>> faces(PatchRenderer* patch) {
    std::vector<std::pair<unsigned, std::vector<double>>> out;
    double box[6];
    unsigned face = 0;
    while (patch->nextFace(box, face)) out.push_back({face, std::vector<double>(box, box + 6)});
    EXPECT_EQ(face, ~0u);
    return out;
  }
  // Renders every face, one by one.
  static void renderSerially(PatchRenderer* patch, ProceduralCallbacks* callbacks) {
    for (const auto& face : faces(patch)) {
      std::unique_ptr<FaceRenderer> renderer(FaceRenderer::init(patch, face.first, callbacks));
      ASSERT_TRUE(renderer);
      renderer->render();
    }
  }
  void expectParallelMatchesSerial(const std::string& extra, const std::vector<float>& shutter);

  vrtest::TempDir dir;
  vrtest::CaptureLogger log;
  MessageLevels levels;
  std::string name, geom, file;
};

// The argument string

TEST_F(RenderAPI, EachMissingFlagGivesItsMessageInOrder) {
  RecordingCallbacks callbacks;
  const struct {
    std::string args;
    std::string error;
  } cases[] = {
      {"", "No collection filename given."},
      {"-palette p -description d -patch x -frame 1 -geom g", "No collection filename given."},
      {"-file f", "No geometry filename given."},
      {"-file f -geom g -motionSamplesLookup 0 1 -motionSamplesPlacement 0",
       "Motion sample lookup and placement sizes do not match."},
      {"-file f -geom g -motionSamplesLookup 0,1 -motionSamplesPlacement 0",
       "Motion sample lookup and placement sizes do not match."},
      {"-file f -geom g", "No collection name given."},
      {"-file f -geom g -palette p", "No description name given."},
      {"-file f -geom g -palette p -description d", "No patch name given."},
      {"-file f -geom g -palette p -description d -patch x", "No frame given."},
  };
  for (const auto& c : cases) {
    log.clear();
    EXPECT_EQ(PatchRenderer::init(&callbacks, c.args.c_str()), nullptr) << c.args;
    EXPECT_EQ(log.errors(), std::vector<std::string>{c.error}) << c.args;
  }
}

// Unknown tokens warn and parsing goes on; -quitOnError takes no value; quotes hold blanks;
// -debug echoes every token.
TEST_F(RenderAPI, TokensWarnEchoAndQuote) {
  RecordingCallbacks callbacks;
  EXPECT_EQ(PatchRenderer::init(&callbacks, "-bogus -file f"), nullptr);
  EXPECT_EQ(log.warnings(), std::vector<std::string>{"Unknown token: -bogus"});
  EXPECT_EQ(log.errors(), std::vector<std::string>{"No geometry filename given."});
  log.clear();
  VRDebugLevel = 2;
  EXPECT_EQ(PatchRenderer::init(&callbacks, "-quitOnError -file \"a b.vorn\""), nullptr);
  VRQuitOnError = false;
  EXPECT_EQ(log.errors(), std::vector<std::string>{"No geometry filename given."});
  VRDebugLevel = levels.debug;
  EXPECT_EQ(PatchRenderer::init(&callbacks, "-debug 2 -nameSpace ns -frame 3 -file"), nullptr);
  EXPECT_EQ(VRDebugLevel, 2u);
  for (const char* line : {"Vorn set to quit on error in procedural (args).", "File token: a b.vorn",
                           "Debug level set: 2", "Token: -nameSpace", "NameSpace token: ns", "Frame token: 3"})
    EXPECT_TRUE(log.has(line)) << line;
}

TEST_F(RenderAPI, UnknownDescriptionOrPatchFails) {
  RecordingCallbacks callbacks;
  const std::string base = "-file " + file + " -geom " + geom + " -palette " + name + " -frame 24 -fps 24 ";
  EXPECT_EQ(PatchRenderer::init(&callbacks, (base + "-description fur -patch plane").c_str()), nullptr);
  EXPECT_TRUE(log.has("Could not find a description named fur to go with the patch named plane."));
  EXPECT_EQ(PatchRenderer::init(&callbacks, (base + "-description hair -patch chin").c_str()), nullptr);
  EXPECT_TRUE(log.has("No patch with name: chin in description: hair"));
}

TEST_F(RenderAPI, UnreadableFilesFailAndKeepNothing) {
  RecordingCallbacks callbacks;
  const std::string good = geom;
  geom = dir.write("broken.abc", "Ogawa: not an archive");
  EXPECT_EQ(PatchRenderer::init(&callbacks, args().c_str()), nullptr);
  EXPECT_FALSE(log.errors().empty());
  EXPECT_EQ(VrPalette::palette(name), nullptr);
  // The next init reads everything again and succeeds.
  geom = good;
  std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args().c_str()));
  EXPECT_TRUE(patch);
  patch.reset();
  delete VrPalette::palette(name);

  // A file that holds another collection than the one named: refused, and not kept under its
  // own name either (no use of it would ever free it).
  EXPECT_EQ(PatchRenderer::init(&callbacks, args("-palette other").c_str()), nullptr);
  EXPECT_TRUE(log.has("The collection file " + file + " holds the collection " + name + ", not other."));
  EXPECT_EQ(VrPalette::palette(name), nullptr);

  log.clear();
  file = dir.file("missing.vorn");
  EXPECT_EQ(PatchRenderer::init(&callbacks, args().c_str()), nullptr);
  EXPECT_TRUE(log.has("No collections were imported from " + file));
}

// Faces, boxes and batches

TEST_F(RenderAPI, FacesComeWithPaddedBoxes) {
  RecordingCallbacks callbacks;
  std::unique_ptr<PatchRenderer> patch = init(callbacks);
  ASSERT_TRUE(patch);
  ASSERT_TRUE(patch->description());
  EXPECT_STREQ(patch->description()->getString(0), "SplinePrimitive");
  EXPECT_STREQ(patch->description()->getString(1), "");
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Invalid EStringAttribute"});
  const auto all = faces(patch.get());
  ASSERT_EQ(all.size(), 4u);
  // primitiveBound 1: padding min(1.05, 1.5) around the face's box.
  const double pad = 1.05;
  const VrPatch* plane = VrPalette::palette(name)->description("hair")->patch("plane");
  for (const auto& face : all) {
    const SgBox3T<double> own = plane->boundingBox(int(face.first), false);
    const SgVec3T<double> hi = own.maxCorner();
    const double expected[6] = {own.min.x - pad, hi.x + pad,      own.min.y - pad,
                                hi.y + pad,      own.min.z - pad, hi.z + pad};
    for (int k = 0; k < 6; ++k) EXPECT_NEAR(face.second[k], expected[k], 1e-9) << face.first << " " << k;
  }
  EXPECT_EQ(all[0].first, 0u);
  EXPECT_EQ(all[3].first, 3u);
  double box[6];
  ASSERT_TRUE(patch->patchBox(box, false));
  const double whole[6] = {0, 2, 0, 2, 0, 0};
  for (int k = 0; k < 6; ++k) EXPECT_NEAR(box[k], whole[k], 1e-9) << k;
  EXPECT_FALSE(patch->sampleBox(box, 1, false));
}

// VORN_PRIM_CACHE_SIZE 1 flushes every primitive, 0 once per face; an empty face never flushes.
TEST_F(RenderAPI, CacheSizeDecidesTheFlushes) {
  {
    vrtest::ScopedEnv size("VORN_PRIM_CACHE_SIZE", "1");
    RecordingCallbacks callbacks;
    std::unique_ptr<PatchRenderer> patch = init(callbacks);
    ASSERT_TRUE(patch);
    renderSerially(patch.get(), &callbacks);
    ASSERT_FALSE(callbacks.prims.empty());
    EXPECT_EQ(callbacks.batches.size(), callbacks.prims.size());
    for (const auto& batch : callbacks.batches)
      EXPECT_EQ(std::make_pair(batch.count, batch.limit), std::make_pair(1u, 1u));
  }
  delete VrPalette::palette(name);  // each part reads the collection afresh
  vrtest::ScopedEnv size("VORN_PRIM_CACHE_SIZE", "0");
  {
    RecordingCallbacks callbacks;
    std::unique_ptr<PatchRenderer> patch = init(callbacks);
    ASSERT_TRUE(patch);
    unsigned facesWithPrims = 0;
    for (const auto& face : faces(patch.get())) {
      const size_t before = callbacks.batches.size(), primsBefore = callbacks.prims.size();
      renderFace(patch.get(), face.first);
      const size_t made = callbacks.prims.size() - primsBefore;
      EXPECT_EQ(callbacks.batches.size() - before, made ? 1u : 0u);
      facesWithPrims += made ? 1 : 0;
      for (size_t i = primsBefore; i < callbacks.prims.size(); ++i) EXPECT_EQ(callbacks.prims[i].face, int(face.first));
    }
    EXPECT_EQ(facesWithPrims, 4u);
    for (const auto& batch : callbacks.batches) EXPECT_EQ(batch.limit, 0u);
  }
  delete VrPalette::palette(name);
  file = writeCollection("\tpercent\t\t\t0.0\n");
  RecordingCallbacks none;
  std::unique_ptr<PatchRenderer> empty = init(none);
  ASSERT_TRUE(empty);
  renderSerially(empty.get(), &none);
  EXPECT_TRUE(none.batches.empty());
}

TEST_F(RenderAPI, FlushNameDropsTheNameSpace) {
  RecordingCallbacks callbacks;
  std::unique_ptr<PatchRenderer> patch = init(callbacks, "-nameSpace ns");
  ASSERT_TRUE(patch);
  EXPECT_TRUE(VrPalette::palette("ns:" + name));
  renderSerially(patch.get(), &callbacks);
  ASSERT_FALSE(callbacks.batches.empty());
  for (const auto& batch : callbacks.batches) EXPECT_EQ(batch.name, "plane");
}

// Collections across procedurals

TEST_F(RenderAPI, FrameChangeReimportsATemporaryCollection) {
  RecordingCallbacks callbacks;
  callbacks.arrays[static_cast<int>(Shutter::Shutter)] = {0.0f};
  callbacks.keepCollection = true;
  VRDebugLevel = 1;
  const std::string temporary = "VR_RENDER_:ns:" + name;
  const std::string importing = "Importing 1 samples for " + temporary;
  auto init = [&](const std::string& frame) {
    log.clear();
    std::unique_ptr<PatchRenderer> patch(
        PatchRenderer::init(&callbacks, args("-nameSpace ns", frame).c_str()));
    EXPECT_TRUE(patch) << frame << (log.errors().empty() ? "" : log.errors()[0]);
    return log.has(importing);
  };
  EXPECT_TRUE(init("24"));
  ASSERT_TRUE(VrPalette::palette(temporary));
  EXPECT_FALSE(init("24.0000005"));
  EXPECT_TRUE(init("24.000002"));
  EXPECT_DOUBLE_EQ(VrPalette::palette(temporary)->frame(), 24.000002);
  PatchRenderer::deleteTempRenderPalettes();
  EXPECT_EQ(VrPalette::palette(temporary), nullptr);
}

TEST_F(RenderAPI, ShutterMustMatchTheSamples) {
  const std::string motion = "-motionSamplesLookup 0 1 -motionSamplesPlacement 0 1";
  {  // more than 20 times are cut to 20, which do not match the 2 samples
    RecordingCallbacks callbacks;
    std::vector<float> shutter(25);
    for (size_t i = 0; i < shutter.size(); ++i) shutter[i] = 0.01f * i;
    callbacks.arrays[static_cast<int>(Shutter::Shutter)] = shutter;
    std::unique_ptr<PatchRenderer> patch = init(callbacks, motion);
    ASSERT_TRUE(patch);
    renderFace(patch.get());
    EXPECT_TRUE(log.has("Shutter times (20) not in agreement with number of samples (2)."));
    ASSERT_FALSE(callbacks.batches.empty());
    EXPECT_EQ(callbacks.batches[0].samples, 2u);
  }
  delete VrPalette::palette(name);
  log.clear();
  RecordingCallbacks callbacks;
  callbacks.arrays[static_cast<int>(Shutter::Shutter)] = {0.0f, 0.5f};
  std::unique_ptr<PatchRenderer> patch = init(callbacks, motion);
  ASSERT_TRUE(patch);
  double box[6];
  ASSERT_TRUE(patch->sampleBox(box, 1, false));
  // The second sample sits at frame 25, one unit up.
  EXPECT_NEAR(box[4], 1.0, 1e-6);
  ASSERT_TRUE(patch->patchBox(box, false));
  EXPECT_NEAR(box[4], 0.0, 1e-6);
  EXPECT_NEAR(box[5], 1.0, 1e-6);
  renderFace(patch.get());
  for (const std::string& error : log.errors()) EXPECT_EQ(error.find("Shutter times"), std::string::npos);
  // Each primitive comes in both samples: its root on the plane at z = 0, then at z = 1.
  ASSERT_FALSE(callbacks.prims.empty());
  for (const RenderedPrim& prim : callbacks.prims) {
    ASSERT_EQ(prim.last.size(), prim.points.size());
    EXPECT_NEAR(prim.points[2], 0.0, 1e-5);
    EXPECT_NEAR(prim.last[2], 1.0, 1e-5);
    EXPECT_NEAR(prim.last[0], prim.points[0], 1e-5);
  }
}

// Overrides

TEST_F(RenderAPI, UserOverridesRewriteAttributes) {
  RecordingCallbacks callbacks;
  callbacks.overrides["user:vorn_width"] = "0.04";
  callbacks.overrides["user:vorn_density"] = "20";
  callbacks.overrides["user:vorn_mask"] = "$originalExpr*0.5";
  callbacks.arrays[1] = {0.5f, 0.25f, 0.1f};  // LodHi of the wrong size
  std::unique_ptr<PatchRenderer> patch = init(callbacks);
  ASSERT_TRUE(patch);
  renderFace(patch.get());
  VrDescription* hair = VrPalette::palette(name)->description("hair");
  std::string value;
  ASSERT_TRUE(hair->activePrimitive()->getAttr("width", value));
  EXPECT_EQ(value, "0.04");
  ASSERT_TRUE(hair->activeGenerator()->getAttr("density", value));
  EXPECT_EQ(value, "20");
  ASSERT_TRUE(hair->activeGenerator()->getAttr("mask", value));
  EXPECT_EQ(value, "(1.0)*0.5");
  EXPECT_TRUE(log.has("User attribute lodHi has invalid size (3!=2)."));
}

TEST_F(RenderAPI, DensityFalloffWrapsTheMask) {
  RecordingCallbacks callbacks;
  callbacks.arrays[0] = {1, 2, 3, 0.5f, 1.5f, 1, 0};
  std::unique_ptr<PatchRenderer> patch = init(callbacks);
  ASSERT_TRUE(patch);
  renderFace(patch.get());
  std::string mask;
  ASSERT_TRUE(VrPalette::palette(name)->description("hair")->activeGenerator()->getAttr("mask", mask));
  EXPECT_EQ(mask,
            "$distToLoc = length($Pg-[1,2,3]);\\n$radA = 0.5;\\n$radB = 1.5;\\n"
            "(1.0 - (smoothstep($distToLoc,$radA,$radB))))*(1.0\\n)");
}

TEST_F(RenderAPI, DensityFalloffOfTheWrongSizeIsAnError) {
  RecordingCallbacks callbacks;
  callbacks.arrays[0] = {1, 2, 3};
  std::unique_ptr<PatchRenderer> patch = init(callbacks);
  ASSERT_TRUE(patch);
  renderFace(patch.get());
  EXPECT_TRUE(log.has("User attribute vorn_densityFalloff has invalid size (3!=7)."));
}

// A camera at (50, 50, -10) looking along -z sees nothing of the plane z = 0; with in-camera culling
// every face comes back with a zero box.
class BackwardCamera : public RecordingCallbacks {
 public:
  const char* getString(EStringAttribute key) override {
    if (key == EStringAttribute::RenderCamXform) return "1,0,0,0,0,1,0,0,0,0,1,0,50,50,-10,1";
    return RecordingCallbacks::getString(key);
  }
};

TEST_F(RenderAPI, FacesOutOfViewComeWithZeroBoxes) {
  BackwardCamera callbacks;
  callbacks.overrides["user:vorn_inCameraOnly"] = "true";
  std::unique_ptr<PatchRenderer> patch = init(callbacks);
  ASSERT_TRUE(patch);
  const auto all = faces(patch.get());
  ASSERT_EQ(all.size(), 4u);
  for (const auto& face : all) EXPECT_EQ(face.second, std::vector<double>(6, 0.0)) << face.first;

  RecordingCallbacks front;  // the camera of the other tests looks at the plane from z = 10
  front.overrides["user:vorn_inCameraOnly"] = "true";
  std::unique_ptr<PatchRenderer> seen(PatchRenderer::init(&front, args().c_str()));
  ASSERT_TRUE(seen);
  for (const auto& face : faces(seen.get()))
    EXPECT_NE(face.second, std::vector<double>(6, 0.0)) << face.first;
}

// Parallel rendering

// Renders serially, then through a ParallelRenderer with 1 and 2 threads and with a negative
// count, and expects the same primitives sorted by (patch, face, id).
void RenderAPI::expectParallelMatchesSerial(const std::string& extra, const std::vector<float>& shutter) {
  RecordingCallbacks serial;
  if (!shutter.empty()) serial.arrays[static_cast<int>(Shutter::Shutter)] = shutter;
  std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&serial, args(extra).c_str()));
  ASSERT_TRUE(patch);
  // The command-line client asks for ids this way.
  VrPalette* collection = VrPalette::palette(name);
  if (!collection) collection = VrPalette::palette("VR_RENDER_:ns:" + name);
  ASSERT_TRUE(collection);
  VrDescription* hair =
      collection->description(collection->name().substr(0, collection->name().size() - name.size()) + "hair");
  ASSERT_TRUE(hair);
  VrObject* renderer = hair->activeRenderer();
  ASSERT_TRUE(renderer->setAttr("addPrimitiveId", "true"));
  renderSerially(patch.get(), &serial);
  const std::vector<RenderedPrim> expected = serial.sorted();
  ASSERT_FALSE(expected.empty());
  for (size_t i = 1; i < expected.size(); ++i)
    EXPECT_TRUE(expected[i - 1] < expected[i]) << "ids repeat within a face";

  for (int threads : {1, 2, -1}) {
    RecordingCallbacks parallel;
    if (!shutter.empty()) parallel.arrays[static_cast<int>(Shutter::Shutter)] = shutter;
    std::unique_ptr<PatchRenderer> again(PatchRenderer::init(&parallel, args(extra).c_str()));
    ASSERT_TRUE(again);
    std::unique_ptr<ParallelRenderer> runner(ParallelRenderer::init(again.get()));
    ASSERT_TRUE(runner);
    EXPECT_TRUE(runner->canRunInParallel());
    std::vector<std::unique_ptr<FaceRenderer>> queue;
    std::vector<unsigned> enqueued;
    for (const auto& face : faces(again.get())) {
      enqueued.push_back(face.first);
      queue.emplace_back(FaceRenderer::init(again.get(), face.first, &parallel));
      EXPECT_TRUE(runner->enqueue(queue.back().get()));
    }
    runner->setThreads(threads);
    runner->setGrain(1);
    VRDebugLevel = 2;
    log.clear();
    runner->run();
    VRDebugLevel = levels.debug;
    EXPECT_TRUE(log.has(threads < 0 ? "Parallel rendering is off." : "Parallel rendering is on.")) << threads;
    runner->release();
    // Every face is reported done once, after its last batch.
    std::vector<unsigned> done = parallel.done;
    std::sort(done.begin(), done.end());
    std::sort(enqueued.begin(), enqueued.end());
    EXPECT_EQ(done, enqueued) << threads;
    EXPECT_EQ(parallel.lateFlushes, 0) << threads;
    const std::vector<RenderedPrim> got = parallel.sorted();
    ASSERT_EQ(got.size(), expected.size()) << threads;
    for (size_t i = 0; i < got.size(); ++i) {
      EXPECT_EQ(got[i].face, expected[i].face);
      EXPECT_EQ(got[i].id, expected[i].id);
      EXPECT_EQ(got[i].points, expected[i].points) << threads << " " << i;
      EXPECT_EQ(got[i].widths, expected[i].widths) << threads << " " << i;
      EXPECT_EQ(got[i].last, expected[i].last) << threads << " " << i;
    }
  }
}

TEST_F(RenderAPI, ParallelRunsMatchTheSerialRender) { expectParallelMatchesSerial("", {}); }

TEST_F(RenderAPI, ParallelRunsWithMotionSamplesMatchTheSerialRender) {
  expectParallelMatchesSerial("-nameSpace ns -motionSamplesLookup 0 1 -motionSamplesPlacement 0 1",
                              {0.0f, 0.5f});
}

TEST_F(RenderAPI, ParallelRendererRefusesBadInput) {
  EXPECT_EQ(ParallelRenderer::init(nullptr), nullptr);
  EXPECT_TRUE(log.has("in_patch is NULL when init a ParallelRenderer."));
  RecordingCallbacks callbacks;
  std::unique_ptr<PatchRenderer> patch = init(callbacks);
  ASSERT_TRUE(patch);
  std::unique_ptr<ParallelRenderer> runner(ParallelRenderer::init(patch.get()));
  ASSERT_TRUE(runner);
  EXPECT_FALSE(runner->enqueue(nullptr));
  EXPECT_TRUE(log.has("in_face is NULL when enqueue a face renderer."));
}

// The back end and its cache view

TEST(RenderAPICache, OutOfRangeKeysAnswerZeroWithTheEnumName) {
  vrtest::CaptureLogger log;
  Batch batch;
  batch.sizeSamples(2);
  batch.count = 2;
  batch.points[1] = {1, 2, 3, 4, 5, 6};
  batch.strings[static_cast<int>(PrimitiveCache::EStringArrayAttribute::GeomName)] = {"a", "b"};
  BatchState state;
  state.sampleCount = 2;
  state.primitiveBound = 0.25;
  state.typeName = "SplinePrimitive";
  state.flags[36] = true;
  BatchView view(batch, state);

  using P = PrimitiveCache;
  EXPECT_EQ(view.getVec3Array2DSize(P::EVec3Array2DAttribute::Points, 1), 2u);
  EXPECT_STREQ(view.getStringArray(P::EStringArrayAttribute::GeomName, 1), "b");
  EXPECT_DOUBLE_EQ(view.getDouble(P::EDoubleAttribute::PrimitiveBound), 0.25);
  EXPECT_TRUE(view.getBool(P::EBoolAttribute::IsSpline));
  EXPECT_FALSE(view.getBool(P::EBoolAttribute::IsArchive));
  EXPECT_STREQ(view.getString(), "SplinePrimitive");
  EXPECT_TRUE(log.errors().empty());

  const struct {
    std::function<bool()> zero;
    const char* error;
  } cases[] = {
      {[&] { return view.getUInt(static_cast<P::EUIntAttribute>(3)) == 0; }, "Invalid EUIntAttribute"},
      {[&] { return !view.getBool(static_cast<P::EBoolAttribute>(37)); }, "Invalid EBoolAttribute"},
      {[&] { return view.getVec3Array(static_cast<P::EVec3ArrayAttribute>(17)) == nullptr; },
       "Invalid EVec3ArrayAttribute"},
      {[&] { return view.getVec3Array2D(P::EVec3Array2DAttribute::Points, 2) == nullptr; },
       "Invalid EVec3Array2DAttribute"},
      {[&] { return view.getIntArraySize(static_cast<P::EIntArrayAttribute>(-1)) == 0; },
       "Invalid EIntArrayAttribute"},
      {[&] { return view.getFloatArray(static_cast<P::EFloatArrayAttribute>(8)) == nullptr; },
       "Invalid EFloatArrayAttribute"},
      {[&] { return view.getDouble(static_cast<P::EDoubleAttribute>(2)) == 0.0; },
       "Invalid EDoubleAttribute"},
      {[&] { return view.getFloat(static_cast<P::EFloatAttribute>(1)) == 0.0f; }, "Invalid EFloatAttribute"},
      {[&] { return view.getInt(static_cast<P::EIntAttribute>(1)) == 0; }, "Invalid EIntAttribute"},
      {[&] { return view.getVec3(static_cast<P::EVec3Attribute>(4)) == nullptr; }, "Invalid EVec3Attribute"},
      {[&] { return std::string(view.getStringArray(static_cast<P::EStringArrayAttribute>(6), 0)).empty(); },
       "Invalid EStringArrayAttribute"},
      {[&] { return view.getFloatArray2DSize(static_cast<P::EFloatArray2DAttribute>(2), 0) == 0; },
       "Invalid EFloatArray2DAttribute"},
      {[&] { return view.getIntArray2D(static_cast<P::EIntArray2DAttribute>(1), 0) == nullptr; },
       "Invalid EIntArray2DAttribute"},
  };
  for (const auto& c : cases) {
    log.clear();
    EXPECT_TRUE(c.zero()) << c.error;
    EXPECT_EQ(log.errors(), std::vector<std::string>{c.error});
  }
}

TEST(RenderAPILock, RecursiveForItsHolderAndExclusiveForOthers) {
  RenderLock outer;
  {
    RenderLock inner;  // the same thread may take it again
    inner.release();
    inner.release();  // a second release does nothing
    inner.acquire();
  }
  std::atomic<bool> entered{false};
  std::thread other([&] {
    RenderLock lock;
    entered = true;
  });
  EXPECT_FALSE(entered.load());
  outer.release();
  other.join();
  EXPECT_TRUE(entered.load());
}

}  // namespace
