// The speed scene: a 10,000-face UV sphere (100 x 100, radius 1, from the project's own mesh
// builder) as a subdivision patch, one description of about 1,000,000 hairs of 8 CVs, length
// 0.05, rendered through the render API the way `vorn render` does (init, faces in order, a
// ParallelRenderer on 1 or 2 threads) and written as Alembic curves to a temporary file. Every
// iteration reads a collection of a new name, so import, geometry binding and the description
// setup are part of it. "expressions:0" has constant attributes; "expressions:1" a length with
// `rand()` and a width with `noise`. Counters: hairs/s and heap allocations per hair while faces render
// and the file is written. Unlike `vorn render`, batches are written in the order they arrive.

#include "document/VrPalette.h"
#include "io/VrImportGeometry.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/output/VrOrderedRuns.h"
#include "io/output/VrPrimitiveOutput.h"
#include "renderers/renderapi/RenderAPITestSupport.h"
#include "renderers/renderapi/VornRenderAPI.h"
#include "support/TempDir.h"
#include "tools/examplemesh/uvSphere.h"

#include "BenchAllocations.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

bool writeSphere(const std::string& path) {
  VrAbcArchiveWriter writer;
  if (!writer.open(path, VrAbcArchiveWriter::Options())) return false;
  const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0 / 24.0));
  VrAbcMeshWriter mesh;
  if (!mesh.create(writer.top(), "sphereShape", VrAbcMeshWriter::Kind::SubD, ts)) return false;
  std::vector<float> points;
  std::vector<int32_t> counts, indices;
  uvSphere(100, 100, points, counts, indices);
  VrAbcMeshWriter::Sample sample;
  sample.positions = points;
  sample.faceCounts = counts;
  sample.faceIndices = indices;
  return mesh.write(sample) && writer.close();
}

std::string collectionText(const std::string& name, bool expressions) {
  std::ostringstream out;
  out << "# Vorn Palette File\n#\nFileVersion 18\n\nPalette\n\tname\t\t\t" << name << "\n\tendAttrs\n\n"
      << "Description\n\tname\t\t\thair\n\tendAttrs\n\n"
      << "SplinePrimitive\n\tlength\t\t\t" << (expressions ? "0.05 * (0.5 + rand())" : "0.05") << "\n\twidth\t\t\t"
      << (expressions ? "0.002 * (0.7 + 0.6 * noise($u * 40, $v * 40))" : "0.002")
      << "\n\tfxCVCount\t\t8\n\tendAttrs\n\n"
      << "RandomGenerator\n\tdensity\t\t\t80000.0\n\tmask\t\t\t1.0\n\tendAttrs\n\n"
      << "RendermanRenderer\n\tpercent\t\t\t100.0\n\taddPrimitiveId\t\ttrue\n\taddFaceId\t\ttrue\n\tendAttrs\n\n"
      << "\tActive\tSplinePrimitive\n\tActive\tRandomGenerator\n\tActive\tRendermanRenderer\n\n"
      << "Patches\thair\t0\nPatch\tSubd\n\tname\t\tsphereShape\n\tfaceIds\t\t0\nendObject\nendPatches\n";
  return out.str();
}

// Hands the batches to an Alembic output as the render command does: each batch becomes runs of
// one face, written in (face, id) order by whichever worker completes the head of the window.
class WritingCallbacks : public vrtest::CameraCallbacks {
 public:
  using Cache = VornRenderAPI::PrimitiveCache;
  explicit WritingCallbacks(VrPrimitiveOutput& output)
      : runs([&output](VrOutputRun& run) { return VrWriteRun(output, "sphereShape", "hair", run); }) {}
  void flush(const char* /*patch*/, Cache* cache) override {
    const unsigned count = cache->getUInt(Cache::EUIntAttribute::BatchCount);
    const int* cvCounts = cache->getIntArray(Cache::EIntArrayAttribute::CVCount);
    const int* faces = cache->getIntArray(Cache::EIntArrayAttribute::FaceId);
    const int* ids = cache->getIntArray(Cache::EIntArrayAttribute::PrimitiveId);
    const float* points = cache->getVec3Array2D(Cache::EVec3Array2DAttribute::Points, 0);
    const float* widths = cache->getFloatArray2D(Cache::EFloatArray2DAttribute::WidthsPerCV, 0);
    if (!count || !cvCounts || !faces || !ids || !points || !widths) return;
    size_t first = 0;
    for (unsigned i = 0; i < count;) {  // a batch holds whole faces, ids ascending
      VrOutputRun run;
      run.kind = "SplinePrimitive";
      run.face = faces[i];
      run.firstId = ids[i];
      unsigned end = i;
      size_t cvs = 0;
      for (; end < count && faces[end] == run.face; ++end) cvs += static_cast<size_t>(cvCounts[end]);
      run.floats.resize(4 * cvs);
      run.prims.resize(end - i);
      float* at = run.floats.data();
      float* widthAt = at + 3 * cvs;  // CVs first, then widths
      for (size_t p = 0; i < end; ++i, ++p) {
        const size_t n = static_cast<size_t>(cvCounts[i]);
        VrOutputPrimitive& view = run.prims[p];
        view.face = run.face;
        view.id = ids[i];
        view.numCVs = n;
        view.cvs = std::copy_n(points + 3 * first, 3 * n, at) - 3 * n;
        view.widths = std::copy_n(widths + first, n, widthAt) - n;
        at += 3 * n;
        widthAt += n;
        first += n;
      }
      runs.add(std::move(run));
    }
    hairs += count;
  }
  void faceDone(const char* /*geomName*/, unsigned face) override { runs.faceDone(static_cast<int>(face)); }
  VrOrderedRuns runs;
  std::atomic<size_t> hairs{0};
};

