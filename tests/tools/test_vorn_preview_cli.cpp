// `vorn preview`: pictures checked by their pixels. The hair lands where its CVs (from the JSON
// lines of `vorn render`) project through the same camera, the background stays where nothing
// is drawn, the preview colour expression colours the hair, `--culled` adds outlines, a camera
// looking away draws nothing, and the same preview gives the same bytes on 1 and 2 threads.
// The tests of the suite VornPreviewGL need a GL driver (Mesa's software one serves); ctest runs
// them without leak checks, since the driver leaks by itself.

#include "io/VrPngFile.h"
#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

using vrtest::ranWith;
using vrtest::readText;
using vrtest::shellWord;
using vrtest::vorn;

namespace {

const std::string exampleDir = std::string(VORN_SOURCE_DIR) + "/examples/head";
const std::string geometry = exampleDir + "/head.abc";
constexpr unsigned width = 320, height = 180;
// In front of the scalp (x and z in [-1, 1], y in [0, 1]), looking at it; and the same eye
// looking the other way.
const std::string camera = "0,0.5,6,0,0.5,0,30";
const std::string cameraAway = "0,0.5,6,0,0.5,12,30";
const unsigned char background[3] = {158, 168, 184};

// The example at a low density, with `previewer` as its GLRenderer block's attributes and
// `generator` lines added to its generator's block.
std::string collection(const vrtest::TempDir& dir, const std::string& previewer, const std::string& generator = "") {
  std::string text = readText(exampleDir + "/head.vorn");
  auto replace = [&](const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
  };
  replace("density\t\t\t50000.0\n", "density\t\t\t400.0\n" + generator);
  // The example's own previewer block gives way to the test's.
  const size_t block = text.find("GLRenderer\n");
  const size_t blockEnd = text.find("\tendAttrs\n", block);
  EXPECT_NE(blockEnd, std::string::npos);
  if (blockEnd != std::string::npos) text.replace(block, blockEnd - block, "GLRenderer\n" + previewer);
  return dir.write("coll.vorn", text);
}

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

// Pixels whose colour passes `test`, and their box.
struct Found {
  size_t count = 0;
  int x0 = 1 << 20, y0 = 1 << 20, x1 = -1, y1 = -1;
};
template <class Test>
Found find(const VrRgbImage& image, Test test) {
  Found f;
  for (unsigned y = 0; y < image.height; ++y)
    for (unsigned x = 0; x < image.width; ++x)
      if (test(image.at(x, y))) {
        ++f.count;
        f.x0 = std::min(f.x0, int(x));
        f.x1 = std::max(f.x1, int(x));
        f.y0 = std::min(f.y0, int(y));
        f.y1 = std::max(f.y1, int(y));
      }
  return f;
}

bool isBackground(const unsigned char* p) { return p[0] == background[0] && p[1] == background[1] && p[2] == background[2]; }
bool isGreen(const unsigned char* p) { return p[1] > 60 && p[0] < 30 && p[2] < 30; }
bool isOutline(const unsigned char* p) { return p[0] > 150 && p[2] > 150 && p[1] < 60; }

// Where `camera`'s numbers (eye, target, vertical angle; up is +y) put a point, worked out here
// without GL.
void project(const double p[3], Found& box) {
  const double eye[3] = {0, 0.5, 6}, fov = 30.0 * 3.14159265358979323846 / 180.0;
  const double f = 1.0 / std::tan(fov / 2), aspect = double(width) / height;
  // The camera looks down -z from the eye.
  const double x = p[0] - eye[0], y = p[1] - eye[1], depth = eye[2] - p[2];
  const int px = int(std::floor((x * f / aspect / depth + 1.0) * 0.5 * width));
  const int py = int(std::floor((1.0 - y * f / depth) * 0.5 * height));
  box.x0 = std::min(box.x0, px), box.x1 = std::max(box.x1, px);
  box.y0 = std::min(box.y0, py), box.y1 = std::max(box.y1, py);
  ++box.count;
}

// The pixel box of every CV in the JSON lines at `path`.
Found projectedCVs(const std::string& path) {
  Found box;
  const std::string text = readText(path);
  for (size_t at = text.find("\"cvs\":["); at != std::string::npos; at = text.find("\"cvs\":[", at + 1)) {
    const size_t end = text.find("]]", at);
    std::vector<double> v;
    for (size_t i = at + 7; i < end;) {
      char* stop = nullptr;
      const double value = std::strtod(text.c_str() + i, &stop);
      if (stop == text.c_str() + i) {
        ++i;
        continue;
      }
      v.push_back(value);
      i = size_t(stop - text.c_str());
    }
    for (size_t k = 0; k + 2 < v.size(); k += 3) project(&v[k], box);
  }
  return box;
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
