// `vorn clumps make`: the same seed writes the same files on any thread count, the collection is saved with its maps
// marked made, the clumped example renders, and bad names fail without touching the file.

#include "support/Examples.h"
#include "support/RunCommand.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using vrtest::shellWord;

TEST(VornClumpsCli, SameSeedSameFilesAndTheExampleRenders) {
  vrtest::TempDir dir;
  const std::string collection = dir.write("clumped.vorn", vrtest::readText(vrtest::examplePath("head/clumped.vorn")));
  const std::string geometry = vrtest::examplePath("head/head.abc");
  const std::string make = "clumps make " + shellWord(collection) + " hair Clumping --geom " + shellWord(geometry);
  const std::string points = dir.file("hair/Clumping/Points/scalpShape.vuv");
  const std::string map = dir.file("hair/Clumping/Maps/scalpShape.ptx");

  struct Case {
    const char* name;
    std::string arguments;
    int exitCode;
  };
  const Case failures[] = {
      {"no such description", "clumps make " + shellWord(collection) + " fur Clumping --geom " + shellWord(geometry), 1},
      {"no such module", "clumps make " + shellWord(collection) + " hair Noise --geom " + shellWord(geometry), 1},
      {"no geometry", "clumps make " + shellWord(collection) + " hair Clumping", 2},
      {"negative threads", make + " --threads -1", 2},
  };
  const std::string before = vrtest::readText(collection);
  for (const Case& c : failures) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(vrtest::vornIn(dir.path(), c.arguments).exitCode, c.exitCode);
    EXPECT_EQ(vrtest::readText(collection), before);
  }

  const auto first = vrtest::vornIn(dir.path(), make + " --seed 4 --density 40 --threads 2");
  ASSERT_EQ(first.exitCode, 0) << first.output;
  const std::string vuv = vrtest::readText(points), ptx = vrtest::readText(map);
  ASSERT_FALSE(vuv.empty());
  ASSERT_FALSE(ptx.empty());
  ASSERT_EQ(vrtest::vornIn(dir.path(), make + " --seed 4 --density 40 --threads 1").exitCode, 0);
  EXPECT_EQ(vrtest::readText(points), vuv);
  EXPECT_EQ(vrtest::readText(map), ptx);
  const auto got = vrtest::vornIn(dir.path(), "get " + shellWord(collection) + " mapInitialized hair Clumping");
  EXPECT_EQ(got.output, "true\n");

  // The clumped example renders the same on one and two threads.
  ASSERT_EQ(vrtest::vornIn(dir.path(), "set " + shellWord(collection) + " density 300 hair RandomGenerator").exitCode, 0);
  std::string outputs[2];
  for (int threads : {1, 2}) {
    const std::string out = dir.file("out" + std::to_string(threads) + ".jsonl");
    const auto render = vrtest::vornIn(dir.path(), "render " + shellWord(collection) + " --geom " + shellWord(geometry) +
                             " --frame 1 -o " + shellWord(out) + " --threads " + std::to_string(threads));
    ASSERT_EQ(render.exitCode, 0) << render.output;
    outputs[threads - 1] = vrtest::readText(out);
  }
  EXPECT_GT(outputs[0].size(), 1000u);
  EXPECT_EQ(outputs[0], outputs[1]);
}
