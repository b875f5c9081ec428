#include "primitives/VrGuideInterpolation.h"

#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrPrimitive.h"
#include "support/CaptureLogger.h"
#include "support/GridSurface.h"
#include "support/Examples.h"
#include "support/PatchScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

class TestPrimitive : public VrPrimitive {
 public:
  using VrPrimitive::VrPrimitive;
  std::string typeName() const override { return "SplinePrimitive"; }
};

// A collection with one description, one primitive and one bound grid patch.
struct Scene : vrtest::PatchScene {
  explicit Scene(int n = 4, float warp = 0.0f) : PatchScene(vrtest::gridSurface(n, 0.0f, warp)) {
    primitive = std::make_unique<TestPrimitive>(description);
    primitive->setIMethod(1);
  }

  VrGuide& addGuide(int face, double u, double v, double blend = 0.0) {
    VrGuide& g = primitive->addGuide();
    g.setId(std::to_string(primitive->numGuides()));
    g.setPatch(patch);
    g.setFaceId(face);
    g.setU(u);
    g.setV(v);
    g.setBlend(blend);
    g.setOrigIGeom({SgVec3T<double>(0, 0, 0), SgVec3T<double>(0, 1, 0)});
    return g;
  }

  std::unique_ptr<TestPrimitive> primitive;
};

// Restores the process-wide settings a test changes.
struct SettingsGuard {
  SettingsGuard()
      : threads(VrTaskManager::threadCount()), multi(VrTaskManager::multithreadingEnabled()),
        warning(VRWarningLevel) {}
  ~SettingsGuard() {
    VrTaskManager::setThreadCount(threads);
    VrTaskManager::setMultithreading(multi);
    VRWarningLevel = warning;
  }
  size_t threads;
  bool multi;
  unsigned warning;
};

// A guide standing at the origin with normal +z and tangent +x, reaching `text`.
VrGuide frameGuide(const std::string& text) {
  VrGuide g;
  g.setRootFrame(true, SgVec3T<double>(0, 0, 0), SgVec3T<double>(0, 0, 1), SgVec3T<double>(1, 0, 0),
                 SgVec3T<double>(0, 1, 0));
  g.setInterpolation(text);
  return g;
}

}  // namespace

TEST(VrGuideInterpolation, LoneGuideReachesAMillimetreEverywhere) {
  Scene scene;
  scene.addGuide(5, 0.5, 0.5);
  scene.primitive->setupInterpolation(true);
  const VrGuide& g = scene.primitive->guide(0u);
  EXPECT_TRUE(g.transformedToSurface());
  EXPECT_EQ(g.radius(), std::vector<double>{0.001});
  EXPECT_TRUE(g.angle().empty());
  EXPECT_EQ(g.interpolation(), "1.0000000000000000e-03");
  const std::vector<int>* list = scene.primitive->candidates("body", 5);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(*list, std::vector<int>{0});
  // Far faces cannot be reached.
  ASSERT_NE(scene.primitive->candidates("body", 15), nullptr);
  EXPECT_TRUE(scene.primitive->candidates("body", 15)->empty());

  // At the root: distance 0, the weight is untouched.
  VrPrimitiveContext& context = scene.primitive->context();
  context.setActivePatchFace(scene.patch, 5);
  scene.primitive->findGuidesAndWeights(0.5, 0.5);
  EXPECT_FALSE(context.cullPrim());
  EXPECT_EQ(scene.primitive->activeGuides(), std::vector<int>{0});
  EXPECT_EQ(scene.primitive->weight(), std::vector<double>{1.0});
  EXPECT_EQ(scene.primitive->weightN(), 1.0);
}

TEST(VrGuideInterpolation, CoincidentGuidesWarnAndAreNotNeighbours) {
  vrtest::CaptureLogger log;
  SettingsGuard guard;
  VrTaskManager::setMultithreading(false);
  Scene scene;
  scene.addGuide(0, 0.5, 0.5);
  scene.addGuide(0, 0.5, 0.5);
  scene.primitive->setupInterpolation(true);
  EXPECT_TRUE(log.has("Face 0 has coincident guides [0,1]"));
  EXPECT_TRUE(log.has("Face 0 has coincident guides [1,0]"));
  for (unsigned i = 0; i < 2; ++i) {
    EXPECT_TRUE(scene.primitive->guide(i).angle().empty());
    EXPECT_EQ(scene.primitive->guide(i).radius()[0], 0.001);
  }
}

