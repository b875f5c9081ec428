#pragma once
// SgCurve: polyline and uniform cubic B-spline helpers for primitive spines. It holds no data: every
// operation is static and works in place on the caller's vector of control points, so it is safe
// from any thread on distinct curves. Parameters t run over [0, 1] along the whole curve; lengths are
// in the units of the points.

#include <cstddef>
#include <vector>

#include "geometry/SgVec3T.h"

class SgCurve {
 public:
  using Vec = SgVec3T<double>;
  using Points = std::vector<Vec>;

  /// Point of the uniform cubic B-spline over the control points at t in [0, 1]. The ends are
  /// interpolated through phantom points 2·P[0] − P[1] and 2·P[n−1] − P[n−2]. One point gives that
  /// point; none gives (0,0,0).
  static void eval(const Points& pts, double t, Vec& out);
  static void eval(const Vec* pts, size_t count, double t, Vec& out);
  static Vec eval(const Points& pts, double t) {
    Vec out;
    eval(pts, t, out);
    return out;
  }

  /// Length of the B-spline, summed over 2n + 4 chords.
  static double length(const Points& pts);
  /// Length of the control polygon; `segLengths` receives the n − 1 segment lengths.
  static double cpolyLength(const Points& pts, std::vector<double>& segLengths);

  /// Parallel-transport frame: starting from tangent `tangent0` and normal `normal0` (unit and
  /// perpendicular), the normal is carried from segment to segment by the rotation between tangents.
  /// `normals` and `binormals` (normal × tangent, unit) get one entry per point.
  static void frame(const Points& pts, const Vec& tangent0, const Vec& normal0, Points& normals,
                    Points& binormals);

  /// The curve moved to start at `root`: out[0] = root, and the part of root − P[0] across
  /// `tangent0` is carried along the curve by parallel transport (half turns at each joint).
  /// A root within 1e-4 of P[0] gives the curve itself.
  static void spaceCurve(const Points& pts, const Vec& tangent0, const Vec& root, Points& out);

  /// Moves the interior points to equal spacing along the control polygon; the ends stay. A curve
  /// whose segments are all within 1e-4 of the mean is left as it is.
  static void normalize(Points& pts);

  /// Resamples to max(count, 3) points on the B-spline, keeping the exact first and last points.
  /// `uniform`: equal steps of control-polygon arc (falls back to equal parameter steps for a
  /// polygon shorter than 1e-5); otherwise equal parameter steps. `widths`, when given with one
  /// entry per source point, is resampled along; otherwise it is left alone. An empty curve stays
  /// empty.
  static void rebuild(Points& pts, int count, bool uniform, std::vector<float>* widths = nullptr);
  /// As above, reading `source` and writing `pts`.
  static void rebuild(Points& pts, const Points& source, int count, bool uniform,
                      std::vector<float>* widths = nullptr);
  /// `rebuild` of points evenly spaced on the line from `first` to `last`, either way, in closed
  /// form: the spline through such points is the line itself, so the result is the line's
  /// max(count, 3) evenly spaced points (to the lowest bits of the spline's arithmetic).
  static void rebuildLine(Points& pts, const Vec& first, const Vec& last, int count);

  /// Refines by quadratic pieces between segment midpoints, `levels` + 1 points per interior point;
  /// the ends stay. Nothing for levels < 1 or fewer than two points.
  static void subdivide(Points& pts, int levels);

  /// Shortens the curve to the part over [0, t] (t clamped to [0, 1]) keeping the point count.
  /// `resample`: points are re-spread over the kept part (no heap work up to 1000 points);
  /// otherwise the points past the cut collapse onto the new tip and the last kept span is pulled
  /// in. Curves of fewer than two points are left alone.
  static void cut(Points& pts, double t, bool resample);
  /// Cuts the curve to arc length `length` from the root; returns the parameter cut at (0 when the
  /// length is below 1e-10 and every point collapses onto the root, 1 when the curve is shorter).
  static double cutToLength(Points& pts, double length, bool resample);
  /// Removes arc length `length` from the tip; returns the parameter cut at (1 for a length below
  /// 1e-10; 0 with every point on the root when the curve is not longer than `length`).
  static double cutFromTip(Points& pts, double length, bool resample);

  /// Scales the curve about its root to `length`. A negative `currentLength` is measured with
  /// length(); a current length of 0, or one within 1e-4 of the target, changes nothing.
  static void setLength(Points& pts, double length, double currentLength = -1.0);
  /// Scales every segment vector from `startIndex` on by `scale`; the point at startIndex stays.
  static void scalePoly(Points& pts, double scale, int startIndex = 0);
};
