#include "geometry/SgCurve.h"

#include "geometry/vrutilMath.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using Vec = SgVec3T<double>;

// A rotation about a unit axis held as the cosine and sine of its angle, which parallel transport
// reads straight off the dot and cross products of two unit tangents: no angle, so no inverse
// cosine on the way in and no sine or cosine on the way out.
struct Turn {
  Vec axis;
  double cos = 1.0, sin = 0.0;

  Vec apply(const Vec& v) const { return vrutil::rotatedAbout(v, axis, cos, sin); }

  // The same axis through half the angle (which lies in [0, pi]). Each half-angle value is taken
  // from the formula that does not cancel, the other from sin = 2 sin(a/2) cos(a/2).
  Turn half() const {
    Turn h{axis};
    if (cos >= 0.0) {
      h.cos = std::sqrt(0.5 * (1.0 + cos));
      h.sin = 0.5 * sin / h.cos;
    } else {
      h.sin = std::sqrt(0.5 * (1.0 - cos));
      h.cos = 0.5 * sin / h.sin;
    }
    return h;
  }
};

// The rotation taking the unit tangent `from` onto `to`; false when there is nothing to rotate:
// the tangents (anti)parallel to within a sine of 1e-6.
inline __attribute__((always_inline)) bool turnBetween(const Vec& from, const Vec& to, Turn& turn) {
  turn.axis = from.cross(to);
  turn.sin = turn.axis.normalize();
  if (turn.sin < 1e-6) return false;
  turn.cos = std::min(1.0, std::max(-1.0, from.dot(to)));
  return true;
}

// The unit tangent of segment i; `previous` where there is none or it is shorter than 1e-6.
inline __attribute__((always_inline)) Vec segmentTangent(const std::vector<Vec>& pts, size_t i, const Vec& previous) {
  if (i + 1 < pts.size()) {
    Vec d = pts[i + 1] - pts[i];
    if (d.normalize() >= 1e-6) return d;
  }
  return previous;
}

// One step of the parallel transport of spaceCurve: the tangent of segment i and the turn onto
// it from the previous one. Inlined: as a call, each step spilled the walk's vectors to the
// stack and back.
inline __attribute__((always_inline)) bool transportStep(const std::vector<Vec>& pts, size_t i,
                                                         const Vec& prevTangent, Vec& tangent, Turn& turn) {
  tangent = segmentTangent(pts, i, prevTangent);
  return turnBetween(prevTangent, tangent, turn);
}

// Counts and indices as doubles, and back, through signed integers: the same values for any
// curve that fits in memory, in one instruction each where the unsigned conversions take several.
inline double toDouble(size_t k) { return static_cast<double>(static_cast<long long>(k)); }
inline size_t toIndex(double x) { return static_cast<size_t>(static_cast<long long>(x)); }

// The point that mirrors `next` through the end point `end`: the spline's phantom beyond an end.
inline Vec phantom(const Vec& end, const Vec& next) { return end * 2.0 - next; }

// The blend of a span's four points by their weights: of one coordinate, or of several side by
// side in the lanes of a vector, each lane doing the operations of the scalar blend in the same
// order, to the bit.
template <typename T, typename W>
inline T blendSpan(T p0, T p1, T p2, T p3, W w0, W w1, W w2, W w3) {
  return (p0 * w0 + p1 * w1 + p2 * w2 + p3 * w3) * (1.0 / 6.0);
}

// The uniform cubic B-spline weights at s in [0, 1] of the four points of a span.
struct SpanWeights {
  double w0, w1, w2, w3;
  explicit SpanWeights(double s) {
    const double s2 = s * s, s3 = s2 * s;
    w0 = (1.0 - s) * (1.0 - s) * (1.0 - s);
    w1 = 3.0 * s3 - 6.0 * s2 + 4.0;
    w2 = 3.0 * s2 - 3.0 * s3 + 3.0 * s + 1.0;
    w3 = s3;
  }
  double blend(double p0, double p1, double p2, double p3) const {
    return blendSpan(p0, p1, p2, p3, w0, w1, w2, w3);
  }
};

// The span that the spline blends at t on a curve of n > 1 points, and the position s in it.
inline size_t spanAt(size_t n, double t, double& s) {
  const double x = t * toDouble(n - 1);
  const size_t i = std::min(toIndex(x), n - 2);
  s = x - toDouble(i);
  return i;
}