TEST(VrGuideInterpolation, NeighboursSurroundAGuide) {
  Scene scene(6);
  // A cross of guides about the centre guide at the middle of face 14.
  scene.addGuide(14, 0.5, 0.5);
  scene.addGuide(15, 0.5, 0.5);
  scene.addGuide(20, 0.5, 0.5);
  scene.addGuide(13, 0.5, 0.5);
  scene.addGuide(8, 0.5, 0.5);
  scene.primitive->setupInterpolation(true);
  const VrGuide& centre = scene.primitive->guide(0u);
  ASSERT_EQ(centre.angle().size(), 4u);
  // The reach toward each neighbour stops just short of it.
  for (size_t k = 1; k < centre.radius().size(); ++k) {
    EXPECT_LT(centre.radius()[k], 1.0);
    EXPECT_GT(centre.radius()[k], 0.999);
  }
  // At a neighbour's root the centre guide has almost no weight, the neighbour all of it.
  VrPrimitiveContext& context = scene.primitive->context();
  context.setActivePatchFace(scene.patch, 15);
  scene.primitive->findGuidesAndWeights(0.5, 0.5);
  ASSERT_FALSE(scene.primitive->activeGuides().empty());
  EXPECT_EQ(scene.primitive->activeGuides()[0], 1);
  EXPECT_DOUBLE_EQ(scene.primitive->weight()[0], 1.0);
}

TEST(VrGuideInterpolation, NormalsTurnedAwayFadeThenDrop) {
  const VrGuide g = frameGuide("1.0");
  const std::vector<VrGuide> guides{g};
  const std::vector<int> all{0};
  std::vector<int> active;
  std::vector<double> weights;
  const double at85 = 85.0 * M_PI / 180.0;
  double sum = vrguide::guideWeights(guides, all, {0, 0, 0}, {std::sin(at85), 0, std::cos(at85)}, 0, 1.0,
                                     active, weights);
  ASSERT_EQ(active.size(), 1u);
  EXPECT_NEAR(weights[0], std::cos(at85) / 0.173648178, 1e-12);
  EXPECT_EQ(sum, weights[0]);
  active.clear();
  weights.clear();
  const double at91 = 91.0 * M_PI / 180.0;
  sum = vrguide::guideWeights(guides, all, {0, 0, 0}, {std::sin(at91), 0, std::cos(at91)}, 0, 1.0, active,
                              weights);
  EXPECT_TRUE(active.empty());
  EXPECT_EQ(sum, 0.0);
  // Half way out along the axis.
  sum = vrguide::guideWeights(guides, all, {0.5, 0, 0}, {0, 0, 1}, 0, 1.0, active, weights);
  EXPECT_DOUBLE_EQ(sum, 0.5);
}

TEST(VrGuideInterpolation, ReachFollowsTheAnglesAndWraps) {
  // Reach 1 toward +x (angle 0) and 3 toward -x (angle 2).
  const std::vector<VrGuide> guides{frameGuide("5:0:1:2:3")};
  const std::vector<int> all{0};
  auto weightAt = [&](const SgVec3T<double>& P) {
    std::vector<int> active;
    std::vector<double> weights;
    return vrguide::guideWeights(guides, all, P, {0, 0, 1}, 0, 1.0, active, weights);
  };
  EXPECT_DOUBLE_EQ(weightAt({0.5, 0, 0}), 0.5);
  EXPECT_DOUBLE_EQ(weightAt({-1.5, 0, 0}), 0.5);
  // +y: angle 1, half way between, reach 2; -y: angle 3, on the wrap gap, reach 2.
  EXPECT_DOUBLE_EQ(weightAt({0, 1, 0}), 0.5);
  EXPECT_DOUBLE_EQ(weightAt({0, -1, 0}), 0.5);
  // Regions: a guide of another region is weighted by the mask.
  std::vector<VrGuide> regional{frameGuide("1")};
  regional[0].setRegion(2);
  std::vector<int> active;
  std::vector<double> weights;
  EXPECT_DOUBLE_EQ(vrguide::guideWeights(regional, all, {0, 0, 0}, {0, 0, 1}, 3, 0.25, active, weights), 0.25);
  EXPECT_DOUBLE_EQ(vrguide::guideWeights(regional, all, {0, 0, 0}, {0, 0, 1}, 2, 0.25, active, weights), 1.0);
  EXPECT_EQ(vrguide::guideWeights(regional, all, {0, 0, 0}, {0, 0, 1}, 3, 0.0, active, weights), 0.0);
}

