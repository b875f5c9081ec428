#pragma once
// What the tests of `vorn preview` and `vorn view` share: the head example at a low density with
// a previewer of the test's own, a camera in front of the scalp and where it puts a point
// (worked out without GL), and the pixels of a picture that pass a colour test.

#include "io/VrPngFile.h"
#include "support/Examples.h"
#include "support/RenderLines.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace vrtest::previewshots {

inline const std::string exampleDir = std::string(VORN_SOURCE_DIR) + "/examples/head";
inline const std::string geometry = exampleDir + "/head.abc";
constexpr unsigned width = 320, height = 180;
// In front of the scalp (x and z in [-1, 1], y in [0, 1]), looking at it; and the same eye
// looking the other way.
inline const std::string camera = "0,0.5,6,0,0.5,0,30";
inline const std::string cameraAway = "0,0.5,6,0,0.5,12,30";
inline const unsigned char background[3] = {158, 168, 184};

// The example at a low density, with `previewer` as its GLRenderer block's attributes and
// `generator` lines added to its generator's block.
inline std::string collection(const vrtest::TempDir& dir, const std::string& previewer, const std::string& generator = "") {
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

inline bool isBackground(const unsigned char* p) { return p[0] == background[0] && p[1] == background[1] && p[2] == background[2]; }
inline bool isGreen(const unsigned char* p) { return p[1] > 60 && p[0] < 30 && p[2] < 30; }
inline bool isOutline(const unsigned char* p) { return p[0] > 150 && p[2] > 150 && p[1] < 60; }

// Where `camera`'s numbers (eye, target, vertical angle; up is +y) put a point, in pixels from
// the picture's top left, worked out here without GL.
inline void pixelOf(const double p[3], double& px, double& py) {
  const double eye[3] = {0, 0.5, 6}, fov = 30.0 * 3.14159265358979323846 / 180.0;
  const double f = 1.0 / std::tan(fov / 2), aspect = double(width) / height;
  // The camera looks down -z from the eye.
  const double x = p[0] - eye[0], y = p[1] - eye[1], depth = eye[2] - p[2];
  px = (x * f / aspect / depth + 1.0) * 0.5 * width;
  py = (1.0 - y * f / depth) * 0.5 * height;
}

// Grows `box` by the pixel `p` falls in.
inline void project(const double p[3], Found& box) {
  double x = 0.0, y = 0.0;
  pixelOf(p, x, y);
  const int px = int(std::floor(x)), py = int(std::floor(y));
  box.x0 = std::min(box.x0, px), box.x1 = std::max(box.x1, px);
  box.y0 = std::min(box.y0, py), box.y1 = std::max(box.y1, py);
  ++box.count;
}

// The lines `vorn render` wrote to `path`.
inline std::vector<RenderLine> readHairs(const std::string& path) { return parseRenderLines(readText(path)); }

// The pixel box of every CV in the JSON lines at `path`.
inline Found projectedCVs(const std::string& path) {
  Found box;
  for (const RenderLine& hair : readHairs(path))
    for (size_t k = 0; k + 2 < hair.cvs.size(); k += 3) project(&hair.cvs[k], box);
  return box;
}

}  // namespace vrtest::previewshots
