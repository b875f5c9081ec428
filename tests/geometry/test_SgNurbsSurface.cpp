#include "geometry/SgNurbsSurface.h"

#include "support/ExpectNear.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using vrtest::expectNear;
using Doubles = std::vector<double>;

// The knots of one Bezier span of the given order on [0, 1].
Doubles bezier(int order) {
  Doubles k(size_t(2 * order), 0.0);
  std::fill(k.begin() + order, k.end(), 1.0);
  return k;
}

// nu x nv CVs, U fastest, each holding the values cv(i, j) returns.
template <class F>
SgNurbsSurface surface(const Doubles& uk, const Doubles& vk, int nu, int nv, int w, F cv) {
  Doubles cvs;
  for (int j = 0; j < nv; ++j)
    for (int i = 0; i < nu; ++i)
      for (double x : cv(i, j)) cvs.push_back(x);
  return SgNurbsSurface(int(uk.size()), uk.data(), int(vk.size()), vk.data(), nu, nv, cvs.data(),
                        w);
}

// P(u, v) = lerp(lerp(c[0], c[1], u), lerp(c[2], c[3], u), v).
SgNurbsSurface bilinearPatch(const std::vector<Vec>& c) {
  return surface(bezier(2), bezier(2), 2, 2, 0, [&](int i, int j) {
    return Doubles{c[size_t(j * 2 + i)].x, c[size_t(j * 2 + i)].y, c[size_t(j * 2 + i)].z};
  });
}
SgNurbsSurface rectangle(double w, double h) {
  return bilinearPatch({Vec(0, 0, 0), Vec(w, 0, 0), Vec(0, h, 0), Vec(w, h, 0)});
}

// The rational quarter circle of radius 1 in xy (U), swept from z = 0 to z = height (V).
SgNurbsSurface quarterCylinder(double height = 2.0) {
  const double r = std::sqrt(0.5), xyw[3][3] = {{1, 0, 1}, {r, r, r}, {0, 1, 1}};  // homogeneous
  return surface(bezier(3), bezier(2), 3, 2, 1, [&](int i, int j) {
    return Doubles{xyw[i][0], xyw[i][1], j * height * xyw[i][2], xyw[i][2]};
  });
}

// Bicubic, uneven knots, 5 x 4 bumpy CVs.
SgNurbsSurface bumpyBicubic() {
  auto cv = [](int i, int j) {
    return Doubles{i * 0.7 + 0.1 * j, j * 1.3 - 0.2 * i * i, std::sin(1.7 * i + 0.9 * j)};
  };
  return surface({0, 0, 0, 0, 0.3, 1, 1, 1, 1}, {-1, -1, -1, -1, 2, 2, 2, 2}, 5, 4, 0, cv);
}

// Rational bicubic Bezier with varying weights.
SgNurbsSurface bumpyRational() {
  return surface(bezier(4), bezier(4), 4, 4, 1, [](int i, int j) {
    const double w = 0.5 + 0.25 * ((i + 2 * j) % 3);
    return Doubles{w * i, w * j, w * std::cos(i + j * 0.5), w};
  });
}

// eval's point, derivatives and answer; P starts off zero so that a failed eval's reset shows.
struct Eval {
  Vec P = Vec(1, 1, 1), du, dv;
  bool ok;
  Eval(const SgNurbsSurface& s, double u, double v) : ok(s.eval(u, v, P, du, dv)) {}
  Vec point() const {
    EXPECT_TRUE(ok) << "eval failed";
    return P;
  }
};
// eval at fractions (fu, fv) of the domain.
Eval evalAt(const SgNurbsSurface& s, double fu, double fv) {
  return Eval(s, s.uMin() + (s.uMax() - s.uMin()) * fu, s.vMin() + (s.vMax() - s.vMin()) * fv);
}

// Everything the text form carries: counts, degrees, w, knots and CV values.
Doubles contents(const SgNurbsSurface& s) {
  Doubles out{double(s.numUKnots()), double(s.numVKnots()), double(s.numUControlPoints()),
              double(s.numVControlPoints()), double(s.uDegree()), double(s.vDegree()),
              double(s.w())};
  out.insert(out.end(), s.uKnotVector(), s.uKnotVector() + s.numUKnots());
  out.insert(out.end(), s.vKnotVector(), s.vKnotVector() + s.numVKnots());
  const int values = (3 + s.w()) * s.numUControlPoints() * s.numVControlPoints();
  out.insert(out.end(), s.CVs(), s.CVs() + values);
  return out;
}

}  // namespace