// The spline through n > 0 points from `first` to `last` at t: an end point up to 1e-7 from
// either end, else the blend that `blendOfSpan(i, weights)` makes of span i. Every evaluation of
// this file goes through here.
template <typename BlendOfSpan>
inline Vec splineAt(const Vec& first, const Vec& last, size_t n, double t, BlendOfSpan blendOfSpan) {
  if (n == 1 || t < 1e-7) return first;
  if (t > 0.9999999) return last;
  double s;
  const size_t i = spanAt(n, t, s);
  return blendOfSpan(i, SpanWeights(s));
}

// The body of SgCurve::eval, for the loops of this file to inline: the span's points picked from
// the curve, a phantom standing in beyond an end.
inline void evalSpline(const Vec* pts, size_t n, double t, Vec& out) {
  if (n == 0) {
    out = Vec();
    return;
  }
  out = splineAt(pts[0], pts[n - 1], n, t, [pts, n](size_t i, const SpanWeights& w) {
    const Vec p0 = i == 0 ? phantom(pts[0], pts[1]) : pts[i - 1];
    const Vec& p1 = pts[i];
    const Vec& p2 = pts[i + 1];
    const Vec p3 = i + 2 >= n ? phantom(pts[n - 1], pts[n - 2]) : pts[i + 2];
    return Vec(w.blend(p0.x, p1.x, p2.x, p3.x), w.blend(p0.y, p1.y, p2.y, p3.y), w.blend(p0.z, p1.z, p2.z, p3.z));
  });
}

template <size_t N>
void cutResampleFixed(std::vector<Vec>& pts, double t) {
  std::array<Vec, N> work;
  std::copy(pts.begin(), pts.end(), work.begin());
  const size_t n = pts.size();
  for (size_t k = 1; k < n; ++k) SgCurve::eval(work.data(), n, static_cast<double>(k) * t / (n - 1), pts[k]);
}

}  // namespace

void SgCurve::eval(const Points& pts, double t, Vec& out) { eval(pts.data(), pts.size(), t, out); }

void SgCurve::eval(const Vec* pts, size_t n, double t, Vec& out) { evalSpline(pts, n, t, out); }

namespace {

// Whether evalSpline at t blends a span rather than answering with an end point.
inline bool inside(double t) { return t >= 1e-7 && t <= 0.9999999; }

typedef double Pair __attribute__((vector_size(16)));

// One parameter of the walk along the curve that SgCurve::length measures: the end point
// evalSpline answers with there, or the span it blends and the span's weights, each held in
// both lanes of a pair for the x and y blend.
struct LengthSample {
  enum Kind { First, Last, Blend } kind;
  size_t span;
  Pair weights[4];
};

// The walk depends on the point count alone: its parameters step by 1 / (2n + 4) from one step
// in to half a step short of the tip, and each is looked at as evalSpline looks at it.
void planLength(size_t n, std::vector<LengthSample>& plan) {
  plan.clear();
  const double step = 1.0 / static_cast<double>(2 * n + 4);
  const double end = 1.0 - step * 0.5;
  for (double t = step; t < end; t += step) {
    if (inside(t)) {
      double s;
      const size_t i = spanAt(n, t, s);
      const SpanWeights w(s);
      LengthSample sample{LengthSample::Blend, i, {}};
      const double weights[4] = {w.w0, w.w1, w.w2, w.w3};
      for (int k = 0; k < 4; ++k) sample.weights[k] = Pair{weights[k], weights[k]};
      plan.push_back(sample);
    } else {
      plan.push_back({t < 1e-7 ? LengthSample::First : LengthSample::Last, 0, {}});
    }
  }
}

// The walks of curves of up to 64 points are worked out once, on first use; longer ones each
// time, into the thread's own buffer.
const std::vector<LengthSample>& lengthPlan(size_t n) {
  constexpr size_t kept = 64;
  if (n <= kept) {
    static const std::array<std::vector<LengthSample>, kept + 1> plans = [] {
      std::array<std::vector<LengthSample>, kept + 1> made;
      for (size_t k = 2; k <= kept; ++k) planLength(k, made[k]);
      return made;
    }();
    return plans[n];
  }
  thread_local std::vector<LengthSample> plan;
  planLength(n, plan);
  return plan;
}

// Room for `count` plain values, not cleared first: on the stack up to N, else in the thread's
// one buffer for T and N, so one such array at a time.
template <typename T, size_t N>
class WorkArray {
 public:
  explicit WorkArray(size_t count) : values(stacked) {
    if (count <= N) return;
    thread_local std::vector<T> heaped;
    heaped.resize(count);
    values = heaped.data();
  }
  WorkArray(const WorkArray&) = delete;
  WorkArray& operator=(const WorkArray&) = delete;
  T& operator[](size_t i) { return values[i]; }
  const T& operator[](size_t i) const { return values[i]; }
  T* data() { return values; }
  const T* data() const { return values; }

