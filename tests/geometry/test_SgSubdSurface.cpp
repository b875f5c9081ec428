#include "geometry/SgSubdSurface.h"
#include "geometry/SgSurfaceCache.h"

#include "support/ExpectNear.h"

#include <gtest/gtest.h>
#include <opensubdiv/bfr/refinerSurfaceFactory.h>
#include <opensubdiv/far/topologyDescriptor.h>
#include <opensubdiv/far/topologyRefinerFactory.h>

#include <array>
#include <cmath>
#include <map>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using vrtest::expectNear;

struct Cage {
  std::vector<float> verts;
  std::vector<int> counts, faceVerts;

  int nVerts() const { return int(verts.size() / 3); }
  Vec vert(int i) const {
    return Vec(verts[3 * size_t(i)], verts[3 * size_t(i) + 1], verts[3 * size_t(i) + 2]);
  }
  int addVert(double x, double y, double z) {
    verts.insert(verts.end(), {float(x), float(y), float(z)});
    return nVerts() - 1;
  }
  void addFace(const std::vector<int>& vs) {
    counts.push_back(int(vs.size()));
    faceVerts.insert(faceVerts.end(), vs.begin(), vs.end());
  }
  SgSubdSurface build(int cageFaceCount = 0) const {
    return SgSubdSurface(nVerts(), verts.data(), int(counts.size()), counts.data(),
                         faceVerts.data(), cageFaceCount);
  }
};

// Unit cube centred at the origin, faces wound outwards.
Cage unitCube() {
  return {{-.5f, -.5f, .5f, .5f, -.5f, .5f, -.5f, .5f, .5f, .5f, .5f, .5f,
           -.5f, .5f, -.5f, .5f, .5f, -.5f, -.5f, -.5f, -.5f, .5f, -.5f, -.5f},
          {4, 4, 4, 4, 4, 4},
          {0, 1, 3, 2, 2, 3, 5, 4, 4, 5, 7, 6, 6, 7, 1, 0, 1, 7, 5, 3, 6, 0, 2, 4}};
}

// One planar unit quad in z = 0.
Cage unitQuad() { return {{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}, {4}, {0, 1, 2, 3}}; }

// A regular n-gon of the given radius in z = 0.
Cage regularPolygon(int n, double radius) {
  Cage c;
  std::vector<int> face;
  for (int k = 0; k < n; ++k) {
    const double angle = 2 * M_PI * k / n;
    face.push_back(c.addVert(radius * std::cos(angle), radius * std::sin(angle), 0));
  }
  c.addFace(face);
  return c;
}

// A closed pentagonal prism with one side split into two triangles: 5-, 4- and 3-sided faces.
Cage mixedPrism() {
  Cage c;
  for (int layer = 0; layer < 2; ++layer)
    for (int k = 0; k < 5; ++k)
      c.addVert(std::cos(2 * M_PI * k / 5), std::sin(2 * M_PI * k / 5), layer * 1.2);
  // Bottom (wound downwards), the sides, top.
  for (const std::vector<int>& face : std::vector<std::vector<int>>{
           {4, 3, 2, 1, 0}, {0, 1, 6, 5}, {1, 2, 7, 6}, {2, 3, 8}, {2, 8, 7}, {3, 4, 9, 8},
           {4, 0, 5, 9}, {5, 6, 7, 8, 9}})
    c.addFace(face);
  return c;
}

// A cube whose faces are each cut into res x res quads (shared vertices), wound outwards.
Cage subdividedCube(int res) {
  Cage c;
  std::map<std::array<int, 3>, int> index;
  for (size_t axis = 0; axis < 3; ++axis)
    for (int side = 0; side < 2; ++side)
      for (int a = 0; a < res; ++a)
        for (int b = 0; b < res; ++b) {
          auto at = [&](int s, int t) {  // the vertex at (s, t) on this side
            std::array<int, 3> q;
            q[axis] = side * res, q[(axis + 1) % 3] = s, q[(axis + 2) % 3] = t;
            if (!index.count(q))
              index[q] = c.addVert(float(q[0]) / res - .5f, float(q[1]) / res - .5f,
                                   float(q[2]) / res - .5f);
            return index[q];
          };
          if (side)
            c.addFace({at(a, b), at(a + 1, b), at(a + 1, b + 1), at(a, b + 1)});
          else
            c.addFace({at(a, b + 1), at(a + 1, b + 1), at(a + 1, b), at(a, b)});
        }
  return c;
}