// --- Basis

TEST(SgNurbsSurfaceBasis, FindSpan) {
  // Domain ends, a knot, and parameters outside the domain (clamped).
  const double knots[9] = {0, 0, 0, 0, 0.5, 1, 1, 1, 1};
  const double u[6] = {1.0, 0.0, 0.5, 0.4999, 7.0, -7.0};
  const int span[6] = {4, 3, 4, 3, 4, 3};
  for (int k = 0; k < 6; ++k)
    EXPECT_EQ(SgNurbsSurface::findSpan(5, 3, u[k], knots), span[k]) << u[k];
  // Repeated interior knots, against a linear search.
  const double multi[14] = {0, 0, 0, 0.1, 0.1, 0.25, 0.5, 0.6, 0.6, 0.8, 0.95, 1, 1, 1};
  for (int k = 0; k <= 1000; ++k) {
    int expected = 10;
    for (int s = 2; s < 11; ++s)
      if (multi[s] <= k / 1000.0 && k / 1000.0 < multi[s + 1]) expected = s;
    EXPECT_EQ(SgNurbsSurface::findSpan(11, 2, k / 1000.0, multi), expected) << "u = " << k / 1000.0;
  }
}

TEST(SgNurbsSurfaceBasis, BasisIsPartitionOfUnityAndDerivativesMatchDifferences) {
  const double knots[12] = {0, 0, 0, 0, 0.2, 0.3, 0.7, 0.75, 1, 1, 1, 1};
  const int p = 3;
  const double h = 1e-7;
  for (int k = 1; k < 100; ++k) {
    const double u = k / 100.0 + 0.003;
    const int span = SgNurbsSurface::findSpan(8, p, u, knots);
    double N[8], Np[8], Nm[8], ders[2][8];
    SgNurbsSurface::basisFuns(span, u, p, knots, N);
    SgNurbsSurface::basisFunsDers(span, u, p, knots, ders);
    double total = 0.0, dtotal = 0.0;
    for (int r = 0; r <= p; ++r) {
      total += N[r];
      dtotal += ders[1][r];
      EXPECT_GE(N[r], 0.0);
      EXPECT_NEAR(ders[0][r], N[r], 1e-15);
    }
    EXPECT_NEAR(total, 1.0, 1e-14);
    EXPECT_NEAR(dtotal, 0.0, 1e-12);
    if (u - h <= knots[span] || u + h >= knots[span + 1]) continue;  // differences stay in span
    SgNurbsSurface::basisFuns(span, u + h, p, knots, Np);
    SgNurbsSurface::basisFuns(span, u - h, p, knots, Nm);
    for (int r = 0; r <= p; ++r) EXPECT_NEAR(ders[1][r], (Np[r] - Nm[r]) / (2 * h), 1e-6);
  }
}

TEST(SgNurbsSurfaceBasis, DegreeSevenIsTheLimit) {
  // A degree-7 Bezier on a straight line of CVs has linear precision.
  const SgNurbsSurface s = surface(bezier(8), bezier(2), 8, 2, 0, [](int i, int j) {
    return Doubles{i / 7.0, 1.0 * j, 0};
  });
  EXPECT_EQ(s.uDegree(), 7);
  const Eval e(s, 0.37, 0.5);
  ASSERT_TRUE(e.ok);
  expectNear(e.P, Vec(0.37, 0.5, 0), 1e-14);
  expectNear(e.du, Vec(1, 0, 0), 1e-12);
  // Degree 8 is beyond the basis buffers: the surface is kept but answers zero.
  const SgNurbsSurface tooHigh =
      surface(bezier(9), bezier(9), 9, 9, 0, [](int, int) { return Doubles{1, 1, 1}; });
  EXPECT_EQ(tooHigh.uDegree(), 8);
  EXPECT_FALSE(tooHigh.isValid());
  const Eval refused(tooHigh, 0.5, 0.5);
  EXPECT_FALSE(refused.ok);
  EXPECT_EQ(refused.P, Vec());
  EXPECT_EQ(tooHigh.surfaceArea(1), 0.0);
  EXPECT_EQ(tooHigh.arcLengthU(0.5, 1), 0.0);
  EXPECT_FALSE(tooHigh.boundingBox().valid);
}

