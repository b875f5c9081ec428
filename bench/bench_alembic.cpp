// Alembic reading and writing: the positions of a 1,000,000-point mesh sample read through the
// archive (open included), the same file read plainly into memory for comparison, and an
// archive of 1,000,000 curves of 8 points with widths written. Files live in the temporary
// folder, so reads come from the page cache. Rates are per wall-clock second.

#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcCurvesWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/alembic/VrAbcPolyMesh.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int gridSide = 1000;  // 1000 x 1000 points
constexpr size_t numCurves = 1000000;
constexpr size_t pointsPerCurve = 8;

std::string benchFile(const char* name) {
  return (std::filesystem::temp_directory_path() / ("vorn-bench-" + std::to_string(getpid()) + "-" + name)).string();
}

// A grid mesh of gridSide^2 points and (gridSide - 1)^2 quads, written once per run and removed
// at exit.
struct MeshFile {
  std::string path = benchFile("mesh.abc");

  MeshFile() {
    std::vector<float> points;
    points.reserve(3 * gridSide * gridSide);
    for (int v = 0; v < gridSide; ++v)
      for (int u = 0; u < gridSide; ++u) points.insert(points.end(), {float(u), 0.001f * float(u ^ v), float(v)});
    std::vector<int32_t> counts(size_t(gridSide - 1) * (gridSide - 1), 4);
    std::vector<int32_t> indices;
    indices.reserve(4 * counts.size());
    for (int v = 0; v + 1 < gridSide; ++v)
      for (int u = 0; u + 1 < gridSide; ++u) {
        const int32_t at = v * gridSide + u;
        indices.insert(indices.end(), {at, at + 1, at + gridSide + 1, at + gridSide});
      }
    VrAbcArchiveWriter writer;
    VrAbcMeshWriter mesh;
    VrAbcMeshWriter::Sample sample;
    sample.positions = points;
    sample.faceCounts = counts;
    sample.faceIndices = indices;
    if (!writer.open(path, VrAbcArchiveWriter::Options()) ||
        !mesh.create(writer.top(), "grid", VrAbcMeshWriter::Kind::PolyMesh, 0) || !mesh.write(sample) ||
        !writer.close())
      std::fprintf(stderr, "bench_alembic: cannot write %s\n", path.c_str());
  }
  ~MeshFile() { std::remove(path.c_str()); }
};

const std::string& meshFile() {
  static const MeshFile file;
  return file.path;
}

void BM_AlembicReadMeshPositions(benchmark::State& state) {
  const std::string& file = meshFile();
  std::vector<float> positions;
  for (auto _ : state) {
    VrAbcArchive archive;
    VrAbcObject object;
    VrAbcPolyMesh mesh;
    if (!archive.open(file) || !archive.findObject("/grid", object) || !mesh.open(object) ||
        !mesh.geometry().readPositions(0, positions)) {
      state.SkipWithError("cannot read the mesh");
      break;
    }
    benchmark::DoNotOptimize(positions.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(positions.size() * sizeof(float)));
  state.counters["points"] = double(positions.size() / 3);
}
BENCHMARK(BM_AlembicReadMeshPositions)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PlainReadOfTheSameFile(benchmark::State& state) {
  const std::string& file = meshFile();
  const size_t size = size_t(std::filesystem::file_size(file));
  std::vector<char> bytes(size);
  for (auto _ : state) {
    const int fd = open(file.c_str(), O_RDONLY);
    size_t done = 0;
    while (fd >= 0 && done < size) {
      const ssize_t got = read(fd, bytes.data() + done, size - done);
      if (got <= 0) break;
      done += size_t(got);
    }
    if (fd >= 0) close(fd);
    benchmark::DoNotOptimize(bytes.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(size));
}
BENCHMARK(BM_PlainReadOfTheSameFile)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_AlembicWriteCurves(benchmark::State& state) {
  std::vector<float> points, widths;
  points.reserve(3 * numCurves * pointsPerCurve);
  widths.reserve(numCurves * pointsPerCurve);
  for (size_t c = 0; c < numCurves; ++c)
    for (size_t k = 0; k < pointsPerCurve; ++k) {
      points.insert(points.end(), {float(c % 1000), float(k), float(c / 1000)});
      widths.push_back(0.01f * float(pointsPerCurve - k));
    }
  const std::vector<int32_t> counts(numCurves, int32_t(pointsPerCurve));
  const std::string file = benchFile("curves.abc");
  for (auto _ : state) {
    VrAbcArchiveWriter writer;
    VrAbcCurvesWriter curves;
    VrAbcCurvesWriter::Sample sample;
    sample.positions = points;
    sample.numVertices = counts;
    sample.widths = widths;
    if (!writer.open(file, VrAbcArchiveWriter::Options()) || !curves.create(writer.top(), "hair", 0) ||
        !curves.write(sample) || !writer.close()) {
      state.SkipWithError("cannot write the curves");
      break;
    }
  }
  state.SetBytesProcessed(int64_t(state.iterations()) *
                          int64_t((points.size() + widths.size()) * sizeof(float) + counts.size() * sizeof(int32_t)));
  state.counters["file_MB"] = double(std::filesystem::exists(file) ? std::filesystem::file_size(file) : 0) / 1e6;
  std::remove(file.c_str());
}
BENCHMARK(BM_AlembicWriteCurves)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
