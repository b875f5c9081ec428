#include <gtest/gtest.h>

#include "support/ExpectNear.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "geometry/SgCurve.h"

using Vec = SgVec3T<double>;
using Points = std::vector<Vec>;

namespace {
void expectNear(const Vec& a, const Vec& b, double eps = 1e-9) { vrtest::expectNear(a, b, eps); }

// n evenly spaced points along x starting at 0, one unit apart.
Points line(int n) {
  Points p;
  for (int i = 0; i < n; ++i) p.emplace_back(i, 0, 0);
  return p;
}

// Points on the x axis at the given positions.
void expectXs(const Points& p, const std::vector<double>& xs) {
  ASSERT_EQ(p.size(), xs.size());
  for (size_t k = 0; k < xs.size(); ++k) expectNear(p[k], Vec(xs[k], 0, 0));
}
}  // namespace

TEST(SgCurve, RebuildCountsEndsAndWidths) {
  for (int count : {1, 2}) {
    Points p = {Vec(0, 0, 0), Vec(2, 0, 0)};
    std::vector<float> widths = {1.0f, 3.0f};
    SgCurve::rebuild(p, count, true, &widths);
    ASSERT_EQ(p.size(), 3u);
    ASSERT_EQ(widths.size(), 3u) << count;
    expectNear(p[1], Vec(1, 0, 0));
    EXPECT_FLOAT_EQ(widths[1], 2.0f);
    EXPECT_EQ(widths[2], 3.0f);
  }
  // Short curves are worked on the stack, long ones (past 64 segments) in the thread's buffers.
  for (int n : {20, 100}) {
    Points p = line(n);
    SgCurve::rebuild(p, 2 * n, true);
    ASSERT_EQ(p.size(), size_t(2 * n));
    for (size_t k = 0; k < p.size(); ++k) ASSERT_NEAR(p[k].x, (n - 1.0) * k / (2 * n - 1.0), 1e-9) << n << " " << k;
  }
  const Points source = line(20);

  Points q;
  SgCurve::rebuild(q, source, 5, false);
  ASSERT_EQ(q.size(), 5u);
  expectNear(q[2], Vec(9.5, 0, 0));
}

TEST(SgCurve, RebuildInPlaceAgreesWithRebuildFromASource) {
  // The in-place form overwrites the points it reads, and the aliased call passes the same
  // points twice: both give what a separate source gives, however often in a row.
  const Points bent = {Vec(0, 0, 0), Vec(1, 2, 0), Vec(3, 1, 0), Vec(4, 4, 1)};
  for (int round = 0; round < 3; ++round) {
    Points inPlace = bent, fromSource;
    SgCurve::rebuild(inPlace, 6 + round, round != 1);
    SgCurve::rebuild(fromSource, bent, 6 + round, round != 1);
    EXPECT_EQ(inPlace, fromSource);
    Points aliased = bent;
    SgCurve::rebuild(aliased, aliased, 6 + round, round != 1);
    EXPECT_EQ(aliased, fromSource);
  }
}

TEST(SgCurve, RebuildLineIsTheRebuildOfEvenlySpacedPointsOnIt) {
  const Vec first(0.25, -1.5, 2.0), last(0.3, 0.75, 2.5);
  for (int n : {2, 3, 7}) {
    Points source;
    for (int i = 0; i < n; ++i) source.push_back(first + (last - first) * (i / (n - 1.0)));
    source.back() = last;
    for (int count : {1, 3, 8, 41}) {
      for (bool uniform : {true, false}) {
        SCOPED_TRACE(std::to_string(n) + " points to " + std::to_string(count) + (uniform ? " by arc" : ""));
        Points spline, closed = {Vec(9, 9, 9)};
        SgCurve::rebuild(spline, source, count, uniform);
        SgCurve::rebuildLine(closed, first, last, count);
        ASSERT_EQ(closed.size(), spline.size());
        EXPECT_EQ(closed.front(), first);
        EXPECT_EQ(closed.back(), last);
        for (size_t k = 0; k < closed.size(); ++k) expectNear(closed[k], spline[k], 1e-14);
      }
    }
  }
}

