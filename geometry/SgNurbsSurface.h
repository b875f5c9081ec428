#pragma once
// SgNurbsSurface: evaluator of one NURBS surface from its own knots and control vertices (CVs):
// points and first derivatives, sampled grids, iso-curve lengths, areas, the box of the CVs and a
// text form. The surface owns copies of its arrays. Everything except assignment and import is
// const and safe from many threads; `eval` allocates nothing (fixed basis buffers, degree <= 7).
//
// Parameters are knot values: u in [uMin(), uMax()], v in [vMin(), vMax()] (values outside are
// clamped to the domain). CVs are stored with the U index running fastest, 3 + w doubles each;
// a rational surface (w = 1) keeps its CVs in homogeneous form (x*w, y*w, z*w, w).
//
// Each sampled operation exists in a plain form for w = 0 and a form ending in `w` for rational
// surfaces; the plain public operation hands a rational surface to its `w` twin, and a `w` form
// called on a non-rational surface answers zero/false.

#include "geometry/SgBox3T.h"
#include "geometry/SgSurface.h"
#include "geometry/SgVec3T.h"

#include <iosfwd>
#include <vector>

/// Result of `arcLengthU`/`arcLengthV`: total length and the chords in walking order.
struct SgNurbsArcLength {
  double length = 0.0;
  int numSegments = 0;
  std::vector<double> segments;  ///< numSegments chord lengths
};

/// Result of `surfaceArea` with a holder: total area and per-cell areas, V rows outer, U fastest.
struct SgNurbsSurfaceArea {
  double area = 0.0;
  int numU = 0;
  int numV = 0;
  std::vector<double> cells;  ///< numU * numV cell areas, cell (i, j) at [j * numU + i]
};

/// Result of `mesh`: a regular grid of surface points, row j, column i at [j * nu + i].
struct SgNurbsSurfaceMesh {
  int nu = 0;
  int nv = 0;
  std::vector<SgVec3T<double>> points;
};

class SgNurbsSurface : public SgSurface {
 public:
  /// Highest supported degree in U and V: the basis buffers hold eight values per row.
  static constexpr int kMaxDegree = 7;

  /// @name Construction
  /// @{
  /// An empty surface: every operation answers zero/false.
  SgNurbsSurface();
  /// Copies the arrays: numUKnots + numVKnots knots and (3 + w) * numUCVs * numVCVs CV values.
  /// Degrees are numKnots - numCVs - 1. A surface whose data cannot be evaluated (degree outside
  /// [0, 7], decreasing knots, an empty last span, w not 0 or 1) is kept but answers zero/false.
  SgNurbsSurface(int numUKnots, const double* uKnots, int numVKnots, const double* vKnots,
                 int numUCVs, int numVCVs, const double* cvs, int w);
  SgNurbsSurface(const SgNurbsSurface& other);
  SgNurbsSurface(SgNurbsSurface&& other) noexcept;
  SgNurbsSurface& operator=(const SgNurbsSurface& other);
  SgNurbsSurface& operator=(SgNurbsSurface&& other) noexcept;
  ~SgNurbsSurface() override;
  /// @}

  /// @name Evaluation
  /// @{
  /// Point and first derivatives at (u, v); all three are zeroed first. False when the surface
  /// cannot be evaluated (or a rational weight is 0 there).
  bool eval(double u, double v, SgVec3T<double>& P, SgVec3T<double>& dPdu,
            SgVec3T<double>& dPdv) const;
  /// Point only, non-rational and rational forms.
  bool surfacePoint(double u, double v, SgVec3T<double>& P) const;
  bool surfacePointw(double u, double v, SgVec3T<double>& P) const;
  /// Point and first derivatives, non-rational and rational (quotient rule) forms.
  bool surfaceDerivs(double u, double v, SgVec3T<double>& P, SgVec3T<double>& dPdu,
                     SgVec3T<double>& dPdv) const;
  bool surfaceDerivsw(double u, double v, SgVec3T<double>& P, SgVec3T<double>& dPdu,
                      SgVec3T<double>& dPdv) const;
  /// @}

  /// @name Sampled grids, lengths and areas
  /// @{
  /// A regular nu x nv parameter grid over the whole domain into `out` (nu * nv points, row j,
  /// column i at [j * nu + i]). Basis values are computed once per column and once per row.
  /// nu, nv >= 1 (a size of 1 samples the domain's start). False on bad sizes or scratch failure.
  bool surfaceMesh(int nu, int nv, SgVec3T<double>* out) const;
  bool surfaceMeshw(int nu, int nv, SgVec3T<double>* out) const;
  /// The grid of (numUCVs * subdiv) x (numVCVs * subdiv) points into `out`; subdiv >= 1.
  bool mesh(SgNurbsSurfaceMesh& out, int subdiv) const;

  /// Length of the curve of constant u running in V: on the grid of numUCVs * subdiv columns
  /// and numVCVs * subdiv rows, column trunc((columns - 1) * t) walked by chords; t in [0, 1].
  /// With `out`, the chords are recorded (numVCVs * subdiv - 1 of them).
  double arcLengthU(double t, int subdiv, SgNurbsArcLength* out = nullptr) const;
  double arcLengthUw(double t, int subdiv, SgNurbsArcLength* out = nullptr) const;
  /// Length of the curve of constant v running in U: row trunc((rows - 1) * t); otherwise as
  /// `arcLengthU`.
  double arcLengthV(double t, int subdiv, SgNurbsArcLength* out = nullptr) const;
  double arcLengthVw(double t, int subdiv, SgNurbsArcLength* out = nullptr) const;