// --- Evaluation

TEST(SgNurbsSurfaceEval, BilinearPatchEvaluatesExactly) {
  const Vec c00(0, 0, 0), c10(2, 0, 0.5), c01(0, 3, 1), c11(2.5, 3, 5);
  const SgNurbsSurface s = bilinearPatch({c00, c10, c01, c11});
  for (int a = 0; a <= 10; ++a)
    for (int b = 0; b <= 10; ++b) {
      const double u = a / 10.0, v = b / 10.0;
      const Eval e(s, u, v);
      ASSERT_TRUE(e.ok);
      expectNear(e.P, (c00 * (1 - u) + c10 * u) * (1 - v) + (c01 * (1 - u) + c11 * u) * v, 1e-14);
      expectNear(e.du, (c10 - c00) * (1 - v) + (c11 - c01) * v, 1e-14);
      expectNear(e.dv, (c01 - c00) * (1 - u) + (c11 - c10) * u, 1e-14);
    }
}

TEST(SgNurbsSurfaceEval, RationalQuarterCircleStaysOnItsRadius) {
  const SgNurbsSurface s = quarterCylinder(2.0);
  for (int a = 0; a <= 40; ++a)
    for (int b = 0; b <= 8; ++b) {
      const double u = a / 40.0, v = b / 8.0;
      const Eval e(s, u, v);
      ASSERT_TRUE(e.ok);
      EXPECT_NEAR(std::hypot(e.P.x, e.P.y), 1.0, 1e-12) << u << " " << v;
      EXPECT_NEAR(e.P.z, 2.0 * v, 1e-12);
      EXPECT_GE(std::min(e.P.x, e.P.y), -1e-15);
      // The U tangent is perpendicular to the radius; the V tangent is the height.
      EXPECT_NEAR(e.du.x * e.P.x + e.du.y * e.P.y, 0.0, 1e-12);
      expectNear(e.dv, Vec(0, 0, 2), 1e-12);
    }
  Vec P;
  ASSERT_TRUE(s.surfacePoint(0.0, 0.0, P));
  expectNear(P, Vec(1, 0, 0), 1e-15);
  ASSERT_TRUE(s.surfacePoint(1.0, 1.0, P));
  expectNear(P, Vec(0, 1, 2), 1e-15);
}

TEST(SgNurbsSurfaceEval, DerivativesMatchFiniteDifferences) {
  const double h = 1e-6;
  for (const SgNurbsSurface& s : {bumpyBicubic(), bumpyRational(), quarterCylinder()})
    for (int a = 1; a < 8; ++a)
      for (int b = 1; b < 8; ++b) {
        const double u = s.uMin() + (s.uMax() - s.uMin()) * a / 8.0 + 1e-3;
        const double v = s.vMin() + (s.vMax() - s.vMin()) * b / 8.0 - 1e-3;
        const Eval e(s, u, v);
        ASSERT_TRUE(e.ok);
        expectNear(e.du, (Eval(s, u + h, v).point() - Eval(s, u - h, v).point()) * (0.5 / h), 1e-6);
        expectNear(e.dv, (Eval(s, u, v + h).point() - Eval(s, u, v - h).point()) * (0.5 / h), 1e-6);
      }
}

TEST(SgNurbsSurfaceEval, PointFormsAgreeWithEvalAndParametersAreClamped) {
  const SgNurbsSurface plain = bumpyBicubic(), rational = bumpyRational();
  Vec P, du, dv;
  ASSERT_TRUE(plain.surfacePoint(0.4, 0.3, P));
  expectNear(P, Eval(plain, 0.4, 0.3).point(), 1e-14);
  ASSERT_TRUE(rational.surfacePointw(0.4, 0.3, P));
  expectNear(P, Eval(rational, 0.4, 0.3).point(), 1e-14);
  // The w twins refuse a non-rational surface.
  EXPECT_FALSE(plain.surfacePointw(0.4, 0.3, P));
  EXPECT_FALSE(plain.surfaceDerivsw(0.4, 0.3, P, du, dv));
  EXPECT_EQ(plain.surfaceAreaw(1), 0.0);
  EXPECT_FALSE(plain.boundingBoxw().valid);
  const Eval outside(plain, plain.uMax() + 5, plain.vMin() - 5);
  ASSERT_TRUE(outside.ok);
  expectNear(outside.P, Eval(plain, plain.uMax(), plain.vMin()).point(), 0.0);
}