 private:
  T stacked[N];
  T* values;
};

// The lengths of the n - 1 segments of n points into `seg`, and their sum, added from the tip
// down.
double segmentLengths(const Vec* pts, size_t n, double* seg) {
  double total = 0.0;
  for (size_t i = n > 0 ? n - 1 : 0; i-- > 0;) {
    seg[i] = (pts[i + 1] - pts[i]).length();
    total += seg[i];
  }
  return total;
}

// The points of a curve with a phantom before and after, so that span i blends points i to i + 3
// of the row: the four points of a span sit side by side and need no selection. The row is a
// copy: once made, the curve may be overwritten. A curve of one point has no phantoms and no
// spans; an empty one has no row.
class PhantomExtended {
 public:
  PhantomExtended(const Vec* pts, size_t n) : ext(n + 2) {
    if (n == 0) return;
    for (size_t i = 0; i < n; ++i) put(pts[i], ext[i + 1]);
    if (n < 2) return;
    put(phantom(pts[0], pts[1]), ext[0]);
    put(phantom(pts[n - 1], pts[n - 2]), ext[n + 1]);
  }

  // Point i of the curve.
  Vec point(size_t i) const { return Vec(ext[i + 1].x, ext[i + 1].y, ext[i + 1].z); }

  // evalSpline's blend of span `span`, x and y side by side; each weight in both lanes of a pair.
  Vec blend(size_t span, Pair w0, Pair w1, Pair w2, Pair w3) const {
    const Point* p = ext.data() + span;
    const Pair xy = blendSpan(xyOf(p[0]), xyOf(p[1]), xyOf(p[2]), xyOf(p[3]), w0, w1, w2, w3);
    const double z = blendSpan(p[0].z, p[1].z, p[2].z, p[3].z, w0[0], w1[0], w2[0], w3[0]);
    return Vec(xy[0], xy[1], z);
  }

  // evalSpline at t, to the bit, for the n > 0 points the row was made of.
  Vec at(size_t n, double t) const {
    return splineAt(point(0), point(n - 1), n, t, [this](size_t i, const SpanWeights& w) {
      return blend(i, Pair{w.w0, w.w0}, Pair{w.w1, w.w1}, Pair{w.w2, w.w2}, Pair{w.w3, w.w3});
    });
  }

 private:
  struct Point {
    double x, y, z;
  };
  static void put(const Vec& v, Point& to) { to = Point{v.x, v.y, v.z}; }
  static Pair xyOf(const Point& p) { return Pair{p.x, p.y}; }

  WorkArray<Point, 66> ext;
};

}  // namespace

double SgCurve::length(const Points& pts) {
  const size_t n = pts.size();
  if (n < 2) return 0.0;
  const PhantomExtended row(pts.data(), n);
  // Each point is evalSpline's at its parameter; the chords are added in order.
  double sum = 0.0;
  Vec prev = pts[0];
  for (const LengthSample& sample : lengthPlan(n)) {
    Vec point;
    if (sample.kind == LengthSample::Blend) {
      const Pair* w = sample.weights;
      point = row.blend(sample.span, w[0], w[1], w[2], w[3]);
    } else {
      point = sample.kind == LengthSample::First ? pts[0] : pts[n - 1];
    }
    sum += (point - prev).length();
    prev = point;
  }
  return sum + (pts[n - 1] - prev).length();
}

double SgCurve::cpolyLength(const Points& pts, std::vector<double>& segLengths) {
  const size_t n = pts.size();
  segLengths.resize(n > 0 ? n - 1 : 0);
  return segmentLengths(pts.data(), n, segLengths.data());
}