// A 6 x 6 grid of vertices at x, y in {-2, ..., 3} lifted to z = a x^2 + b y^2.
Cage paraboloidGrid(double a, double b) {
  Cage c;
  for (int y = -2; y <= 3; ++y)
    for (int x = -2; x <= 3; ++x) c.addVert(x, y, a * x * x + b * y * y);
  for (int j = 0; j < 5; ++j)
    for (int i = 0; i < 5; ++i)
      c.addFace({j * 6 + i, j * 6 + i + 1, (j + 1) * 6 + i + 1, (j + 1) * 6 + i});
  return c;
}

// eval's point, derivatives and answer; P starts off zero so that a failed eval's reset shows.
struct Eval {
  Vec P = Vec(1, 1, 1), du, dv;
  bool ok;
  Eval(const SgSubdSurface& s, int f, double u, double v) : ok(s.eval(f, u, v, P, du, dv)) {}
  Vec point() const {
    EXPECT_TRUE(ok) << "eval failed";
    return P;
  }
};

Vec limit(const SgSubdSurface& s, int vertex) {
  const float* l = s.limitVerts(unsigned(vertex));
  if (!l) ADD_FAILURE() << "no limit for vertex " << vertex;
  return l ? Vec(l[0], l[1], l[2]) : Vec();
}

// The Catmull-Clark limit of a vertex of an all-quad closed mesh:
// (n^2 v + 4 sum(edge neighbours) + sum(face-diagonal vertices)) / (n (n + 5)).
Vec catmullClarkLimit(const Cage& c, int vertex) {
  std::set<int> edgeNeighbours;
  Vec diagonals, edges;
  for (size_t f = 0; f < c.counts.size(); ++f) {
    const int* fv = c.faceVerts.data() + f * 4;
    for (int k = 0; k < 4; ++k) {
      if (fv[k] != vertex) continue;
      edgeNeighbours.insert({fv[(k + 1) % 4], fv[(k + 3) % 4]});
      diagonals += c.vert(fv[(k + 2) % 4]);
    }
  }
  for (int e : edgeNeighbours) edges += c.vert(e);
  const double n = double(edgeNeighbours.size());
  return (c.vert(vertex) * (n * n) + edges * 4.0 + diagonals) * (1.0 / (n * (n + 5)));
}

// Central differences against eval's derivatives, within tol * |difference| + 1e-6.
void checkDerivatives(const SgSubdSurface& s, int face, double u, double v, double tol) {
  const double h = 1e-6;
  const Eval e(s, face, u, v), up(s, face, u + h, v), um(s, face, u - h, v),
      vp(s, face, u, v + h), vm(s, face, u, v - h);
  ASSERT_TRUE(e.ok && up.ok && um.ok && vp.ok && vm.ok) << face;
  const Vec fdu = (up.P - um.P) * (0.5 / h), fdv = (vp.P - vm.P) * (0.5 / h);
  EXPECT_LE((e.du - fdu).length(), tol * fdu.length() + 1e-6) << face << " " << u << " " << v;
  EXPECT_LE((e.dv - fdv).length(), tol * fdv.length() + 1e-6) << face << " " << u << " " << v;
}

// Counts its destruction, for the cache tests.
struct ProbeSurface : SgSurface {
  explicit ProbeSurface(int* destroyed) : destroyed(destroyed) {}
  ~ProbeSurface() override { ++*destroyed; }
  int* destroyed;
};

}  // namespace

// --- Limit surface

