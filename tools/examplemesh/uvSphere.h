#pragma once
// A UV sphere of radius 1 about the origin: `segments` faces around the y axis and `rings` from
// pole to pole, triangles at the poles and quads between, segments x rings faces in all, wound
// so that normals point away from the centre. Point 0 is the north pole, then rings - 1 circles
// of `segments` points, then the south pole.

#include <cmath>
#include <cstdint>
#include <vector>

inline void uvSphere(int segments, int rings, std::vector<float>& points, std::vector<int32_t>& counts,
                     std::vector<int32_t>& indices) {
  points = {0.0f, 1.0f, 0.0f};
  counts.clear();
  indices.clear();
  for (int r = 1; r < rings; ++r)
    for (int s = 0; s < segments; ++s) {
      const double theta = M_PI * r / rings, phi = 2.0 * M_PI * s / segments;
      points.insert(points.end(), {static_cast<float>(std::sin(theta) * std::cos(phi)),
                                   static_cast<float>(std::cos(theta)),
                                   static_cast<float>(std::sin(theta) * std::sin(phi))});
    }
  points.insert(points.end(), {0.0f, -1.0f, 0.0f});
  const int south = static_cast<int>(points.size() / 3) - 1;
  auto ringPoint = [&](int r, int s) { return 1 + (r - 1) * segments + s % segments; };
  for (int s = 0; s < segments; ++s) {
    counts.push_back(3);
    indices.insert(indices.end(), {0, ringPoint(1, s + 1), ringPoint(1, s)});
  }
  for (int r = 1; r + 1 < rings; ++r)
    for (int s = 0; s < segments; ++s) {
      counts.push_back(4);
      indices.insert(indices.end(), {ringPoint(r, s), ringPoint(r, s + 1), ringPoint(r + 1, s + 1), ringPoint(r + 1, s)});
    }
  for (int s = 0; s < segments; ++s) {
    counts.push_back(3);
    indices.insert(indices.end(), {south, ringPoint(rings - 1, s), ringPoint(rings - 1, s + 1)});
  }
}
