#include "geometry/VrNurbsPatch.h"
#include "geometry/VrSubdPatch.h"

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "geometry/SgNurbsSurface.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrPatchUtil.h"
#include "support/CaptureLogger.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <sstream>

namespace {

// A bilinear NURBS parallelogram: dPdu = (2, 0, 0) and dPdv = (1, 1, 0) everywhere, 45 degrees
// apart, so the tangent correction is visible.
std::unique_ptr<SgNurbsSurface> parallelogram(double z = 0.0) {
  const double knots[4] = {0, 0, 1, 1};
  const double cvs[12] = {0, 0, z, 2, 0, z, 1, 1, z, 3, 1, z};
  return std::make_unique<SgNurbsSurface>(4, knots, 4, knots, 2, 2, cvs, 0);
}

// Two unit quads side by side in the z = 0 plane (corners of face 0: (0,0) (1,0) (1,1) (0,1)).
std::unique_ptr<SgSubdSurface> twoQuads() {
  const float verts[18] = {0, 0, 0, 1, 0, 0, 2, 0, 0, 0, 1, 0, 1, 1, 0, 2, 1, 0};
  const int counts[2] = {4, 4};
  const int faceVerts[8] = {0, 1, 4, 3, 1, 2, 5, 4};
  return std::make_unique<SgSubdSurface>(6, verts, 2, counts, faceVerts);
}

struct Owner {
  Owner() : palette(new VrPalette), description(new VrDescription) { palette->addDescription(description); }
  std::unique_ptr<VrPalette> palette;
  VrDescription* description;
};

}  // namespace

TEST(VrPatchBinding, ErrorsFaceIdsAndConversion) {
  Owner owner;
  VrNurbsPatch nurbs(owner.description);
  nurbs.setName("ns:plane");
  EXPECT_EQ(nurbs.name(), "plane");
  VrSubdPatch subd(owner.description);
  subd.setName("quads");
  vrtest::CaptureLogger log;
  nurbs.bindGeometry(nullptr, nullptr, false);
  subd.bindGeometry(nullptr, nullptr, false);
  EXPECT_EQ(log.errors(), (std::vector<std::string>{"Cannot bind to nothing. Use UNbind. NurbsPatch,plane",
                                                    "Cant bind to nothing. Use UNbind. SubdPatch,quads"}));
  EXPECT_FALSE(subd.isBound());

  auto surface = twoQuads();
  subd.bindGeometry(nullptr, surface.get(), false);  // no face ids: all faces
  EXPECT_EQ(subd.faceIds(), (std::vector<int>{0, 1}));
  EXPECT_FALSE(subd.isReferenced());

  subd.unbindGeometry();
  subd.setFaceIds({1, 5, 9});
  log.clear();
  subd.bindGeometry(nullptr, surface.get(), false);
  EXPECT_EQ(subd.faceIds(), (std::vector<int>{1}));
  EXPECT_EQ(log.warnings(), std::vector<std::string>{
                                "Some faceIds found to be invalid so were removed. Check your bindings. [SubdPatch,quads]"});
  subd.unbindGeometry();
  subd.setFaceIds({4, 7});
  subd.bindGeometry(nullptr, surface.get(), false);
  EXPECT_TRUE(subd.faceIds().empty());  // every id beyond the count goes

  // A pentagon is five original faces of one logical face: converting them gives that face once.
  const float pentagon[15] = {0, 0, 0, 1, 0, 0, 1.3f, 0.9f, 0, 0.5f, 1.5f, 0, -0.3f, 0.9f, 0};
  const int five[1] = {5};
  const int ring[5] = {0, 1, 2, 3, 4};
  SgSubdSurface penta(5, pentagon, 1, five, ring);
  VrSubdPatch converted(owner.description);
  converted.setFaceIds({0, 1, 2, 3, 4});
  converted.bindGeometry(nullptr, &penta, true);
  EXPECT_EQ(converted.faceIds(), (std::vector<int>{0}));

  nurbs.setFaceIds({3, 4});
  auto plane = parallelogram();
  nurbs.bindGeometry(nullptr, plane.get(), false);
  EXPECT_EQ(nurbs.faceIds(), (std::vector<int>{0}));
}

TEST(VrPatchEval, TangentsBecomePerpendicularKeepingLengthsAndFlipKeepsTheCross) {
  Owner owner;
  auto plane = parallelogram();
  VrNurbsPatch patch(owner.description);
  patch.bindGeometry(nullptr, plane.get(), false);
  SgVec3T<double> P, N, du, dv;
  ASSERT_TRUE(patch.evalGeom(0.3, 0.6, 0, P, N, du, dv, false));
  EXPECT_NEAR(P.x, 0.6 + 0.6, 1e-12);
  EXPECT_NEAR(du.dot(dv), 0.0, 1e-12);
  EXPECT_NEAR(du.length(), 2.0, 1e-12);
  EXPECT_NEAR(dv.length(), std::sqrt(2.0), 1e-12);
  EXPECT_NEAR(N.z, 1.0, 1e-12);

  owner.description->setAttr("flipNormals", "true");
  SgVec3T<double> fP, fN, fdu, fdv;
  ASSERT_TRUE(patch.evalGeom(0.3, 0.6, 0, fP, fN, fdu, fdv, false));
  EXPECT_NEAR(fN.z, -1.0, 1e-12);
  SgVec3T<double> cross = fdu.cross(fdv);
  cross.normalize();
  EXPECT_NEAR(cross.dot(fN), 1.0, 1e-12);  // N = dPdu x dPdv still holds

  SgVec3T<double> oP, oN, odu, odv;
  ASSERT_TRUE(patch.evalFrame(0.3, 0.6, 0, oP, oN, odu, odv, false));
  EXPECT_NEAR(odu.length(), 1.0, 1e-12);
  EXPECT_NEAR(odv.length(), 1.0, 1e-12);
  EXPECT_NEAR(odu.dot(odv), 0.0, 1e-12);
}

