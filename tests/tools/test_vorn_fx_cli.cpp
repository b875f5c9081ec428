// `vorn fx bake`: a noise bake of the styled head, taken up with --use, renders the hair the live
// stack renders, to float rounding; what cannot be baked fails and leaves the file as it was.

#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/RunCommand.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

using vrtest::shellWord;

namespace {

// Every number of a text, in order.
std::vector<double> numbersOf(const std::string& text) {
  std::vector<double> numbers;
  const char* p = text.c_str();
  while (*p) {
    char* end = nullptr;
    const bool starts = (*p >= '0' && *p <= '9') || ((*p == '-' || *p == '.') && p[1] >= '0' && p[1] <= '9');
    const double value = starts ? std::strtod(p, &end) : 0.0;
    if (starts && end != p) {
      numbers.push_back(value);
      p = end;
    } else {
      ++p;
    }
  }
  return numbers;
}

}  // namespace

TEST(VornFxCli, ANoiseBakeTakenUpRendersTheLiveHair) {
  vrtest::TempDir dir;
  const std::string collection = dir.write("styled.vorn", vrtest::readText(vrtest::examplePath("styled/styled.vorn")));
  const std::string geometry = vrtest::examplePath("head/head.abc");
  // The bake goes to this folder; the clump guides are read from the example's.
  ASSERT_EQ(vrtest::vornIn(dir.path(), "set " + shellWord(collection) + " vrDataPath " +
                            shellWord("./;" + vrtest::examplePath("head") + "/") + " Palette")
                .exitCode,
            0);
  ASSERT_EQ(vrtest::vornIn(dir.path(), "set " + shellWord(collection) + " density 400 hair RandomGenerator").exitCode, 0);
  const std::string bake = "fx bake " + shellWord(collection) + " hair ";
  const std::string geom = " --geom " + shellWord(geometry);

  struct Case {
    const char* name;
    std::string arguments;
    int exitCode;
    const char* says;
  };
  const Case failures[] = {
      {"no such module", bake + "Frizz" + geom, 1, "no FX module \"Frizz\""},
      {"no bake", bake + "Coil" + geom, 1, "has nothing to bake"},
      {"no geometry", bake + "Noise", 2, "--geom"},
  };
  const std::string before = vrtest::readText(collection);
  for (const Case& c : failures) {
    SCOPED_TRACE(c.name);
    EXPECT_TRUE(vrtest::ranWith(vrtest::vornIn(dir.path(), c.arguments), c.exitCode, c.says));
    EXPECT_EQ(vrtest::readText(collection), before);
  }

  const auto render = [&](const std::string& name) {
    const auto run = vrtest::vornIn(dir.path(), "render " + shellWord(collection) + geom + " --frame 1 -o " + name);
    EXPECT_EQ(run.exitCode, 0) << run.output;
    return numbersOf(vrtest::readText(dir.file(name)));
  };
  const std::vector<double> live = render("live.jsonl");
  const auto baked = vrtest::vornIn(dir.path(), bake + "Noise" + geom + " --frame 1 --threads 2 --use");
  ASSERT_EQ(baked.exitCode, 0) << baked.output;
  EXPECT_NE(baked.output.find("into "), std::string::npos);
  EXPECT_EQ(vrtest::vornIn(dir.path(), "get " + shellWord(collection) + " mode hair Noise").output, "1\n");
  EXPECT_TRUE(std::filesystem::is_regular_file(dir.file("hair/Noise/scalpShape.vpd")));

  const std::vector<double> again = render("baked.jsonl");
  ASSERT_GT(live.size(), 10000u);
  ASSERT_EQ(again.size(), live.size());
  size_t differ = 0;
  for (size_t i = 0; i < live.size(); ++i) {
    EXPECT_NEAR(again[i], live[i], 1e-5) << "number " << i;
    differ += again[i] != live[i];
  }
  EXPECT_GT(differ, 0u);  // the noise came from the file's floats, not from the noise again
}
