// Writes the scalp of the bundled example, examples/head/head.abc: a subdivision mesh
// "scalpShape" made from a cube of side 2 with every face cut into n x n quads, its points
// pushed out onto the sphere of radius 1, of which the top face and the upper half of the four
// side faces are kept (all quads, a dome over the upper hemisphere). One sample, at frame 1 of
// 24 per second.
//
//   vorn_make_example_head OUT.abc [n]      (n defaults to 4)

#include "tools/examplemesh/exampleMeshFile.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace {

struct Dome {
  std::vector<float> points;
  std::vector<int32_t> counts;
  std::vector<int32_t> indices;
  std::map<std::tuple<int, int, int>, int32_t> pointIndex;  // by lattice position on the cube

  // The point at lattice position (i, j, k) of the cube, each in [0, 2n], made once.
  int32_t point(int i, int j, int k, int n) {
    const auto key = std::make_tuple(i, j, k);
    auto found = pointIndex.find(key);
    if (found != pointIndex.end()) return found->second;
    const double x = static_cast<double>(i) / n - 1.0, y = static_cast<double>(j) / n - 1.0,
                 z = static_cast<double>(k) / n - 1.0;
    const double length = std::sqrt(x * x + y * y + z * z);
    const int32_t index = static_cast<int32_t>(points.size() / 3);
    points.insert(points.end(), {static_cast<float>(x / length), static_cast<float>(y / length),
                                 static_cast<float>(z / length)});
    pointIndex.emplace(key, index);
    return index;
  }

  void quad(int32_t a, int32_t b, int32_t c, int32_t d) {
    counts.push_back(4);
    indices.insert(indices.end(), {a, b, c, d});
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: vorn_make_example_head OUT.abc [n]\n";
    return 2;
  }
  const int n = argc > 2 ? std::atoi(argv[2]) : 4;
  if (n < 1 || n > 200) {
    std::cerr << "vorn_make_example_head: n must be 1 to 200\n";
    return 2;
  }
  const int m = 2 * n;  // lattice steps along a cube edge
  Dome dome;
  // Top face (y = +1), wound so that normals point outwards.
  for (int i = 0; i < m; ++i)
    for (int k = 0; k < m; ++k)
      dome.quad(dome.point(i, m, k, n), dome.point(i, m, k + 1, n), dome.point(i + 1, m, k + 1, n),
                dome.point(i + 1, m, k, n));
  // Upper halves of the four sides: y from the equator (n) to the top (m).
  for (int j = n; j < m; ++j)
    for (int s = 0; s < m; ++s) {
      dome.quad(dome.point(s, j, m, n), dome.point(s + 1, j, m, n), dome.point(s + 1, j + 1, m, n),
                dome.point(s, j + 1, m, n));  // z = +1
      dome.quad(dome.point(m, j, m - s, n), dome.point(m, j, m - s - 1, n), dome.point(m, j + 1, m - s - 1, n),
                dome.point(m, j + 1, m - s, n));  // x = +1
      dome.quad(dome.point(m - s, j, 0, n), dome.point(m - s - 1, j, 0, n), dome.point(m - s - 1, j + 1, 0, n),
                dome.point(m - s, j + 1, 0, n));  // z = -1
      dome.quad(dome.point(0, j, s, n), dome.point(0, j, s + 1, n), dome.point(0, j + 1, s + 1, n),
                dome.point(0, j + 1, s, n));  // x = -1
    }

  return writeExampleMesh(argv[1], "vorn_make_example_head", "scalpShape",
                          VrAbcMeshWriter::Kind::SubD, dome.points, dome.counts, dome.indices) ? 0 : 1;
}