TEST(VrPatchEval, ReferenceAndAnimatedSurfacesStayApart) {
  Owner owner;
  auto rest = parallelogram(0.0);
  auto moved = parallelogram(5.0);
  VrNurbsPatch patch(owner.description);
  patch.bindGeometry(rest.get(), moved.get(), false);
  EXPECT_TRUE(patch.isReferenced());
  SgVec3T<double> P;
  ASSERT_TRUE(patch.evalGeom(0.5, 0.5, 0, P, true));
  EXPECT_EQ(P.z, 0.0);
  ASSERT_TRUE(patch.evalGeom(0.5, 0.5, 0, P, false));
  EXPECT_EQ(P.z, 5.0);
  EXPECT_FALSE(patch.evalGeom(0.5, 0.5, 1, P, false));  // a NURBS patch has face 0 only
}

TEST(VrPatchEval, DisplacementBumpAndOffset) {
  Owner owner;
  auto surface = twoQuads();
  VrSubdPatch patch(owner.description);
  patch.setName("quads");
  patch.bindGeometry(nullptr, surface.get(), false);
  SgVec3T<double> P0, N0, du0, dv0;
  ASSERT_TRUE(patch.evalGeom(0.0, 0.5, 0, P0, N0, du0, dv0, false));

  VrExpression disp("disp", "T", owner.description, "0.25", "float");
  SgVec3T<double> P, N, du, dv;
  ASSERT_TRUE(patch.evalGeom(0.0, 0.5, 0, &disp, false, nullptr, nullptr, P, N, du, dv, false));
  EXPECT_NEAR((P - P0).dot(N0), 0.25, 1e-9);  // moved by d along N
  EXPECT_NEAR((P - (P0 + N0 * 0.25)).length(), 0.0, 1e-9);
  EXPECT_NEAR(du.dot(dv), 0.0, 1e-9);
  EXPECT_NEAR(N.dot(N0), 1.0, 1e-6);  // a constant displacement of a plane keeps its normal

  VrExpression offset("off", "T", owner.description, "1", "float");
  ASSERT_TRUE(patch.evalGeom(0.5, 0.5, 0, nullptr, false, nullptr, &offset, P, N, du, dv, false));
  SgVec3T<double> Pc;
  patch.evalGeom(0.5, 0.5, 0, Pc, false);
  EXPECT_NEAR((P - Pc).length(), 1.0, 1e-9);

  VrExpression vec("disp", "T", owner.description, "[0, 0, 2]", "vector");
  ASSERT_TRUE(patch.evalGeom(0.5, 0.5, 0, &vec, true, nullptr, nullptr, P, N, du, dv, false));
  EXPECT_NEAR(P.z - Pc.z, 2.0, 1e-9);

  VrNurbsPatch unbound(owner.description);
  unbound.setName("loose");
  vrtest::CaptureLogger log;
  EXPECT_FALSE(unbound.evalGeom(0.5, 0.5, 0, &disp, false, nullptr, nullptr, P, N, du, dv, false));
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Tried to evaluate an unbound patch. NurbsPatch,loose"});
}

TEST(VrPatchResolution, PowersOfTwoWithTheEvenExponentRule) {
  unsigned short u = 0, v = 0;
  // density 1: r = length
  EXPECT_EQ(VrPatchUtil::computeFaceResolution(1.0, 2.0, 1.0, u, v), 4u);
  EXPECT_EQ(u, 2);
  EXPECT_EQ(v, 2);
  VrPatchUtil::computeFaceResolution(4.0, 3.0, 1.0, u, v);
  EXPECT_EQ(u, 8);
  EXPECT_EQ(v, 4);
  VrPatchUtil::computeFaceResolution(1e9, 0.0, 1.0, u, v);
  EXPECT_EQ(u, 4096);
  EXPECT_EQ(v, 2);  // a zero length still gets 2
  VrPatchUtil::computeFaceResolution(0.1, 0.1, 0.0, u, v);  // density 0: 10 per unit
  EXPECT_EQ(u, 2);

  Owner owner;
  auto surface = twoQuads();
  VrSubdPatch patch(owner.description);
  patch.bindGeometry(nullptr, surface.get(), false);
  EXPECT_EQ(patch.computeFaceResolution(u, v, 0, 3.0), 16u);  // unit edges at 3 per unit: 4 x 4
  EXPECT_NEAR(patch.area(0), 1.0, 1e-9);
  EXPECT_EQ(patch.area(7), 0.0);
  std::vector<unsigned short> pairs;
  EXPECT_NEAR(patch.computeFaceResolution(pairs, {0, 1}, 3.0), 32e-6, 1e-12);
  EXPECT_EQ(pairs.size(), 4u);
}

TEST(VrPatchFile, ShortFaceListsStopAtTheEndOfTheFile) {
  Owner owner;
  VrSubdPatch patch(owner.description);
  vrtest::CaptureLogger log;
  std::istringstream in("\tname\t\tquads\n\tfaceIds\t\t5 0 1");
  EXPECT_FALSE(patch.importObj(in));
  EXPECT_EQ(patch.faceIds(), (std::vector<int>{0, 1}));  // what was read is kept
  EXPECT_FALSE(log.errors().empty());
}
