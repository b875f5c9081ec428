// `vorn view` under a virtual X server: it draws the hair where `vorn preview` would, and a box
// selection scripted through its own options culls exactly the primitives whose root-to-tip line
// crosses the box (worked out here from the JSON lines of `vorn render`, by walking each line in
// small steps), saves the collection and leaves them out when it reads it again. A change of the file
// while it runs is read and drawn. Without a display it fails with a sentence. The tests are skipped where xvfb-run is missing or cannot start a server.

#include "support/CliExpect.h"
#include "support/PreviewShots.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <tuple>

using vrtest::readText;
using vrtest::shellWord;
using vrtest::vorn;

namespace {

using namespace vrtest::previewshots;
using PrimKey = std::tuple<std::string, int, unsigned>;

// Runs `vorn view` in a virtual X server; skips the test when there is none to be had.
#define VIEW_OR_SKIP(result, arguments)                                                                             \
  if (std::system("command -v xvfb-run >/dev/null 2>&1") != 0) GTEST_SKIP() << "xvfb-run is not installed";      \
  const vrtest::CommandResult result = vrtest::runCommand(                                                        \
      "timeout 300 xvfb-run -a -s '-screen 0 1024x768x24' " + vrtest::vornCli() + " view " + (arguments));         \
  if (result.output.find("xvfb-run: error") != std::string::npos) GTEST_SKIP() << result.output;

std::string viewArguments(const std::string& coll, const std::string& extra) {
  return shellWord(coll) + " --geom " + shellWord(geometry) + " --frame 1 --size 320x180 --camera " + camera + " " +
         extra;
}

// (patch, face, id) of every primitive culled by hand in a collection file's patch blocks.
std::set<PrimKey> culledIn(const std::string& path) {
  std::set<PrimKey> culled;
  std::istringstream in(readText(path));
  std::string line, patch;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string key;
    words >> key;
    if (key == "name") words >> patch;
    if (key != "culledPrims") continue;
    int faces = 0;
    words >> faces;
    for (int f = 0; f < faces; ++f) {
      int face = 0, count = 0;
      words >> face >> count;
      for (int i = 0; i < count; ++i) {
        unsigned id = 0;
        words >> id;
        culled.insert({patch, face, id});
      }
    }
  }
  return culled;
}

// Whether the line between the pixels of the hair's first and last CV comes into the box.
bool crossesBox(const vrtest::RenderLine& hair, double x0, double y0, double x1, double y1) {
  double ax = 0, ay = 0, bx = 0, by = 0;
  pixelOf(&hair.cvs[0], ax, ay);
  pixelOf(&hair.cvs[hair.cvs.size() - 3], bx, by);
  constexpr int steps = 4000;
  for (int k = 0; k <= steps; ++k) {
    const double t = double(k) / steps, x = ax + (bx - ax) * t, y = ay + (by - ay) * t;
    if (x >= x0 && x <= x1 && y >= y0 && y <= y1) return true;
  }
  return false;
}

TEST(VornViewGL, DrawsTheHairInAWindow) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "\tcolor\t\t[0, 1, 0]\n");
  const std::string shot = dir.file("shot.png");
  VIEW_OR_SKIP(run, viewArguments(coll, "--exit-after 3 --screenshot " + shellWord(shot)));
  ASSERT_EQ(run.exitCode, 0) << run.output;
  EXPECT_NE(run.output.find("drew 3 frames"), std::string::npos) << run.output;
  VrRgbImage image;
  ASSERT_TRUE(VrReadPng(shot, image));
  EXPECT_EQ(image.width, width);
  EXPECT_EQ(image.height, height);
  EXPECT_GT(find(image, isGreen).count, 2000u);
}

