// Writes the collar of the bundled collision example, examples/collar/collar.abc: a closed
// polygon torus "collarShape" lying round the rim of the example scalp (a dome of radius 1 over
// y >= 0): centre line a circle of radius `major` in the plane y = `height`, tube radius
// `minor` (clear of the scalp by 0.03), n quads around the circle and m around the tube. One
// sample, at frame 1 of 24 per second.
//
//   vorn_make_example_collar OUT.abc [n m]      (n, m default to 32 and 8)

#include "tools/examplemesh/exampleMeshFile.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <vector>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: vorn_make_example_collar OUT.abc [n m]\n";
    return 2;
  }
  const int n = argc > 3 ? std::atoi(argv[2]) : 32;
  const int m = argc > 3 ? std::atoi(argv[3]) : 8;
  if (n < 3 || m < 3 || n > 1000 || m > 1000) {
    std::cerr << "vorn_make_example_collar: n and m must be 3 to 1000\n";
    return 2;
  }
  const double major = 1.14, minor = 0.12, height = 0.15;
  std::vector<float> points;
  std::vector<int32_t> counts, indices;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < m; ++j) {
      const double a = 2.0 * M_PI * i / n, b = 2.0 * M_PI * j / m;
      const double radius = major + minor * std::cos(b);
      points.insert(points.end(), {static_cast<float>(radius * std::cos(a)), static_cast<float>(height + minor * std::sin(b)),
                                   static_cast<float>(radius * std::sin(a))});
    }
  // Wound so that normals point out of the tube.
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < m; ++j) {
      const int i1 = (i + 1) % n, j1 = (j + 1) % m;
      counts.push_back(4);
      indices.insert(indices.end(), {i * m + j, i * m + j1, i1 * m + j1, i1 * m + j});
    }

  return writeExampleMesh(argv[1], "vorn_make_example_collar", "collarShape",
                          VrAbcMeshWriter::Kind::PolyMesh, points, counts, indices) ? 0 : 1;
}