// --- Grids, lengths and areas

TEST(SgNurbsSurfaceGrid, MeshAndAllArcLengthsAgreeWithEvalAndSingleWalks) {
  for (const SgNurbsSurface& s : {bumpyBicubic(), bumpyRational()}) {
    SgNurbsSurfaceMesh mesh;
    ASSERT_TRUE(s.mesh(mesh, 3));
    ASSERT_EQ(mesh.nu, s.numUControlPoints() * 3);
    ASSERT_EQ(mesh.nv, s.numVControlPoints() * 3);
    ASSERT_EQ(mesh.points.size(), size_t(mesh.nu) * size_t(mesh.nv));
    for (int j = 0; j < mesh.nv; ++j)
      for (int i = 0; i < mesh.nu; ++i)
        expectNear(mesh.points[size_t(j) * mesh.nu + i],
                   evalAt(s, double(i) / (mesh.nu - 1), double(j) / (mesh.nv - 1)).point(), 1e-12);
    int nu = 0, nv = 0;
    Doubles lengthsU, lengthsV, segsU, segsV;
    ASSERT_TRUE(s.getAllArcLengths(nu, nv, lengthsU, lengthsV, segsU, segsV, 2));
    ASSERT_EQ(nu, s.numUControlPoints() * 2);
    ASSERT_EQ(nv, s.numVControlPoints() * 2);
    ASSERT_EQ(std::vector<size_t>({lengthsU.size(), lengthsV.size(), segsU.size(), segsV.size()}),
              std::vector<size_t>({size_t(nv), size_t(nu), size_t(nv * (nu - 1)),
                                   size_t(nu * (nv - 1))}));
    // Column c of the grid is the curve arcLengthU walks, row r the one arcLengthV walks.
    auto compare = [&s](bool alongV, int count, const Doubles& lengths, const Doubles& chords) {
      const size_t segs = chords.size() / size_t(count);
      for (int c = 0; c < count; ++c) {
        const double t = c == count - 1 ? 1.0 : (c + 0.5) / (count - 1);
        SgNurbsArcLength walk;
        const double length = alongV ? s.arcLengthU(t, 2, &walk) : s.arcLengthV(t, 2, &walk);
        EXPECT_NEAR(lengths[size_t(c)], length, 1e-12);
        for (size_t k = 0; k < segs; ++k)
          EXPECT_NEAR(chords[size_t(c) * segs + k], walk.segments[k], 1e-12);
      }
    };
    compare(true, nu, lengthsV, segsV);
    compare(false, nv, lengthsU, segsU);
  }
}

TEST(SgNurbsSurfaceGrid, ArcLengths) {
  // arcLengthU(1) walks the last column (constant u, along V) of the sampled grid.
  const SgNurbsSurface s = bumpyBicubic();
  const int nv = s.numVControlPoints() * 2;
  double expected = 0.0;
  for (double j = 1; j < nv; ++j) {
    const Vec a = evalAt(s, 1, (j - 1) / (nv - 1)).point(), b = evalAt(s, 1, j / (nv - 1)).point();
    expected += (b - a).length();
  }
  SgNurbsArcLength holder;
  EXPECT_NEAR(s.arcLengthU(1.0, 2, &holder), expected, 1e-12);
  EXPECT_NEAR(holder.length, expected, 1e-12);
  EXPECT_EQ(holder.numSegments, nv - 1);
  ASSERT_EQ(holder.segments.size(), size_t(nv - 1));
  const Doubles& segs = holder.segments;
  EXPECT_NEAR(std::accumulate(segs.begin(), segs.end(), 0.0), holder.length, 1e-12);

  // A planar 2 x 3 rectangle: arcLengthU runs along V, arcLengthV along U, in equal chords.
  const SgNurbsSurface rect = rectangle(2, 3);
  for (double t : {0.0, 0.3, 1.0}) {
    EXPECT_NEAR(rect.arcLengthU(t, 4), 3.0, 1e-14);
    EXPECT_NEAR(rect.arcLengthV(t, 4), 2.0, 1e-14);
  }
  rect.arcLengthV(0.5, 4, &holder);
  EXPECT_EQ(holder.numSegments, 2 * 4 - 1);
  for (double d : holder.segments) EXPECT_NEAR(d, 2.0 / 7.0, 1e-14);

  // Chords of the rational quarter circle approach pi / 2 from below.
  const SgNurbsSurface cyl = quarterCylinder();
  const double coarse = cyl.arcLengthV(0.0, 2), fine = cyl.arcLengthV(0.0, 64);
  EXPECT_LT(coarse, fine);
  EXPECT_LT(fine, M_PI / 2);
  EXPECT_NEAR(fine, M_PI / 2, 1e-4);
  EXPECT_NEAR(cyl.arcLengthU(0.5, 3), 2.0, 1e-12);
}

