// Surface evaluators: NURBS and subdivision evaluation per call (the innermost loop of every
// primitive), plus the sampled NURBS area and the subdivision build.

#include "geometry/SgNurbsSurface.h"
#include "geometry/SgSubdSurface.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

// A bicubic 8 x 8 CV surface with interior knots; rational with varying weights when asked.
SgNurbsSurface bicubic(bool rational) {
  const double knots[12] = {0, 0, 0, 0, 0.2, 0.4, 0.6, 0.8, 1, 1, 1, 1};
  std::vector<double> cvs;
  for (int j = 0; j < 8; ++j)
    for (int i = 0; i < 8; ++i) {
      const double w = rational ? 0.75 + 0.25 * ((i + j) % 3) : 1.0;
      cvs.push_back(w * i);
      cvs.push_back(w * j);
      cvs.push_back(w * std::sin(0.7 * i) * std::cos(0.4 * j));
      if (rational) cvs.push_back(w);
    }
  return SgNurbsSurface(12, knots, 12, knots, 8, 8, cvs.data(), rational ? 1 : 0);
}

// A cube whose faces are cut into res x res quads (shared vertices): valence-3 corners, the
// rest regular.
struct CubeCage {
  std::vector<float> verts;
  std::vector<int> counts;
  std::vector<int> faceVerts;
};

CubeCage subdividedCube(int res) {
  CubeCage c;
  std::vector<int> index(size_t((res + 1) * (res + 1) * (res + 1)), -1);
  auto vertexAt = [&](int x, int y, int z) {
    const size_t key = size_t((x * (res + 1) + y) * (res + 1) + z);
    if (index[key] < 0) {
      index[key] = static_cast<int>(c.verts.size() / 3);
      c.verts.insert(c.verts.end(), {float(x) / res - 0.5f, float(y) / res - 0.5f, float(z) / res - 0.5f});
    }
    return index[key];
  };
  for (int axis = 0; axis < 3; ++axis)
    for (int side = 0; side < 2; ++side)
      for (int a = 0; a < res; ++a)
        for (int b = 0; b < res; ++b) {
          const int corners[4][2] = {{a, b}, {a + 1, b}, {a + 1, b + 1}, {a, b + 1}};
          c.counts.push_back(4);
          for (int k = 0; k < 4; ++k) {
            const int* st = corners[side ? k : 3 - k];
            int q[3];
            q[axis] = side * res;
            q[(axis + 1) % 3] = st[0];
            q[(axis + 2) % 3] = st[1];
            c.faceVerts.push_back(vertexAt(q[0], q[1], q[2]));
          }
        }
  return c;
}

void BM_NurbsEvalBicubic(benchmark::State& state) {
  const SgNurbsSurface s = bicubic(false);
  SgVec3T<double> P, dPdu, dPdv;
  unsigned k = 0;
  for (auto _ : state) {
    s.eval((k % 997) / 996.0, (k % 991) / 990.0, P, dPdu, dPdv);
    benchmark::DoNotOptimize(P);
    benchmark::DoNotOptimize(dPdu);
    ++k;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NurbsEvalBicubic);

void BM_NurbsEvalRationalBicubic(benchmark::State& state) {
  const SgNurbsSurface s = bicubic(true);
  SgVec3T<double> P, dPdu, dPdv;
  unsigned k = 0;
  for (auto _ : state) {
    s.eval((k % 997) / 996.0, (k % 991) / 990.0, P, dPdu, dPdv);
    benchmark::DoNotOptimize(P);
    benchmark::DoNotOptimize(dPdu);
    ++k;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NurbsEvalRationalBicubic);

void BM_NurbsSurfaceArea(benchmark::State& state) {
  const SgNurbsSurface s = bicubic(state.range(0) != 0);
  for (auto _ : state) benchmark::DoNotOptimize(s.surfaceArea(4));
  state.SetItemsProcessed(state.iterations() * 32 * 32);  // grid points
}
BENCHMARK(BM_NurbsSurfaceArea)->Arg(0)->Arg(1);

void BM_SubdEvalCube(benchmark::State& state) {
  const CubeCage cage = subdividedCube(8);
  const SgSubdSurface s(static_cast<int>(cage.verts.size() / 3), cage.verts.data(),
                        static_cast<int>(cage.counts.size()), cage.counts.data(),
                        cage.faceVerts.data());
  const int faces = s.nFaces();
  SgVec3T<double> P, dPdu, dPdv;
  unsigned k = 0;
  for (auto _ : state) {
    s.eval(static_cast<int>((k * 7919u) % unsigned(faces)), (k % 97) / 96.0, (k % 89) / 88.0, P,
           dPdu, dPdv);
    benchmark::DoNotOptimize(P);
    benchmark::DoNotOptimize(dPdu);
    ++k;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SubdEvalCube);

void BM_SubdEvalCurvatureCube(benchmark::State& state) {
  const CubeCage cage = subdividedCube(8);
  const SgSubdSurface s(static_cast<int>(cage.verts.size() / 3), cage.verts.data(),
                        static_cast<int>(cage.counts.size()), cage.counts.data(),
                        cage.faceVerts.data());
  const int faces = s.nFaces();
  double k1, k2;
  unsigned k = 0;
  for (auto _ : state) {
    s.evalCurvature(static_cast<int>((k * 7919u) % unsigned(faces)), (k % 97) / 96.0,
                    (k % 89) / 88.0, k1, k2);
    benchmark::DoNotOptimize(k1);
    ++k;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SubdEvalCurvatureCube);

void BM_SubdBuildCube(benchmark::State& state) {
  const CubeCage cage = subdividedCube(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    const SgSubdSurface s(static_cast<int>(cage.verts.size() / 3), cage.verts.data(),
                          static_cast<int>(cage.counts.size()), cage.counts.data(),
                          cage.faceVerts.data());
    benchmark::DoNotOptimize(s.nFaces());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(cage.counts.size()));
}
BENCHMARK(BM_SubdBuildCube)->Arg(8)->Arg(32)->Unit(benchmark::kMillisecond);

}  // namespace
