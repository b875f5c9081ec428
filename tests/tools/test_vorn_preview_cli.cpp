// `vorn preview`: pictures checked by their pixels. The hair lands where its CVs (from the JSON
// lines of `vorn render`) project through the same camera, the background stays where nothing
// is drawn, the preview colour expression colours the hair, `--culled` adds outlines, a camera
// looking away draws nothing, and the same preview gives the same bytes on 1 and 2 threads.
// Archives draw their files' meshes within their boxes, the same through display lists, and their
// boxes when the proxy cache is too small.
// The tests of the suite VornPreviewGL need a GL driver (Mesa's software one serves); ctest runs
// them without leak checks, since the driver leaks by itself.

#include "io/VrPngFile.h"
#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/PreviewShots.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <fstream>
#include <string>
#include <vector>

using vrtest::ranWith;
using vrtest::readText;
using vrtest::shellWord;
using vrtest::vorn;

namespace {

using namespace vrtest::previewshots;

VrRgbImage preview(const std::string& coll, const std::string& png, const std::string& extra) {
  const vrtest::CommandResult run = vorn("preview " + shellWord(coll) + " --geom " + shellWord(geometry) +
                                         " --frame 1 --size 320x180 -o " + shellWord(png) + " " + extra);
  EXPECT_EQ(run.exitCode, 0) << run.output;
  VrRgbImage image;
  EXPECT_TRUE(VrReadPng(png, image));
  EXPECT_EQ(image.width, width);
  EXPECT_EQ(image.height, height);
  return image;
}

TEST(VornPreviewGL, HairCoversWhereItsCVsProjectInItsColour) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "\tcolor\t\t[0, 1, 0]\n");
  const VrRgbImage image = preview(coll, dir.file("shot.png"), "--camera " + camera);
  const vrtest::CommandResult render = vorn("render " + shellWord(coll) + " --geom " + shellWord(geometry) +
                                            " --frame 1 -o " + shellWord(dir.file("hair.jsonl")));
  ASSERT_EQ(render.exitCode, 0) << render.output;
  const Found cvs = projectedCVs(dir.file("hair.jsonl"));
  ASSERT_GT(cvs.count, 1000u);
  const Found hair = find(image, isGreen);
  EXPECT_GT(hair.count, 2000u);
  EXPECT_NEAR(hair.x0, cvs.x0, 2);
  EXPECT_NEAR(hair.x1, cvs.x1, 2);
  EXPECT_NEAR(hair.y0, cvs.y0, 2);
  // Outside the boxes of the hair and of the scalp (x and z in [-1, 1], y in [0, 1]) only
  // background is left.
  Found drawn = cvs;
  for (int corner = 0; corner < 8; ++corner) {
    const double p[3] = {corner & 1 ? 1.0 : -1.0, corner & 2 ? 1.0 : 0.0, corner & 4 ? 1.0 : -1.0};
    project(p, drawn);
  }
  for (unsigned y = 0; y < height; ++y)
    for (unsigned x = 0; x < width; ++x) {
      const bool outside = int(x) < drawn.x0 - 3 || int(x) > drawn.x1 + 3 || int(y) < drawn.y0 - 3 || int(y) > drawn.y1 + 3;
      if (outside) {
        ASSERT_TRUE(isBackground(image.at(x, y))) << x << "," << y;
      }
    }
}

TEST(VornPreviewGL, CulledAddsOutlinesAndAWayLookingCameraDrawsNothing) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "\tcolor\t\t[0, 1, 0]\n", "\tcullFlag\t\ttrue\n\tcullExpr\t\t$u > 0.5\n");
  const Found plain = find(preview(coll, dir.file("a.png"), "--camera " + camera), isOutline);
  const VrRgbImage outlined = preview(coll, dir.file("b.png"), "--camera " + camera + " --culled");
  EXPECT_EQ(plain.count, 0u);
  EXPECT_GT(find(outlined, isOutline).count, 200u);
  EXPECT_GT(find(outlined, isGreen).count, 200u);

  const VrRgbImage away = preview(coll, dir.file("c.png"), "--camera " + cameraAway + " --culled --guides");
  EXPECT_EQ(find(away, isBackground).count, size_t(width) * height);
}

TEST(VornPreviewGL, TheSamePreviewGivesTheSameBytesOnOneAndTwoThreads) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "");
  preview(coll, dir.file("one.png"), "--threads 1");
  preview(coll, dir.file("two.png"), "--threads 2");
  preview(coll, dir.file("again.png"), "--threads 2");
  const std::string bytes = readText(dir.file("one.png"));
  EXPECT_GT(bytes.size(), 1000u);
  EXPECT_EQ(bytes, readText(dir.file("two.png")));
  EXPECT_EQ(bytes, readText(dir.file("again.png")));
}

TEST(VornPreviewGL, WithoutOpenGLItFailsWithASentence) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "");
  // EGL finds no vendor library, as on a machine without any GL.
  const vrtest::CommandResult run = vrtest::runCommand(
      "__EGL_VENDOR_LIBRARY_FILENAMES=" + shellWord(dir.file("none.json")) + " " + vrtest::vornCli() + " preview " +
      shellWord(coll) + " --geom " + shellWord(geometry) + " --frame 1 -o " + shellWord(dir.file("x.png")));
  EXPECT_TRUE(ranWith(run, 1, "vorn: cannot draw a preview: no OpenGL"));
  EXPECT_FALSE(std::ifstream(dir.file("x.png")).good());
}