void renderSphere(benchmark::State& state, bool expressions) {
  const int threads = static_cast<int>(state.range(0));
  const vrtest::TempDir dir;
  const std::string geom = dir.file("sphere.abc");
  if (dir.path().empty() || !writeSphere(geom)) {
    state.SkipWithError("cannot write the sphere");
    return;
  }
  VrResetImportGeometry();
  static int serial = 0;
  double hairs = 0.0, allocs = 0.0;
  for (auto _ : state) {
    const std::string name = "benchSphere" + std::to_string(++serial);
    const std::string collection = dir.write(name + ".vorn", collectionText(name, expressions));
    VrOutputSettings settings;
    settings.splinesOnly = true;  // as `vorn render` says for a collection of splines
    std::unique_ptr<VrPrimitiveOutput> output = VrPrimitiveOutput::create(dir.file("hair.abc"), settings);
    WritingCallbacks callbacks(*output);
    const std::string args = "-file " + collection + " -geom " + geom + " -palette " + name +
                             " -description hair -patch sphereShape -frame 1 -fps 24";
    std::unique_ptr<VornRenderAPI::PatchRenderer> patch(VornRenderAPI::PatchRenderer::init(&callbacks, args.c_str()));
    if (!patch || !output->begin()) {
      state.SkipWithError("init failed");
      return;
    }
    std::vector<std::unique_ptr<VornRenderAPI::FaceRenderer>> faces;
    std::vector<unsigned> faceIds;
    double box[6];
    unsigned face = 0;
    while (patch->nextFace(box, face)) {
      faces.emplace_back(VornRenderAPI::FaceRenderer::init(patch.get(), face, &callbacks));
      faceIds.push_back(face);
    }
    callbacks.runs.startJob(0, faceIds);
    vrbench::allocations = 0;
    vrbench::countAllocations = true;
    std::unique_ptr<VornRenderAPI::ParallelRenderer> runner(VornRenderAPI::ParallelRenderer::init(patch.get()));
    for (auto& renderer : faces) runner->enqueue(renderer.get());
    runner->setThreads(threads);
    runner->run();
    runner->release();
    callbacks.runs.finishJob();
    const bool written = !callbacks.runs.failed() && output->end();
    vrbench::countAllocations = false;
    if (!written) {
      state.SkipWithError("the output failed");
      return;
    }
    allocs += static_cast<double>(vrbench::allocations.load());
    hairs += static_cast<double>(callbacks.hairs.load());
    faces.clear();
    patch.reset();
    state.PauseTiming();
    delete VrPalette::palette(name);
    VornRenderAPI::PatchRenderer::deleteTempRenderPalettes();
    state.ResumeTiming();
  }
  state.counters["hairs/s"] = benchmark::Counter(hairs, benchmark::Counter::kIsRate);
  state.counters["hairs"] = benchmark::Counter(hairs / static_cast<double>(state.iterations()));
  state.counters["allocs/hair"] = benchmark::Counter(hairs > 0 ? allocs / hairs : 0.0);
  state.SetLabel(expressions ? "expressions" : "plain");
}

void BM_Sphere(benchmark::State& state) { renderSphere(state, state.range(1) != 0); }

}  // namespace

BENCHMARK(BM_Sphere)
    ->ArgsProduct({{1, 2}, {0, 1}})
    ->ArgNames({"threads", "expressions"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();