void SgCurve::frame(const Points& pts, const Vec& tangent0, const Vec& normal0, Points& normals,
                    Points& binormals) {
  const size_t n = pts.size();
  normals.resize(n);
  binormals.resize(n);
  // Three walks of the same steps: the square roots and divisions of one point do not wait for
  // those of the point before, so each walk's steps overlap in the processor, where one long walk
  // would wait on every result in turn. Only the carried normal goes from one point to the next.
  //
  // 1. The tangent of each segment, kept in `binormals` until the last walk replaces it.
  Vec tangent = tangent0;
  tangent.normalize();
  const Vec first = tangent;
  for (size_t i = 0; i < n; ++i) {
    tangent = segmentTangent(pts, i, tangent);
    binormals[i] = tangent;
  }
  // 2. The normal, carried unnormalised by the turn from each tangent to the next: turns keep
  // its length, and the square root and division then stay off the chain. Until the first turn
  // it is the starting normal as it was given.
  Vec carried = normal0;
  size_t firstTurn = n;
  for (size_t i = 0; i < n; ++i) {
    Turn turn;
    if (turnBetween(i > 0 ? binormals[i - 1] : first, binormals[i], turn)) {
      carried = turn.apply(carried);
      firstTurn = std::min(firstTurn, i);
    }
    normals[i] = carried;
  }
  // 3. Unit normals and binormals; a normal is normalised from the first turn on.
  for (size_t i = 0; i < n; ++i) {
    Vec normal = normals[i];
    if (i >= firstTurn) normal.normalize();
    normals[i] = normal;
    Vec b = normal.cross(binormals[i]);
    b.normalize();
    binormals[i] = b;
  }
}

void SgCurve::spaceCurve(const Points& pts, const Vec& tangent0, const Vec& root, Points& out) {
  const size_t n = pts.size();
  if (n == 0) {
    out.clear();
    return;
  }
  out.resize(n);
  out[0] = root;
  Vec dir = tangent0;
  dir.normalize();
  const Vec d = root - pts[0];
  if (d.length() <= 1e-4) {
    out = pts;
    return;
  }
  Vec w = d - dir * d.dot(dir);
  const double offset = w.normalize();
  Vec tangent = dir;
  for (size_t i = 0; i < n; ++i) {
    Vec next;
    Turn turn;
    const bool turns = transportStep(pts, i, tangent, next, turn);
    const Turn half = turns ? turn.half() : Turn();
    if (turns) w = half.apply(w);
    if (i > 0) out[i] = pts[i] + w * offset;
    if (turns) w = half.apply(w);
    tangent = next;
  }
}

void SgCurve::normalize(Points& pts) {
  const size_t n = pts.size();
  if (n < 3) return;
  std::vector<double> seg;
  const double total = cpolyLength(pts, seg);
  const double mean = total / static_cast<double>(n - 1);
  bool even = true;
  for (double s : seg)
    if (std::fabs(s - mean) > 1e-4) {
      even = false;
      break;
    }
  if (even) return;
  // The source is walked on a copy: each placed point becomes the new start of its segment, whose
  // length shrinks to the remainder, so that the next point on it measures from there.
  Points src = pts;
  double acc = 0.0;
  long j = -1;
  const long lastSeg = static_cast<long>(n) - 2;
  for (size_t k = 1; k + 1 < n; ++k) {
    while (mean > acc && j < lastSeg) {
      ++j;
      acc += seg[j];
    }
    acc -= mean;
    const double f = seg[j] > 0.0 ? (seg[j] - acc) / seg[j] : 0.0;
    const Vec p = src[j] + (src[j + 1] - src[j]) * f;
    src[j] = p;
    seg[j] = acc;
    pts[k] = p;
  }
}