  /// Every row and column of the (numUCVs * subdiv) x (numVCVs * subdiv) grid at once. nu, nv
  /// receive the grid size; lengthsU[row] (nv values) is the sum of the U chords of that row,
  /// lengthsV[col] (nu values) the sum of the V chords of that column; segsU holds the U chords
  /// row by row (nv * (nu - 1)), segsV the V chords column by column (nu * (nv - 1)).
  bool getAllArcLengths(int& nu, int& nv, std::vector<double>& lengthsU,
                        std::vector<double>& lengthsV, std::vector<double>& segsU,
                        std::vector<double>& segsV, int subdiv) const;
  bool getAllArcLengthsw(int& nu, int& nv, std::vector<double>& lengthsU,
                         std::vector<double>& lengthsV, std::vector<double>& segsU,
                         std::vector<double>& segsV, int subdiv) const;

  /// Area of the sampled surface, two triangles per grid cell. Without a holder the grid is
  /// (numUCVs * subdiv) x (numVCVs * subdiv) points; with one, the cell counts are the powers of
  /// two at or above numCVs * subdiv - 1 and the cell areas are recorded.
  double surfaceArea(int subdiv, SgNurbsSurfaceArea* out = nullptr) const;
  double surfaceAreaw(int subdiv, SgNurbsSurfaceArea* out = nullptr) const;
  /// @}

  /// @name Bounds
  /// @{
  /// Box of the control vertices (after the division by the weight for a rational surface);
  /// invalid for a surface that cannot be evaluated.
  SgBox3T<double> boundingBox() const;
  SgBox3T<double> boundingBoxw() const;
  /// The same box as corners; false (and zeros) when the box is invalid.
  bool boundingBox(double& xmin, double& ymin, double& zmin, double& xmax, double& ymax,
                   double& zmax) const;
  /// @}

  /// @name Text form
  /// @{
  /// Six lines, each beginning with two tabs: knot counts; CV counts; w; U knots, V knots and
  /// CV values, each value followed by a blank. Doubles are written so that they read back
  /// exactly. Answers the stream's good state.
  bool exportToStream(std::ostream& out) const;
  /// Reads the form of `exportToStream`. Counts that are not positive, too large, a w other than
  /// 0 or 1 or a degree outside [0, 7] fail the stream; the surface only changes on success.
  /// Answers the stream's good state.
  bool importFromStream(std::istream& in);
  /// @}

  /// @name Accessors
  /// @{
  const double* uKnotVector() const { return uKnots; }
  const double* vKnotVector() const { return vKnots; }
  int numUKnots() const { return nUKnots; }
  int numVKnots() const { return nVKnots; }
  int numUControlPoints() const { return nUCVs; }
  int numVControlPoints() const { return nVCVs; }
  int uDegree() const { return degU; }
  int vDegree() const { return degV; }
  int uOrder() const { return degU + 1; }
  int vOrder() const { return degV + 1; }
  double uMin() const { return evaluable ? uKnots[degU] : 0.0; }
  double uMax() const { return evaluable ? uKnots[nUCVs] : 0.0; }
  double vMin() const { return evaluable ? vKnots[degV] : 0.0; }
  double vMax() const { return evaluable ? vKnots[nVCVs] : 0.0; }
  const double* CVs() const { return cvs; }
  int w() const { return rational; }
  /// False when the data cannot be evaluated (see the constructor).
  bool isValid() const { return evaluable; }
  /// @}

  /// @name Basis building blocks
  /// @{
  /// Knot span of u for n control points of degree p: n - 1 when u equals knots[n], otherwise
  /// the binary search for knots[span] <= u < knots[span + 1] over [p, n]. u is clamped to
  /// [knots[p], knots[n]].
  static int findSpan(int n, int p, double u, const double* knots);
  /// The p + 1 non-zero basis values at u in `span` (Cox-de Boor); p <= 7.
  static void basisFuns(int span, double u, int p, const double* knots, double N[8]);
  /// Basis values (row 0) and first derivatives (row 1) at u in `span`; p <= 7.
  static void basisFunsDers(int span, double u, int p, const double* knots, double ders[2][8]);
  /// @}

 private:
  template <bool Rational>
  bool derivsImpl(double u, double v, SgVec3T<double>& P, SgVec3T<double>* dPdu,
                  SgVec3T<double>* dPdv) const;
  template <bool Rational>
  bool gridPoints(int nu, int nv, int i0, int i1, int j0, int j1, SgVec3T<double>* out) const;
  template <bool Rational>
  double arcLengthImpl(bool alongV, double t, int subdiv, SgNurbsArcLength* out,
                       const char* opName) const;
  template <bool Rational>
  bool allArcLengthsImpl(int& nu, int& nv, std::vector<double>& lengthsU,
                         std::vector<double>& lengthsV, std::vector<double>& segsU,
                         std::vector<double>& segsV, int subdiv, const char* opName) const;
  template <bool Rational>
  double areaImpl(int subdiv, SgNurbsSurfaceArea* out, const char* opName) const;
  template <bool Rational>
  SgBox3T<double> boxImpl() const;

  void release();
  void updateValidity();

  int nUKnots = 0;
  int nVKnots = 0;
  double* uKnots = nullptr;
  double* vKnots = nullptr;
  int nUCVs = 0;
  int nVCVs = 0;
  int rational = 0;
  double* cvs = nullptr;
  int degU = 0;
  int degV = 0;
  bool evaluable = false;
};