namespace {

// Weights through the candidate lists against a walk over every guide, at `count` random
// locations of the 8 x 8 scene; answers (locations reached, locations with several guides).
std::pair<unsigned, unsigned> compareWithBruteForce(Scene& scene, int count, unsigned seed) {
  const unsigned n = scene.primitive->numGuides();
  std::vector<VrGuide> guides;
  for (unsigned i = 0; i < n; ++i) guides.push_back(scene.primitive->guide(i));
  std::vector<int> all(n);
  std::iota(all.begin(), all.end(), 0);

  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::uniform_int_distribution<int> anyFace(0, 63);
  VrPrimitiveContext context(scene.description);
  unsigned reached = 0, multiple = 0;
  for (int i = 0; i < count; ++i) {
    const int face = anyFace(random);
    const double u = unit(random), v = unit(random);
    context.setActivePatchFace(scene.patch, face);
    context.setCullPrim(false);
    scene.primitive->findGuidesAndWeightsInParallel(context, u, v);

    std::vector<int> active;
    std::vector<double> weights;
    const double sum = vrguide::guideWeights(guides, all, context.cPg(u, v, true), context.cNg(u, v, true), 0,
                                             1.0, active, weights);
    EXPECT_EQ(context.activeGuides, active) << "face " << face << " u " << u << " v " << v;
    EXPECT_EQ(context.weight, weights);
    if (context.activeGuides != active) break;
    if (sum > 1e-8) {
      ++reached;
      if (active.size() > 1) ++multiple;
      EXPECT_FALSE(context.cullPrim());
      EXPECT_EQ(context.weightN, 1.0 / sum);
      double normalised = 0.0;
      for (double w : context.weight) normalised += w * context.weightN;
      EXPECT_NEAR(normalised, 1.0, 1e-12);
    } else {
      EXPECT_TRUE(context.cullPrim());
    }
  }
  return {reached, multiple};
}

}  // namespace

TEST(VrGuideInterpolation, CandidateListsMatchABruteForceOverAllGuides) {
  Scene scene(8, 0.15f);
  std::mt19937 random(7);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::uniform_int_distribution<int> anyFace(0, 63);
  for (int i = 0; i < 40; ++i) scene.addGuide(anyFace(random), unit(random), unit(random), i % 3 == 0 ? 1.0 : 0.0);
  scene.primitive->setupInterpolation(true);
  const auto counts = compareWithBruteForce(scene, 10000, 9);
  EXPECT_GT(counts.first, 5000u);
  EXPECT_GT(counts.second, 1000u);
}

TEST(VrGuideInterpolation, OneAndTwoThreadsGiveTheSameTables) {
  SettingsGuard guard;
  VrTaskManager::setMultithreading(true);
  std::vector<VrGuideCandidates> tables;
  std::vector<std::vector<std::string>> texts;
  for (size_t threads : {1u, 2u}) {
    VrTaskManager::setThreadCount(threads);
    Scene scene(8, 0.1f);
    std::mt19937 random(11);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::uniform_int_distribution<int> anyFace(0, 63);
    for (int i = 0; i < 60; ++i) scene.addGuide(anyFace(random), unit(random), unit(random));
    scene.primitive->setupInterpolation(true);
    tables.push_back(scene.primitive->candidates());
    texts.emplace_back();
    for (unsigned i = 0; i < scene.primitive->numGuides(); ++i)
      texts.back().push_back(scene.primitive->guide(i).interpolation());
  }
  ASSERT_EQ(tables[0].size(), 1u);
  EXPECT_EQ(tables[0].at("body").size(), 64u);
  EXPECT_EQ(tables[0], tables[1]);
  EXPECT_EQ(texts[0], texts[1]);
}

TEST(VrGuideInterpolation, NoReachCullsWithAWarning) {
  vrtest::CaptureLogger log;
  SettingsGuard guard;
  VRWarningLevel = 3;
  Scene scene;
  scene.addGuide(0, 0.1, 0.1);
  scene.primitive->setupInterpolation(true);
  VrPrimitiveContext& context = scene.primitive->context();
  context.setActivePatchFace(scene.patch, 0);
  scene.primitive->findGuidesAndWeights(0.9, 0.9);
  EXPECT_TRUE(context.cullPrim());
  EXPECT_TRUE(scene.primitive->activeGuides().empty());
  const SgVec3T<double> P = context.cPg(0.9, 0.9, true);
  char point[96];
  std::snprintf(point, sizeof point, "%f %f %f ", P.x, P.y, P.z);
  EXPECT_TRUE(log.has(std::string("No guides within reach of point on patch body[0]. Primitive (or clump "
                                  "guide) culled.  [ ") + point + "]"))
      << (log.warnings().empty() ? "" : log.warnings().back());
}

