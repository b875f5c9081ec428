#pragma once
// VrGLProxy: what the preview draws for the archives that share a set of files: the triangles of
// the files' merged meshes in the archives' own space, with smooth normals, made once and drawn
// under each archive's frame. The unit cube (corners 0 and 1) stands in for an archive whose
// files give no proxy, drawn under the matrix of its box.
//
// Like a VrGLCache, it is built on any thread and its GL names belong to the GL thread
// (VrGLDraw uploads it into buffer objects or a display list).

#include "geometry/SgBox3T.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class VrArchiveMesh;

struct VrGLProxy {
  struct Vertex {
    float position[3];
    float normal[3];
  };
  std::string source;  ///< the files it was made from (VrArchiveMesh::keyOf)
  double frame = 0.0;  ///< the archive frame it was read at
  std::vector<Vertex> vertices;
  std::vector<uint32_t> indices;  ///< triples
  SgBox3T<double> box;            ///< of the vertices

  /// GL names: vertex array and buffers, or the display list; 0 until uploaded.
  unsigned glArray = 0, glVertexBuffer = 0, glIndexBuffer = 0, glList = 0;
  size_t glIndexCount = 0;

  /// The bytes its drawing data takes (what counts against the proxy cache's bound).
  size_t bytes() const { return vertices.size() * sizeof(Vertex) + indices.size() * sizeof(uint32_t); }
  bool uploaded() const { return glArray != 0 || glList != 0; }

  /// The triangles of `mesh`; each vertex's normal is the area-weighted sum of its faces'.
  static VrGLProxy fromMesh(const VrArchiveMesh& mesh);
  /// The unit cube, each side with its own four vertices so that the sides are lit flat.
  static VrGLProxy unitCube();
};