TEST(SgSubdSurfaceLimit, VertexLimitsAndCubeCornersFollowTheCatmullClarkMask) {
  const Cage cube = unitCube(), fine = subdividedCube(3);
  const SgSubdSurface s = cube.build(), sf = fine.build();
  ASSERT_EQ(std::make_tuple(s.nFaces(), sf.nFaces(), sf.nVerts()), std::make_tuple(6, 6 * 9, 56));
  // Valence 3 on the unit cube: every corner goes to (+-1/4, +-1/4, +-1/4).
  for (int vtx = 0; vtx < 8; ++vtx) {
    expectNear(catmullClarkLimit(cube, vtx), cube.vert(vtx) * 0.5, 1e-15);
    expectNear(limit(s, vtx), cube.vert(vtx) * 0.5, 1e-7);
  }
  // Valences 3 and 4.
  for (int vtx = 0; vtx < fine.nVerts(); ++vtx)
    expectNear(limit(sf, vtx), catmullClarkLimit(fine, vtx), 1e-6);
  // The corners of every face evaluate to the limits of its vertices.
  const double corners[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  for (int f = 0; f < 6; ++f)
    for (int k = 0; k < 4; ++k) {
      const Eval e(s, f, corners[k][0], corners[k][1]);
      ASSERT_TRUE(e.ok);
      expectNear(e.P, catmullClarkLimit(cube, cube.faceVerts[size_t(f * 4 + k)]), 1e-12);
    }
  // By symmetry the face centre lies on the axis through it; dPdu x dPdv points outwards.
  const Eval centre(s, 0, 0.5, 0.5);
  ASSERT_TRUE(centre.ok);
  EXPECT_NEAR(centre.P.x, 0.0, 1e-12);
  EXPECT_NEAR(centre.P.y, 0.0, 1e-12);
  EXPECT_GT(centre.P.z, 0.25);
  EXPECT_LT(centre.P.z, 0.5);
  EXPECT_GT(centre.du.cross(centre.dv).z, 0.0);
}

TEST(SgSubdSurfaceLimit, RegularGridReproducesTheParaboloid) {
  // On a regular region the limit is the uniform bicubic B-spline, which maps the vertex grid
  // linearly and turns x^2 into x^2 + 1/3.
  const double a = 0.3, b = -0.2;
  const SgSubdSurface s = paraboloidGrid(a, b).build();
  const int face = 2 * 5 + 2;  // spans x, y in [0, 1]
  for (double u : {0.0, 0.25, 0.5, 0.8})
    for (double v : {0.0, 0.4, 1.0}) {
      const Eval e(s, face, u, v);
      ASSERT_TRUE(e.ok);
      expectNear(e.P, Vec(u, v, a * (u * u + 1.0 / 3) + b * (v * v + 1.0 / 3)), 1e-6);
      expectNear(e.du, Vec(1, 0, 2 * a * u), 1e-6);
      expectNear(e.dv, Vec(0, 1, 2 * b * v), 1e-6);
      // Principal curvatures of the graph z = f(x, y).
      const double fx = 2 * a * u, fy = 2 * b * v;
      const double E = 1 + fx * fx, F = fx * fy, G = 1 + fy * fy;
      const double root = std::sqrt(1 + fx * fx + fy * fy), L = 2 * a / root, N = 2 * b / root;
      const double K = L * N / (E * G - F * F), H = (E * N + G * L) / (2 * (E * G - F * F));
      double k1, k2;
      ASSERT_TRUE(s.evalCurvature(face, u, v, k1, k2));
      EXPECT_NEAR(k1, H + std::sqrt(H * H - K), 1e-5);
      EXPECT_NEAR(k2, H - std::sqrt(H * H - K), 1e-5);
      if (u == 0.0 && v == 0.0) {
        EXPECT_NEAR(k1, 2 * a, 1e-5);
        EXPECT_NEAR(k2, 2 * b, 1e-5);
      }
    }
}

// Regular faces are evaluated by the surface's own sums, interior ones with its own B-spline
// weights; the subdivision library's evaluation of the same face is the truth it must give to
// the bit, on the boundary as inside.
TEST(SgSubdSurfaceLimit, RegularFacesGiveTheSubdivisionLibrarysValuesToTheBit) {
  using namespace OpenSubdiv;
  Cage cage = paraboloidGrid(0.3, -0.2);
  for (size_t i = 0; i < cage.verts.size(); ++i) cage.verts[i] += float(0.01 * std::sin(7.0 * double(i)));
  const SgSubdSurface ours = cage.build();

  Far::TopologyDescriptor desc;
  desc.numVertices = cage.nVerts();
  desc.numFaces = int(cage.counts.size());
  desc.numVertsPerFace = cage.counts.data();
  desc.vertIndicesPerFace = cage.faceVerts.data();
  Sdc::Options scheme;
  scheme.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
  using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
  std::unique_ptr<Far::TopologyRefiner> refiner(
      Factory::Create(desc, Factory::Options(Sdc::SCHEME_CATMARK, scheme)));
  ASSERT_TRUE(refiner);
  const Bfr::RefinerSurfaceFactory<> factory(*refiner);
  const std::vector<double> positions(cage.verts.begin(), cage.verts.end());
  const Bfr::Surface<double>::PointDescriptor point(3);

  for (int face = 0; face < desc.numFaces; ++face) {
    Bfr::Surface<double> surface;
    ASSERT_TRUE(factory.InitVertexSurface(face, &surface));
    std::vector<double> patch(size_t(surface.GetNumPatchPoints()) * 3);
    surface.GatherControlPoints(positions.data(), point, patch.data(), point);
    surface.ComputePatchPoints(patch.data(), point);
    for (double u : {0.0, 0.13, 0.5, 0.77, 1.0})
      for (double v : {0.0, 0.29, 0.61, 1.0}) {
        const double uv[2] = {u, v};
        double P[3], Du[3], Dv[3];
        surface.Evaluate(uv, patch.data(), point, P, Du, Dv);
        const Eval e(ours, face, u, v);
        ASSERT_TRUE(e.ok);
        for (int k = 0; k < 3; ++k) {
          EXPECT_EQ(e.P[k], P[k]) << face << " " << u << " " << v;
          EXPECT_EQ(e.du[k], Du[k]) << face << " " << u << " " << v;
          EXPECT_EQ(e.dv[k], Dv[k]) << face << " " << u << " " << v;
        }
      }
  }
}

TEST(SgSubdSurfaceLimit, DerivativesMatchFiniteDifferences) {
  const SgSubdSurface cube = unitCube().build(), prism = mixedPrism().build(),
                      prismOrig = mixedPrism().build(1);
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
  // Logical faces, away from the strip borders of the n-sided ones; then original faces.
  for (int f = 0; f < prism.nFaces(); ++f) {
    const int n = prism.nVertsPerFace()[f], strips = n == 4 ? 1 : n;
    for (int k = 0; k < strips; ++k)
      for (double v : {0.2, 0.6}) checkDerivatives(prism, f, (k + 0.3) / strips, v, gregory);
  }
  for (int f = 0; f < prismOrig.nFaces(); ++f)
    for (double u : {0.3, 0.6})
      for (double v : {0.3, 0.8}) checkDerivatives(prismOrig, f, u, v, gregory);
}

TEST(SgSubdSurfaceLimit, OneAndTwoThreadsGiveIdenticalResults) {
  const SgSubdSurface s = mixedPrism().build();
  const int count = 30000;
  using Values = std::array<double, 11>;
  auto evalRange = [&s](int begin, int step, std::vector<Values>& out) {
    for (int k = begin; k < count; k += step) {
      const int face = k % s.nFaces();
      const double u = (k % 101) / 100.0, v = (k % 89) / 88.0;
      const Eval e(s, face, u, v);
      double k1 = 0, k2 = 0;
      s.evalCurvature(face, u, v, k1, k2);
      out[size_t(k)] = {e.P.x,  e.P.y,  e.P.z,  e.du.x, e.du.y, e.du.z,
                        e.dv.x, e.dv.y, e.dv.z, k1,     k2};
    }
  };
  std::vector<Values> serial(count), parallel(count);
  evalRange(0, 1, serial);
  std::thread a(evalRange, 0, 2, std::ref(parallel)), b(evalRange, 1, 2, std::ref(parallel));
  a.join();
  b.join();
  for (size_t k = 0; k < serial.size(); ++k) ASSERT_EQ(serial[k], parallel[k]) << k;
}

// --- Areas and lengths

TEST(SgSubdSurfaceMeasures, AreasAndLengthsOfPlanarQuads) {
  const SgSubdSurface unit = unitQuad().build();
  EXPECT_DOUBLE_EQ(unit.area(0), 1.0);
  EXPECT_DOUBLE_EQ(unit.lengthU(0, 0.5), 1.0);
  EXPECT_DOUBLE_EQ(unit.lengthV(0, 0.25), 1.0);
  // The limit of a lone quad with interpolated corners is the quad itself.
  int nu = 0, nv = 0;
  std::vector<double> areas;
  EXPECT_NEAR(unit.calculateSubAreas(0, 1, nu, nv, areas), 1.0, 1e-6);
  // A 2 x 3 rectangle, and a trapezoid whose lengths vary with t. lengthU runs across V.
  const Cage quads{{0, 0, 0, 2, 0, 0, 2, 3, 0, 0, 3, 0, 10, 0, 0, 14, 0, 0, 12, 2, 0, 11, 2, 0},
                   {4, 4},
                   {0, 1, 2, 3, 4, 5, 6, 7}};
  const SgSubdSurface s = quads.build();
  EXPECT_DOUBLE_EQ(s.area(0), 6.0);
  EXPECT_DOUBLE_EQ(s.lengthU(0, 0.3), 3.0);
  EXPECT_DOUBLE_EQ(s.lengthV(0, 0.3), 2.0);
  EXPECT_DOUBLE_EQ(s.area(1), 0.5 * (4 + 1) * 2);
  EXPECT_DOUBLE_EQ(s.lengthV(1, 0.0), 4.0);
  EXPECT_DOUBLE_EQ(s.lengthV(1, 1.0), 1.0);
  EXPECT_NEAR(s.lengthU(1, 0.0), std::hypot(1.0, 2.0), 1e-15);
}

TEST(SgSubdSurfaceMeasures, BadFacesAndParametersAnswerZero) {
  const SgSubdSurface s = unitCube().build();
  double a, b;
  for (const auto& fuv : std::vector<std::array<double, 3>>{
           {6, 0.5, 0.5}, {-1, 0.5, 0.5}, {0, 1.5, 0.5}, {0, 0.5, -0.1}, {0, std::nan(""), 0.5}}) {
    const Eval e(s, int(fuv[0]), fuv[1], fuv[2]);
    EXPECT_FALSE(e.ok) << fuv[0] << " " << fuv[1] << " " << fuv[2];
    EXPECT_EQ(e.P, Vec());
  }
  EXPECT_FALSE(s.evalCurvature(6, 0.5, 0.5, a, b));
  EXPECT_FALSE(s.evalUV(0, 0.5, 0.5, a, b));  // no texture coordinates
  int nu = 1, nv = 1;
  std::vector<double> areas(3);
  EXPECT_EQ(s.calculateSubAreas(6, 2, nu, nv, areas), 0.0);
  EXPECT_EQ(nu, 0);
  EXPECT_TRUE(areas.empty());
  EXPECT_EQ(std::vector<double>({s.area(6), s.area(-1), s.lengthU(6, 0.5), s.lengthV(0, 1.5),
                                 s.calculateSubAreas(0, 0, nu, nv, areas)}),
            std::vector<double>(5, 0.0));
  EXPECT_FALSE(s.faceBoundingBox(6).valid);
  EXPECT_EQ(std::make_tuple(s.faceVerts(6), s.verts(8), s.limitVerts(8)),
            std::make_tuple(nullptr, nullptr, nullptr));
}

// --- Numberings

TEST(SgSubdSurfaceNumbering, NgonSubFacesMapBackToTheirFaceAndAddToTheCounts) {
  const Cage cage = mixedPrism();
  const SgSubdSurface s = cage.build();
  // Faces: pentagon, 2 quads, 2 triangles, 2 quads, pentagon.
  ASSERT_EQ(s.nFaces(), 8);
  EXPECT_EQ(s.nFaces(true), 5 + 4 + 3 + 3 + 5);
  std::vector<int> ids;
  int next = 0;
  for (int f = 0; f < s.nFaces(); ++f) {
    ASSERT_TRUE(s.logicalToOrig(f, ids, true));
    const int n = cage.counts[size_t(f)];
    ASSERT_EQ(int(ids.size()), n == 4 ? 1 : n);
    for (int id : ids) {
      EXPECT_EQ(id, next++);  // consecutive, in cage order
      std::vector<int> back{-7};
      ASSERT_TRUE(s.origToLogical(id, back, false));
      EXPECT_EQ(back, (std::vector<int>{-7, f}));  // appended
    }
  }
  EXPECT_EQ(next, s.nFaces(true));
  EXPECT_FALSE(s.origToLogical(s.nFaces(true), ids, true));
  EXPECT_TRUE(ids.empty());
  EXPECT_FALSE(s.logicalToOrig(8, ids, false));
  ids = {42};
  s.logicalToOrig(0, ids, false);  // appends without clearing
  EXPECT_EQ(ids.size(), 6u);
  // Counts of the original mesh.
  // Each of 2 pentagons and 2 triangles adds a centre; their distinct edges: 5 + 5 (pentagons),
  // plus the triangles' 5 edges, of which 2 are shared with the pentagons and 1 between them.
  EXPECT_EQ(std::make_tuple(s.nVerts(), s.nVerts(true), s.nFaceVerts()),
            std::make_tuple(10, 10 + 4 + (5 + 5 + 5 - 2), 5 + 4 * 4 + 3 * 2 + 5));
  ASSERT_NE(s.nVertsPerFace(), nullptr);
  EXPECT_EQ(s.nVertsPerFace()[3], 3);
  EXPECT_EQ(s.faceVerts(1)[0], 0);
  EXPECT_EQ(s.faceVerts(0) + 5, s.faceVerts(1));
  EXPECT_FLOAT_EQ(s.verts(6)[2], 1.2f);
}

TEST(SgSubdSurfaceNumbering, SubFaceCornersAndStrips) {
  const Cage cage = mixedPrism();
  const SgSubdSurface logical = cage.build(), orig = cage.build(3);
  EXPECT_EQ(std::make_tuple(logical.useLogicalIds(), orig.useLogicalIds(),
                            orig.isCageFaceEvaluation(), orig.cageFaceCount()),
            std::make_tuple(true, false, true, 3));
  EXPECT_EQ(orig.nFaces(), logical.nFaces(true));
  for (int k = 0; k < 5; ++k) {
    // Sub-face k of the bottom pentagon starts at the limit of the face's vertex k, its (1, 1)
    // corner is the face centre, and (1, 0) of sub-face k is (0, 1) of sub-face k + 1.
    expectNear(Eval(orig, k, 0, 0).point(), limit(orig, cage.faceVerts[size_t(k)]), 1e-6);
    expectNear(Eval(orig, k, 1, 1).point(), Eval(orig, 0, 1, 1).point(), 1e-12);
    expectNear(Eval(orig, k, 1, 0).point(), Eval(orig, (k + 1) % 5, 0, 1).point(), 1e-12);
    // A logical n-gon is cut into n strips along u.
    for (double v : {0.0, 0.35, 1.0}) {
      const Eval p(logical, 0, (k + 0.5) / 5, v), q(orig, k, 0.5, v);
      ASSERT_TRUE(p.ok && q.ok);
      expectNear(p.P, q.P, 1e-12);
      expectNear(p.du, q.du * 5.0, 1e-9);
      expectNear(p.dv, q.dv, 1e-12);
    }
  }
  // Triangles and quads agree between the two modes too.
  std::vector<int> ids;
  logical.logicalToOrig(3, ids, true);  // the first triangle
  ASSERT_EQ(ids.size(), 3u);
  EXPECT_NEAR(logical.area(3), orig.area(ids[0]) + orig.area(ids[1]) + orig.area(ids[2]), 1e-12);
  logical.logicalToOrig(1, ids, true);  // a quad
  ASSERT_EQ(ids.size(), 1u);
  const Eval p(logical, 1, 0.3, 0.7), q(orig, ids[0], 0.3, 0.7);
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.P, q.P);
  EXPECT_EQ(p.du, q.du);
}

