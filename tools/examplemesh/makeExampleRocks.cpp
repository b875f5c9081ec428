// Writes the archives of examples/archives: two kinds of rock, each at three levels of detail,
// as small polygon meshes standing on the origin (y up, about one unit across):
//
//   pebble_hi.abc pebble_med.abc pebble_lo.abc   a round stone
//   slab_hi.abc   slab_med.abc   slab_lo.abc     a flat one
//
// High is an icosahedron with every triangle cut in four, medium the icosahedron, low an
// octahedron; every point is pushed in or out by a fixed hash of its direction, so that the
// stones look knocked about yet the files are the same at every run. One sample, at frame 1 of
// 24 per second.
//
//   vorn_make_example_rocks OUTDIR

#include "tools/examplemesh/exampleMeshFile.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using Point = std::array<double, 3>;

struct Polyhedron {
  std::vector<Point> points;
  std::vector<std::array<int32_t, 3>> triangles;
};

Point unit(const Point& p) {
  const double length = std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
  return {p[0] / length, p[1] / length, p[2] / length};
}

Polyhedron octahedron() {
  Polyhedron o;
  o.points = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
  o.triangles = {{0, 2, 4}, {4, 2, 1}, {1, 2, 5}, {5, 2, 0}, {4, 3, 0}, {1, 3, 4}, {5, 3, 1}, {0, 3, 5}};
  return o;
}

Polyhedron icosahedron() {
  const double t = (1.0 + std::sqrt(5.0)) / 2.0;
  Polyhedron ico;
  for (const Point& p : std::vector<Point>{{-1, t, 0}, {1, t, 0}, {-1, -t, 0}, {1, -t, 0}, {0, -1, t}, {0, 1, t},
                                          {0, -1, -t}, {0, 1, -t}, {t, 0, -1}, {t, 0, 1}, {-t, 0, -1}, {-t, 0, 1}})
    ico.points.push_back(unit(p));
  ico.triangles = {{0, 11, 5}, {0, 5, 1},  {0, 1, 7},   {0, 7, 10}, {0, 10, 11}, {1, 5, 9}, {5, 11, 4},
                   {11, 10, 2}, {10, 7, 6}, {7, 1, 8},   {3, 9, 4},  {3, 4, 2},   {3, 2, 6}, {3, 6, 8},
                   {3, 8, 9},  {4, 9, 5},  {2, 4, 11},  {6, 2, 10}, {8, 6, 7},   {9, 8, 1}};
  return ico;
}

// Every triangle cut in four, the new points on the unit sphere.
Polyhedron subdivided(const Polyhedron& in) {
  Polyhedron out;
  out.points = in.points;
  std::map<std::pair<int32_t, int32_t>, int32_t> middles;
  auto middle = [&](int32_t a, int32_t b) {
    const auto key = std::make_pair(std::min(a, b), std::max(a, b));
    auto found = middles.find(key);
    if (found != middles.end()) return found->second;
    const Point& p = out.points[static_cast<size_t>(a)];
    const Point& q = out.points[static_cast<size_t>(b)];
    out.points.push_back(unit({p[0] + q[0], p[1] + q[1], p[2] + q[2]}));
    const int32_t index = static_cast<int32_t>(out.points.size() - 1);
    middles.emplace(key, index);
    return index;
  };
  for (const auto& t : in.triangles) {
    const int32_t ab = middle(t[0], t[1]), bc = middle(t[1], t[2]), ca = middle(t[2], t[0]);
    out.triangles.push_back({t[0], ab, ca});
    out.triangles.push_back({t[1], bc, ab});
    out.triangles.push_back({t[2], ca, bc});
    out.triangles.push_back({ab, bc, ca});
  }
  return out;
}

// A radius between 0.8 and 1.0 that depends only on the direction.
double bump(const Point& p) {
  const double h = std::sin(p[0] * 12.9898 + p[1] * 78.233 + p[2] * 37.719) * 43758.5453;
  return 0.8 + 0.2 * (h - std::floor(h));
}

bool writeRock(const std::string& path, const Polyhedron& shape, double flatten) {
  std::vector<float> points;
  for (const Point& p : shape.points) {
    const double r = 0.5 * bump(p);
    // Resting on the origin: the lowest point of the unit sphere at y = 0.
    points.insert(points.end(), {static_cast<float>(p[0] * r), static_cast<float>((p[1] * r + 0.5) * flatten),
                                 static_cast<float>(p[2] * r)});
  }
  std::vector<int32_t> counts(shape.triangles.size(), 3), indices;
  for (const auto& t : shape.triangles) indices.insert(indices.end(), t.begin(), t.end());

  return writeExampleMesh(path, "vorn_make_example_rocks", "rockShape",
                          VrAbcMeshWriter::Kind::PolyMesh, points, counts, indices);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: vorn_make_example_rocks OUTDIR\n";
    return 2;
  }
  const std::string dir = std::string(argv[1]) + "/";
  const Polyhedron ico = icosahedron();
  const std::pair<const char*, Polyhedron> levels[] = {{"hi", subdivided(ico)}, {"med", ico}, {"lo", octahedron()}};
  const std::pair<const char*, double> kinds[] = {{"pebble", 1.0}, {"slab", 0.4}};
  for (const auto& kind : kinds)
    for (const auto& level : levels)
      if (!writeRock(dir + kind.first + "_" + level.first + ".abc", level.second, kind.second)) return 1;
  return 0;
}
