#include "primitives/VrCardPrimitive.h"
#include "primitives/VrSpherePrimitive.h"

#include "base/VrModules.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "support/ExpectNear.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;

// A flat 4 x 4 grid at z = 0: at every location N = z, U = x and V = y, so a point of the
// primitive's own frame (across, along the lean, third axis) = (x, y, z) stands at P + (x, z, y).
struct Scene : vrtest::PatchScene {
  Scene() : PatchScene(vrtest::gridSurface(4)) {}

  template <class Kind>
  std::vector<Vec> make(Kind& primitive, const std::vector<std::pair<std::string, std::string>>& attrs) {
    for (const auto& a : attrs) EXPECT_TRUE(primitive.setAttr(a.first, a.second, "expr")) << a.first;
    primitive.context().setActivePatchFace(patch, 5);
    primitive.makeGeometry(0.5, 0.5, nullptr);
    EXPECT_FALSE(primitive.context().cullPrim());
    std::vector<Vec> offsets;
    const std::vector<Vec>& geom = primitive.context().cGeom();
    for (const Vec& cv : geom) offsets.push_back(cv - geom[0]);
    return offsets;
  }
};

// Local (across, lean, third) to the grid's world offsets.
Vec local(double x, double y, double z) { return Vec(x, z, y); }

void expectPoints(const std::vector<Vec>& got, const std::vector<Vec>& want, const std::string& what) {
  SCOPED_TRACE(what);
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i) vrtest::expectNear(got[i], want[i], 1e-9);
}

const double r = std::sqrt(0.5);

}  // namespace

// The kinds' own attributes follow the base primitive's 14, in the order saved files list them.
TEST(VrCardSpherePrimitives, OwnAttributesFollowTheBaseOnesInOrder) {
  Scene scene;
  const std::pair<const char*, std::vector<std::string>> kinds[] = {
      {"CardPrimitive", {"twist", "bendU", "bendV", "bendParamU", "bendParamV", "faceCamera"}},
      {"SpherePrimitive", {"twist"}},
  };
  for (const auto& [kind, own] : kinds) {
    std::unique_ptr<VrObject> made(static_cast<VrObject*>(VrCreateObject(kind, scene.description)));
    auto* primitive = dynamic_cast<VrPrimitive*>(made.get());
    ASSERT_NE(primitive, nullptr) << kind;
    const std::vector<std::string>& names = primitive->attrNames();
    ASSERT_EQ(names.size(), 14u + own.size()) << kind;
    EXPECT_EQ(std::vector<std::string>(names.begin() + 14, names.end()), own) << kind;
  }
}

// Control points by hand: W = L = 1 unless set, bend parameters 0.5, no lean.
TEST(VrCardSpherePrimitives, CardBendsAndTwistAsComputedByHand) {
  struct Row {
    const char* what;
    std::vector<std::pair<std::string, std::string>> attrs;
    std::vector<Vec> want;  // CVs 1 to 4
  };
  const Row rows[] = {
      {"flat", {}, {local(0.25, 0, 0), local(0, 0, 0.25), local(0.5, 0, 0), local(0, 0, 0.5)}},
      {"bendU 1 stands upright", {{"bendU", "1"}},
       {local(0.25, 0, 0), local(0, 0, 0.25), local(0.25, 0.25, 0), local(0, 0, 0.5)}},
      {"bendU -1 hangs down", {{"bendU", "-1"}},
       {local(0.25, 0, 0), local(0, 0, 0.25), local(0.25, -0.25, 0), local(0, 0, 0.5)}},
      {"bendU 3 is clamped to 1", {{"bendU", "3"}},
       {local(0.25, 0, 0), local(0, 0, 0.25), local(0.25, 0.25, 0), local(0, 0, 0.5)}},
      {"bendU 0.5 at 45 degrees", {{"bendU", "0.5"}},
       {local(0.25, 0, 0), local(0, 0, 0.25), local(0.25 + 0.25 * r, 0.25 * r, 0), local(0, 0, 0.5)}},
      {"bendV -0.5 with bendParamV 0", {{"bendV", "-0.5"}, {"bendParamV", "0"}},
       {local(0.25, 0, 0), local(0, 0, 0), local(0.5, 0, 0), local(0, -0.5 * r, 0.5 * r)}},
      {"bendParamU 1 puts the bend at the edge", {{"bendParamU", "1"}, {"bendU", "1"}},
       {local(0.5, 0, 0), local(0, 0, 0.25), local(0.5, 0, 0), local(0, 0, 0.5)}},
      {"sizes", {{"width", "2"}, {"length", "4"}},
       {local(0.5, 0, 0), local(0, 0, 1), local(1, 0, 0), local(0, 0, 2)}},
      // A quarter turn about the normal: across goes to +V, along to -U.
      {"twist 90", {{"twist", "90"}},
       {Vec(0, 0.25, 0), Vec(-0.25, 0, 0), Vec(0, 0.5, 0), Vec(-0.5, 0, 0)}},
  };
  for (const Row& row : rows) {
    Scene scene;
    VrCardPrimitive card(scene.description);
    std::vector<Vec> got = scene.make(card, row.attrs);
    ASSERT_EQ(got.size(), 5u);
    expectPoints({got.begin() + 1, got.end()}, row.want, row.what);
  }
}

