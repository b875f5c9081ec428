// `vorn preset` (export, import, export-fx) run as a separate process on the bundled examples.

#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <string>

using vrtest::ran;
using vrtest::vorn;

TEST(VornCliPreset, ExportImportAndTheExitCodes) {
  const auto q = vrtest::shellWord;
  vrtest::TempDir dir;
  const std::string collection = dir.write("groom.vorn", vrtest::readText(vrtest::examplePath("groom.vorn")));
  const std::string presetFile = dir.file("scalp.vornpreset"), out = dir.file("out.vorn");
  ASSERT_TRUE(ran(vorn("preset export " + q(collection) + " scalp " + q(presetFile) + " --with-guides"), 0, ""));
  ASSERT_TRUE(ran(vorn("preset export-fx " + q(collection) + " scalp Cut " + q(dir.file("cut.vornfx"))), 0, ""));
  const std::string before = vrtest::readText(collection);

  const std::pair<std::string, int> failures[] = {
      {"preset", 2},
      {"preset export " + q(collection) + " scalp", 2},
      {"preset import " + q(collection) + " " + q(presetFile) + " --name ''", 2},
      {"preset export " + q(dir.file("none.vorn")) + " scalp " + q(dir.file("a")), 1},
      {"preset export " + q(collection) + " fur " + q(dir.file("a")), 1},
      {"preset export-fx " + q(collection) + " scalp Noise " + q(dir.file("a")), 1},
      {"preset import " + q(collection) + " " + q(dir.file("none.vornpreset")), 1},
      {"preset import " + q(collection) + " " + q(collection), 1},  // a collection is no preset
      {"preset import " + q(collection) + " " + q(presetFile) + " --name brows", 1},
  };
  for (const auto& [arguments, code] : failures) {
    const auto result = vorn(arguments);
    EXPECT_EQ(result.exitCode, code) << arguments << "\n" << result.output;
    EXPECT_FALSE(result.output.empty()) << arguments;  // every failure says why
  }
  EXPECT_EQ(vrtest::readText(collection), before);
  EXPECT_TRUE(vrtest::readText(dir.file("a")).empty());

  // With -o the collection stays as it was; without, it is rewritten and a taken name made unique.
  EXPECT_TRUE(ran(vorn("preset import " + q(collection) + " " + q(presetFile) + " --name fur -o " + q(out)), 0, "fur\n"));
  EXPECT_EQ(vorn("get " + q(out) + " density fur RandomGenerator").output, "800.0\n");
  EXPECT_EQ(vrtest::readText(collection), before);
  EXPECT_TRUE(ran(vorn("preset import " + q(collection) + " " + q(presetFile)), 0, "scalp1\n"));
  EXPECT_EQ(vorn("get " + q(collection) + " density scalp1 RandomGenerator").output, "800.0\n");
}