// The rocks example, thinned out and with larger rocks, written with its archive files into `dir`
// (its data path is "./").
std::string rocksCollection(const vrtest::TempDir& dir) {
  const std::string rocks = vrtest::examplePath("archives/");
  for (const char* kind : {"pebble", "slab"})
    for (const char* level : {"_hi.abc", "_med.abc", "_lo.abc"})
      dir.write(std::string(kind) + level, readText(rocks + kind + level));
  std::string text = readText(rocks + "rocks.vorn");
  for (const auto& [from, to] : {std::make_pair("0.05 + 0.05 * rand()", "0.3"), std::make_pair("300.0", "5.0")})
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at))
      text.replace(at, std::strlen(from), to);
  return dir.write("rocks.vorn", text);
}

TEST(VornPreviewGL, ArchivesDrawTheirFilesMeshesInsideTheirBoxesInBuffersOrDisplayLists) {
  vrtest::TempDir dir;
  const std::string coll = rocksCollection(dir);
  auto shot = [&](const std::string& name, const std::string& environment) {
    const vrtest::CommandResult run =
        vrtest::runCommand("cd " + shellWord(dir.file("")) + " && " + environment + " " + vrtest::vornCli() +
                           " preview rocks.vorn --geom " + shellWord(geometry) + " --frame 1 --size 640x360 --camera " +
                           camera + " -o " + name);
    EXPECT_EQ(run.exitCode, 0) << run.output;
    VrRgbImage image;
    EXPECT_TRUE(VrReadPng(dir.file(name), image));
    return std::make_pair(image, run.output);
  };
  // The previewer's default colour is black, which nothing else in the picture is.
  auto rockPixels = [](const VrRgbImage& image) {
    std::vector<bool> rock(size_t(image.width) * image.height);
    for (unsigned y = 0; y < image.height; ++y)
      for (unsigned x = 0; x < image.width; ++x) {
        const unsigned char* p = image.at(x, y);
        rock[size_t(y) * image.width + x] = p[0] == 0 && p[1] == 0 && p[2] == 0;
      }
    return rock;
  };
  const auto proxies = shot("proxies.png", "");
  const auto boxes = shot("boxes.png", "VORN_MAX_ARCHIVE_CACHE_SIZE=0.0001");
  EXPECT_EQ(proxies.second.find("drawn as boxes"), std::string::npos) << proxies.second;
  EXPECT_NE(boxes.second.find("(VORN_MAX_ARCHIVE_CACHE_SIZE): the archives of 2 file sets are drawn as boxes."),
            std::string::npos)
      << boxes.second;
  const std::vector<bool> meshes = rockPixels(proxies.first), cubes = rockPixels(boxes.first);
  size_t inMeshes = 0, inBoxes = 0, meshesInBoxes = 0;
  for (size_t i = 0; i < meshes.size(); ++i) {
    inMeshes += meshes[i];
    inBoxes += cubes[i];
    meshesInBoxes += meshes[i] && cubes[i];
  }
  // Each rock lies within its box, and fills clearly less of the picture than the box does.
  EXPECT_GT(inMeshes, 2000u);
  EXPECT_LT(double(inMeshes), 0.9 * double(inBoxes));
  EXPECT_GT(double(meshesInBoxes), 0.98 * double(inMeshes));

  // Display lists draw the same picture as buffer objects.
  shot("lists.png", "VORN_DISABLE_VBO_PROXY_ARCHIVES=1");
  EXPECT_EQ(readText(dir.file("lists.png")), readText(dir.file("proxies.png")));
}

TEST(VornPreviewCli, BadUsageIsRefusedBeforeAnyWork) {
  vrtest::TempDir dir;
  const std::string coll = collection(dir, "");
  const std::string base = "preview " + shellWord(coll) + " --geom " + shellWord(geometry) + " --frame 1 ";
  const struct {
    std::string args;
    int code;
    std::string message;
  } cases[] = {
      {"-o " + shellWord(dir.file("x.jpg")), 2, "the output must end in .png"},
      {"-o " + shellWord(dir.file("x.png")) + " --size 320", 2, "--size takes WIDTHxHEIGHT"},
      {"-o " + shellWord(dir.file("x.png")) + " --size 8x8", 2, "--size takes WIDTHxHEIGHT"},
      {"-o " + shellWord(dir.file("x.png")) + " --camera 1,2,3", 2, "--camera takes six or seven numbers"},
      {"-o " + shellWord(dir.file("x.png")) + " --camera 1,1,1,1,1,1", 2, "the eye and the target are the same point"},
      {"-o " + shellWord(dir.file("no/x.png")), 1, "is missing or not writable"},
  };
  for (const auto& c : cases) EXPECT_TRUE(ranWith(vorn(base + c.args), c.code, c.message)) << c.args;
}

}  // namespace
