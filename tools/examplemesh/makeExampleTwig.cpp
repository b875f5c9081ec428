// Writes the twig of the bundled card example, examples/leaves/twig.abc: a closed polygon tube
// "twigShape" along a gentle arch, n rings of m quads, thinning from the base to the tip, capped
// at neither end (the leaves grow on its side). One sample, at frame 1 of 24 per second.
//
//   vorn_make_example_twig OUT.abc [n m]      (n, m default to 24 and 8)

#include "tools/examplemesh/exampleMeshFile.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <vector>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: vorn_make_example_twig OUT.abc [n m]\n";
    return 2;
  }
  const int n = argc > 3 ? std::atoi(argv[2]) : 24;
  const int m = argc > 3 ? std::atoi(argv[3]) : 8;
  if (n < 1 || m < 3 || n > 1000 || m > 1000) {
    std::cerr << "vorn_make_example_twig: n must be 1 to 1000 and m 3 to 1000\n";
    return 2;
  }
  // The centre line rises along y and leans over along x; the tube's rings stand square to it.
  const double length = 1.5, lean = 0.35, baseRadius = 0.035, tipRadius = 0.012;
  std::vector<float> points;
  std::vector<int32_t> counts, indices;
  for (int i = 0; i <= n; ++i) {
    const double t = static_cast<double>(i) / n;
    const double cx = lean * t * t, cy = length * t;
    // Tangent (2 lean t, length, 0) and the ring's two axes: z, and the normal in the xy plane.
    double tx = 2.0 * lean * t, ty = length;
    const double norm = std::sqrt(tx * tx + ty * ty);
    tx /= norm;
    ty /= norm;
    const double radius = baseRadius + (tipRadius - baseRadius) * t;
    for (int j = 0; j < m; ++j) {
      const double a = 2.0 * M_PI * j / m;
      const double across = radius * std::cos(a), depth = radius * std::sin(a);
      points.insert(points.end(), {static_cast<float>(cx + across * ty), static_cast<float>(cy - across * tx),
                                   static_cast<float>(depth)});
    }
  }
  // Wound so that normals point out of the tube.
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < m; ++j) {
      const int j1 = (j + 1) % m;
      counts.push_back(4);
      indices.insert(indices.end(), {i * m + j, (i + 1) * m + j, (i + 1) * m + j1, i * m + j1});
    }

  return writeExampleMesh(argv[1], "vorn_make_example_twig", "twigShape",
                          VrAbcMeshWriter::Kind::PolyMesh, points, counts, indices) ? 0 : 1;
}
