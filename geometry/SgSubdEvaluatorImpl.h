#pragma once
// SgSubdEvaluatorImpl: the subdivision library behind SgSubdSurface, over OpenSubdiv (Catmull-
// Clark, boundary edges and corners interpolated). Internal to the library: only SgSubdSurface
// and this class's source include it, and no other file sees OpenSubdiv.
//
// Two face numberings. Logical faces are the cage faces as given. Original faces are the four-
// cornered faces that are evaluated: a quad cage face is one original face; an n-sided face
// (n != 4) is split into n quads, sub-face k having the corners
//   c0 = vertex k, c1 = midpoint of edge (k, k+1), c2 = face centre, c3 = midpoint of edge (k-1, k),
// with u running from c0 to c1 and v from c0 to c3. Original ids follow the cage order (the Ptex
// numbering of the face's subdivision): a face's first original id is the sum of the original
// counts of the faces before it, its sub-faces follow in corner order.
//
// Threads: built once, then every const operation is safe from many threads at once, because
// every face's limit surface and patch points are prepared at build. `updateVerts` and the flag
// setters must not run concurrently with anything else.

#include <opensubdiv/bfr/surface.h>

#include <iosfwd>
#include <memory>
#include <vector>

class SgSubdEvaluatorImpl {
 public:
  using Surface = OpenSubdiv::Bfr::Surface<double>;

  /// The cage. Positions are 3 floats per vertex; faceVerts lists each face's vertices in
  /// order. Texture coordinates are optional: 2 floats per value, uvCounts per face (must equal
  /// nVertsPerFace; null means equal) and uvIndices per face-vertex (null means the face's
  /// vertex indices). UVs that do not fit the faces are dropped.
  struct Cage {
    int nVerts = 0;
    const float* verts = nullptr;
    int nFaces = 0;
    const int* nVertsPerFace = nullptr;
    const int* faceVerts = nullptr;
    int nUVs = 0;
    const float* uvs = nullptr;
    const int* uvCounts = nullptr;
    const int* uvIndices = nullptr;
  };

  /// Null when the cage is malformed: negative counts, missing arrays, a face of fewer than
  /// three vertices or a vertex index out of range, or a topology OpenSubdiv refuses.
  static std::unique_ptr<SgSubdEvaluatorImpl> build(const Cage& cage);
  ~SgSubdEvaluatorImpl();
  SgSubdEvaluatorImpl(const SgSubdEvaluatorImpl&) = delete;
  SgSubdEvaluatorImpl& operator=(const SgSubdEvaluatorImpl&) = delete;

  /// @name Modes
  /// @{
  bool useLogicalIds() const { return logicalIds; }
  void setUseLogicalIds(bool on) { logicalIds = on; }
  bool isCageFaceEvaluation() const { return cageFaceEval; }
  void setIsCageFaceEvaluation(bool on) { cageFaceEval = on; }
  int cageFaceCount() const { return cageFaces; }
  void setCageFaceCount(int count) { cageFaces = count; }
  /// @}

  /// @name Numberings
  /// @{
  int numLogicalFaces() const { return static_cast<int>(faceOffsets.size()) - 1; }
  int numOrigFaces() const { return origBase.back(); }
  /// First original id of logical face `face` and how many follow it (1 or the face size).
  int firstOrig(int face) const { return origBase[static_cast<size_t>(face)]; }
  int origCount(int face) const {
    return origBase[static_cast<size_t>(face) + 1] - origBase[static_cast<size_t>(face)];
  }
  /// The logical face of original face `orig` and its sub-face (-1 for a quad face), or -1.
  int logicalOf(int orig, int* subFace) const;
  /// @}

  /// @name Cage
  /// @{
  int numVerts() const { return static_cast<int>(positions.size() / 3); }
  /// Vertices of the mesh of original faces: the cage's plus, for the n-sided faces, one centre
  /// each and one midpoint per distinct edge.
  int numOrigVerts() const { return origVertCount; }
  int numFaceVerts() const { return static_cast<int>(faceVertIndices.size()); }
  const int* vertsPerFace() const { return faceSizes.empty() ? nullptr : faceSizes.data(); }
  const int* faceVertsOf(int face) const {
    return faceVertIndices.data() + faceOffsets[static_cast<size_t>(face)];
  }
  const float* cageVerts() const { return positions.data(); }
  const float* limitPositions() const { return limitVerts.data(); }
  /// The four corners of an original face (see the numbering above); false for a bad id.
  bool origCorners(int orig, double corners[4][3]) const;
  /// @}

