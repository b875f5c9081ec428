#include "renderers/VrGLProxy.h"

#include "io/VrArchiveMesh.h"

VrGLProxy VrGLProxy::fromMesh(const VrArchiveMesh& mesh) {
  VrGLProxy proxy;
  proxy.indices = mesh.triangles();
  std::vector<SgVec3T<double>> normals(mesh.numPoints());
  auto point = [&](uint32_t i) {
    return SgVec3T<double>(mesh.positions[3 * i], mesh.positions[3 * i + 1], mesh.positions[3 * i + 2]);
  };
  for (size_t t = 0; t + 2 < proxy.indices.size(); t += 3) {
    const uint32_t a = proxy.indices[t], b = proxy.indices[t + 1], c = proxy.indices[t + 2];
    // The cross product's length is twice the area: larger faces weigh more.
    const SgVec3T<double> n = (point(b) - point(a)).cross(point(c) - point(a));
    for (uint32_t i : {a, b, c}) normals[i] = normals[i] + n;
  }
  proxy.vertices.resize(mesh.numPoints());
  for (uint32_t i = 0; i < proxy.vertices.size(); ++i) {
    normals[i].normalize();
    const SgVec3T<double> p = point(i);
    proxy.vertices[i] = {{float(p.x), float(p.y), float(p.z)},
                         {float(normals[i].x), float(normals[i].y), float(normals[i].z)}};
    proxy.box.extend(p);
  }
  return proxy;
}

VrGLProxy VrGLProxy::unitCube() {
  VrGLProxy cube;
  // Each side: its normal axis and sign, then its corners in a loop (bit k of a corner: axis k at 1).
  static const int sides[6][4] = {{0, 2, 6, 4}, {1, 5, 7, 3}, {0, 1, 3, 2}, {4, 6, 7, 5}, {0, 4, 5, 1}, {2, 3, 7, 6}};
  static const float normals[6][3] = {{-1, 0, 0}, {1, 0, 0}, {0, 0, -1}, {0, 0, 1}, {0, -1, 0}, {0, 1, 0}};
  for (int s = 0; s < 6; ++s) {
    const auto first = static_cast<uint32_t>(cube.vertices.size());
    for (int corner : sides[s]) {
      Vertex v{{float(corner & 1), float((corner >> 1) & 1), float((corner >> 2) & 1)},
               {normals[s][0], normals[s][1], normals[s][2]}};
      cube.vertices.push_back(v);
    }
    for (uint32_t k : {0u, 1u, 2u, 0u, 2u, 3u}) cube.indices.push_back(first + k);
  }
  cube.box = SgBox3T<double>(SgVec3T<double>(0, 0, 0), SgVec3T<double>(1, 1, 1));
  return cube;
}