TEST(SgNurbsSurfaceGrid, Areas) {
  // Holders: 4 x 4 CVs give 4 x 4 cells; 5 x 4 CVs at subdiv 3 (14 and 11) rise to 16 x 16.
  SgNurbsSurfaceArea holder;
  const double area = bumpyRational().surfaceArea(1, &holder);
  EXPECT_EQ(holder.numU, 4);
  EXPECT_EQ(holder.numV, 4);
  ASSERT_EQ(holder.cells.size(), 16u);
  for (double c : holder.cells) EXPECT_GT(c, 0.0);
  EXPECT_NEAR(std::accumulate(holder.cells.begin(), holder.cells.end(), 0.0), area, 1e-12);
  EXPECT_EQ(holder.area, area);
  bumpyBicubic().surfaceArea(3, &holder);
  EXPECT_EQ(holder.numU, 16);
  EXPECT_EQ(holder.numV, 16);

  // The unit square, bilinear and as an identity-parameterised bicubic (equal cells).
  EXPECT_NEAR(rectangle(1, 1).surfaceArea(5), 1.0, 1e-14);
  EXPECT_NEAR(rectangle(1, 1).surfaceArea(1, &holder), 1.0, 1e-15);
  EXPECT_EQ(holder.numU, 1);
  EXPECT_EQ(holder.numV, 1);
  const SgNurbsSurface bicubic = surface(bezier(4), bezier(4), 4, 4, 0, [](int i, int j) {
    return Doubles{i / 3.0, j / 3.0, 0.0};  // CVs at the Greville abscissae
  });
  EXPECT_NEAR(bicubic.surfaceArea(1), 1.0, 1e-14);
  EXPECT_NEAR(bicubic.surfaceArea(3, &holder), 1.0, 1e-14);
  for (double c : holder.cells) EXPECT_NEAR(c, 1.0 / holder.cells.size(), 1e-14);

  // The quarter cylinder of area pi, from below.
  const SgNurbsSurface cyl = quarterCylinder(2.0);
  const double coarse = cyl.surfaceArea(1), fine = cyl.surfaceArea(32);
  EXPECT_LT(coarse, fine);
  EXPECT_LT(fine, M_PI);
  EXPECT_NEAR(fine, M_PI, 1e-3);
}

TEST(SgNurbsSurfaceGrid, HugeGridsReportAndAnswerZero) {
  const SgNurbsSurface plain = bumpyBicubic(), rational = bumpyRational();
  const int huge = 1 << 30;
  SgNurbsArcLength holder;
  holder.length = 5;
  int nu = 1, nv = 1;
  Doubles a, b, c, d;
  // Each call answers zero (and clears what it fills) and names its form on stderr.
  const std::pair<const char*, std::function<bool()>> cases[] = {
      {"surfaceArea", [&] { return plain.surfaceArea(huge) == 0.0; }},
      {"arcLengthUw",
       [&] { return rational.arcLengthU(0.5, huge, &holder) == 0.0 && holder.length == 0.0; }},
      {"getAllArcLengths",
       [&] { return !plain.getAllArcLengths(nu, nv, a, b, c, d, huge) && nu == 0; }},
      {"arcLengthVw", [&] { return rational.arcLengthV(0.5, huge) == 0.0; }},
      {"surfaceAreaw", [&] { return rational.surfaceArea(huge) == 0.0; }}};
  for (const auto& op : cases) {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(op.second()) << op.first;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "SgNurbsSurface::" + std::string(op.first) +
                  ": Unable to malloc memory. Returning zero.\n");
  }
}

// --- Bounds, copies, text