// --- Boxes, texture coordinates, updates, text

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
        const Eval e(s, f, u, v);
        ASSERT_TRUE(e.ok);
        EXPECT_TRUE(box.contains(e.P)) << f << " " << u << " " << v;
        EXPECT_TRUE(cage.contains(e.P));
      }
  }
  EXPECT_EQ(s.faceSetBoundingBox({0, 7, 99, -3}),
            SgBox3T<double>::unionOf(s.faceBoundingBox(0), s.faceBoundingBox(7)));
  EXPECT_FALSE(s.faceSetBoundingBox({99}).valid);
  EXPECT_FALSE(SgSubdSurface().cageBoundingBox().valid);
}

TEST(SgSubdSurfaceUV, TextureCoordinatesAreBilinearOnTheFace) {
  const Cage quad = unitQuad(), pent = regularPolygon(5, 1.0);
  auto expectUV = [](const SgSubdSurface& s, int f, double u, double v, double a, double b) {
    double x = -1, y = -1;
    ASSERT_TRUE(s.evalUV(f, u, v, x, y));
    EXPECT_NEAR(x, a, 1e-7);
    EXPECT_NEAR(y, b, 1e-7);
  };
  const float uvs[8] = {0.1f, 0.2f, 0.9f, 0.2f, 0.9f, 0.8f, 0.1f, 0.8f};
  expectUV(SgSubdSurface(4, quad.verts.data(), 1, quad.counts.data(), quad.faceVerts.data(), 4, uvs,
                         nullptr, nullptr),
           0, 0.25, 0.5, 0.1 + 0.8 * 0.25, 0.2 + 0.6 * 0.5);
  // A pentagon with its own UV indices: the sub-faces meet at the centre of the UVs, and
  // vertex 0 carries UV 4.
  const float puv[10] = {0, 0, 1, 0, 1, 1, 0.5f, 1.5f, 0, 1};
  const int uvIndex[5] = {4, 3, 2, 1, 0}, uvCounts[1] = {5}, wrongCounts[1] = {4};
  const SgSubdSurface p(5, pent.verts.data(), 1, pent.counts.data(), pent.faceVerts.data(), 5, puv,
                        uvCounts, uvIndex, 1);
  expectUV(p, 2, 1.0, 1.0, 2.5 / 5, 3.5 / 5);
  expectUV(p, 0, 0.0, 0.0, 0.0, 1.0);
  // UVs that do not fit the faces are dropped.
  const SgSubdSurface dropped(5, pent.verts.data(), 1, pent.counts.data(), pent.faceVerts.data(),
                              5, puv, wrongCounts, uvIndex);
  EXPECT_TRUE(dropped.isValid());
  double a, b;
  EXPECT_FALSE(dropped.evalUV(0, 0.5, 0.5, a, b));
}