TEST(VornViewGL, ABoxSelectionCullsWhatItCrossesAndSaves) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "");
  const vrtest::CommandResult before = vorn("render " + shellWord(coll) + " --geom " + shellWord(geometry) +
                                            " --frame 1 -o " + shellWord(dir.file("before.jsonl")));
  ASSERT_EQ(before.exitCode, 0) << before.output;
  const std::vector<vrtest::RenderLine> hairs = readHairs(dir.file("before.jsonl"));
  const double box[4] = {120.5, 40.5, 170.5, 75.5};
  std::set<PrimKey> expected;
  for (const vrtest::RenderLine& hair : hairs)
    if (crossesBox(hair, box[0], box[1], box[2], box[3])) expected.insert({hair.patch, hair.face, unsigned(hair.id)});
  ASSERT_GT(expected.size(), 5u);
  ASSERT_LT(expected.size(), hairs.size() / 2);

  VIEW_OR_SKIP(run, viewArguments(coll, "--exit-after 2 --select 120.5,40.5,170.5,75.5 --mark cull"));
  ASSERT_EQ(run.exitCode, 0) << run.output;
  EXPECT_NE(run.output.find("selected " + std::to_string(expected.size()) + " primitives"), std::string::npos)
      << run.output;
  EXPECT_EQ(culledIn(coll), expected);
  // The viewer read the saved file again: what it rendered then lacks the culled ones.
  EXPECT_NE(run.output.find("rendered " + std::to_string(hairs.size() - expected.size()) + " primitives"),
            std::string::npos)
      << run.output;
}

TEST(VornViewGL, IsolatingTheSelectionShowsItAloneAndSavesNothing) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "");
  const std::string saved = readText(coll);
  VIEW_OR_SKIP(run, viewArguments(coll, "--exit-after 2 --select 120.5,40.5,170.5,75.5 --mark isolate"));
  ASSERT_EQ(run.exitCode, 0) << run.output;
  const size_t at = run.output.find("selected ");
  ASSERT_NE(at, std::string::npos) << run.output;
  const std::string count = run.output.substr(at + 9, run.output.find(' ', at + 9) - at - 9);
  EXPECT_GT(std::stoul(count), 5u);
  EXPECT_NE(run.output.find("isolated " + count + " primitives"), std::string::npos) << run.output;
  EXPECT_EQ(readText(coll), saved);
}

TEST(VornViewGL, AChangeOfTheFileIsDrawnAgain) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "");
  const std::string out = shellWord(dir.file("view.out")), pid = shellWord(dir.file("view.pid"));
  // The viewer runs until killed; the test waits (a minute at most) for its first render, doubles
  // the density with `vorn set`, waits for the second render and stops it.
  dir.write("view.sh", vrtest::vornCli() + " view " + viewArguments(coll, "") + " > " + out + " 2>&1 &\necho $! > " +
                           pid + "\nwait\n");
  auto waitFor = [&](int renders) {
    return "for i in $(seq 600); do [ \"$(grep -c '^rendered' " + out + " 2>/dev/null)\" -ge " +
           std::to_string(renders) + " ] 2>/dev/null && break; sleep 0.1; done\n";
  };
  dir.write("driver.sh", "xvfb-run -a -s '-screen 0 1024x768x24' sh " + shellWord(dir.file("view.sh")) + " &\n" +
                             waitFor(1) + vrtest::vornCli() + " set " + shellWord(coll) +
                             " density 800 hair RandomGenerator\n" + waitFor(2) + "kill $(cat " + pid + ")\nwait\ncat " +
                             out + "\n");
  if (std::system("command -v xvfb-run >/dev/null 2>&1") != 0) GTEST_SKIP() << "xvfb-run is not installed";
  const vrtest::CommandResult run = vrtest::runCommand("timeout 300 sh " + shellWord(dir.file("driver.sh")));
  if (run.output.find("xvfb-run: error") != std::string::npos) GTEST_SKIP() << run.output;
  // 2486 primitives at the example's density, about twice as many after.
  unsigned first = 0, second = 0;
  const size_t at = run.output.find("rendered ");
  ASSERT_NE(at, std::string::npos) << run.output;
  const size_t again = run.output.find("changed; reading it again", at);
  ASSERT_NE(again, std::string::npos) << run.output;
  ASSERT_EQ(std::sscanf(run.output.c_str() + at, "rendered %u", &first), 1);
  const size_t next = run.output.find("rendered ", again);
  ASSERT_NE(next, std::string::npos) << run.output;
  ASSERT_EQ(std::sscanf(run.output.c_str() + next, "rendered %u", &second), 1);
  EXPECT_GT(second, first * 3 / 2) << run.output;
}

TEST(VornViewGL, WithoutADisplayItFailsWithASentence) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "");
  const vrtest::CommandResult run =
      vrtest::runCommand("env -u DISPLAY -u WAYLAND_DISPLAY " + vrtest::vornCli() + " view " + viewArguments(coll, ""));
  EXPECT_TRUE(vrtest::ranWith(run, 1, "vorn: cannot open a window")) << run.output;
}

}  // namespace
