// Primitives through the render API, the way a renderer plug-in asks for them: a collection file
// and an Alembic grid of 20 x 20 unit quads written to a temporary directory, splines of 5 CVs at
// about 200,000 locations, `PatchRenderer::init`, `nextFace`, then a `FaceRenderer::render` per
// face (the serial path) or a `ParallelRenderer` on 1 and 2 threads. The callbacks' `flush` only
// counts. Every iteration reads a collection of a new name, so import, geometry binding and the
// description setup are part of it; "first batch ms" is the time from `init` to the first
// `flush`, "allocs/prim" the heap allocations per primitive while faces render. The `Lod`
// variant turns the description's level-of-detail factors on. `BM_LodFactors` compares the two
// ways of evaluating the four factor expressions per primitive: parsing them for each primitive,
// or once per description setup.

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "io/VrImportGeometry.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "renderers/renderapi/RenderAPITestSupport.h"
#include "renderers/renderapi/VornRenderAPI.h"

#include "BenchAllocations.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int gridSize = 20;

// A grid of gridSize x gridSize unit quads named "skin", centred on the origin in z = 0.
bool writeGrid(const std::string& path) {
  VrAbcArchiveWriter writer;
  if (!writer.open(path, VrAbcArchiveWriter::Options())) return false;
  const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0));
  VrAbcObjectWriter* group = writer.top().createChild("group");
  if (!group) return false;
  VrAbcMeshWriter mesh;
  if (!mesh.create(*group, "skin", VrAbcMeshWriter::Kind::SubD, ts)) return false;
  const int n = gridSize;
  std::vector<float> positions;
  std::vector<int32_t> counts, indices;
  for (int j = 0; j <= n; ++j)
    for (int i = 0; i <= n; ++i)
      positions.insert(positions.end(), {float(i - n / 2), float(j - n / 2), 0.0f});
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const int a = j * (n + 1) + i;
      counts.push_back(4);
      indices.insert(indices.end(), {a, a + 1, a + n + 2, a + n + 1});
    }
  VrAbcMeshWriter::Sample sample;
  sample.positions = positions;
  sample.faceCounts = counts;
  sample.faceIndices = indices;
  return mesh.write(sample) && writer.close();
}

std::string collectionText(const std::string& name) {
  std::ostringstream out;
  out << "# Vorn Palette File\n#\nFileVersion 18\n\nPalette\n\tname\t\t\t" << name << "\n\tendAttrs\n\n"
      << "Description\n\tname\t\t\tfur\n\tendAttrs\n\n"
      << "SplinePrimitive\n\tlength\t\t\t0.5\n\twidth\t\t\t0.02\n\ttaper\t\t\t0.5\n\tendAttrs\n\n"
      << "RandomGenerator\n\tdensity\t\t\t500.0\n\tmask\t\t\t1.0\n\tendAttrs\n\n"
      << "RendermanRenderer\n\tprimitiveBound\t\t1.0\n\tendAttrs\n\n"
      << "\tActive\tSplinePrimitive\n\tActive\tRandomGenerator\n\tActive\tRendermanRenderer\n\n"
      << "Patches\tfur\t0\nPatch\tSubd\n\tname\t\tskin\n\tfaceIds\t\t" << gridSize * gridSize;
  for (int f = 0; f < gridSize * gridSize; ++f) out << " " << f;
  out << "\nendObject\nendPatches\n";
  return out.str();
}

// Counts what it is given; answers the camera questions with a view of the whole grid.
class CountingCallbacks : public vrtest::CameraCallbacks {
 public:
  using Cache = VornRenderAPI::PrimitiveCache;
  CountingCallbacks() : CameraCallbacks("1,0,0,0,0,1,0,0,0,0,1,0,0,0,40,1") {}
  void flush(const char*, Cache* cache) override {
    if (!flushed.exchange(true)) firstFlush = Clock::now();
    primitives += cache->getUInt(Cache::EUIntAttribute::BatchCount);
    cvs += cache->getVec3Array2DSize(Cache::EVec3Array2DAttribute::Points, 0);
  }
  std::atomic<bool> flushed{false};
  Clock::time_point firstFlush;
  std::atomic<size_t> primitives{0}, cvs{0};
};

struct Files {
  Files() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vorn-bench-XXXXXX").string();
    if (mkdtemp(pattern.data())) dir = pattern;
    geom = dir + "/grid.abc";
    ok = !dir.empty() && writeGrid(geom);
  }
  ~Files() {
    std::error_code ignored;
    if (!dir.empty()) std::filesystem::remove_all(dir, ignored);
  }
  std::string collection(const std::string& name) const {
    const std::string path = dir + "/" + name + ".vorn";
    std::ofstream(path) << collectionText(name);
    return path;
  }
  std::string dir, geom;
  bool ok = false;
};