  /// @name Evaluation (orig in [0, numOrigFaces()), u, v in [0, 1])
  /// @{
  /// Limit point and first derivatives with respect to the original face's (u, v); false for a
  /// bad id or parameter or a face without a limit surface.
  bool evalOrig(int orig, double u, double v, double P[3], double dPdu[3], double dPdv[3]) const;
  /// The same on logical face `face`. A quad is its own parameter square; an n-sided face's
  /// square is cut into n strips along u, strip k = min(floor(u n), n - 1) being sub-face k
  /// with local u' = u n - k, v' = v (so dP/du is n dP/du').
  bool evalLogical(int face, double u, double v, double P[3], double dPdu[3], double dPdv[3]) const;
  /// Principal curvatures (k1 >= k2) of the limit surface; the sign follows the normal
  /// dPdu x dPdv. False as `evalOrig`, or where the tangents are degenerate.
  bool curvatureOrig(int orig, double u, double v, double& k1, double& k2) const;
  bool curvatureLogical(int face, double u, double v, double& k1, double& k2) const;
  /// Texture coordinates, bilinear over the original face's corner UVs; false without UVs.
  bool uvOrig(int orig, double u, double v, double& s, double& t) const;
  bool uvLogical(int face, double u, double v, double& s, double& t) const;
  /// @}

  /// @name Bounds (min and max corners; false when there is nothing to bound)
  /// @{
  bool cageBounds(double lo[3], double hi[3]) const;
  /// Bounds of the patch points of the logical face's limit surface, which hold the surface.
  bool logicalFaceBounds(int face, double lo[3], double hi[3]) const;
  /// @}

  /// Replaces positions of vertices [first, first + count) (3 floats each) and prepares the
  /// limit surfaces again; the topology stays. False (and nothing changed) for a bad range.
  bool updateVerts(const float* newPositions, int first, int count);

  /// The cage as text: counts, positions, face sizes, face vertices, one line each.
  bool exportToStream(std::ostream& out) const;

 private:
  SgSubdEvaluatorImpl() = default;
  void preparePatchPoints();
  void findUniformBSplineFaces();
  void computeLimitVerts();
  /// evalOrig for a quad logical face, which is its own single original face; u, v already checked.
  bool evalQuad(int face, double u, double v, double P[3], double dPdu[3], double dPdv[3]) const;
  bool evalSurface(int face, const double uv[2], double P[3], double Du[3], double Dv[3],
                   double Duu[3], double Duv[3], double Dvv[3]) const;
  /// Maps an original face and its (u, v) to the logical face's surface coordinates; J holds
  /// d(surface uv)/d(u, v) as J[row][col] with rows the surface's (u, v).
  bool origToSurface(int orig, double u, double v, int& face, double uv[2], double J[2][2]) const;

  std::vector<float> positions;      // 3 per cage vertex
  std::vector<float> limitVerts;     // 3 per cage vertex
  std::vector<int> faceSizes;        // per logical face
  std::vector<int> faceOffsets;      // per logical face + 1, into faceVertIndices
  std::vector<int> faceVertIndices;  // per face-vertex
  std::vector<int> origBase;         // per logical face + 1, first original id
  std::vector<int> logicalOfOrig;    // per original face, its logical face
  std::vector<float> faceVertUVs;    // 2 per face-vertex, empty without UVs
  std::vector<Surface> surfaces;     // per logical face; invalid where no limit surface exists
  std::vector<size_t> patchOffsets;  // per logical face + 1, in points, into patchPoints
  // 3 per patch point and one of padding; not zeroed first, so that its pages are first touched
  // on the threads that fill them
  std::unique_ptr<double[]> patchPoints;
  std::vector<char> uniformBSpline;  // per logical face: an interior bicubic B-spline patch
  std::vector<int> vertexFace;       // per cage vertex: an incident face with a limit, or -1
  std::vector<int> vertexCorner;     // per cage vertex: its corner in that face
  int origVertCount = 0;
  int cageFaces = 0;
  bool logicalIds = false;
  bool cageFaceEval = false;
};
