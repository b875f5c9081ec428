// `vorn render --mesh`: the meshes of the bundled example come back through the project's own
// Alembic reader as written, the file does not depend on the thread count, a selection converts
// just the primitives it names, and bad usage leaves no file.

#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcPolyMesh.h"
#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/SmallHead.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <set>
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
  // The strips' layout is the geometry back end's (VrGeometryRendererDataHelper tests); here the
  // archive must carry the points, quads and a uv a point.
  const size_t points = sample.points.positions.size() / 3;
  ASSERT_GT(points, 0u);
  EXPECT_EQ(sample.faceCounts.size() * 4, sample.faceIndices.size());
  ASSERT_TRUE(sample.hasUvs);
  EXPECT_EQ(sample.uvs.values.numValues(), points);

  // Tubes with joint chains: the joints come as one linear curve per hair.
  const std::string tubes = dir.file("tubes.abc");
  ASSERT_TRUE(ranWith(vorn(meshArgs(collection, tubes, "--mesh-set shapeType=2 --mesh-set createStripJoints=true")), 0,
                      "converted "));
  EXPECT_TRUE(ranWith(vorn("inspect " + shellWord(tubes)), 0, "hair_stripJoints"));
}

// The names of the objects at the top of the archive at `path`.
std::set<std::string> topNames(const std::string& path) {
  std::set<std::string> names;
  VrAbcArchive archive;
  EXPECT_TRUE(archive.open(path));
  for (size_t i = 0; i < archive.top().numChildren(); ++i) names.insert(archive.top().childHeader(i).name);
  return names;
}

TEST(VornMeshCli, ASelectionConvertsOnlyThePrimitivesItNames) {
  vrtest::TempDir dir;
  const std::string collection = vrtest::smallHeadCollection(dir);
  const std::string all = dir.file("all.abc"), some = dir.file("some.abc");
  ASSERT_TRUE(ranWith(vorn(meshArgs(collection, all, "--mesh-set combineMesh=false")), 0, "converted "));
  // "hair_<patch>_<face>_<id>": the patch, face and id of three of them, in the selection's form.
  const std::set<std::string> every = topNames(all);
  ASSERT_GT(every.size(), 10u);
  std::set<std::string> picked;
  std::string entries;
  for (auto it = every.begin(); picked.size() < 3; std::advance(it, 3)) {
    picked.insert(*it);
    std::string entry = it->substr(std::string("hair_").size());
    entry[entry.rfind('_')] = ':';
    entry[entry.rfind('_')] = ':';
    entries += (entries.empty() ? "" : ",") + entry;
  }
  ASSERT_TRUE(ranWith(vorn(meshArgs(collection, some, "--mesh-set combineMesh=false --select " + entries)), 0,
                      "converted 3 primitives"));
  EXPECT_EQ(topNames(some), picked);
  // The same from a file, one entry a line, with a comment.
  std::string lines = "# three hairs\n" + entries;
  for (char& c : lines) c = c == ',' ? '\n' : c;
  const std::string listed = dir.file("listed.abc");
  ASSERT_TRUE(ranWith(vorn(meshArgs(collection, listed, "--mesh-set combineMesh=false --select-file " +
                                                            shellWord(dir.write("pick.txt", lines)))),
                      0, "converted 3 primitives"));
  EXPECT_EQ(topNames(listed), picked);

  const struct {
    std::string args;
    int code;
    std::string message;
  } refused[] = {
      {"--select scalpShape:1", 2, "--select takes PATCH:FACE:ID entries separated by commas: \"scalpShape:1\""},
      {"--select scalpShape:1:2,scalpShape:x:3", 2, "PATCH:FACE:ID entries separated by commas: \"scalpShape:x:3\""},
      {"--select :1:2", 2, "PATCH:FACE:ID entries separated by commas: \":1:2\""},
      {"--select scalpShape:-1:2", 2, "PATCH:FACE:ID entries separated by commas: \"scalpShape:-1:2\""},
      {"--select ' , '", 2, "--select and --select-file name no primitive"},
      {"--select nowhere:1:2", 2, "the selection names a patch that no description has: \"nowhere\""},
      {"--select-file " + shellWord(dir.file("absent.txt")), 1, "cannot read the selection file"},
  };
  for (const auto& c : refused) {
    EXPECT_TRUE(ranWith(vorn(meshArgs(collection, dir.file("x.abc"), c.args)), c.code, c.message)) << c.args;
    EXPECT_FALSE(std::filesystem::exists(dir.file("x.abc"))) << c.args;
  }
  EXPECT_TRUE(ranWith(vorn("render " + shellWord(collection) + " --geom " + shellWord(exampleDir + "/head.abc") +
                           " --frame 1 -o " + shellWord(dir.file("x.jsonl")) + " --select scalpShape:1:2"),
                      2, "--select and --select-file need --mesh"));
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