// threads: 0 renders face by face; otherwise a ParallelRenderer with that many threads.
void renderThroughApi(benchmark::State& state, bool lod) {
  const int threads = static_cast<int>(state.range(0));
  Files files;
  if (!files.ok) {
    state.SkipWithError("cannot write the grid");
    return;
  }
  VrResetImportGeometry();
  static int serial = 0;
  double primitives = 0.0, cvs = 0.0, firstMs = 0.0, allocs = 0.0;
  for (auto _ : state) {
    const std::string name = "benchApi" + std::to_string(++serial);
    const std::string args = "-file " + files.collection(name) + " -geom " + files.geom + " -palette " +
                             name + " -description fur -patch skin -frame 1 -fps 24";
    CountingCallbacks callbacks;
    const Clock::time_point start = Clock::now();
    std::unique_ptr<VornRenderAPI::PatchRenderer> patch(VornRenderAPI::PatchRenderer::init(&callbacks,
                                                                                           args.c_str()));
    if (!patch) {
      state.SkipWithError("init failed");
      return;
    }
    if (lod) {
      VrDescription* fur = VrPalette::palette(name)->description("fur");
      fur->setUseHammer(true);
      fur->setLengthHammer("0.8 + 0.4 * $u");
      fur->setWidthHammer("1.5");
    }
    std::vector<std::unique_ptr<VornRenderAPI::FaceRenderer>> faces;
    double box[6];
    unsigned face = 0;
    while (patch->nextFace(box, face))
      faces.emplace_back(VornRenderAPI::FaceRenderer::init(patch.get(), face, &callbacks));
    vrbench::allocations = 0;
    vrbench::countAllocations = true;
    if (threads == 0) {
      for (auto& renderer : faces) renderer->render();
    } else {
      std::unique_ptr<VornRenderAPI::ParallelRenderer> runner(
          VornRenderAPI::ParallelRenderer::init(patch.get()));
      for (auto& renderer : faces) runner->enqueue(renderer.get());
      runner->setThreads(threads);
      runner->setGrain(0);
      runner->run();
      runner->release();
    }
    vrbench::countAllocations = false;
    allocs += static_cast<double>(vrbench::allocations.load());
    faces.clear();
    patch.reset();
    primitives += static_cast<double>(callbacks.primitives.load());
    cvs += static_cast<double>(callbacks.cvs.load());
    if (callbacks.flushed)
      firstMs += std::chrono::duration<double, std::milli>(callbacks.firstFlush - start).count();
    state.PauseTiming();
    delete VrPalette::palette(name);
    state.ResumeTiming();
  }
  const double iterations = static_cast<double>(state.iterations());
  state.counters["prims/s"] = benchmark::Counter(primitives, benchmark::Counter::kIsRate);
  state.counters["CVs/s"] = benchmark::Counter(cvs, benchmark::Counter::kIsRate);
  state.counters["prims"] = benchmark::Counter(primitives / iterations);
  state.counters["first batch ms"] = benchmark::Counter(firstMs / iterations);
  state.counters["allocs/prim"] = benchmark::Counter(primitives > 0 ? allocs / primitives : 0.0);
  state.SetLabel(threads ? "ParallelRenderer" : "FaceRenderer::render");
}

void BM_RenderAPI(benchmark::State& state) { renderThroughApi(state, false); }
void BM_RenderAPILod(benchmark::State& state) { renderThroughApi(state, true); }

void BM_LodFactors(benchmark::State& state) {
  const bool parseEach = state.range(0) != 0;
  VrDescription description;
  const std::string texts[4] = {"0.8 + 0.4 * $u", "1.5", "1.0", "$v"};
  std::vector<std::unique_ptr<VrExpression>> parsed;
  for (const std::string& text : texts)
    parsed.push_back(
        std::make_unique<VrExpression>("hammer", "RendermanRenderer", &description, text, "float"));
  double sum = 0.0, primitives = 0.0;
  for (auto _ : state) {
    for (int i = 0; i < 1000; ++i) {
      const double u = (i % 37) / 37.0, v = (i % 41) / 41.0;
      for (int k = 0; k < 4; ++k) {
        if (parseEach) {
          VrExpression expression("hammer", "RendermanRenderer", &description, texts[k], "float");
          sum += expression.eval(u, v, 0).x;
        } else {
          sum += parsed[static_cast<size_t>(k)]->eval(u, v, 0).x;
        }
      }
    }
    primitives += 1000;
  }
  benchmark::DoNotOptimize(sum);
  state.counters["prims/s"] = benchmark::Counter(primitives, benchmark::Counter::kIsRate);
  state.SetLabel(parseEach ? "parsed per primitive" : "parsed once");
}

BENCHMARK(BM_LodFactors)->Arg(1)->Arg(0)->ArgName("parseEach")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RenderAPI)
    ->Arg(0)
    ->Arg(1)
    ->Arg(2)
    ->ArgName("threads")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();
BENCHMARK(BM_RenderAPILod)
    ->Arg(0)
    ->Arg(2)
    ->ArgName("threads")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();

}  // namespace
