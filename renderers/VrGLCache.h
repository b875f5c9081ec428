#pragma once
// VrGLCache: the preview data of one face of one patch (or of a patch's surface, or of the
// guides): vertices with position, normal and colour, in five meshes drawn differently. Lines
// hold hair splines and guides, with each vertex's normal slot carrying the curve's tangent so
// that a line can be lit like a thin tube; triangles hold cards, spheres, archive proxies and
// surfaces; outlines hold culled primitives and polygons hold control polygons, both drawn
// unlit; points hold CVs. Archives are not copied into the meshes: each is a placement of a
// proxy (VrGLProxy) that the previewer keeps once per set of files. Each emitted primitive also keeps a
// record (its id, whether it was culled, where it starts and ends) for selection and id labels.
//
// A cache is filled on one thread (a render worker or the calling thread) and handed to the GL
// thread whole; only the GL thread touches the buffer ids.

#include "geometry/SgVec3T.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class VrGLCache {
 public:
  VrGLCache() = default;
  VrGLCache(VrGLCache&& other) noexcept { *this = std::move(other); }
  VrGLCache& operator=(VrGLCache&& other) noexcept;
  VrGLCache(const VrGLCache&) = delete;
  VrGLCache& operator=(const VrGLCache&) = delete;

  struct Vertex {
    float position[3];
    float normal[3];
    float color[3];
  };

  /// Vertices and the indices that join them: pairs for lines, triples for triangles.
  struct Mesh {
    std::vector<Vertex> vertices;
    std::vector<uint32_t> indices;
    /// GL names of the vertex array, vertex buffer and index buffer; 0 until uploaded.
    unsigned glArray = 0, glVertexBuffer = 0, glIndexBuffer = 0;
    /// Indices uploaded, which the draw uses.
    size_t glIndexCount = 0;

    bool empty() const { return indices.empty(); }
    /// Appends a vertex and answers its index.
    uint32_t add(const SgVec3T<double>& p, const SgVec3T<double>& n, const SgVec3T<double>& color);
  };

  /// One emitted primitive.
  struct Prim {
    unsigned id = 0;
    bool culled = false;
    SgVec3T<double> first;  ///< root
    SgVec3T<double> last;   ///< tip
    SgVec3T<double> label;  ///< where its id is drawn
    /// Where its vertices and indices start in each of the five meshes; they run up to the
    /// next primitive's start (the mesh's end for the last one).
    uint32_t firstVertex[5] = {0, 0, 0, 0, 0};
    uint32_t firstIndex[5] = {0, 0, 0, 0, 0};
    uint32_t firstArchive = 0;  ///< where its archive placements start
  };

  /// An archive: the proxy of its files under its frame, or its box.
  struct Archive {
    int key = -1;          ///< the key of its files in the archive list; -1: drawn as its box
    double frame = 0.0;    ///< its archive frame, at which the files are read
    float place[16];       ///< its own space to the world, column by column (x, y, z axes, origin)
    float box[16];         ///< the unit cube to its box, the same way
    float color[3];
    int proxy = -1;        ///< the previewer's proxy, once made; -1 draws the box
  };

  std::string patch;
  int face = -1;
  Mesh lines;
  Mesh triangles;
  Mesh outlines;
  Mesh polygons;
  Mesh points;
  std::vector<Prim> prims;
  std::vector<Archive> archives;
  /// Parameters of the shader channels, one value per primitive and channel (TEXCOORD3 to 7).
  std::vector<float> shaderParams;
  /// Set when the meshes changed since the last upload.
  bool dirty = true;

  /// "<patch>_XfaceidX_<face, five digits>": the name of the face in selection.
  std::string key() const;
  /// Every mesh, for the code that treats them alike.
  Mesh* meshes[5] = {&lines, &triangles, &outlines, &polygons, &points};
  size_t vertexCount() const;
  /// Appends another cache's meshes and primitives (the indices shifted to follow).
  void append(VrGLCache&& other);
  /// Starts the record of a primitive at the current ends of the meshes; its geometry follows.
  Prim& beginPrim();
  /// Appends primitive `index` of `from`: its record and its part of every mesh.
  void appendPrim(const VrGLCache& from, size_t index);
  void clear();

  /// @name Building
  /// @{
  /// A polyline through `points`, lit as a curve.
  void addCurve(Mesh& mesh, const std::vector<SgVec3T<double>>& points, const SgVec3T<double>& color);
  /// A quad a, b, c, d (counter-clockwise) as two triangles with the normal of its corners.
  void addQuad(const SgVec3T<double>& a, const SgVec3T<double>& b, const SgVec3T<double>& c,
               const SgVec3T<double>& d, const SgVec3T<double>& color);
  /// The edges of a box given by its corner and three edge vectors into `mesh` (outline or lines).
  void addBoxEdges(Mesh& mesh, const SgVec3T<double>& corner, const SgVec3T<double> edges[3],
                   const SgVec3T<double>& color);
  /// @}
};
