// The wind module: a constant wind against the bend worked out by hand, the region's edge, the
// wind's dependence on the frame, and renders that do not depend on the number of threads.

#include "fxmodules/VrWindFXModule.h"

#include "support/CVRecorder.h"
#include "support/ShapeScene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using vrtest::ShapeScene;

// Wind without gusts or shear: only the steady part bends the spline.
const ShapeScene::Attrs steady = {{"gustStrength", "0.0"}, {"shearStrength", "0.0"}, {"stiffness", "0.0"}};

ShapeScene::Attrs with(ShapeScene::Attrs attrs, const ShapeScene::Attrs& more) {
  attrs.insert(attrs.end(), more.begin(), more.end());
  return attrs;
}

// A straight spline along +z turned towards +x about its root by `tipAngle` x (reach / length)
// at each CV, the reach being the CV's height.
void expectBentTowardsX(const std::vector<Vec>& before, const std::vector<Vec>& after, double tipAngle) {
  ASSERT_EQ(after.size(), before.size());
  const double length = before.back().z - before[0].z;
  for (size_t i = 0; i < after.size(); ++i) {
    const double h = before[i].z - before[0].z;
    const double angle = tipAngle * h / length;
    const Vec expected = before[0] + Vec(h * std::sin(angle), 0.0, h * std::cos(angle));
    EXPECT_NEAR((after[i] - expected).length(), 0.0, 1e-9) << i;
  }
}

}  // namespace

TEST(VrWindFXModule, SteadyWindBendsTheSplineByTheHandWorkedAngle) {
  struct Case {
    const char* name;
    ShapeScene::Attrs attrs;
    double tipAngle;  // mask x (1 - stiffness) x constStrength x |direction|
  };
  const Case cases[] = {
      {"defaults", {}, 0.5},
      {"strength 1.2", {{"constStrength", "1.2"}}, 1.2},
      {"direction of length 2, with a semicolon", {{"direction", "[2.0, 0.0, 0.0];"}}, 1.0},
      {"half mask, stiffness 0.5", {{"mask", "0.5"}, {"stiffness", "0.5"}}, 0.125},
      {"stiffness 1: no wind", {{"stiffness", "1.0"}}, 0.0},
      {"stiffness 3: no wind", {{"stiffness", "3.0"}}, 0.0},
      {"region around the root", {{"regionActive", "true"}, {"_regionXform", "matrix(1,0,0,0,0,1,0,0,0,0,1,0,-1,-1,0,1)"}},
       0.5},
      // The root stands 0.5 from the region's centre: inside the falloff of 0.8 by 0.5 / 0.8.
      {"region falloff", {{"regionActive", "true"}, {"regionFalloff", "0.8"},
                          {"_regionXform", "matrix(1,0,0,0,0,1,0,0,0,0,1,0,-1,-1.5,0,1)"}},
       0.5 * 0.5 / 0.8},
      {"root outside the region", {{"regionActive", "true"}, {"_regionXform", "matrix(1,0,0,0,0,1,0,0,0,0,1,0,-3,-3,0,1)"}},
       0.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShapeScene scene("WindFXModule", with(steady, c.attrs));
    scene.spline->initDescription();
    ASSERT_TRUE(scene.module->isActive());
    const auto [before, after] = scene.build(5, 0.5, 0.5);  // face 5 covers [1, 2] x [1, 2]
    ASSERT_NEAR((before[0] - Vec(1.5, 1.5, 0.0)).length(), 0.0, 1e-9);
    ASSERT_NEAR((before.back() - Vec(1.5, 1.5, 2.0)).length(), 0.0, 1e-9);
    expectBentTowardsX(before, after, c.tipAngle);
  }
}

TEST(VrWindFXModule, WindChangesWithTheFrameAndRepeatsOnTheSameFrame) {
  ShapeScene scene("WindFXModule", {});
  std::vector<std::vector<Vec>> shapes;
  for (double frame : {1.0, 2.0, 1.0}) {
    scene.palette->setFrame(frame);
    scene.spline->initDescription();
    shapes.push_back(scene.build(9, 0.4, 0.3).second);
  }
  EXPECT_EQ(shapes[0], shapes[2]);
  double apart = 0.0;
  for (size_t i = 0; i < shapes[0].size(); ++i) apart += (shapes[0][i] - shapes[1][i]).length();
  EXPECT_GT(apart, 1e-4);

  // A loop's last frame repeats its first, for both kinds of loopable noise.
  for (const char* kind : {"0", "1"}) {
    SCOPED_TRACE(kind);
    ShapeScene loop("WindFXModule", {{"loopableNoise", "true"}, {"loopNoiseType", kind}, {"loopStartFrame", "10"},
                                     {"loopEndFrame", "34"}, {"loopNoiseSpan", "3.0"}, {"hiFreq", "1.0"}});
    std::vector<std::vector<Vec>> ends;
    for (double frame : {10.0, 34.0, 22.0}) {
      loop.palette->setFrame(frame);
      loop.spline->initDescription();
      ends.push_back(loop.build(9, 0.4, 0.3).second);
    }
    for (size_t i = 0; i < ends[0].size(); ++i) EXPECT_NEAR((ends[0][i] - ends[1][i]).length(), 0.0, 1e-9);
    EXPECT_NE(ends[0], ends[2]);
  }
}

TEST(VrWindFXModule, RendersOnOneAndTwoThreadsAreIdentical) {
  ShapeScene scene(nullptr, {});
  scene.scatter();
  scene.palette->setFrame(7.0);
  scene.add("NoiseFXModule", {{"magnitude", "0.2"}});
  scene.add("WindFXModule", {{"gustStrength", "2.0 * $v"}, {"shearStrength", "0.5"}, {"seed", "$u"}});
  vrtest::sameThreeWays(scene.description, "body", 16);
}