TEST(SgSubdSurfaceUpdate, UpdateVertsMovesTheSurfaceAndKeepsTheTopology) {
  const Cage cube = unitCube();
  SgSubdSurface s = cube.build();
  const Eval before(s, 2, 0.3, 0.6);
  std::vector<float> doubled(cube.verts);
  for (float& x : doubled) x *= 2.0f;
  ASSERT_TRUE(s.updateVerts(doubled.data(), 0, cube.nVerts()));
  EXPECT_EQ(s.nFaces(), 6);
  const Eval after(s, 2, 0.3, 0.6);
  ASSERT_TRUE(before.ok && after.ok);
  expectNear(after.P, before.P * 2.0, 1e-12);
  expectNear(after.du, before.du * 2.0, 1e-12);
  EXPECT_NEAR(s.limitVerts(3)[0], 0.5f, 1e-6);
  EXPECT_DOUBLE_EQ(s.area(0), 4.0);
  EXPECT_NEAR(s.cageBoundingBox().size.x, 2.0, 1e-7);
  // A partial update moves one vertex only; bad ranges and null data move nothing.
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
  Cage outOfRange = cube, repeated = cube, twoSided = cube;
  outOfRange.faceVerts[5] = 8;
  repeated.faceVerts[1] = repeated.faceVerts[0];
  twoSided.counts = {2};
  const SgSubdSurface bad = outOfRange.build();
  EXPECT_FALSE(bad.isValid());
  EXPECT_EQ(bad.nFaces(), 0);
  EXPECT_FALSE(Eval(bad, 0, 0.5, 0.5).ok);
  EXPECT_EQ(bad.area(0), 0.0);
  EXPECT_FALSE(repeated.build().isValid());
  EXPECT_FALSE(twoSided.build().isValid());
  EXPECT_FALSE(SgSubdSurface(-1, nullptr, 0, nullptr, nullptr).isValid());

  const SgSubdSurface empty;
  EXPECT_FALSE(empty.isValid());
  EXPECT_EQ(empty.nVerts(), 0);
  EXPECT_EQ(empty.nVertsPerFace(), nullptr);
  std::vector<int> ids{1};
  EXPECT_FALSE(empty.logicalToOrig(0, ids, true));
  EXPECT_TRUE(ids.empty());

  // Export writes the cage; an empty surface writes nothing.
  std::ostringstream out;
  EXPECT_FALSE(empty.exportToStream(out));
  ASSERT_TRUE(unitQuad().build().exportToStream(out));
  EXPECT_EQ(out.str(), "\t\t4 1 4\n\t\t0 0 0 1 0 0 1 1 0 0 1 0 \n\t\t4 \n\t\t0 1 2 3 \n");
}

