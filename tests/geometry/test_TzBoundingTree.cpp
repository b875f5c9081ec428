// The collision geometry against the unit cube [0, 1]^3, where every answer is known by hand.

#include "geometry/TzBoundingTree.h"

#include "support/BoxMesh.h"
#include "support/ExpectNear.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;

struct UnitCube {
  UnitCube() {
    const vrtest::PolyMesh mesh = vrtest::boxMesh(Vec(0, 0, 0), Vec(1, 1, 1));
    built = tree.build(mesh.points, mesh.counts, mesh.indices);
  }
  TzBoundingTree tree;
  bool built = false;
};

void expectVec(const Vec& got, const Vec& want) { vrtest::expectNear(got, want, 1e-12); }

}  // namespace

TEST(TzBoundingTree, InsideAndNearestPointOfTheUnitCube) {
  UnitCube cube;
  ASSERT_TRUE(cube.built);
  EXPECT_EQ(cube.tree.numTriangles(), 12u);
  struct Case {
    Vec p;
    bool inside;
    Vec nearest;
  };
  const Case cases[] = {
      {{0.5, 0.5, 0.5}, true, {0.5, 0.5, 0.0}},    // the centre: equally near every face, the first wins
      {{0.5, 0.2, 0.5}, true, {0.5, 0.0, 0.5}},    // nearest the y = 0 face
      {{0.9, 0.3, 0.6}, true, {1.0, 0.3, 0.6}},
      {{0.5, 0.5, 1.5}, false, {0.5, 0.5, 1.0}},   // above the top face
      {{2.0, 2.0, 2.0}, false, {1.0, 1.0, 1.0}},   // beyond a corner
      {{1.5, 0.5, -1.0}, false, {1.0, 0.5, 0.0}},  // beyond an edge
      {{-0.01, 0.5, 0.5}, false, {0.0, 0.5, 0.5}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.p.x) + " " + std::to_string(c.p.y) + " " + std::to_string(c.p.z));
    EXPECT_EQ(cube.tree.inside(c.p), c.inside);
    Vec nearest;
    ASSERT_TRUE(cube.tree.nearestPoint(c.p, nearest));
    if (c.p != Vec(0.5, 0.5, 0.5)) expectVec(nearest, c.nearest);
    EXPECT_NEAR((nearest - c.p).length(), (c.nearest - c.p).length(), 1e-12);
  }

  // A curve set reports its inside points by the caller's index, with their nearest points.
  TzCurves curves;
  curves.refit({Vec(5, 5, 5), Vec(-1, 0.5, 0.5), Vec(0.5, 0.2, 0.5), Vec(0.5, 0.5, 3), Vec(0.9, 0.3, 0.6)}, 1);
  std::vector<TzInsideInfo> list;
  ASSERT_TRUE(cube.tree.intersect(curves, list));
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].index, 2);
  expectVec(list[0].nearest, Vec(0.5, 0.0, 0.5));
  EXPECT_EQ(list[1].index, 4);
  expectVec(list[1].nearest, Vec(1.0, 0.3, 0.6));
  curves.refit({Vec(2, 2, 2), Vec(-3, 0, 0)});
  EXPECT_FALSE(cube.tree.intersect(curves, list));
}

TEST(TzBoundingTree, BadMeshesAreRefused) {
  struct Case {
    const char* name;
    std::vector<int> counts, indices;
  };
  const Case cases[] = {
      {"no faces", {}, {}},
      {"only an edge", {2}, {0, 1}},
      {"a missing point", {3}, {0, 1, 9}},
      {"counts past the list", {4}, {0, 1, 2}},
  };
  const std::vector<Vec> points = {Vec(0, 0, 0), Vec(1, 0, 0), Vec(0, 1, 0)};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TzBoundingTree tree;
    std::string why;
    EXPECT_FALSE(tree.build(points, c.counts, c.indices, &why));
    EXPECT_FALSE(why.empty());
    EXPECT_FALSE(tree.isBuilt());
    Vec nearest;
    EXPECT_FALSE(tree.nearestPoint(Vec(0, 0, 0), nearest));
    EXPECT_FALSE(tree.inside(Vec(0.1, 0.1, 0)));
  }
}