TEST(SgCurve, Cut) {
  // t = 0 gives m = 3: everything collapses onto the start.
  Points p = {Vec(0, 0, 0), Vec(1, 2, 0), Vec(3, 1, 0), Vec(4, 4, 1), Vec(5, 5, 5)};
  SgCurve::cut(p, 0.0, false);
  EXPECT_EQ(p, Points(5, Vec()));

  p = line(5);
  SgCurve::cut(p, 0.5, false);  // x = 2, m = 3: middle point from eval(0.25)
  expectXs(p, {0, 1, 2, 2, 2});
  p = line(5);
  SgCurve::cut(p, 0.6, false);  // x = 2.4, m = 4, f = 0.4: P2 pulled from 2 to 1.7
  expectXs(p, {0, 1, 1.7, 2.4, 2.4});

  p = line(5);
  SgCurve::cut(p, 0.5, true);
  expectXs(p, {0, 0.5, 1, 1.5, 2});
  Points big = line(1200);  // beyond the fixed work arrays
  SgCurve::cut(big, 0.25, true);
  EXPECT_NEAR(big[600].x, 150.0, 1e-9);
  EXPECT_NEAR(big.back().x, 299.75, 1e-9);
}

TEST(SgCurve, CutByLength) {
  Points p = line(5);
  EXPECT_NEAR(SgCurve::cutToLength(p, 1.1, true), 0.275, 1e-12);
  EXPECT_NEAR(p.back().x, 1.1, 1e-9);
  p = line(5);
  EXPECT_NEAR(SgCurve::cutFromTip(p, 1.1, true), 0.725, 1e-12);
  EXPECT_NEAR(p.back().x, 2.9, 1e-9);

  // Longer than the curve: to the end from the root, to the root from the tip.
  p = line(5);
  EXPECT_EQ(SgCurve::cutToLength(p, 10.0, true), 1.0);
  expectXs(p, {0, 1, 2, 3, 4});
  EXPECT_EQ(SgCurve::cutFromTip(p, 10.0, false), 0.0);
  EXPECT_EQ(p, Points(5, Vec()));

  // Tiny lengths: nothing left from the root, nothing removed from the tip.
  p = line(5);
  EXPECT_EQ(SgCurve::cutToLength(p, 1e-11, false), 0.0);
  EXPECT_EQ(p, Points(5, Vec()));
  p = line(5);
  EXPECT_EQ(SgCurve::cutFromTip(p, 1e-11, false), 1.0);
  expectXs(p, {0, 1, 2, 3, 4});
}

TEST(SgCurve, NormalizeSpacing) {
  // Three new points fall on the first segment: each measures from the one before.
  Points p = {Vec(0, 0, 0), Vec(3, 0, 0), Vec(3.5, 0, 0), Vec(3.75, 0, 0), Vec(4, 0, 0)};
  SgCurve::normalize(p);
  expectXs(p, {0, 1, 2, 3, 4});

  Points bent = {Vec(0, 0, 0), Vec(1, 0, 0), Vec(1, 3, 0)};
  SgCurve::normalize(bent);
  expectNear(bent[1], Vec(1, 1, 0));
  EXPECT_EQ(bent[2], Vec(1, 3, 0));

  Points even = {Vec(0, 0, 0), Vec(1, 0, 0), Vec(1, 1.00005, 0)};
  const Points before = even;
  SgCurve::normalize(even);  // within 1e-4 of the mean: untouched
  EXPECT_EQ(even, before);
}

TEST(SgCurve, SpaceCurveCarriesOffset) {
  Points out;
  SgCurve::spaceCurve(line(4), Vec(2, 0, 0), Vec(0.5, 2, 0), out);
  EXPECT_EQ(out[0], Vec(0.5, 2, 0));  // the root itself, along-tangent part included
  for (int i = 1; i < 4; ++i) expectNear(out[i], Vec(i, 2, 0));

  // Offset on the outside of a left turn: the joint takes the bisecting direction.
  const Points bent = {Vec(0, 0, 0), Vec(1, 0, 0), Vec(1, 1, 0)};
  SgCurve::spaceCurve(bent, Vec(1, 0, 0), Vec(0, -1, 0), out);
  const double h = std::sqrt(0.5);
  expectNear(out[1], Vec(1 + h, -h, 0));
  expectNear(out[2], Vec(2, 1, 0));

  SgCurve::spaceCurve(bent, Vec(1, 0, 0), Vec(0, 5e-5, 0), out);
  EXPECT_EQ(out, bent);
}