namespace {

// The number of points a rebuild to `count` gives: never fewer than 3.
size_t rebuiltCount(int count) { return static_cast<size_t>(std::max(count, 3)); }

// rebuild of the n points at `source` into `out`, which may be the vector that holds them: the
// source is read into the row and the segment lengths before `out` is touched.
void rebuildInto(SgCurve::Points& out, const Vec* source, size_t n, int count, bool uniform,
                 std::vector<float>* widths) {
  if (n == 0) {
    out.clear();
    return;
  }
  const size_t m = rebuiltCount(count);
  const bool withWidths = widths && widths->size() == n;
  std::vector<float> newWidths;
  if (withWidths) newWidths.resize(m);
  const auto blendWidth = [&](size_t j, double f) {
    const std::vector<float>& w = *widths;
    const size_t j1 = std::min(j + 1, n - 1);
    return static_cast<float>(w[j] + f * (static_cast<double>(w[j1]) - w[j]));
  };

  const PhantomExtended row(source, n);
  const size_t segCount = n - 1;
  WorkArray<double, 64> seg(segCount);
  const double total = segmentLengths(source, n, seg.data());

  out.resize(m);
  if (uniform && total >= 1e-5) {
    const double step = total / toDouble(m - 1);
    double acc = 0.0;
    size_t j = 0;
    for (size_t k = 1; k + 1 < m; ++k) {
      acc += step;
      while (acc > seg[j] && j + 1 < segCount) {
        acc -= seg[j];
        ++j;
      }
      const double f = seg[j] > 0.0 ? std::min(1.0, acc / seg[j]) : 0.0;
      out[k] = row.at(n, (toDouble(j) + f) / toDouble(n - 1));
      if (withWidths) newWidths[k] = blendWidth(j, f);
    }
  } else {
    const double dt = 1.0 / static_cast<double>(m - 1);
    double t = 0.0;
    for (size_t k = 1; k + 1 < m; ++k) {
      t += dt;
      out[k] = row.at(n, t);
      if (withWidths) {
        const double x = t * static_cast<double>(n - 1);
        size_t j = static_cast<size_t>(std::max(0.0, x));
        if (n >= 2 && j > n - 2) j = n - 2;
        if (n < 2) j = 0;
        newWidths[k] = blendWidth(j, x - static_cast<double>(j));
      }
    }
  }
  out[0] = row.point(0);
  out[m - 1] = row.point(n - 1);
  if (withWidths) {
    newWidths[0] = (*widths)[0];
    newWidths[m - 1] = (*widths)[n - 1];
    *widths = std::move(newWidths);
  }
}

}  // namespace

void SgCurve::rebuild(Points& pts, int count, bool uniform, std::vector<float>* widths) {
  if (pts.empty()) return;
  rebuildInto(pts, pts.data(), pts.size(), count, uniform, widths);
}

void SgCurve::rebuild(Points& pts, const Points& source, int count, bool uniform, std::vector<float>* widths) {
  rebuildInto(pts, source.data(), source.size(), count, uniform, widths);
}

void SgCurve::rebuildLine(Points& pts, const Vec& first, const Vec& last, int count) {
  const size_t m = rebuiltCount(count);
  pts.resize(m);
  const Vec span = last - first;
  const double step = 1.0 / toDouble(m - 1);
  // The spline's evaluation gives an end itself for a parameter within 1e-7 of it; no interior
  // parameter comes that close below ten million points, and past that it would be a move of
  // less than 1e-7 of the line.
  for (size_t k = 1; k + 1 < m; ++k) pts[k] = first + span * (toDouble(k) * step);
  pts[0] = first;
  pts[m - 1] = last;
}

void SgCurve::subdivide(Points& pts, int levels) {
  const size_t n = pts.size();
  if (levels < 1 || n < 2) return;
  const int m = levels + 3;
  const double denom = static_cast<double>(m - 2);
  Points out;
  out.reserve(2 + (n - 2) * static_cast<size_t>(levels + 1));
  out.push_back(pts[0]);
  Vec q0 = pts[0];
  for (size_t i = 1; i + 1 < n; ++i) {
    const Vec& q1 = pts[i];
    const Vec q2 = i + 2 == n ? pts[n - 1] : (pts[i] + pts[i + 1]) * 0.5;
    for (int j = 0; j <= m - 3; ++j) {
      const double t = (j + 1) / denom, s = j / denom;
      const Vec a = q0 + (q1 - q0) * t;
      const Vec b = q1 + (q2 - q1) * t;
      out.push_back(a + (b - a) * s);
    }
    q0 = q2;
  }
  out.push_back(pts[n - 1]);
  pts.assign(out.begin(), out.end());
}

