#pragma once
// SgSubdSurface: evaluator of a Catmull-Clark subdivision surface given by its cage (float
// positions, vertices per face, face vertex lists): limit points, derivatives and curvatures,
// texture coordinates, areas and lengths from the cage, sub-areas from the limit surface,
// bounding boxes and the mapping between the two face numberings. It owns one subdivision
// evaluator and nothing else; not copyable.
//
// Face numberings. Logical faces are the cage faces, in the order given. Original faces are the
// four-cornered faces that are evaluated: a quad cage face is one original face; an n-sided
// face (n != 4) becomes n quads, sub-face k having the corners (vertex k, midpoint of edge
// (k, k+1), face centre, midpoint of edge (k-1, k)), u running from vertex k towards the next
// vertex and v towards the previous one. Original ids follow the cage order: a cage face's first
// original id is the sum of the original counts (1 or n) of the faces before it, its sub-faces
// follow in corner order. The numbering depends on the face sizes only, so it is the same on
// every run and every machine.
//
// Modes. Built without a cage face count, the surface uses logical ids: every face argument is
// a logical face in [0, nFaces()). On a logical n-sided face the parameter square is cut into n
// strips along u, strip k = min(floor(u n), n - 1) being sub-face k with u' = u n - k, v' = v.
// Built with a cage face count >= 1, the surface evaluates on its cage's four-cornered faces:
// every face argument is an original face in [0, nFaces()).
//
// Threads: after construction every const operation is safe from many threads at once (all
// faces are prepared at build). `updateVerts` must not run concurrently with anything else.
// Parameters u, v, t are in [0, 1]; a face id or parameter out of range answers false or 0.

#include "geometry/SgBox3T.h"
#include "geometry/SgSurface.h"
#include "geometry/SgVec3T.h"

#include <iosfwd>
#include <memory>
#include <vector>

class SgSubdEvaluatorImpl;

class SgSubdSurface : public SgSurface {
 public:
  /// @name Construction
  /// @{
  /// An empty surface: no faces, every query answers false or 0.
  SgSubdSurface();
  /// Builds from the cage: nVerts positions (3 floats each), nFaces faces with nVertsPerFace[f]
  /// vertices each (>= 3), listed face after face in faceVerts. cageFaceCount >= 1 switches to
  /// cage face evaluation (see above) and is kept. A malformed cage (an index out of range, a
  /// face of fewer than three or repeated vertices, a topology the evaluator refuses) leaves
  /// the surface empty; `isValid` tells.
  SgSubdSurface(int nVerts, const float* verts, int nFaces, const int* nVertsPerFace,
                const int* faceVerts, int cageFaceCount = 0);
  /// The same with texture coordinates: nUVs pairs of floats in uvs; uvCounts gives each face's
  /// UV count (it must equal nVertsPerFace; null means equal) and uvIndices one index into uvs
  /// per face-vertex (null means the vertex indices). UVs that do not fit are dropped, and
  /// `evalUV` then answers false.
  SgSubdSurface(int nVerts, const float* verts, int nFaces, const int* nVertsPerFace,
                const int* faceVerts, int nUVs, const float* uvs, const int* uvCounts,
                const int* uvIndices, int cageFaceCount = 0);
  SgSubdSurface(SgSubdSurface&& other) noexcept;
  SgSubdSurface& operator=(SgSubdSurface&& other) noexcept;
  SgSubdSurface(const SgSubdSurface&) = delete;
  SgSubdSurface& operator=(const SgSubdSurface&) = delete;
  ~SgSubdSurface() override;

  /// False for an empty surface (default-constructed or from a malformed cage).
  bool isValid() const { return impl != nullptr; }
  /// True when face arguments are logical ids; false on cage face evaluation (face arguments
  /// are then original ids) and on an empty surface.
  bool useLogicalIds() const;
  bool isCageFaceEvaluation() const;
  /// The cage face count given at construction (0 when none was given).
  int cageFaceCount() const;
  /// @}