TEST(VrCardSpherePrimitives, SphereHandlesLeanAndSizes) {
  struct Row {
    const char* what;
    std::vector<std::pair<std::string, std::string>> attrs;
    std::vector<Vec> want;  // CVs 1 to 3
    double length, width, depth;
  };
  const Row rows[] = {
      {"unit", {}, {local(0, 1, 0), local(0.5, 0.5, 0), local(0, 0.5, 0.5)}, 1, 1, 1},
      {"sizes", {{"length", "2"}, {"width", "1"}, {"depth", "3"}},
       {local(0, 2, 0), local(0.5, 1, 0), local(0, 1, 1.5)}, 2, 1, 3},
      // A full lean along U lays the sphere in the tangent plane: the tip along +U, and the
      // across axis turned to -N.
      {"offU 1", {{"offU", "1"}}, {Vec(1, 0, 0), Vec(0.5, 0, -0.5), Vec(0.5, 0.5, 0)}, 1, 1, 1},
      // Twist turns the handles about the axis: width to +V, depth to -U.
      {"twist 90", {{"twist", "90"}}, {local(0, 1, 0), Vec(0, 0.5, 0.5), Vec(-0.5, 0, 0.5)}, 1, 1, 1},
      // A zero length is floored, not culled.
      {"length 0", {{"length", "0"}}, {Vec(0, 0, 1e-6), Vec(0.5, 0, 0.5e-6), Vec(0, 0.5, 0.5e-6)}, 1e-6, 1, 1},
  };
  for (const Row& row : rows) {
    Scene scene;
    VrSpherePrimitive sphere(scene.description);
    std::vector<Vec> got = scene.make(sphere, row.attrs);
    ASSERT_EQ(got.size(), 4u);
    expectPoints({got.begin() + 1, got.end()}, row.want, row.what);
    EXPECT_NEAR(sphere.context().cLength(), row.length, 1e-12) << row.what;
    EXPECT_NEAR(sphere.context().cWidth(), row.width, 1e-12) << row.what;
    EXPECT_NEAR(sphere.context().cDepth(), row.depth, 1e-12) << row.what;
  }
}

TEST(VrCardSpherePrimitives, ScaleCardAndStraightenFrames) {
  std::vector<Vec> cvs = {Vec(1, 1, 1), Vec(2, 1, 1), Vec(1, 3, 1), Vec(3, 1, 1), Vec(1, 5, 1)};
  VrCardPrimitive::scaleCard(cvs.data(), 0.5);
  expectPoints(cvs, {Vec(1, 1, 1), Vec(1.5, 1, 1), Vec(1, 2, 1), Vec(2, 1, 1), Vec(1, 3, 1)}, "scaleCard");

  // The width handle leans along the axis and the depth handle is off: both are made square.
  std::vector<Vec> sphere = {Vec(0, 0, 0), Vec(0, 0, 2), Vec(1, 0, 1.5), Vec(0, 3, 1.2)};
  ASSERT_TRUE(VrSpherePrimitive::straightenControlPoints(sphere));
  const double depthLength = std::sqrt(9.0 + 0.04);
  expectPoints(sphere, {Vec(0, 0, 0), Vec(0, 0, 2), Vec(1, 0, 1), Vec(0, depthLength, 1)}, "straighten");
  std::vector<Vec> few(3);
  EXPECT_FALSE(VrSpherePrimitive::straightenControlPoints(few));

  // A card whose across handle leans along the length axis (z) and whose edges bend out of
  // their planes, as a guide edited by hand may: straightened when the guide is readied.
  Scene scene;
  VrCardPrimitive card(scene.description);
  VrGuide& guide = card.addGuide();
  guide.setIGeom({Vec(0, 0, 0), Vec(1, 0, 0.5), Vec(0, 0, 2), Vec(1.5, 0.5, 0.8), Vec(0.2, 0.4, 2.6)});
  card.prepGuideCGeom(0);
  expectPoints(guide.iGuideGeom(), {Vec(0, 0, 0), Vec(1, 0, 0), Vec(0, 0, 2), Vec(1.5, 0.5, 0), Vec(0, 0.4, 2.6)},
               "straighten card");
  few.resize(4);
  EXPECT_FALSE(VrCardPrimitive::straightenControlPoints(few));
}

