#include "geometry/SgSubdSurface.h"
#include "geometry/SgSurfaceCache.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

namespace {

using Vec = SgVec3T<double>;

struct Cage {
  std::vector<float> verts;
  std::vector<int> counts;
  std::vector<int> faceVerts;

  int nVerts() const { return static_cast<int>(verts.size() / 3); }
  int nFaces() const { return static_cast<int>(counts.size()); }
  Vec vert(int i) const {
    return Vec(verts[size_t(i) * 3], verts[size_t(i) * 3 + 1], verts[size_t(i) * 3 + 2]);
  }
  SgSubdSurface build(int cageFaceCount = 0) const {
    return SgSubdSurface(nVerts(), verts.data(), nFaces(), counts.data(), faceVerts.data(),
                         cageFaceCount);
  }
};

// Unit cube centred at the origin, faces wound outwards.
Cage unitCube() {
  Cage c;
  c.verts = {-.5f, -.5f, .5f,  .5f, -.5f, .5f,  -.5f, .5f, .5f,  .5f, .5f, .5f,
             -.5f, .5f,  -.5f, .5f, .5f,  -.5f, -.5f, -.5f, -.5f, .5f, -.5f, -.5f};
  c.counts = {4, 4, 4, 4, 4, 4};
  c.faceVerts = {0, 1, 3, 2, 2, 3, 5, 4, 4, 5, 7, 6, 6, 7, 1, 0, 1, 7, 5, 3, 6, 0, 2, 4};
  return c;
}

// One planar unit quad in z = 0.
Cage unitQuad() {
  Cage c;
  c.verts = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
  c.counts = {4};
  c.faceVerts = {0, 1, 2, 3};
  return c;
}

// A regular n-gon of the given radius in z = 0.
Cage regularPolygon(int n, double radius) {
  Cage c;
  for (int k = 0; k < n; ++k) {
    c.verts.push_back(static_cast<float>(radius * std::cos(2 * M_PI * k / n)));
    c.verts.push_back(static_cast<float>(radius * std::sin(2 * M_PI * k / n)));
    c.verts.push_back(0.0f);
    c.faceVerts.push_back(k);
  }
  c.counts = {n};
  return c;
}

// A closed mixed mesh: a pentagonal prism (two pentagons, five quads side faces), with one side
// split into two triangles, so that it holds 5-, 4- and 3-sided faces.
Cage mixedPrism() {
  Cage c;
  for (int layer = 0; layer < 2; ++layer)
    for (int k = 0; k < 5; ++k) {
      c.verts.push_back(static_cast<float>(std::cos(2 * M_PI * k / 5)));
      c.verts.push_back(static_cast<float>(std::sin(2 * M_PI * k / 5)));
      c.verts.push_back(layer ? 1.2f : 0.0f);
    }
  c.counts.push_back(5);  // bottom, wound downwards
  for (int k = 4; k >= 0; --k) c.faceVerts.push_back(k);
  for (int k = 0; k < 5; ++k) {
    const int a = k, b = (k + 1) % 5;
    if (k == 2) {  // two triangles
      c.counts.push_back(3);
      c.faceVerts.insert(c.faceVerts.end(), {a, b, b + 5});
      c.counts.push_back(3);
      c.faceVerts.insert(c.faceVerts.end(), {a, b + 5, a + 5});
    } else {
      c.counts.push_back(4);
      c.faceVerts.insert(c.faceVerts.end(), {a, b, b + 5, a + 5});
    }
  }
  c.counts.push_back(5);  // top
  for (int k = 0; k < 5; ++k) c.faceVerts.push_back(k + 5);
  return c;
}

// A cube whose faces are each cut into res x res quads (shared vertices).
Cage subdividedCube(int res) {
  Cage c;
  std::vector<int> index;
  auto vertexAt = [&](int x, int y, int z) {
    const int key = (x * (res + 1) + y) * (res + 1) + z;
    if (index.empty()) index.assign(size_t((res + 1) * (res + 1) * (res + 1)), -1);
    if (index[size_t(key)] < 0) {
      index[size_t(key)] = c.nVerts();
      c.verts.push_back(float(x) / res - 0.5f);
      c.verts.push_back(float(y) / res - 0.5f);
      c.verts.push_back(float(z) / res - 0.5f);
    }
    return index[size_t(key)];
  };
  // For each of the six faces: a fixed axis value and two running axes, wound outwards.
  for (int axis = 0; axis < 3; ++axis)
    for (int side = 0; side < 2; ++side)
      for (int a = 0; a < res; ++a)
        for (int b = 0; b < res; ++b) {
          int q[4][3];
          const int corners[4][2] = {{a, b}, {a + 1, b}, {a + 1, b + 1}, {a, b + 1}};
          for (int k = 0; k < 4; ++k) {
            const int s = corners[side ? k : 3 - k][0], t = corners[side ? k : 3 - k][1];
            q[k][axis] = side * res;
            q[k][(axis + 1) % 3] = s;
            q[k][(axis + 2) % 3] = t;
          }
          c.counts.push_back(4);
          for (int k = 0; k < 4; ++k) c.faceVerts.push_back(vertexAt(q[k][0], q[k][1], q[k][2]));
        }
  return c;
}

// A 6 x 6 grid of vertices at x, y in {-2, ..., 3} lifted to z = a x^2 + b y^2.
Cage paraboloidGrid(double a, double b) {
  Cage c;
  for (int j = 0; j < 6; ++j)
    for (int i = 0; i < 6; ++i) {
      const double x = i - 2, y = j - 2;
      c.verts.push_back(float(x));
      c.verts.push_back(float(y));
      c.verts.push_back(float(a * x * x + b * y * y));
    }
  for (int j = 0; j < 5; ++j)
    for (int i = 0; i < 5; ++i) {
      c.counts.push_back(4);
      c.faceVerts.insert(c.faceVerts.end(),
                         {j * 6 + i, j * 6 + i + 1, (j + 1) * 6 + i + 1, (j + 1) * 6 + i});
    }
  return c;
}

void expectNear(const Vec& a, const Vec& b, double tol) {
  EXPECT_NEAR(a.x, b.x, tol);
  EXPECT_NEAR(a.y, b.y, tol);
  EXPECT_NEAR(a.z, b.z, tol);
}

// The Catmull-Clark limit of a vertex of an all-quad closed mesh:
// (n^2 v + 4 sum(edge neighbours) + sum(face-diagonal vertices)) / (n (n + 5)).
Vec catmullClarkLimit(const Cage& c, int vertex) {
  std::set<int> edgeNeighbours;
  Vec diagonals;
  int offset = 0;
  for (int f = 0; f < c.nFaces(); ++f) {
    const int* fv = c.faceVerts.data() + offset;
    for (int k = 0; k < 4; ++k) {
      if (fv[k] != vertex) continue;
      edgeNeighbours.insert(fv[(k + 1) % 4]);
      edgeNeighbours.insert(fv[(k + 3) % 4]);
      diagonals += c.vert(fv[(k + 2) % 4]);
    }
    offset += c.counts[size_t(f)];
  }
  Vec edges;
  for (int e : edgeNeighbours) edges += c.vert(e);
  const double n = double(edgeNeighbours.size());
  return (c.vert(vertex) * (n * n) + edges * 4.0 + diagonals) * (1.0 / (n * (n + 5)));
}

// Central differences against eval's derivatives, within tol * |difference| + 1e-6.
void checkDerivatives(const SgSubdSurface& s, int face, double u, double v, double tol) {
  const double h = 1e-6;
  Vec P, du, dv, Pp, Pm, s1, s2;
  ASSERT_TRUE(s.eval(face, u, v, P, du, dv)) << face;
  ASSERT_TRUE(s.eval(face, u + h, v, Pp, s1, s2));
  ASSERT_TRUE(s.eval(face, u - h, v, Pm, s1, s2));
  const Vec fdu = (Pp - Pm) * (0.5 / h);
  EXPECT_LE((du - fdu).length(), tol * fdu.length() + 1e-6) << face << " " << u << " " << v;
  ASSERT_TRUE(s.eval(face, u, v + h, Pp, s1, s2));
  ASSERT_TRUE(s.eval(face, u, v - h, Pm, s1, s2));
  const Vec fdv = (Pp - Pm) * (0.5 / h);
  EXPECT_LE((dv - fdv).length(), tol * fdv.length() + 1e-6) << face << " " << u << " " << v;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Limit surface

TEST(SgSubdSurfaceLimit, CubeCornersMatchTheCatmullClarkLimit) {
  const Cage cube = unitCube();
  const SgSubdSurface s = cube.build();
  ASSERT_TRUE(s.isValid());
  ASSERT_EQ(s.nFaces(), 6);
  for (int vtx = 0; vtx < 8; ++vtx) {
    const Vec expected = catmullClarkLimit(cube, vtx);
    // Valence 3 on the unit cube: every corner goes to (+-1/4, +-1/4, +-1/4).
    expectNear(expected, cube.vert(vtx) * 0.5, 1e-15);
    const float* limit = s.limitVerts(unsigned(vtx));
    ASSERT_NE(limit, nullptr);
    expectNear(Vec(limit[0], limit[1], limit[2]), expected, 1e-7);
  }
  // The corners of every face evaluate to the limits of its vertices.
  const double corners[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  for (int f = 0; f < 6; ++f)
    for (int k = 0; k < 4; ++k) {
      Vec P, du, dv;
      ASSERT_TRUE(s.eval(f, corners[k][0], corners[k][1], P, du, dv));
      expectNear(P, catmullClarkLimit(cube, cube.faceVerts[size_t(f * 4 + k)]), 1e-12);
    }
  // By symmetry the face centre lies on the axis through it.
  Vec P, du, dv;
  ASSERT_TRUE(s.eval(0, 0.5, 0.5, P, du, dv));
  EXPECT_NEAR(P.x, 0.0, 1e-12);
  EXPECT_NEAR(P.y, 0.0, 1e-12);
  EXPECT_GT(P.z, 0.25);
  EXPECT_LT(P.z, 0.5);
  // dPdu x dPdv points outwards.
  EXPECT_GT(du.cross(dv).z, 0.0);
}

TEST(SgSubdSurfaceLimit, EveryVertexLimitFollowsTheMask) {
  const Cage cube = subdividedCube(3);
  const SgSubdSurface s = cube.build();
  ASSERT_EQ(s.nFaces(), 6 * 9);
  ASSERT_EQ(s.nVerts(), 56);
  for (int vtx = 0; vtx < cube.nVerts(); ++vtx) {
    const float* limit = s.limitVerts(unsigned(vtx));
    expectNear(Vec(limit[0], limit[1], limit[2]), catmullClarkLimit(cube, vtx), 1e-6);
  }
}

TEST(SgSubdSurfaceLimit, RegularGridReproducesTheParaboloid) {
  // On a regular region the limit is the uniform bicubic B-spline, which maps the vertex grid
  // linearly and turns x^2 into x^2 + 1/3.
  const double a = 0.3, b = -0.2;
  const SgSubdSurface s = paraboloidGrid(a, b).build();
  const int face = 2 * 5 + 2;  // spans x, y in [0, 1]
  for (double u : {0.0, 0.25, 0.5, 0.8})
    for (double v : {0.0, 0.4, 1.0}) {
      Vec P, du, dv;
      ASSERT_TRUE(s.eval(face, u, v, P, du, dv));
      expectNear(P, Vec(u, v, a * (u * u + 1.0 / 3) + b * (v * v + 1.0 / 3)), 1e-6);
      expectNear(du, Vec(1, 0, 2 * a * u), 1e-6);
      expectNear(dv, Vec(0, 1, 2 * b * v), 1e-6);

      // Principal curvatures of the graph z = f(x, y).
      const double fx = 2 * a * u, fy = 2 * b * v, fxx = 2 * a, fyy = 2 * b;
      const double E = 1 + fx * fx, F = fx * fy, G = 1 + fy * fy;
      const double root = std::sqrt(1 + fx * fx + fy * fy);
      const double L = fxx / root, N = fyy / root;
      const double K = L * N / (E * G - F * F);
      const double H = (E * N + G * L) / (2 * (E * G - F * F));
      double k1, k2;
      ASSERT_TRUE(s.evalCurvature(face, u, v, k1, k2));
      EXPECT_NEAR(k1, H + std::sqrt(H * H - K), 1e-5);
      EXPECT_NEAR(k2, H - std::sqrt(H * H - K), 1e-5);
    }
  double k1, k2;
  ASSERT_TRUE(s.evalCurvature(face, 0.0, 0.0, k1, k2));
  EXPECT_NEAR(k1, 2 * a, 1e-5);
  EXPECT_NEAR(k2, 2 * b, 1e-5);
}

TEST(SgSubdSurfaceLimit, DerivativesMatchFiniteDifferences) {
  const SgSubdSurface cube = unitCube().build();
  const SgSubdSurface prism = mixedPrism().build();
  const SgSubdSurface prismOrig = mixedPrism().build(1);
  // Away from the corner cells every cube face is made of regular patches: exact derivatives.
  for (int f = 0; f < cube.nFaces(); ++f)
    for (double u : {0.3, 0.5, 0.7})
      for (double v : {0.05, 0.5, 0.9}) checkDerivatives(cube, f, u, v, 1e-7);
  // Near extraordinary vertices the evaluator's Gregory patches approximate the derivative of
  // P (within about 1.5%); a wrong parameter scale or orientation would be off by far more.
  const double gregory = 0.03;
  for (int f = 0; f < cube.nFaces(); ++f)
    for (double u : {0.1, 0.9})
      for (double v : {0.05, 0.2, 0.85}) checkDerivatives(cube, f, u, v, gregory);
  // Logical faces, away from the strip borders of the n-sided ones.
  for (int f = 0; f < prism.nFaces(); ++f) {
    const int n = prism.nVertsPerFace()[f];
    const int strips = n == 4 ? 1 : n;
    for (int k = 0; k < strips; ++k)
      for (double v : {0.2, 0.6}) checkDerivatives(prism, f, (k + 0.3) / strips, v, gregory);
  }
  // Original faces.
  for (int f = 0; f < prismOrig.nFaces(); ++f)
    for (double u : {0.3, 0.6})
      for (double v : {0.3, 0.8}) checkDerivatives(prismOrig, f, u, v, gregory);
}

TEST(SgSubdSurfaceLimit, PlanarPolygonStaysInItsPlane) {
  const SgSubdSurface s = regularPolygon(6, 2.0).build();
  for (double u = 0.0; u <= 1.0; u += 0.05)
    for (double v = 0.0; v <= 1.0; v += 0.25) {
      Vec P, du, dv;
      ASSERT_TRUE(s.eval(0, u, v, P, du, dv));
      EXPECT_NEAR(P.z, 0.0, 1e-12);
      EXPECT_LE(std::hypot(P.x, P.y), 2.0 + 1e-9);
      double k1, k2;
      ASSERT_TRUE(s.evalCurvature(0, u, v, k1, k2));
      EXPECT_NEAR(k1, 0.0, 1e-9);
      EXPECT_NEAR(k2, 0.0, 1e-9);
    }
}

TEST(SgSubdSurfaceLimit, OneAndTwoThreadsGiveIdenticalResults) {
  const SgSubdSurface s = mixedPrism().build();
  const int count = 30000;
  auto evalRange = [&s](int begin, int step, std::vector<double>& out) {
    for (int k = begin; k < count; k += step) {
      const int face = k % s.nFaces();
      const double u = (k % 101) / 100.0, v = (k % 89) / 88.0;
      Vec P, du, dv;
      double k1 = 0, k2 = 0;
      s.eval(face, u, v, P, du, dv);
      s.evalCurvature(face, u, v, k1, k2);
      double* o = out.data() + size_t(k) * 11;
      const double values[11] = {P.x, P.y, P.z, du.x, du.y, du.z, dv.x, dv.y, dv.z, k1, k2};
      std::copy(values, values + 11, o);
    }
  };
  std::vector<double> serial(size_t(count) * 11), parallel(size_t(count) * 11);
  evalRange(0, 1, serial);
  std::thread a(evalRange, 0, 2, std::ref(parallel));
  std::thread b(evalRange, 1, 2, std::ref(parallel));
  a.join();
  b.join();
  for (size_t k = 0; k < serial.size(); ++k) ASSERT_EQ(serial[k], parallel[k]) << k;
}

// ---------------------------------------------------------------------------------------------
// Areas and lengths

TEST(SgSubdSurfaceMeasures, PlanarUnitQuadHasAreaOne) {
  const SgSubdSurface s = unitQuad().build();
  EXPECT_DOUBLE_EQ(s.area(0), 1.0);
  EXPECT_DOUBLE_EQ(s.lengthU(0, 0.5), 1.0);
  EXPECT_DOUBLE_EQ(s.lengthV(0, 0.25), 1.0);
  // The limit of a lone quad with interpolated corners is the quad itself.
  int nu = 0, nv = 0;
  std::vector<double> areas;
  EXPECT_NEAR(s.calculateSubAreas(0, 1, nu, nv, areas), 1.0, 1e-6);
}

TEST(SgSubdSurfaceMeasures, CageAreaAndLengthsOfAQuad) {
  // A 2 x 3 rectangle, and a trapezoid whose lengths vary with t.
  Cage c;
  c.verts = {0, 0, 0, 2, 0, 0, 2, 3, 0, 0, 3, 0, 10, 0, 0, 14, 0, 0, 12, 2, 0, 11, 2, 0};
  c.counts = {4, 4};
  c.faceVerts = {0, 1, 2, 3, 4, 5, 6, 7};
  const SgSubdSurface s = c.build();
  EXPECT_DOUBLE_EQ(s.area(0), 6.0);
  EXPECT_DOUBLE_EQ(s.lengthU(0, 0.3), 3.0);  // across V at constant u
  EXPECT_DOUBLE_EQ(s.lengthV(0, 0.3), 2.0);
  EXPECT_DOUBLE_EQ(s.area(1), 0.5 * (4 + 1) * 2);
  EXPECT_DOUBLE_EQ(s.lengthV(1, 0.0), 4.0);
  EXPECT_DOUBLE_EQ(s.lengthV(1, 1.0), 1.0);
  EXPECT_NEAR(s.lengthU(1, 0.0), std::hypot(1.0, 2.0), 1e-15);
}

TEST(SgSubdSurfaceMeasures, PolygonAreaIsTheSumOfItsSubFaces) {
  const double r = 2.0;
  const SgSubdSurface s = regularPolygon(6, r).build();
  EXPECT_NEAR(s.area(0), 1.5 * std::sqrt(3.0) * r * r, 1e-6);
  const SgSubdSurface orig = regularPolygon(6, r).build(1);
  ASSERT_EQ(orig.nFaces(), 6);
  double sum = 0.0;
  for (int f = 0; f < 6; ++f) sum += orig.area(f);
  EXPECT_NEAR(sum, s.area(0), 1e-12);
  // A regular polygon's sub-faces are congruent.
  EXPECT_NEAR(orig.area(0), orig.area(5), 1e-6);
}

TEST(SgSubdSurfaceMeasures, SubAreasSumToTheTotal) {
  const SgSubdSurface s = mixedPrism().build();
  for (int f = 0; f < s.nFaces(); ++f) {
    int nu = 0, nv = 0;
    std::vector<double> areas;
    const double total = s.calculateSubAreas(f, 3, nu, nv, areas);
    EXPECT_EQ(nu, 8);  // 2^ceil(log2(6))
    EXPECT_EQ(nv, 8);
    ASSERT_EQ(areas.size(), 64u);
    double sum = 0.0;
    for (double a : areas) {
      EXPECT_GE(a, 0.0);
      sum += a;
    }
    EXPECT_NEAR(sum, total, 1e-12 * total);
    // Cells are float-rounded triangles: every cell is a sum of two float values halved.
    for (double a : areas) EXPECT_GT(a, 0.0);
    EXPECT_GT(total, 0.0);
  }
  int nu = 0, nv = 0;
  std::vector<double> areas;
  s.calculateSubAreas(0, 4, nu, nv, areas);
  EXPECT_EQ(nu, 8);
  s.calculateSubAreas(0, 5, nu, nv, areas);
  EXPECT_EQ(nu, 16);
}

TEST(SgSubdSurfaceMeasures, SubAreasConvergeOnAFlatPolygon) {
  // Planar, so the limit surface is a flat region inside the hexagon.
  const SgSubdSurface s = regularPolygon(6, 1.0).build(1);
  int nu, nv;
  std::vector<double> areas;
  const double coarse = s.calculateSubAreas(0, 1, nu, nv, areas);
  const double fine = s.calculateSubAreas(0, 16, nu, nv, areas);
  EXPECT_GT(coarse, 0.0);
  EXPECT_NEAR(coarse, fine, 0.05 * fine);
  EXPECT_LT(fine * 6, 1.5 * std::sqrt(3.0) + 1e-6);
}

TEST(SgSubdSurfaceMeasures, BadFacesAndParametersAnswerZero) {
  const SgSubdSurface s = unitCube().build();
  Vec P, du, dv;
  double a, b;
  EXPECT_EQ(s.area(6), 0.0);
  EXPECT_EQ(s.area(-1), 0.0);
  EXPECT_FALSE(s.eval(6, 0.5, 0.5, P, du, dv));
  EXPECT_FALSE(s.eval(-1, 0.5, 0.5, P, du, dv));
  EXPECT_FALSE(s.eval(0, 1.5, 0.5, P, du, dv));
  EXPECT_FALSE(s.eval(0, 0.5, -0.1, P, du, dv));
  EXPECT_FALSE(s.eval(0, std::nan(""), 0.5, P, du, dv));
  EXPECT_EQ(P, Vec());
  EXPECT_FALSE(s.evalCurvature(6, 0.5, 0.5, a, b));
  EXPECT_FALSE(s.evalUV(0, 0.5, 0.5, a, b));  // no texture coordinates
  EXPECT_EQ(s.lengthU(6, 0.5), 0.0);
  EXPECT_EQ(s.lengthV(0, 1.5), 0.0);
  int nu = 1, nv = 1;
  std::vector<double> areas(3);
  EXPECT_EQ(s.calculateSubAreas(6, 2, nu, nv, areas), 0.0);
  EXPECT_EQ(nu, 0);
  EXPECT_TRUE(areas.empty());
  EXPECT_EQ(s.calculateSubAreas(0, 0, nu, nv, areas), 0.0);
  EXPECT_FALSE(s.faceBoundingBox(6).valid);
  EXPECT_EQ(s.faceVerts(6), nullptr);
  EXPECT_EQ(s.verts(8), nullptr);
  EXPECT_EQ(s.limitVerts(8), nullptr);
}

// ---------------------------------------------------------------------------------------------
// Numberings

TEST(SgSubdSurfaceNumbering, NgonSubFacesMapBackToTheirFace) {
  const Cage cage = mixedPrism();
  const SgSubdSurface s = cage.build();
  // Faces: pentagon, 2 quads, 2 triangles, 2 quads, pentagon.
  ASSERT_EQ(s.nFaces(), 8);
  EXPECT_EQ(s.nFaces(true), 5 + 4 + 3 + 3 + 5);
  std::vector<int> ids;
  int expectedFirst = 0;
  std::set<int> seen;
  for (int f = 0; f < s.nFaces(); ++f) {
    ASSERT_TRUE(s.logicalToOrig(f, ids, true));
    const int n = cage.counts[size_t(f)];
    ASSERT_EQ(int(ids.size()), n == 4 ? 1 : n);
    for (size_t k = 0; k < ids.size(); ++k) {
      EXPECT_EQ(ids[k], expectedFirst + int(k));  // consecutive, in cage order
      std::vector<int> back{-7};
      ASSERT_TRUE(s.origToLogical(ids[k], back, false));
      ASSERT_EQ(back.size(), 2u);  // appended
      EXPECT_EQ(back[1], f);
      seen.insert(ids[k]);
    }
    expectedFirst += int(ids.size());
  }
  EXPECT_EQ(int(seen.size()), s.nFaces(true));
  EXPECT_FALSE(s.origToLogical(s.nFaces(true), ids, true));
  EXPECT_TRUE(ids.empty());
  EXPECT_FALSE(s.logicalToOrig(8, ids, false));
  // Appending without clearing.
  ids = {42};
  s.logicalToOrig(0, ids, false);
  EXPECT_EQ(ids.size(), 6u);
}

TEST(SgSubdSurfaceNumbering, SubFaceCornersAndStrips) {
  const Cage cage = mixedPrism();
  const SgSubdSurface logical = cage.build();
  const SgSubdSurface orig = cage.build(3);
  EXPECT_TRUE(logical.useLogicalIds());
  EXPECT_TRUE(orig.isCageFaceEvaluation());
  EXPECT_FALSE(orig.useLogicalIds());
  EXPECT_EQ(orig.cageFaceCount(), 3);
  EXPECT_EQ(orig.nFaces(), logical.nFaces(true));

  // Sub-face k of the bottom pentagon starts at the limit of the face's vertex k.
  for (int k = 0; k < 5; ++k) {
    Vec P, du, dv;
    ASSERT_TRUE(orig.eval(k, 0.0, 0.0, P, du, dv));
    const float* limit = orig.limitVerts(unsigned(cage.faceVerts[size_t(k)]));
    expectNear(P, Vec(limit[0], limit[1], limit[2]), 1e-6);
    // Its (1, 1) corner is the face centre, shared by all sub-faces.
    Vec C, C0;
    ASSERT_TRUE(orig.eval(k, 1.0, 1.0, C, du, dv));
    ASSERT_TRUE(orig.eval(0, 1.0, 1.0, C0, du, dv));
    expectNear(C, C0, 1e-12);
    // u runs towards the next vertex: (1, 0) of sub-face k is (0, 1) of sub-face k + 1.
    Vec A, B;
    ASSERT_TRUE(orig.eval(k, 1.0, 0.0, A, du, dv));
    ASSERT_TRUE(orig.eval((k + 1) % 5, 0.0, 1.0, B, du, dv));
    expectNear(A, B, 1e-12);
  }

  // A logical n-gon is cut into n strips along u.
  for (int k = 0; k < 5; ++k)
    for (double v : {0.0, 0.35, 1.0}) {
      Vec P, du, dv, Q, qu, qv;
      ASSERT_TRUE(logical.eval(0, (k + 0.5) / 5, v, P, du, dv));
      ASSERT_TRUE(orig.eval(k, 0.5, v, Q, qu, qv));
      expectNear(P, Q, 1e-12);
      expectNear(du, qu * 5.0, 1e-9);
      expectNear(dv, qv, 1e-12);
    }
  // Quads and triangles agree between the two modes too.
  std::vector<int> ids;
  logical.logicalToOrig(3, ids, true);  // the first triangle
  ASSERT_EQ(ids.size(), 3u);
  EXPECT_NEAR(logical.area(3), orig.area(ids[0]) + orig.area(ids[1]) + orig.area(ids[2]), 1e-12);
  logical.logicalToOrig(1, ids, true);  // a quad
  ASSERT_EQ(ids.size(), 1u);
  Vec P, du, dv, Q, qu, qv;
  logical.eval(1, 0.3, 0.7, P, du, dv);
  orig.eval(ids[0], 0.3, 0.7, Q, qu, qv);
  EXPECT_EQ(P, Q);
  EXPECT_EQ(du, qu);
}

TEST(SgSubdSurfaceNumbering, CountsOfTheOriginalMesh) {
  const SgSubdSurface s = mixedPrism().build();
  EXPECT_EQ(s.nVerts(), 10);
  // Each of 2 pentagons and 2 triangles adds a centre; their distinct edges: 5 + 5 (pentagons),
  // plus the triangles' 5 edges, of which 2 are shared with the pentagons and 1 between them.
  EXPECT_EQ(s.nVerts(true), 10 + 4 + (5 + 5 + 5 - 2));
  EXPECT_EQ(s.nFaceVerts(), 5 + 4 * 4 + 3 * 2 + 5);
  ASSERT_NE(s.nVertsPerFace(), nullptr);
  EXPECT_EQ(s.nVertsPerFace()[3], 3);
  EXPECT_EQ(s.faceVerts(1)[0], 0);
  EXPECT_EQ(s.faceVerts(0) + 5, s.faceVerts(1));
  EXPECT_FLOAT_EQ(s.verts(6)[2], 1.2f);
}

// ---------------------------------------------------------------------------------------------
// Boxes, texture coordinates, updates, text

TEST(SgSubdSurfaceBounds, BoxesHoldTheLimitSurface) {
  const SgSubdSurface s = mixedPrism().build();
  const SgBox3T<double> cage = s.cageBoundingBox();
  ASSERT_TRUE(cage.valid);
  EXPECT_NEAR(cage.min.z, 0.0, 1e-7);
  EXPECT_NEAR(cage.size.z, 1.2, 1e-6);
  for (int f = 0; f < s.nFaces(); ++f) {
    const SgBox3T<double> box = s.faceBoundingBox(f);
    ASSERT_TRUE(box.valid);
    for (double u = 0; u <= 1.0; u += 0.125)
      for (double v = 0; v <= 1.0; v += 0.125) {
        Vec P, du, dv;
        ASSERT_TRUE(s.eval(f, u, v, P, du, dv));
        EXPECT_TRUE(box.contains(P)) << f << " " << u << " " << v;
        EXPECT_TRUE(cage.contains(P));
      }
  }
  const SgBox3T<double> set = s.faceSetBoundingBox({0, 7, 99, -3});
  EXPECT_EQ(set, SgBox3T<double>::unionOf(s.faceBoundingBox(0), s.faceBoundingBox(7)));
  EXPECT_FALSE(s.faceSetBoundingBox({99}).valid);
  EXPECT_FALSE(SgSubdSurface().cageBoundingBox().valid);
}

TEST(SgSubdSurfaceUV, TextureCoordinatesAreBilinearOnTheFace) {
  const Cage quad = unitQuad();
  const float uvs[8] = {0.1f, 0.2f, 0.9f, 0.2f, 0.9f, 0.8f, 0.1f, 0.8f};
  const SgSubdSurface s(quad.nVerts(), quad.verts.data(), 1, quad.counts.data(),
                        quad.faceVerts.data(), 4, uvs, nullptr, nullptr);
  double a, b;
  ASSERT_TRUE(s.evalUV(0, 0.25, 0.5, a, b));
  EXPECT_NEAR(a, 0.1 + 0.8 * 0.25, 1e-7);
  EXPECT_NEAR(b, 0.2 + 0.6 * 0.5, 1e-7);

  // A pentagon with its own UV indices: the sub-faces meet at the centre of the UVs.
  const Cage pent = regularPolygon(5, 1.0);
  const float puv[10] = {0, 0, 1, 0, 1, 1, 0.5f, 1.5f, 0, 1};
  const int uvIndex[5] = {4, 3, 2, 1, 0};
  const int uvCounts[1] = {5};
  const SgSubdSurface p(pent.nVerts(), pent.verts.data(), 1, pent.counts.data(),
                        pent.faceVerts.data(), 5, puv, uvCounts, uvIndex, 1);
  ASSERT_TRUE(p.evalUV(2, 1.0, 1.0, a, b));
  EXPECT_NEAR(a, 2.5 / 5, 1e-7);
  EXPECT_NEAR(b, 3.5 / 5, 1e-7);
  ASSERT_TRUE(p.evalUV(0, 0.0, 0.0, a, b));  // vertex 0 carries UV 4
  EXPECT_NEAR(a, 0.0, 1e-7);
  EXPECT_NEAR(b, 1.0, 1e-7);

  // UVs that do not fit the faces are dropped.
  const int wrongCounts[1] = {4};
  const SgSubdSurface dropped(pent.nVerts(), pent.verts.data(), 1, pent.counts.data(),
                              pent.faceVerts.data(), 5, puv, wrongCounts, uvIndex);
  EXPECT_TRUE(dropped.isValid());
  EXPECT_FALSE(dropped.evalUV(0, 0.5, 0.5, a, b));
}

TEST(SgSubdSurfaceUpdate, UpdateVertsMovesTheSurfaceAndKeepsTheTopology) {
  const Cage cube = unitCube();
  SgSubdSurface s = cube.build();
  Vec before, du0, dv0;
  ASSERT_TRUE(s.eval(2, 0.3, 0.6, before, du0, dv0));
  std::vector<float> doubled(cube.verts);
  for (float& x : doubled) x *= 2.0f;
  ASSERT_TRUE(s.updateVerts(doubled.data(), 0, cube.nVerts()));
  EXPECT_EQ(s.nFaces(), 6);
  Vec after, du, dv;
  ASSERT_TRUE(s.eval(2, 0.3, 0.6, after, du, dv));
  expectNear(after, before * 2.0, 1e-12);
  expectNear(du, du0 * 2.0, 1e-12);
  EXPECT_NEAR(s.limitVerts(3)[0], 0.5f, 1e-6);
  EXPECT_DOUBLE_EQ(s.area(0), 4.0);
  EXPECT_NEAR(s.cageBoundingBox().size.x, 2.0, 1e-7);

  // A partial update moves one vertex only.
  const float lifted[3] = {1.0f, 1.0f, 3.0f};
  ASSERT_TRUE(s.updateVerts(lifted, 3, 1));
  EXPECT_FLOAT_EQ(s.verts(3)[2], 3.0f);
  EXPECT_FLOAT_EQ(s.verts(2)[2], 1.0f);

  EXPECT_FALSE(s.updateVerts(lifted, 8, 1));
  EXPECT_FALSE(s.updateVerts(lifted, -1, 1));
  EXPECT_FALSE(s.updateVerts(nullptr, 0, 1));
  EXPECT_FLOAT_EQ(s.verts(3)[2], 3.0f);
}

TEST(SgSubdSurfaceBuild, MalformedCagesLeaveAnEmptySurface) {
  const Cage cube = unitCube();
  std::vector<int> badIndex(cube.faceVerts);
  badIndex[5] = 8;
  const SgSubdSurface outOfRange(8, cube.verts.data(), 6, cube.counts.data(), badIndex.data());
  EXPECT_FALSE(outOfRange.isValid());
  EXPECT_EQ(outOfRange.nFaces(), 0);
  Vec P, du, dv;
  EXPECT_FALSE(outOfRange.eval(0, 0.5, 0.5, P, du, dv));
  EXPECT_EQ(outOfRange.area(0), 0.0);

  const int twoSided[1] = {2};
  EXPECT_FALSE(SgSubdSurface(8, cube.verts.data(), 1, twoSided, cube.faceVerts.data()).isValid());
  std::vector<int> repeated(cube.faceVerts);
  repeated[1] = repeated[0];
  EXPECT_FALSE(SgSubdSurface(8, cube.verts.data(), 6, cube.counts.data(), repeated.data()).isValid());
  EXPECT_FALSE(SgSubdSurface(-1, nullptr, 0, nullptr, nullptr).isValid());

  const SgSubdSurface empty;
  EXPECT_FALSE(empty.isValid());
  EXPECT_EQ(empty.nVerts(), 0);
  EXPECT_EQ(empty.nVertsPerFace(), nullptr);
  std::vector<int> ids{1};
  EXPECT_FALSE(empty.logicalToOrig(0, ids, true));
  EXPECT_TRUE(ids.empty());
  std::ostringstream out;
  EXPECT_FALSE(empty.exportToStream(out));
}

TEST(SgSubdSurfaceBuild, ExportWritesTheCage) {
  const SgSubdSurface s = unitQuad().build();
  std::ostringstream out;
  ASSERT_TRUE(s.exportToStream(out));
  EXPECT_EQ(out.str(),
            "\t\t4 1 4\n"
            "\t\t0 0 0 1 0 0 1 1 0 0 1 0 \n"
            "\t\t4 \n"
            "\t\t0 1 2 3 \n");
}

// ---------------------------------------------------------------------------------------------
// SgSurfaceCache

namespace {

class ProbeSurface : public SgSurface {
 public:
  explicit ProbeSurface(int* destroyed) : destroyed(destroyed) {}
  ~ProbeSurface() override { ++*destroyed; }

 private:
  int* destroyed;
};

}  // namespace

TEST(SgSurfaceCache, RefAndUnrefKeepTheSurfaceAliveAsLongAsItIsHeld) {
  int destroyed = 0;
  ProbeSurface* s = new ProbeSurface(&destroyed);
  SgSurfaceCache::addSgSurface("cacheTest|held", s);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|held"), s);
  SgSurfaceCache::ref(s);
  SgSurfaceCache::ref(s);
  SgSurfaceCache::unref(s);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|held"), s);
  SgSurfaceCache::unref(s);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|held"), nullptr);
  // Gone from the cache: further calls leave it alone.
  SgSurfaceCache::unref(s);
  EXPECT_EQ(destroyed, 1);
}

TEST(SgSurfaceCache, EmptyNamesAndNullSurfacesChangeNothing) {
  int destroyed = 0;
  ProbeSurface* s = new ProbeSurface(&destroyed);
  SgSurfaceCache::addSgSurface("", s);
  EXPECT_EQ(SgSurfaceCache::find(""), nullptr);
  SgSurfaceCache::ref(s);
  SgSurfaceCache::unref(s);  // not in the cache: not destroyed
  EXPECT_EQ(destroyed, 0);
  SgSurfaceCache::addSgSurface("cacheTest|null", nullptr);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|null"), nullptr);
  delete s;
}

TEST(SgSurfaceCache, AnExistingNameKeepsItsSurface) {
  int destroyedA = 0, destroyedB = 0;
  ProbeSurface* a = new ProbeSurface(&destroyedA);
  ProbeSurface* b = new ProbeSurface(&destroyedB);
  SgSurfaceCache::addSgSurface("cacheTest|shared", a);
  SgSurfaceCache::addSgSurface("cacheTest|shared", b);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|shared"), a);
  // b is held by the cache all the same, and goes at its last unref.
  SgSurfaceCache::ref(b);
  SgSurfaceCache::unref(b);
  EXPECT_EQ(destroyedB, 1);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|shared"), a);
  // A surface under two names leaves under both.
  SgSurfaceCache::addSgSurface("cacheTest|alias", a);
  SgSurfaceCache::ref(a);
  SgSurfaceCache::unref(a);
  EXPECT_EQ(destroyedA, 1);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|shared"), nullptr);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|alias"), nullptr);
}

TEST(SgSurfaceCache, HoldsRealSurfaces) {
  const Cage cube = unitCube();
  SgSubdSurface* s = new SgSubdSurface(cube.build());
  SgSurfaceCache::addSgSurface("cacheTest|cube", s);
  SgSurfaceCache::ref(s);
  SgSubdSurface* found = dynamic_cast<SgSubdSurface*>(SgSurfaceCache::find("cacheTest|cube"));
  ASSERT_EQ(found, s);
  EXPECT_EQ(found->nFaces(), 6);
  SgSurfaceCache::unref(s);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|cube"), nullptr);
}
