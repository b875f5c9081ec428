#include "renderers/VrGLCache.h"

#include <algorithm>
#include <cstdio>

uint32_t VrGLCache::Mesh::add(const SgVec3T<double>& p, const SgVec3T<double>& n, const SgVec3T<double>& color) {
  Vertex v{{float(p.x), float(p.y), float(p.z)}, {float(n.x), float(n.y), float(n.z)},
           {float(color.x), float(color.y), float(color.z)}};
  vertices.push_back(v);
  return static_cast<uint32_t>(vertices.size() - 1);
}

std::string VrGLCache::key() const {
  char number[32];
  std::snprintf(number, sizeof number, "_XfaceidX_%05d", face);
  return patch + number;
}

VrGLCache& VrGLCache::operator=(VrGLCache&& other) noexcept {
  if (this == &other) return *this;
  patch = std::move(other.patch);
  face = other.face;
  for (int k = 0; k < 5; ++k) {
    *meshes[k] = std::move(*other.meshes[k]);
    // The GL names belong to this cache now.
    Mesh& from = *other.meshes[k];
    from.glArray = from.glVertexBuffer = from.glIndexBuffer = 0;
    from.glIndexCount = 0;
  }
  prims = std::move(other.prims);
  archives = std::move(other.archives);
  shaderParams = std::move(other.shaderParams);
  dirty = other.dirty;
  return *this;
}

size_t VrGLCache::vertexCount() const {
  size_t n = 0;
  for (const Mesh* mesh : meshes) n += mesh->vertices.size();
  return n;
}

void VrGLCache::append(VrGLCache&& other) {
  for (int k = 0; k < 5; ++k) {
    Mesh& to = *meshes[k];
    const Mesh& from = *other.meshes[k];
    const uint32_t shift = static_cast<uint32_t>(to.vertices.size());
    to.vertices.insert(to.vertices.end(), from.vertices.begin(), from.vertices.end());
    for (uint32_t i : from.indices) to.indices.push_back(i + shift);
  }
  const size_t firstNew = prims.size();
  const auto archiveShift = static_cast<uint32_t>(archives.size());
  archives.insert(archives.end(), other.archives.begin(), other.archives.end());
  prims.insert(prims.end(), other.prims.begin(), other.prims.end());
  for (size_t i = firstNew; i < prims.size(); ++i) {
    prims[i].firstArchive += archiveShift;
    for (int k = 0; k < 5; ++k) {
      prims[i].firstVertex[k] += static_cast<uint32_t>(meshes[k]->vertices.size() - other.meshes[k]->vertices.size());
      prims[i].firstIndex[k] += static_cast<uint32_t>(meshes[k]->indices.size() - other.meshes[k]->indices.size());
    }
  }
  shaderParams.insert(shaderParams.end(), other.shaderParams.begin(), other.shaderParams.end());
  dirty = true;
}

VrGLCache::Prim& VrGLCache::beginPrim() {
  prims.emplace_back();
  Prim& prim = prims.back();
  for (int k = 0; k < 5; ++k) {
    prim.firstVertex[k] = static_cast<uint32_t>(meshes[k]->vertices.size());
    prim.firstIndex[k] = static_cast<uint32_t>(meshes[k]->indices.size());
  }
  prim.firstArchive = static_cast<uint32_t>(archives.size());
  return prim;
}

void VrGLCache::appendPrim(const VrGLCache& from, size_t index) {
  const Prim& source = from.prims[index];
  const bool last = index + 1 == from.prims.size();
  Prim& prim = beginPrim();
  const Prim kept = prim;
  prim = source;
  for (int k = 0; k < 5; ++k) {
    const Mesh& in = *from.meshes[k];
    Mesh& out = *meshes[k];
    const uint32_t vertexEnd = last ? static_cast<uint32_t>(in.vertices.size()) : from.prims[index + 1].firstVertex[k];
    const uint32_t indexEnd = last ? static_cast<uint32_t>(in.indices.size()) : from.prims[index + 1].firstIndex[k];
    prim.firstVertex[k] = kept.firstVertex[k];
    prim.firstIndex[k] = kept.firstIndex[k];
    out.vertices.insert(out.vertices.end(), in.vertices.begin() + source.firstVertex[k], in.vertices.begin() + vertexEnd);
    for (uint32_t i = source.firstIndex[k]; i < indexEnd; ++i)
      out.indices.push_back(in.indices[i] - source.firstVertex[k] + kept.firstVertex[k]);
  }
  prim.firstArchive = kept.firstArchive;
  const size_t archiveEnd = last ? from.archives.size() : from.prims[index + 1].firstArchive;
  archives.insert(archives.end(), from.archives.begin() + source.firstArchive, from.archives.begin() + archiveEnd);
  dirty = true;
}

void VrGLCache::clear() {
  for (Mesh* mesh : meshes) {
    mesh->vertices.clear();
    mesh->indices.clear();
  }
  prims.clear();
  archives.clear();
  shaderParams.clear();
  dirty = true;
}

void VrGLCache::addCurve(Mesh& mesh, const std::vector<SgVec3T<double>>& points, const SgVec3T<double>& color) {
  const size_t n = points.size();
  if (n < 2) return;
  const uint32_t first = static_cast<uint32_t>(mesh.vertices.size());
  for (size_t i = 0; i < n; ++i) {
    SgVec3T<double> tangent = points[std::min(i + 1, n - 1)] - points[i > 0 ? i - 1 : 0];
    tangent.normalize();
    mesh.add(points[i], tangent, color);
  }
  for (uint32_t i = 0; i + 1 < n; ++i) {
    mesh.indices.push_back(first + i);
    mesh.indices.push_back(first + i + 1);
  }
}

void VrGLCache::addQuad(const SgVec3T<double>& a, const SgVec3T<double>& b, const SgVec3T<double>& c,
                        const SgVec3T<double>& d, const SgVec3T<double>& color) {
  SgVec3T<double> n = (c - a).cross(d - b);
  n.normalize();
  const uint32_t i = triangles.add(a, n, color);
  triangles.add(b, n, color);
  triangles.add(c, n, color);
  triangles.add(d, n, color);
  for (uint32_t k : {0u, 1u, 2u, 0u, 2u, 3u}) triangles.indices.push_back(i + k);
}

namespace {
// The eight corners of a box, bit k of the index choosing edge k.
SgVec3T<double> boxCorner(const SgVec3T<double>& corner, const SgVec3T<double> edges[3], int bits) {
  SgVec3T<double> p = corner;
  for (int k = 0; k < 3; ++k)
    if (bits & (1 << k)) p = p + edges[k];
  return p;
}
}  // namespace

void VrGLCache::addBoxEdges(Mesh& mesh, const SgVec3T<double>& corner, const SgVec3T<double> edges[3],
                            const SgVec3T<double>& color) {
  for (int bits = 0; bits < 8; ++bits)
    for (int k = 0; k < 3; ++k) {
      if (bits & (1 << k)) continue;
      std::vector<SgVec3T<double>> edge = {boxCorner(corner, edges, bits), boxCorner(corner, edges, bits | (1 << k))};
      addCurve(mesh, edge, color);
    }
}