namespace {

// The guide forms on their own: guides with control points as they stand on the surface, and
// the weights that interpolation would have found.
template <class Kind>
struct FromGuides : Kind {
  using Kind::Kind;
  std::vector<Vec> make(const vrtest::PatchScene& scene, const std::vector<std::vector<Vec>>& guides,
                        const std::vector<double>& weights) {
    for (const std::vector<Vec>& cvs : guides) this->addGuide().cGuideGeom() = cvs;
    VrPrimitiveContext& c = this->context();
    c.setActivePatchFace(scene.patch, 5);
    for (size_t i = 0; i < weights.size(); ++i) c.activeGuides.push_back(static_cast<int>(i));
    c.weight = weights;
    c.weightN = 1.0;
    this->mkGeometryFromGuides(c, 0.5, 0.5);
    std::vector<Vec> offsets;
    for (const Vec& cv : c.cGeom()) offsets.push_back(cv - c.cGeom()[0]);
    return offsets;
  }
};

}  // namespace

TEST(VrCardSpherePrimitives, GuideFormsBlendByWeight) {
  const double h = std::sqrt(0.5);
  {
    // Two spheres along z, 2 and 4 long; handles across x (1 long) and y (3 long); depth
    // handles 0.5 and 1 long. Blended half and half: length 3, width handle 2 along the mean of
    // x and y, depth handle 0.75 square to both; the sizes are twice the handles.
    Scene scene;
    FromGuides<VrSpherePrimitive> sphere(scene.description);
    const std::vector<Vec> got = sphere.make(
        scene,
        {{Vec(0, 0, 0), Vec(0, 0, 2), Vec(1, 0, 1), Vec(0, 0.5, 1)},
         {Vec(5, 5, 0), Vec(5, 5, 4), Vec(5, 8, 2), Vec(4, 5, 2)}},
        {0.5, 0.5});
    expectPoints(got, {Vec(0, 0, 0), Vec(0, 0, 3), Vec(2 * h, 2 * h, 1.5), Vec(-0.75 * h, 0.75 * h, 1.5)}, "sphere");
    EXPECT_DOUBLE_EQ(sphere.context().cLength(), 3.0);
    EXPECT_DOUBLE_EQ(sphere.context().cWidth(), 4.0);
    EXPECT_DOUBLE_EQ(sphere.context().cDepth(), 1.5);
  }
  {
    // Two cards 1 and 3 across x, 2 and 6 along y, the across edges bent up, the along edges
    // straight: the blend is the card 2 across and 4 along.
    const std::vector<std::vector<Vec>> guides = {
        {Vec(0, 0, 0), Vec(1, 0, 0), Vec(0, 2, 0), Vec(1.5, 0, 0.5), Vec(0, 3, 0)},
        {Vec(0, 0, 0), Vec(3, 0, 0), Vec(0, 6, 0), Vec(4.5, 0, 1.5), Vec(0, 9, 0)}};
    Scene scene;
    FromGuides<VrCardPrimitive> card(scene.description);
    expectPoints(card.make(scene, guides, {0.5, 0.5}),
                 {Vec(0, 0, 0), Vec(2, 0, 0), Vec(0, 4, 0), Vec(3, 0, 1), Vec(0, 6, 0)}, "card");
    EXPECT_DOUBLE_EQ(card.context().cLength(), 4.0);
    EXPECT_DOUBLE_EQ(card.context().cWidth(), 4.0);

    // Twist turns the card a quarter about its normal (z): across to +y, along to -x.
    Scene twisted;
    FromGuides<VrCardPrimitive> turned(twisted.description);
    turned.setAttr("twist", "90", "expr");
    expectPoints(turned.make(twisted, {guides[0]}, {1.0}),
                 {Vec(0, 0, 0), Vec(0, 1, 0), Vec(-2, 0, 0), Vec(0, 1.5, 0.5), Vec(-3, 0, 0)}, "twisted card");
  }
  // No guide reaches the location: culled.
  Scene scene;
  FromGuides<VrCardPrimitive> card(scene.description);
  FromGuides<VrSpherePrimitive> sphere(scene.description);
  card.make(scene, {}, {});
  sphere.make(scene, {}, {});
  EXPECT_TRUE(card.context().cullPrim());
  EXPECT_TRUE(sphere.context().cullPrim());
}
