// `vorn render --mesh`: the meshes of the bundled example come back through the project's own
// Alembic reader as written, the file does not depend on the thread count, and bad usage leaves
// no file.

#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcPolyMesh.h"
#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/SmallHead.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using vrtest::ranWith;
using vrtest::readText;
using vrtest::shellWord;
using vrtest::vorn;

namespace {

const std::string exampleDir = std::string(VORN_SOURCE_DIR) + "/examples/head";

std::string meshArgs(const std::string& collection, const std::string& output, const std::string& extra) {
  return "render " + shellWord(collection) + " --geom " + shellWord(exampleDir + "/head.abc") + " --frame 1 --mesh -o " +
         shellWord(output) + " " + extra;
}

TEST(VornMeshCli, StripsComeBackThroughTheReaderTheSameOnAnyThreadCount) {
  vrtest::TempDir dir;
  const std::string collection = vrtest::smallHeadCollection(dir);
  const std::string one = dir.file("one.abc"), two = dir.file("two.abc");
  ASSERT_TRUE(ranWith(vorn(meshArgs(collection, one, "--threads 1")), 0, "converted "));
  ASSERT_TRUE(ranWith(vorn(meshArgs(collection, two, "--threads 2")), 0, " meshes ("));
  EXPECT_EQ(readText(one), readText(two));
  EXPECT_TRUE(ranWith(vorn("inspect " + shellWord(one)), 0, "AbcGeom_PolyMesh_v1"));

  VrAbcArchive archive;
  ASSERT_TRUE(archive.open(one));
  VrAbcObject object;
  ASSERT_TRUE(archive.findObject("/hair", object));
  VrAbcPolyMesh mesh;
  VrAbcPolyMesh::Sample sample;
  ASSERT_TRUE(mesh.open(object));
  ASSERT_TRUE(mesh.read(0, sample));
  // Each hair: six rows of two points, five quads.
  const size_t points = sample.points.positions.size() / 3;
  ASSERT_GT(points, 0u);
  ASSERT_EQ(points % 12, 0u);
  EXPECT_EQ(sample.faceCounts, std::vector<int32_t>(points / 12 * 5, 4));
  ASSERT_TRUE(sample.hasUvs);
  EXPECT_EQ(sample.uvs.values.numValues(), points);
  for (int32_t index : sample.faceIndices) EXPECT_LT(size_t(index), points);

  // Tubes with joint chains: the joints come as one linear curve per hair.
  const std::string tubes = dir.file("tubes.abc");
  ASSERT_TRUE(ranWith(vorn(meshArgs(collection, tubes, "--mesh-set shapeType=2 --mesh-set createStripJoints=true")), 0,
                      "converted "));
  EXPECT_TRUE(ranWith(vorn("inspect " + shellWord(tubes)), 0, "hair_stripJoints"));
}

TEST(VornMeshCli, BadUsageLeavesNoFile) {
  vrtest::TempDir dir;
  const std::string collection = vrtest::smallHeadCollection(dir);
  const std::string out = dir.file("out.abc");
  EXPECT_TRUE(ranWith(vorn(meshArgs(collection, dir.file("out.jsonl"), "")), 2, "--mesh writes an .abc output"));
  EXPECT_TRUE(ranWith(vorn(meshArgs(collection, out, "--mesh-set noSuchThing=1")), 2,
                      "the geometry back end has no attribute \"noSuchThing\""));
  EXPECT_TRUE(ranWith(vorn(meshArgs(collection, out, "--mesh-set shapeType")), 2, "--mesh-set takes NAME=VALUE"));
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_FALSE(std::filesystem::exists(dir.file("out.jsonl")));
}

}  // namespace