TEST(SgCurve, Subdivide) {
  Points p = {Vec(0, 0, 0), Vec(2, 2, 0), Vec(4, 0, 0)};
  SgCurve::subdivide(p, 1);
  ASSERT_EQ(p.size(), 4u);
  expectNear(p[1], Vec(1, 1, 0));
  expectNear(p[2], Vec(3, 1, 0));
  EXPECT_EQ(p[3], Vec(4, 0, 0));

  Points q = {Vec(0, 0, 0), Vec(1, 1, 0), Vec(2, 0, 0), Vec(3, 1, 0), Vec(4, 0, 0)};
  SgCurve::subdivide(q, 2);
  EXPECT_EQ(q.size(), 11u);  // 1 + 3 interior points · 3 + 1
  EXPECT_EQ(q.back(), Vec(4, 0, 0));
  SgCurve::subdivide(q, 0);
  EXPECT_EQ(q.size(), 11u);
}

TEST(SgCurve, SetLengthAndScalePoly) {
  Points zero(4, Vec(1, 1, 1));
  SgCurve::setLength(zero, 3.0, 0.0);
  SgCurve::setLength(zero, 3.0);  // measured: still 0
  EXPECT_EQ(zero, Points(4, Vec(1, 1, 1)));

  Points p = line(3);
  SgCurve::setLength(p, 2.00005);  // within 1e-4: untouched
  EXPECT_EQ(p, line(3));
  SgCurve::setLength(p, 4.0);
  expectXs(p, {0, 2, 4});

  Points q = {Vec(0, 0, 0), Vec(1, 0, 0), Vec(1, 1, 0), Vec(1, 2, 0)};
  SgCurve::scalePoly(q, 2.0, 1);
  EXPECT_EQ(q[1], Vec(1, 0, 0));
  EXPECT_EQ(q[2], Vec(1, 2, 0));
  EXPECT_EQ(q[3], Vec(1, 4, 0));
}

// The length is the sum of chords between evaluations at steps of 1 / (2n + 4); the evaluations
// run two at a time, and must give the sum the one-by-one walk gives, to the bit.
TEST(SgCurve, LengthIsTheChordSumOfTheSteppedEvaluations) {
  uint32_t state = 12345;
  const auto next = [&state] {
    state = state * 1664525u + 1013904223u;
    return static_cast<double>(state >> 8) / static_cast<double>(1u << 24) - 0.5;
  };
  // Up to 64 points the walk is worked out once per count, beyond that per call.
  for (size_t n = 2; n <= 70; n += n < 40 ? 1 : 15) {
    Points p(n);
    for (Vec& v : p) v = Vec(next(), next(), next()) * 3.0;
    if (n % 5 == 0) p[n / 2] = p[n / 2 - 1];  // a repeated point
    const double step = 1.0 / static_cast<double>(2 * n + 4);
    double sum = 0.0;
    Vec prev = p[0], at;
    for (double t = step; t < 1.0 - step * 0.5; t += step) {
      SgCurve::eval(p, t, at);
      sum += (at - prev).length();
      prev = at;
    }
    sum += (p[n - 1] - prev).length();
    EXPECT_EQ(SgCurve::length(p), sum) << n;
  }
  EXPECT_NEAR(SgCurve::length(line(5)), 4.0, 1e-12);
}