  /// @name Limit surface evaluation (face in [0, nFaces()), u, v in [0, 1])
  /// @{
  /// Limit point and derivatives with respect to the face's (u, v). False for a bad face or
  /// parameter, or a face without a limit surface. Near extraordinary vertices the limit is
  /// represented by Gregory patches whose derivatives are the usual approximation: close to,
  /// but not exactly, the derivatives of P (typically within 1-2%); elsewhere they are exact.
  bool eval(int face, double u, double v, SgVec3T<double>& P, SgVec3T<double>& dPdu,
            SgVec3T<double>& dPdv) const;
  /// Texture coordinates (s, t), bilinear over the four-cornered face; false without UVs.
  bool evalUV(int face, double u, double v, double& s, double& t) const;
  /// Principal curvatures k1 >= k2 from the first and second derivatives; their sign follows
  /// the normal dPdu x dPdv. False as `eval`, or where the tangents are degenerate.
  bool evalCurvature(int face, double u, double v, double& k1, double& k2) const;
  /// @}

  /// @name Areas and lengths
  /// @{
  /// Area from the cage: for each original face of `face`, a quarter of the summed lengths of
  /// its four corner cross products. 0 for a face at or above the face count.
  double area(int face) const;
  /// Length across the cage at constant u = t: summed over the original faces of `face` (corners
  /// c0..c3), the segments from lerp(c0, c1, t) to lerp(c3, c2, t). 0 for a bad face or t.
  double lengthU(int face, double t) const;
  /// Likewise the segments from lerp(c0, c3, t) to lerp(c1, c2, t).
  double lengthV(int face, double t) const;
  /// Areas of the cells of an n x n parameter grid over the face's limit surface, with
  /// n = 2^ceil(log2(2 grid)) (grid in [1, 2048]; larger values are taken as 2048): nu = nv = n,
  /// areas[j * n + i] is cell (i, j), two triangles whose lengths are taken in float precision.
  /// Answers the total; 0 with empty areas and nu = nv = 0 for a bad face or grid.
  double calculateSubAreas(int face, int grid, int& nu, int& nv, std::vector<double>& areas) const;
  /// @}

  /// @name Bounding boxes (invalid boxes for a bad face or an empty surface)
  /// @{
  /// Box of the cage vertices, which holds the whole limit surface.
  SgBox3T<double> cageBoundingBox() const;
  /// Box of the patch points of the face's limit surface, which hold that surface.
  SgBox3T<double> faceBoundingBox(int face) const;
  /// Union of the boxes of the listed faces; bad ids take no part.
  SgBox3T<double> faceSetBoundingBox(const std::vector<int>& faces) const;
  /// @}

  /// @name Cage access
  /// @{
  /// Number of faces that face arguments address; with `original`, of original faces.
  int nFaces(bool original = false) const;
  /// Number of cage vertices; with `original`, of the mesh of original faces (the cage's plus
  /// a centre per n-sided face and a midpoint per edge of one).
  int nVerts(bool original = false) const;
  /// Length of the face vertex list.
  int nFaceVerts() const;
  /// Vertex count of each cage (logical) face; null when there are none.
  const int* nVertsPerFace() const;
  /// The vertex list of logical (cage) face `face`, continuing with the following faces; null
  /// for a bad face.
  const int* faceVerts(int face = 0) const;
  /// Position of cage vertex `vertex` (3 floats), continuing with the following vertices; null
  /// for a bad vertex.
  const float* verts(unsigned vertex = 0) const;
  /// Limit position of cage vertex `vertex` (3 floats), continuing with the following vertices;
  /// null for a bad vertex.
  const float* limitVerts(unsigned vertex = 0) const;
  /// Replaces the positions of cage vertices [first, first + count) with 3 floats each; the
  /// topology and both numberings stay. False, with nothing changed, for a bad range.
  bool updateVerts(const float* positions, int first, int count);
  /// Writes the cage as text (counts; positions; face sizes; face vertices), one line each
  /// beginning with two tabs. False for an empty surface or a failed stream.
  bool exportToStream(std::ostream& out) const;
  /// @}

  /// @name Face numberings (the same in both modes)
  /// @{
  /// Appends the original ids of logical face `face` (one for a quad, n for an n-sided face);
  /// `ids` is emptied first when `clear` is set. False for a bad face.
  bool logicalToOrig(int face, std::vector<int>& ids, bool clear) const;
  /// Appends the logical face of original face `face`; `ids` is emptied first when `clear` is
  /// set. False for a bad face.
  bool origToLogical(int face, std::vector<int>& ids, bool clear) const;
  /// @}

 private:
  /// The original faces a face argument stands for, [first, first + count); false for a bad face.
  bool origRange(int face, int& first, int& count) const;

  std::unique_ptr<SgSubdEvaluatorImpl> impl;
};