TEST(VrGuideInterpolation, MissingSetupNoGuidesAndMethods) {
  vrtest::CaptureLogger log;
  Scene scene;
  VrPrimitiveContext& context = scene.primitive->context();

  scene.primitive->setupInterpolation(false);
  EXPECT_TRUE(log.has("rNoPreviewVisibleGuidesTip"));
  log.clear();
  scene.primitive->setupInterpolation(true);
  EXPECT_TRUE(log.messages.empty());

  scene.addGuide(0, 0.5, 0.5);
  context.setActivePatchFace(scene.patch, 0);
  scene.primitive->calcCVWeights(0.5, 0.5);
  EXPECT_TRUE(context.cullPrim());
  ASSERT_EQ(log.errors().size(), 1u);
  EXPECT_EQ(log.errors()[0].rfind("Candidate guides have not been associated! ", 0), 0u);

  scene.primitive->setupInterpolation(true);
  EXPECT_EQ(context.cPatch(), nullptr);  // setup forgets the face
  context.setActivePatchFace(scene.patch, 0);
  context.setCullPrim(false);
  log.clear();
  scene.primitive->setIMethod(2);
  scene.primitive->findGuidesAndWeights(0.5, 0.5);
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Invalid interpolation method."});

  scene.primitive->setIMethod(1);
  scene.primitive->findGuidesAndWeights(0.5, 0.5);
  EXPECT_EQ(scene.primitive->activeGuides().size(), 1u);
  scene.primitive->setIMethod(0);
  scene.primitive->findGuidesAndWeights(0.5, 0.5);
  EXPECT_TRUE(scene.primitive->activeGuides().empty());

  log.clear();
  context.setActivePatchFace(nullptr, 0);
  scene.primitive->setIMethod(1);
  scene.primitive->findGuidesAndWeights(0.5, 0.5);
  EXPECT_EQ(log.errors(), std::vector<std::string>{"No patch to find guides and weights on."});

  scene.primitive->clearCandidates();
  EXPECT_FALSE(scene.primitive->hasCandidates());
}

TEST(VrGuideInterpolation, UnboundPatchIsSkipped) {
  vrtest::CaptureLogger log;
  Scene scene;
  auto* loose = new VrSubdPatch(scene.description);
  loose->setName("loose");
  loose->setFaceIds({0, 1});
  scene.description->addPatch(loose);
  scene.addGuide(0, 0.5, 0.5);
  VrGuide& stray = scene.primitive->addGuide();
  stray.setPatch(loose);
  stray.setFaceId(0);
  scene.primitive->setupInterpolation(true);
  EXPECT_TRUE(scene.primitive->guide(0u).transformedToSurface());
  EXPECT_FALSE(scene.primitive->guide(1u).transformedToSurface());
  EXPECT_EQ(scene.primitive->candidates().count("loose"), 0u);
  EXPECT_EQ(*scene.primitive->candidates("body", 0), std::vector<int>{0});

  VrPrimitiveContext& context = scene.primitive->context();
  context.setActivePatchFace(loose, 0);
  log.clear();
  scene.primitive->findGuidesAndWeights(0.5, 0.5);
  EXPECT_TRUE(context.cullPrim());
  EXPECT_TRUE(scene.primitive->activeGuides().empty());
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Failed to evaluate patch loose of " +
                                                   scene.description->name() + " [0]"});
}

TEST(VrGuideInterpolation, ConnectivityFileHoldsTheReachMaps) {
  vrtest::CaptureLogger log;
  Scene scene;
  scene.addGuide(5, 0.5, 0.5);
  scene.addGuide(6, 0.5, 0.5);
  scene.primitive->transformGuidesToSurface();
  vrtest::TempDir dir;
  scene.primitive->initInterpolation(dir.file("connectivity.txt"));
  const std::string head = "Version: 1\n0: " + scene.primitive->guide(0u).interpolation() + "\n";
  EXPECT_EQ(vrtest::readText(dir.file("connectivity.txt")).substr(0, head.size()), head);

  scene.primitive->initInterpolation("/nonexistent-dir/x/connectivity.txt");
  EXPECT_TRUE(log.has("Unable to open connectivity file /nonexistent-dir/x/connectivity.txt"));
}
