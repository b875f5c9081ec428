#include "geometry/SgNurbsSurface.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Vec = SgVec3T<double>;

// A bilinear patch over four corners (U fastest): P(u, v) = lerp(lerp(c00, c10, u), lerp(c01, c11, u), v).
SgNurbsSurface bilinearPatch(const Vec& c00, const Vec& c10, const Vec& c01, const Vec& c11) {
  const double knots[4] = {0, 0, 1, 1};
  const double cvs[12] = {c00.x, c00.y, c00.z, c10.x, c10.y, c10.z,
                          c01.x, c01.y, c01.z, c11.x, c11.y, c11.z};
  return SgNurbsSurface(4, knots, 4, knots, 2, 2, cvs, 0);
}

// The quarter circle of radius 1 in the xy plane (rational quadratic in U), swept from z = 0 to
// z = height (linear in V). CVs are homogeneous.
SgNurbsSurface quarterCylinder(double height = 2.0) {
  const double uKnots[6] = {0, 0, 0, 1, 1, 1};
  const double vKnots[4] = {0, 0, 1, 1};
  const double w = std::sqrt(0.5);
  std::vector<double> cvs;
  for (double z : {0.0, height}) {
    const double row[12] = {1, 0, z, 1, w, w, z * w, w, 0, 1, z, 1};
    cvs.insert(cvs.end(), row, row + 12);
  }
  return SgNurbsSurface(6, uKnots, 4, vKnots, 3, 2, cvs.data(), 1);
}

// A bicubic surface with uneven knots and bumpy CVs: 5 x 4 CVs.
SgNurbsSurface bumpyBicubic() {
  const double uKnots[9] = {0, 0, 0, 0, 0.3, 1, 1, 1, 1};
  const double vKnots[8] = {-1, -1, -1, -1, 2, 2, 2, 2};
  std::vector<double> cvs;
  for (int j = 0; j < 4; ++j)
    for (int i = 0; i < 5; ++i) {
      cvs.push_back(i * 0.7 + 0.1 * j);
      cvs.push_back(j * 1.3 - 0.2 * i * i);
      cvs.push_back(std::sin(1.7 * i + 0.9 * j));
    }
  return SgNurbsSurface(9, uKnots, 8, vKnots, 5, 4, cvs.data(), 0);
}

// A rational bicubic with varying weights: 4 x 4 CVs.
SgNurbsSurface bumpyRational() {
  const double knots[8] = {0, 0, 0, 0, 1, 1, 1, 1};
  std::vector<double> cvs;
  for (int j = 0; j < 4; ++j)
    for (int i = 0; i < 4; ++i) {
      const double w = 0.5 + 0.25 * ((i + 2 * j) % 3);
      cvs.push_back(w * i);
      cvs.push_back(w * j);
      cvs.push_back(w * std::cos(i + j * 0.5));
      cvs.push_back(w);
    }
  return SgNurbsSurface(8, knots, 8, knots, 4, 4, cvs.data(), 1);
}

// Bicubic with clamped uniform knots whose CVs sit at the Greville abscissae of the unit square:
// the surface is the unit square itself, parameterised by the identity.
SgNurbsSurface planarBicubicSquare() {
  const double knots[8] = {0, 0, 0, 0, 1, 1, 1, 1};
  const double greville[4] = {0.0, 1.0 / 3.0, 2.0 / 3.0, 1.0};
  std::vector<double> cvs;
  for (int j = 0; j < 4; ++j)
    for (int i = 0; i < 4; ++i) {
      cvs.push_back(greville[i]);
      cvs.push_back(greville[j]);
      cvs.push_back(0.0);
    }
  return SgNurbsSurface(8, knots, 8, knots, 4, 4, cvs.data(), 0);
}

void expectNear(const Vec& a, const Vec& b, double tol) {
  EXPECT_NEAR(a.x, b.x, tol);
  EXPECT_NEAR(a.y, b.y, tol);
  EXPECT_NEAR(a.z, b.z, tol);
}