TEST(SgNurbsSurfaceBounds, BoxOfTheControlVertices) {
  const SgNurbsSurface s =
      bilinearPatch({Vec(0, -1, 0), Vec(2, 0, 0.5), Vec(0, 3, 1), Vec(2.5, 3, 5)});
  const SgBox3T<double> box = s.boundingBox();
  ASSERT_TRUE(box.valid);
  expectNear(box.min, Vec(0, -1, 0), 0.0);
  expectNear(box.maxCorner(), Vec(2.5, 3, 5), 1e-15);
  double x0, y0, z0, x1, y1, z1;
  ASSERT_TRUE(s.boundingBox(x0, y0, z0, x1, y1, z1));
  EXPECT_EQ(Doubles({x0, y0, z0, x1, y1, z1}), Doubles({0, -1, 0, 2.5, 3, 5}));
  // Rational CVs are divided by their weights: the middle CV of the arc is (1, 1).
  const SgBox3T<double> arc = quarterCylinder(2.0).boundingBox();
  ASSERT_TRUE(arc.valid);
  expectNear(arc.min, Vec(0, 0, 0), 1e-15);
  expectNear(arc.maxCorner(), Vec(1, 1, 2), 1e-15);
}

TEST(SgNurbsSurfaceCopies, CopiesOwnTheirArrays) {
  auto* original = new SgNurbsSurface(bumpyRational());
  const Vec P0 = Eval(*original, 0.3, 0.6).point();
  SgNurbsSurface copy(*original), assigned;
  assigned = *original;
  EXPECT_NE(copy.CVs(), original->CVs());
  EXPECT_NE(copy.uKnotVector(), original->uKnotVector());
  delete original;
  EXPECT_EQ(Eval(copy, 0.3, 0.6).point(), P0);
  EXPECT_EQ(Eval(assigned, 0.3, 0.6).point(), P0);
  SgNurbsSurface moved(std::move(copy));
  EXPECT_EQ(Eval(moved, 0.3, 0.6).point(), P0);
  EXPECT_FALSE(copy.isValid());  // NOLINT(bugprone-use-after-move): a moved-from surface is empty
  EXPECT_EQ(copy.CVs(), nullptr);
}

TEST(SgNurbsSurfaceCopies, DecreasingKnotsAndEmptySurfacesAnswerZero) {
  EXPECT_FALSE(surface({0, 1, 0.5, 1}, {0, 1, 0.5, 1}, 2, 2, 0, [](int i, int j) {
                 return Doubles{1.0 * i, 1.0 * j, 0};
               }).isValid());
  const SgNurbsSurface empty;
  EXPECT_FALSE(Eval(empty, 0, 0).ok);
  EXPECT_EQ(empty.surfaceArea(2), 0.0);
  SgNurbsSurfaceMesh mesh;
  EXPECT_FALSE(empty.mesh(mesh, 2));
}

TEST(SgNurbsSurfaceText, ExportWritesTheDocumentedLinesAndRoundTrips) {
  std::ostringstream out;
  ASSERT_TRUE(bilinearPatch({Vec(0, 0, 0), Vec(1, 0, 0), Vec(0, 1, 0.5), Vec(1, 1, 2)})
                  .exportToStream(out));
  EXPECT_EQ(out.str(),
            "\t\t4 4\n"
            "\t\t2 2\n"
            "\t\t0\n"
            "\t\t0 0 1 1 \n"
            "\t\t0 0 1 1 \n"
            "\t\t0 0 0 1 0 0 0 1 0.5 1 1 2 \n");
  for (const SgNurbsSurface& s : {bumpyBicubic(), bumpyRational(), quarterCylinder(1.0 / 3.0)}) {
    std::stringstream text;
    ASSERT_TRUE(s.exportToStream(text));
    SgNurbsSurface back;
    ASSERT_TRUE(back.importFromStream(text));
    EXPECT_EQ(contents(back), contents(s));
    EXPECT_TRUE(back.isValid());
  }
}

TEST(SgNurbsSurfaceText, ImportRefusesBadCountsAndKeepsTheSurface) {
  SgNurbsSurface s = bumpyBicubic();
  for (const char* text : {"\t\t-4 4\n\t\t2 2\n\t\t0\n", "\t\t4 4\n\t\t2 2\n\t\t3\n",
                           "\t\t20 4\n\t\t2 2\n\t\t0\n", "\t\t4 4\n\t\t2 2\n\t\t0\n\t\t0 0 1\n",
                           "garbage"}) {
    std::istringstream in(text);
    EXPECT_FALSE(s.importFromStream(in)) << text;
    EXPECT_EQ(s.numUControlPoints(), 5);
    EXPECT_TRUE(s.isValid());
  }
}