void SgCurve::cut(Points& pts, double t, bool resample) {
  const size_t n = pts.size();
  if (n < 2) return;
  t = std::min(1.0, std::max(0.0, t));
  if (resample) {
    if (n <= 10)
      cutResampleFixed<10>(pts, t);
    else if (n <= 100)
      cutResampleFixed<100>(pts, t);
    else if (n <= 1000)
      cutResampleFixed<1000>(pts, t);
    else {
      const Points work = pts;
      for (size_t k = 1; k < n; ++k) eval(work, static_cast<double>(k) * t / (n - 1), pts[k]);
    }
    return;
  }
  Vec tip;
  eval(pts, t, tip);
  if (n == 2) {  // no span to pull in: the tip is all there is
    pts[1] = tip;
    return;
  }
  const double x = t * static_cast<double>(n - 1);
  const size_t m = std::min(n, static_cast<size_t>(std::max(std::trunc(x + 2.0 - 1e-10), 3.0)));
  if (m == 3) {
    Vec half;
    eval(pts, t * 0.5, half);
    pts[1] = half * 2.0 - (tip + pts[0]) * 0.5;
    pts[2] = tip;
  } else {
    const double xf = x - 1e-10;
    const double f = xf - std::floor(xf);
    const Vec mid = (pts[m - 2] + pts[m - 3]) * 0.5;
    pts[m - 2] = mid + (pts[m - 2] - mid) * f;
    pts[m - 1] = tip;
  }
  for (size_t k = m; k < n; ++k) pts[k] = tip;
}

double SgCurve::cutToLength(Points& pts, double length, bool resample) {
  const size_t n = pts.size();
  if (n == 0) return 0.0;
  if (length < 1e-10) {
    std::fill(pts.begin() + 1, pts.end(), pts[0]);
    return 0.0;
  }
  const double step = 1.0 / static_cast<double>(2 * n + 4);
  double t = 0.0, sum = 0.0;
  Vec prev = pts[0], p;
  for (;;) {
    const double tPrev = t;
    t = std::min(1.0, t + step);
    eval(pts, t, p);
    const double chord = (p - prev).length();
    sum += chord;
    prev = p;
    if (sum >= length) {
      if (chord > 0.0) t -= (sum - length) / chord * (t - tPrev);
      break;
    }
    if (t >= 1.0) {
      cut(pts, 1.0, resample);
      return 1.0;
    }
  }
  cut(pts, std::min(t, 1.0), resample);
  return t;
}

double SgCurve::cutFromTip(Points& pts, double length, bool resample) {
  const size_t n = pts.size();
  if (n == 0) return 0.0;
  if (length < 1e-10) {
    cut(pts, 1.0, resample);
    return 1.0;
  }
  const double step = 1.0 / static_cast<double>(2 * n + 4);
  double t = 1.0, sum = 0.0;
  Vec prev = pts[n - 1], p;
  for (;;) {
    const double tPrev = t;
    t = std::max(0.0, t - step);
    eval(pts, t, p);
    const double chord = (p - prev).length();
    sum += chord;
    prev = p;
    if (sum >= length) {
      if (chord > 0.0) t += (sum - length) / chord * (tPrev - t);
      break;
    }
    if (t <= 1e-10) {
      std::fill(pts.begin() + 1, pts.end(), pts[0]);
      return 0.0;
    }
  }
  cut(pts, std::min(t, 1.0), resample);
  return t;
}

void SgCurve::setLength(Points& pts, double length, double currentLength) {
  if (currentLength < 0.0) currentLength = SgCurve::length(pts);
  if (currentLength == 0.0) return;
  if (std::fabs(currentLength - length) < 1e-4) return;
  scalePoly(pts, length / currentLength, 0);
}

void SgCurve::scalePoly(Points& pts, double scale, int startIndex) {
  const size_t n = pts.size();
  const size_t start = static_cast<size_t>(std::max(startIndex, 0));
  if (start + 1 >= n) return;
  // Moving every later point by d·(s − 1) for each segment in turn leaves the later segment
  // vectors as they were, so the moves add up to one running offset.
  Vec offset;
  Vec prevOriginal = pts[start];
  for (size_t i = start; i + 1 < n; ++i) {
    const Vec original = pts[i + 1];
    offset += (original - prevOriginal) * (scale - 1.0);
    pts[i + 1] = original + offset;
    prevOriginal = original;
  }
}