// Central differences of eval against its derivatives at a set of parameters.
void checkDerivatives(const SgNurbsSurface& s, double tol) {
  const double h = 1e-6;
  for (int a = 1; a < 8; ++a)
    for (int b = 1; b < 8; ++b) {
      const double u = s.uMin() + (s.uMax() - s.uMin()) * a / 8.0 + 1e-3;
      const double v = s.vMin() + (s.vMax() - s.vMin()) * b / 8.0 - 1e-3;
      Vec P, du, dv, Pp, Pm, scratch1, scratch2;
      ASSERT_TRUE(s.eval(u, v, P, du, dv));
      s.eval(u + h, v, Pp, scratch1, scratch2);
      s.eval(u - h, v, Pm, scratch1, scratch2);
      expectNear(du, (Pp - Pm) * (0.5 / h), tol);
      s.eval(u, v + h, Pp, scratch1, scratch2);
      s.eval(u, v - h, Pm, scratch1, scratch2);
      expectNear(dv, (Pp - Pm) * (0.5 / h), tol);
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Basis

TEST(SgNurbsSurfaceBasis, FindSpanAtDomainEndReturnsLastSpan) {
  const double knots[9] = {0, 0, 0, 0, 0.5, 1, 1, 1, 1};
  EXPECT_EQ(SgNurbsSurface::findSpan(5, 3, 1.0, knots), 4);
  EXPECT_EQ(SgNurbsSurface::findSpan(5, 3, 0.0, knots), 3);
  EXPECT_EQ(SgNurbsSurface::findSpan(5, 3, 0.5, knots), 4);
  EXPECT_EQ(SgNurbsSurface::findSpan(5, 3, 0.4999, knots), 3);
  // Outside the domain the parameter is clamped.
  EXPECT_EQ(SgNurbsSurface::findSpan(5, 3, 7.0, knots), 4);
  EXPECT_EQ(SgNurbsSurface::findSpan(5, 3, -7.0, knots), 3);
}

TEST(SgNurbsSurfaceBasis, FindSpanAgreesWithLinearSearch) {
  const double knots[14] = {0, 0, 0, 0.1, 0.1, 0.25, 0.5, 0.6, 0.6, 0.8, 0.95, 1, 1, 1};
  const int p = 2, n = 11;
  for (int k = 0; k <= 1000; ++k) {
    const double u = k / 1000.0;
    int expected = n - 1;
    for (int s = p; s < n; ++s)
      if (knots[s] <= u && u < knots[s + 1]) expected = s;
    EXPECT_EQ(SgNurbsSurface::findSpan(n, p, u, knots), expected) << "u = " << u;
  }
}

TEST(SgNurbsSurfaceBasis, BasisIsPartitionOfUnityAndDerivativesMatchDifferences) {
  const double knots[12] = {0, 0, 0, 0, 0.2, 0.3, 0.7, 0.75, 1, 1, 1, 1};
  const int p = 3, n = 8;
  const double h = 1e-7;
  for (int k = 1; k < 100; ++k) {
    const double u = k / 100.0 + 0.003;
    const int span = SgNurbsSurface::findSpan(n, p, u, knots);
    double N[8], Np[8], Nm[8], ders[2][8];
    SgNurbsSurface::basisFuns(span, u, p, knots, N);
    SgNurbsSurface::basisFunsDers(span, u, p, knots, ders);
    double sum = 0.0, dsum = 0.0;
    for (int r = 0; r <= p; ++r) {
      sum += N[r];
      dsum += ders[1][r];
      EXPECT_GE(N[r], 0.0);
      EXPECT_NEAR(ders[0][r], N[r], 1e-15);
    }
    EXPECT_NEAR(sum, 1.0, 1e-14);
    EXPECT_NEAR(dsum, 0.0, 1e-12);
    // Stay inside the span for the difference.
    if (u - h <= knots[span] || u + h >= knots[span + 1]) continue;
    SgNurbsSurface::basisFuns(span, u + h, p, knots, Np);
    SgNurbsSurface::basisFuns(span, u - h, p, knots, Nm);
    for (int r = 0; r <= p; ++r) EXPECT_NEAR(ders[1][r], (Np[r] - Nm[r]) / (2 * h), 1e-6);
  }
}

TEST(SgNurbsSurfaceBasis, MaximumDegreeSevenEvaluates) {
  // Degree 7 with eight CVs is a Bezier patch; on a straight line of CVs it is linear precision.
  std::vector<double> knots(16, 0.0);
  for (int k = 8; k < 16; ++k) knots[size_t(k)] = 1.0;
  const double vKnots[4] = {0, 0, 1, 1};
  std::vector<double> cvs;
  for (int j = 0; j < 2; ++j)
    for (int i = 0; i < 8; ++i) {
      cvs.push_back(i / 7.0);
      cvs.push_back(j);
      cvs.push_back(0.0);
    }
  SgNurbsSurface s(16, knots.data(), 4, vKnots, 8, 2, cvs.data(), 0);
  ASSERT_TRUE(s.isValid());
  EXPECT_EQ(s.uDegree(), 7);
  Vec P, du, dv;
  ASSERT_TRUE(s.eval(0.37, 0.5, P, du, dv));
  expectNear(P, Vec(0.37, 0.5, 0), 1e-14);
  expectNear(du, Vec(1, 0, 0), 1e-12);
}

// ---------------------------------------------------------------------------------------------
// Evaluation

TEST(SgNurbsSurfaceEval, BilinearPatchEvaluatesExactly) {
  const Vec c00(0, 0, 0), c10(2, 0, 0.5), c01(0, 3, 1), c11(2.5, 3, 5);
  const SgNurbsSurface s = bilinearPatch(c00, c10, c01, c11);
  ASSERT_TRUE(s.isValid());
  EXPECT_EQ(s.uDegree(), 1);
  EXPECT_EQ(s.vOrder(), 2);
  for (int a = 0; a <= 10; ++a)
    for (int b = 0; b <= 10; ++b) {
      const double u = a / 10.0, v = b / 10.0;
      Vec P, du, dv;
      ASSERT_TRUE(s.eval(u, v, P, du, dv));
      const Vec expected = (c00 * (1 - u) + c10 * u) * (1 - v) + (c01 * (1 - u) + c11 * u) * v;
      expectNear(P, expected, 1e-14);
      expectNear(du, (c10 - c00) * (1 - v) + (c11 - c01) * v, 1e-14);
      expectNear(dv, (c01 - c00) * (1 - u) + (c11 - c10) * u, 1e-14);
    }
}

TEST(SgNurbsSurfaceEval, RationalQuarterCircleStaysOnItsRadius) {
  const SgNurbsSurface s = quarterCylinder(2.0);
  ASSERT_TRUE(s.isValid());
  EXPECT_EQ(s.w(), 1);
  for (int a = 0; a <= 40; ++a)
    for (int b = 0; b <= 8; ++b) {
      const double u = a / 40.0, v = b / 8.0;
      Vec P, du, dv;
      ASSERT_TRUE(s.eval(u, v, P, du, dv));
      EXPECT_NEAR(std::hypot(P.x, P.y), 1.0, 1e-12) << u << " " << v;
      EXPECT_NEAR(P.z, 2.0 * v, 1e-12);
      EXPECT_GE(P.x, -1e-15);
      EXPECT_GE(P.y, -1e-15);
      // The U tangent is perpendicular to the radius; the V tangent is the height.
      EXPECT_NEAR(du.x * P.x + du.y * P.y, 0.0, 1e-12);
      expectNear(dv, Vec(0, 0, 2), 1e-12);
    }
  Vec P;
  ASSERT_TRUE(s.surfacePoint(0.0, 0.0, P));
  expectNear(P, Vec(1, 0, 0), 1e-15);
  ASSERT_TRUE(s.surfacePoint(1.0, 1.0, P));
  expectNear(P, Vec(0, 1, 2), 1e-15);
}

TEST(SgNurbsSurfaceEval, DerivativesMatchFiniteDifferences) {
  checkDerivatives(bumpyBicubic(), 1e-6);
  checkDerivatives(bumpyRational(), 1e-6);
  checkDerivatives(quarterCylinder(), 1e-6);
}

TEST(SgNurbsSurfaceEval, PointFormsAgreeWithEval) {
  const SgNurbsSurface plain = bumpyBicubic();
  const SgNurbsSurface rational = bumpyRational();
  Vec P, P2, du, dv;
  ASSERT_TRUE(plain.eval(0.4, 0.3, P, du, dv));
  ASSERT_TRUE(plain.surfacePoint(0.4, 0.3, P2));
  expectNear(P, P2, 1e-14);
  ASSERT_TRUE(rational.eval(0.4, 0.3, P, du, dv));
  ASSERT_TRUE(rational.surfacePointw(0.4, 0.3, P2));
  expectNear(P, P2, 1e-14);
  // The twins refuse the other kind of surface.
  EXPECT_FALSE(plain.surfacePointw(0.4, 0.3, P2));
  EXPECT_FALSE(plain.surfaceDerivsw(0.4, 0.3, P2, du, dv));
  EXPECT_EQ(plain.surfaceAreaw(1), 0.0);
  EXPECT_FALSE(plain.boundingBoxw().valid);
}

TEST(SgNurbsSurfaceEval, ParametersOutsideTheDomainAreClamped) {
  const SgNurbsSurface s = bumpyBicubic();
  Vec P, Pc, du, dv;
  ASSERT_TRUE(s.eval(s.uMax() + 5, s.vMin() - 5, P, du, dv));
  ASSERT_TRUE(s.eval(s.uMax(), s.vMin(), Pc, du, dv));
  expectNear(P, Pc, 0.0);
}

TEST(SgNurbsSurfaceEval, OneAndTwoThreadsGiveIdenticalResults) {
  const SgNurbsSurface s = bumpyRational();
  const int count = 20000;
  auto evalRange = [&s](int begin, int end, int step, std::vector<Vec>& out) {
    for (int k = begin; k < end; k += step) {
      Vec P, du, dv;
      s.eval((k % 101) / 100.0, (k % 97) / 96.0, P, du, dv);
      out[size_t(k) * 3] = P;
      out[size_t(k) * 3 + 1] = du;
      out[size_t(k) * 3 + 2] = dv;
    }
  };
  std::vector<Vec> serial(size_t(count) * 3), parallel(size_t(count) * 3);
  evalRange(0, count, 1, serial);
  std::thread a(evalRange, 0, count, 2, std::ref(parallel));
  std::thread b(evalRange, 1, count, 2, std::ref(parallel));
  a.join();
  b.join();
  for (size_t k = 0; k < serial.size(); ++k) ASSERT_EQ(serial[k], parallel[k]) << k;
}

// ---------------------------------------------------------------------------------------------
// Grids, lengths and areas

TEST(SgNurbsSurfaceGrid, MeshMatchesEvalAtGridParameters) {
  for (const SgNurbsSurface& s : {bumpyBicubic(), bumpyRational()}) {
    SgNurbsSurfaceMesh mesh;
    ASSERT_TRUE(s.mesh(mesh, 3));
    ASSERT_EQ(mesh.nu, s.numUControlPoints() * 3);
    ASSERT_EQ(mesh.nv, s.numVControlPoints() * 3);
    ASSERT_EQ(mesh.points.size(), size_t(mesh.nu) * size_t(mesh.nv));
    for (int j = 0; j < mesh.nv; ++j)
      for (int i = 0; i < mesh.nu; ++i) {
        const double u = s.uMin() + (s.uMax() - s.uMin()) * i / (mesh.nu - 1);
        const double v = s.vMin() + (s.vMax() - s.vMin()) * j / (mesh.nv - 1);
        Vec P;
        ASSERT_TRUE(s.surfacePoint(u, v, P));
        expectNear(mesh.points[size_t(j) * mesh.nu + i], P, 1e-12);
      }
  }
}

TEST(SgNurbsSurfaceGrid, ArcLengthUWithTOneWalksTheLastColumn) {
  const SgNurbsSurface s = bumpyBicubic();
  const int subdiv = 2;
  const int nv = s.numVControlPoints() * subdiv;
  double expected = 0.0;
  Vec prev;
  for (int j = 0; j < nv; ++j) {
    Vec P;
    s.surfacePoint(s.uMax(), s.vMin() + (s.vMax() - s.vMin()) * j / (nv - 1), P);
    if (j > 0) expected += (P - prev).length();
    prev = P;
  }
  SgNurbsArcLength holder;
  EXPECT_NEAR(s.arcLengthU(1.0, subdiv, &holder), expected, 1e-12);
  EXPECT_EQ(holder.numSegments, nv - 1);
  ASSERT_EQ(holder.segments.size(), size_t(nv - 1));
  double sum = 0.0;
  for (double d : holder.segments) sum += d;
  EXPECT_NEAR(sum, holder.length, 1e-12);
  EXPECT_NEAR(holder.length, expected, 1e-12);
}

TEST(SgNurbsSurfaceGrid, ArcLengthsOfAPlanarRectangle) {
  const SgNurbsSurface s = bilinearPatch(Vec(0, 0, 0), Vec(2, 0, 0), Vec(0, 3, 0), Vec(2, 3, 0));
  // arcLengthU runs along V (constant u), arcLengthV along U.
  for (double t : {0.0, 0.3, 1.0}) {
    EXPECT_NEAR(s.arcLengthU(t, 4), 3.0, 1e-14);
    EXPECT_NEAR(s.arcLengthV(t, 4), 2.0, 1e-14);
  }
  SgNurbsArcLength holder;
  s.arcLengthV(0.5, 4, &holder);
  EXPECT_EQ(holder.numSegments, 2 * 4 - 1);
  for (double d : holder.segments) EXPECT_NEAR(d, 2.0 / 7.0, 1e-14);
}

TEST(SgNurbsSurfaceGrid, RationalArcLengthApproachesTheQuarterCircle) {
  const SgNurbsSurface s = quarterCylinder();
  const double coarse = s.arcLengthV(0.0, 2);
  const double fine = s.arcLengthV(0.0, 64);
  EXPECT_LT(coarse, fine);
  EXPECT_LT(fine, M_PI / 2);
  EXPECT_NEAR(fine, M_PI / 2, 1e-4);
  EXPECT_NEAR(s.arcLengthU(0.5, 3), 2.0, 1e-12);
}

TEST(SgNurbsSurfaceGrid, AllArcLengthsAgreeWithSingleWalks) {
  for (const SgNurbsSurface& s : {bumpyBicubic(), bumpyRational()}) {
    int nu = 0, nv = 0;
    std::vector<double> lengthsU, lengthsV, segsU, segsV;
    ASSERT_TRUE(s.getAllArcLengths(nu, nv, lengthsU, lengthsV, segsU, segsV, 2));
    ASSERT_EQ(nu, s.numUControlPoints() * 2);
    ASSERT_EQ(nv, s.numVControlPoints() * 2);
    ASSERT_EQ(lengthsU.size(), size_t(nv));
    ASSERT_EQ(lengthsV.size(), size_t(nu));
    ASSERT_EQ(segsU.size(), size_t(nv) * size_t(nu - 1));
    ASSERT_EQ(segsV.size(), size_t(nu) * size_t(nv - 1));
    // Column c of the grid is the curve arcLengthU walks; row r the one arcLengthV walks.
    for (int c = 0; c < nu; ++c) {
      const double t = c == nu - 1 ? 1.0 : (c + 0.5) / (nu - 1);
      SgNurbsArcLength walk;
      EXPECT_NEAR(lengthsV[size_t(c)], s.arcLengthU(t, 2, &walk), 1e-12);
      for (int k = 0; k < nv - 1; ++k)
        EXPECT_NEAR(segsV[size_t(c) * size_t(nv - 1) + size_t(k)], walk.segments[size_t(k)], 1e-12);
    }
    for (int r = 0; r < nv; ++r) {
      const double t = r == nv - 1 ? 1.0 : (r + 0.5) / (nv - 1);
      SgNurbsArcLength walk;
      EXPECT_NEAR(lengthsU[size_t(r)], s.arcLengthV(t, 2, &walk), 1e-12);
      for (int k = 0; k < nu - 1; ++k)
        EXPECT_NEAR(segsU[size_t(r) * size_t(nu - 1) + size_t(k)], walk.segments[size_t(k)], 1e-12);
    }
  }
}

TEST(SgNurbsSurfaceGrid, AreaHolderOnFourByFourCVsHasFourByFourCells) {
  const SgNurbsSurface s = bumpyRational();
  SgNurbsSurfaceArea holder;
  const double area = s.surfaceArea(1, &holder);
  EXPECT_EQ(holder.numU, 4);
  EXPECT_EQ(holder.numV, 4);
  ASSERT_EQ(holder.cells.size(), 16u);
  double sum = 0.0;
  for (double c : holder.cells) {
    EXPECT_GT(c, 0.0);
    sum += c;
  }
  EXPECT_NEAR(sum, area, 1e-12);
  EXPECT_EQ(holder.area, area);
  // 5 x 4 CVs with subdiv 3: 14 and 11 rise to 16 cells each way.
  const SgNurbsSurface b = bumpyBicubic();
  b.surfaceArea(3, &holder);
  EXPECT_EQ(holder.numU, 16);
  EXPECT_EQ(holder.numV, 16);
}

TEST(SgNurbsSurfaceGrid, PlanarUnitSquareHasAreaOne) {
  const SgNurbsSurface bilinear = bilinearPatch(Vec(0, 0, 0), Vec(1, 0, 0), Vec(0, 1, 0), Vec(1, 1, 0));
  EXPECT_NEAR(bilinear.surfaceArea(1), 1.0, 1e-15);
  EXPECT_NEAR(bilinear.surfaceArea(5), 1.0, 1e-14);
  SgNurbsSurfaceArea holder;
  EXPECT_NEAR(bilinear.surfaceArea(1, &holder), 1.0, 1e-15);
  EXPECT_EQ(holder.numU, 1);
  EXPECT_EQ(holder.numV, 1);

  const SgNurbsSurface bicubic = planarBicubicSquare();
  EXPECT_NEAR(bicubic.surfaceArea(1), 1.0, 1e-14);
  EXPECT_NEAR(bicubic.surfaceArea(3, &holder), 1.0, 1e-14);
  // Cells of the identity-parameterised square are equal.
  for (double c : holder.cells) EXPECT_NEAR(c, 1.0 / holder.cells.size(), 1e-14);
}

TEST(SgNurbsSurfaceGrid, CylinderAreaConvergesFromBelow) {
  const SgNurbsSurface s = quarterCylinder(2.0);  // area = (pi / 2) * 2
  const double coarse = s.surfaceArea(1);
  const double fine = s.surfaceArea(32);
  EXPECT_LT(coarse, fine);
  EXPECT_LT(fine, M_PI);
  EXPECT_NEAR(fine, M_PI, 1e-3);
}

TEST(SgNurbsSurfaceGrid, HugeGridsReportAndAnswerZero) {
  const SgNurbsSurface plain = bumpyBicubic();
  const SgNurbsSurface rational = bumpyRational();
  const int huge = 1 << 30;

  testing::internal::CaptureStderr();
  EXPECT_EQ(plain.surfaceArea(huge), 0.0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SgNurbsSurface::surfaceArea: Unable to malloc memory. Returning zero.\n");

  testing::internal::CaptureStderr();
  SgNurbsArcLength holder;
  holder.length = 5;
  EXPECT_EQ(rational.arcLengthU(0.5, huge, &holder), 0.0);
  EXPECT_EQ(holder.length, 0.0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SgNurbsSurface::arcLengthUw: Unable to malloc memory. Returning zero.\n");

  testing::internal::CaptureStderr();
  int nu = 1, nv = 1;
  std::vector<double> a, b, c, d;
  EXPECT_FALSE(plain.getAllArcLengths(nu, nv, a, b, c, d, huge));
  EXPECT_EQ(nu, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SgNurbsSurface::getAllArcLengths: Unable to malloc memory. Returning zero.\n");

  testing::internal::CaptureStderr();
  EXPECT_EQ(rational.arcLengthV(0.5, huge), 0.0);
  EXPECT_EQ(rational.surfaceArea(huge), 0.0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SgNurbsSurface::arcLengthVw: Unable to malloc memory. Returning zero.\n"
            "SgNurbsSurface::surfaceAreaw: Unable to malloc memory. Returning zero.\n");
}

// ---------------------------------------------------------------------------------------------
// Bounds, copies, text

TEST(SgNurbsSurfaceBounds, BoxOfTheControlVertices) {
  const SgNurbsSurface s = bilinearPatch(Vec(0, -1, 0), Vec(2, 0, 0.5), Vec(0, 3, 1), Vec(2.5, 3, 5));
  const SgBox3T<double> box = s.boundingBox();
  ASSERT_TRUE(box.valid);
  expectNear(box.min, Vec(0, -1, 0), 0.0);
  expectNear(box.maxCorner(), Vec(2.5, 3, 5), 1e-15);
  double x0, y0, z0, x1, y1, z1;
  ASSERT_TRUE(s.boundingBox(x0, y0, z0, x1, y1, z1));
  EXPECT_EQ(x0, 0.0);
  EXPECT_EQ(y1, 3.0);
  EXPECT_EQ(z1, 5.0);

  // Rational CVs are divided by their weights: the middle CV of the arc is (1, 1).
  const SgBox3T<double> arc = quarterCylinder(2.0).boundingBox();
  ASSERT_TRUE(arc.valid);
  expectNear(arc.min, Vec(0, 0, 0), 1e-15);
  expectNear(arc.maxCorner(), Vec(1, 1, 2), 1e-15);
}

TEST(SgNurbsSurfaceCopies, CopiesOwnTheirArrays) {
  SgNurbsSurface* original = new SgNurbsSurface(bumpyRational());
  Vec P0, du, dv;
  original->eval(0.3, 0.6, P0, du, dv);
  SgNurbsSurface copy(*original);
  SgNurbsSurface assigned;
  assigned = *original;
  EXPECT_NE(copy.CVs(), original->CVs());
  EXPECT_NE(copy.uKnotVector(), original->uKnotVector());
  delete original;
  Vec P;
  ASSERT_TRUE(copy.eval(0.3, 0.6, P, du, dv));
  EXPECT_EQ(P, P0);
  ASSERT_TRUE(assigned.eval(0.3, 0.6, P, du, dv));
  EXPECT_EQ(P, P0);

  SgNurbsSurface moved(std::move(copy));
  ASSERT_TRUE(moved.eval(0.3, 0.6, P, du, dv));
  EXPECT_EQ(P, P0);
  EXPECT_FALSE(copy.isValid());  // NOLINT(bugprone-use-after-move): a moved-from surface is empty
  EXPECT_EQ(copy.CVs(), nullptr);
}

TEST(SgNurbsSurfaceCopies, UnusableDataAnswersZero) {
  // Degree 8 is beyond the basis buffers.
  std::vector<double> knots(18, 0.0);
  for (int k = 9; k < 18; ++k) knots[size_t(k)] = 1.0;
  std::vector<double> cvs(9 * 9 * 3, 1.0);
  const SgNurbsSurface tooHigh(18, knots.data(), 18, knots.data(), 9, 9, cvs.data(), 0);
  EXPECT_EQ(tooHigh.uDegree(), 8);
  EXPECT_FALSE(tooHigh.isValid());
  Vec P(1, 1, 1), du, dv;
  EXPECT_FALSE(tooHigh.eval(0.5, 0.5, P, du, dv));
  EXPECT_EQ(P, Vec());
  EXPECT_EQ(tooHigh.surfaceArea(1), 0.0);
  EXPECT_EQ(tooHigh.arcLengthU(0.5, 1), 0.0);
  EXPECT_FALSE(tooHigh.boundingBox().valid);

  // Decreasing knots.
  const double bad[4] = {0, 1, 0.5, 1};
  const double cv4[12] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0};
  EXPECT_FALSE(SgNurbsSurface(4, bad, 4, bad, 2, 2, cv4, 0).isValid());

  const SgNurbsSurface empty;
  EXPECT_FALSE(empty.eval(0, 0, P, du, dv));
  EXPECT_EQ(empty.surfaceArea(2), 0.0);
  SgNurbsSurfaceMesh mesh;
  EXPECT_FALSE(empty.mesh(mesh, 2));
}

TEST(SgNurbsSurfaceText, ExportWritesTheDocumentedLines) {
  const SgNurbsSurface s = bilinearPatch(Vec(0, 0, 0), Vec(1, 0, 0), Vec(0, 1, 0.5), Vec(1, 1, 2));
  std::ostringstream out;
  ASSERT_TRUE(s.exportToStream(out));
  EXPECT_EQ(out.str(),
            "\t\t4 4\n"
            "\t\t2 2\n"
            "\t\t0\n"
            "\t\t0 0 1 1 \n"
            "\t\t0 0 1 1 \n"
            "\t\t0 0 0 1 0 0 0 1 0.5 1 1 2 \n");
}

TEST(SgNurbsSurfaceText, ExportImportRoundTrip) {
  for (const SgNurbsSurface& s : {bumpyBicubic(), bumpyRational(), quarterCylinder(1.0 / 3.0)}) {
    std::stringstream text;
    ASSERT_TRUE(s.exportToStream(text));
    SgNurbsSurface back;
    ASSERT_TRUE(back.importFromStream(text));
    EXPECT_EQ(back.numUKnots(), s.numUKnots());
    EXPECT_EQ(back.numVKnots(), s.numVKnots());
    EXPECT_EQ(back.numUControlPoints(), s.numUControlPoints());
    EXPECT_EQ(back.numVControlPoints(), s.numVControlPoints());
    EXPECT_EQ(back.uDegree(), s.uDegree());
    EXPECT_EQ(back.vDegree(), s.vDegree());
    EXPECT_EQ(back.w(), s.w());
    for (int k = 0; k < s.numUKnots(); ++k) EXPECT_EQ(back.uKnotVector()[k], s.uKnotVector()[k]);
    for (int k = 0; k < s.numVKnots(); ++k) EXPECT_EQ(back.vKnotVector()[k], s.vKnotVector()[k]);
    const int values = (3 + s.w()) * s.numUControlPoints() * s.numVControlPoints();
    for (int k = 0; k < values; ++k) EXPECT_EQ(back.CVs()[k], s.CVs()[k]) << k;
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