// --- SgSurfaceCache

TEST(SgSurfaceCache, EmptyNamesNullSurfacesAndTakenNamesAddNothing) {
  int destroyed = 0, destroyedA = 0, destroyedB = 0;
  ProbeSurface* a = new ProbeSurface(&destroyedA);
  ProbeSurface* b = new ProbeSurface(&destroyedB);
  EXPECT_TRUE(SgSurfaceCache::addSgSurface("cacheTest|shared", a));
  // A taken name leaves b with its owner: the cache neither counts nor destroys it.
  EXPECT_FALSE(SgSurfaceCache::addSgSurface("cacheTest|shared", b));
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|shared"), a);
  SgSurfaceCache::ref(b);
  SgSurfaceCache::unref(b);
  EXPECT_EQ(destroyedB, 0);
  delete b;
  EXPECT_EQ(destroyedB, 1);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|shared"), a);
  // A surface under two names leaves under both.
  EXPECT_TRUE(SgSurfaceCache::addSgSurface("cacheTest|alias", a));
  SgSurfaceCache::ref(a);
  SgSurfaceCache::unref(a);
  EXPECT_EQ(destroyedA, 1);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|shared"), nullptr);
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|alias"), nullptr);
  // An empty name or a null surface enters nothing.
  ProbeSurface* s = new ProbeSurface(&destroyed);
  EXPECT_FALSE(SgSurfaceCache::addSgSurface("", s));
  EXPECT_EQ(SgSurfaceCache::find(""), nullptr);
  SgSurfaceCache::ref(s);
  SgSurfaceCache::unref(s);  // not in the cache: not destroyed
  EXPECT_EQ(destroyed, 0);
  EXPECT_FALSE(SgSurfaceCache::addSgSurface("cacheTest|null", nullptr));
  EXPECT_EQ(SgSurfaceCache::find("cacheTest|null"), nullptr);
  delete s;
}