namespace {
using Wide = SgVec3T<long double>;
Wide wide(const Vec& v) { return Wide(v.x, v.y, v.z); }
Wide turned(const Wide& v, const Wide& axis, long double angle) {
  return v * std::cos(angle) + axis.cross(v) * std::sin(angle) + axis * (axis.dot(v) * (1 - std::cos(angle)));
}

// Parallel transport told by the angle between unit tangents, in long double: the reference the
// transport of SgCurve must meet. Calls `step(i, axis, angle)` per point, a zero angle where
// nothing turns (a segment under 1e-6 keeps the tangent; a sine under 1e-6 turns nothing).
template <class Step>
void walkTurns(const Points& pts, const Vec& tangent0, Step step) {
  Wide tangent = wide(tangent0);
  tangent.normalize();
  for (size_t i = 0; i < pts.size(); ++i) {
    Wide next = tangent;
    if (i + 1 < pts.size()) {
      Wide d = wide(pts[i + 1]) - wide(pts[i]);
      if (d.normalize() >= 1e-6L) next = d;
    }
    Wide axis = tangent.cross(next);
    const bool turns = axis.normalize() >= 1e-6L;
    step(i, next, axis, turns ? std::acos(std::clamp(tangent.dot(next), -1.0L, 1.0L)) : 0.0L);
    tangent = next;
  }
}

// Curves with every kind of joint: gentle and sharp bends, turns of 1e-5 radians, a hairpin
// (antiparallel segments), a repeated point, one within 1e-7 of the next, an S in 3D, a turn
// of pi - 1e-3 and one within a sine of 1e-7 of going straight back (which turns nothing).
std::vector<Points> transportCurves() {
  Points helix, slight;
  for (int i = 0; i < 12; ++i) helix.emplace_back(std::cos(0.7 * i), std::sin(0.7 * i), 0.3 * i);
  for (int i = 0; i < 8; ++i) slight.emplace_back(i, 1e-5 * i * i, 0);
  return {line(5),
          helix,
          slight,
          {Vec(0, 0, 0), Vec(1, 0, 0), Vec(0, 0, 0), Vec(0, 1, 0)},
          {Vec(0, 0, 0), Vec(1, 0, 0), Vec(1, 0, 0), Vec(1, 1, 0), Vec(1, 1, 1)},
          {Vec(0, 0, 0), Vec(0, 0, 1), Vec(0, 1e-7, 1), Vec(1, 1, 1)},
          {Vec(0, 0, 0), Vec(0.1, 0.2, 1), Vec(-0.5, 0.4, 1.5), Vec(-0.4, -0.9, 2), Vec(0.3, -1, 1.2)},
          {Vec(0, 0, 0), Vec(1, 0, 0), Vec(0, 1e-3, 0), Vec(0, 1e-3, 1)},
          {Vec(0, 0, 0), Vec(1, 0, 0), Vec(0, 1e-7, 0), Vec(0, 1e-7, 1)}};
}
}  // namespace

TEST(SgCurve, TransportFrameIsOrthonormalAndMatchesAngleTurns) {
  const Vec tangent0(0, 0, 1), normal0(1, 0, 0);
  for (const Points& pts : transportCurves()) {
    SCOPED_TRACE(::testing::Message() << "curve of " << pts.size() << " points from " << pts[1].x);
    Points normals, binormals;
    SgCurve::frame(pts, tangent0, normal0, normals, binormals);
    ASSERT_EQ(normals.size(), pts.size());
    Wide normal = wide(normal0);
    walkTurns(pts, tangent0, [&](size_t i, const Wide& next, const Wide& axis, long double angle) {
      if (angle != 0.0L) {
        normal = turned(normal, axis, angle);
        normal.normalize();
      }
      Wide b = normal.cross(next);
      b.normalize();
      for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(normals[i][k], static_cast<double>(normal[k]), 1e-12) << "point " << i;
        EXPECT_NEAR(binormals[i][k], static_cast<double>(b[k]), 1e-12) << "point " << i;
      }
      EXPECT_NEAR(normals[i].length(), 1.0, 1e-14);
      EXPECT_NEAR(binormals[i].length(), 1.0, 1e-14);
      EXPECT_NEAR(normals[i].dot(binormals[i]), 0.0, 1e-14);
    });
  }
}

TEST(SgCurve, SpaceCurveMatchesHalfAngleTurns) {
  const Vec tangent0(0, 0, 1), root(0.3, -0.2, 0.5);
  for (const Points& pts : transportCurves()) {
    SCOPED_TRACE(::testing::Message() << "curve of " << pts.size() << " points from " << pts[1].x);
    Points out;
    SgCurve::spaceCurve(pts, tangent0, root, out);
    ASSERT_EQ(out.size(), pts.size());
    Wide w = wide(root - pts[0]);
    w.z = 0;  // across the first tangent
    const long double offset = w.normalize();
    walkTurns(pts, tangent0, [&](size_t i, const Wide&, const Wide& axis, long double angle) {
      w = turned(w, axis, angle / 2);
      const Wide expected = wide(pts[i]) + w * offset;
      for (int k = 0; k < 3 && i > 0; ++k)
        EXPECT_NEAR(out[i][k], static_cast<double>(expected[k]), 1e-12) << "point " << i;
      w = turned(w, axis, angle / 2);
    });
  }
}
