// Point files: writing and reading 1,000,000 "Location" records (1000 faces of 1000 points,
// each record an id and u, v and the surface point), as the point back end bakes them and the
// point generator reads them. Bytes per second are the file's bytes.

#include <benchmark/benchmark.h>
#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "io/vpd/VpdFileCachedReader.h"
#include "io/vpd/VpdFileCachedWriter.h"
#include "io/vpd/VpdReader.h"
#include "io/vpd/VpdWriter.h"

namespace {

constexpr int faceCount = 1000;
constexpr int pointsPerFace = 1000;

std::vector<int> faceIds() {
  std::vector<int> faces(faceCount);
  for (int f = 0; f < faceCount; ++f) faces[static_cast<std::size_t>(f)] = f;
  return faces;
}

// A scratch file under the temporary folder, removed at the end.
struct ScratchFile {
  std::string path = (std::filesystem::temp_directory_path() /
                      ("vorn-bench-vpd-" + std::to_string(::getpid()) + ".vuv"))
                         .string();
  ~ScratchFile() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
};

inline void location(int face, int i, float* out) {
  out[0] = static_cast<float>(i % 997) / 997.0f;
  out[1] = static_cast<float>((i * 31 + face) % 991) / 991.0f;
  out[2] = out[0] * 10.0f;
  out[3] = static_cast<float>(face);
  out[4] = out[1] * -10.0f;
}

bool writeSerial(const std::string& path) {
  auto writer = VpdWriter::open(path, faceIds(), Vpd::PointPrimitive, 1, Vpd::WorldSpace,
                                {Vpd::LocationBlock}, 0.0f, 1);
  if (!writer) return false;
  float values[5];
  for (int face = 0; face < faceCount; ++face) {
    writer->startFace(face);
    writer->startBlock(0);
    for (int i = 0; i < pointsPerFace; ++i) {
      location(face, i, values);
      writer->writePrim(static_cast<std::uint32_t>(i + 1), values, 5);
    }
  }
  return writer->close();
}

void BM_VpdWriteLocations(benchmark::State& state) {
  ScratchFile file;
  for (auto _ : state)
    if (!writeSerial(file.path)) state.SkipWithError("write failed");
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(std::filesystem::file_size(file.path)));
  state.SetItemsProcessed(state.iterations() * faceCount * pointsPerFace);
}

// Faces spread over the default number of threads, committed in face order.
void BM_VpdCachedWriteLocations(benchmark::State& state) {
  ScratchFile file;
  for (auto _ : state) {
    auto writer = VpdFileCachedWriter::openWrite(file.path, faceIds(), Vpd::PointPrimitive, 1,
                                                 Vpd::WorldSpace, {Vpd::LocationBlock}, 0.0f, 1);
    tbb::enumerable_thread_specific<VpdFileCachedWriterContext> contexts;
    tbb::parallel_for(tbb::blocked_range<int>(0, faceCount, 8), [&](const auto& range) {
      VpdFileCachedWriterContext& context = contexts.local();
      float values[5];
      for (int face = range.begin(); face != range.end(); ++face) {
        writer->startFace(context, face);
        writer->startBlock(context, 0);
        for (int i = 0; i < pointsPerFace; ++i) {
          location(face, i, values);
          writer->writePrim(context, static_cast<std::uint32_t>(i + 1), values, 5);
        }
      }
    });
    if (!writer->commitAndClose()) state.SkipWithError("commit failed");
  }
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(std::filesystem::file_size(file.path)));
  state.SetItemsProcessed(state.iterations() * faceCount * pointsPerFace);
}

void BM_VpdReadLocations(benchmark::State& state) {
  ScratchFile file;
  if (!writeSerial(file.path)) state.SkipWithError("write failed");
  double sum = 0.0;
  for (auto _ : state) {
    auto reader = VpdReader::open(file.path);
    if (!reader) {
      state.SkipWithError("open failed");
      break;
    }
    const int block = reader->blockIndex(Vpd::LocationBlock);
    std::uint32_t id;
    std::vector<float> values;
    for (int face : reader->facesInFile()) {
      if (!reader->findFace(face) || !reader->findBlock(block)) continue;
      while (reader->readPrim(id, values)) sum += values[0] + values[1] + double(id);
    }
  }
  benchmark::DoNotOptimize(sum);
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(std::filesystem::file_size(file.path)));
  state.SetItemsProcessed(state.iterations() * faceCount * pointsPerFace);
}

// Threads read faces through their own contexts of one shared reader.
void BM_VpdCachedReadLocations(benchmark::State& state) {
  ScratchFile file;
  if (!writeSerial(file.path)) state.SkipWithError("write failed");
  for (auto _ : state) {
    auto reader = VpdFileCachedReader::open(file.path);
    if (!reader) {
      state.SkipWithError("open failed");
      break;
    }
    tbb::enumerable_thread_specific<VpdFileCachedReaderContext> contexts;
    tbb::enumerable_thread_specific<double> sums(0.0);
    tbb::parallel_for(tbb::blocked_range<int>(0, faceCount, 8), [&](const auto& range) {
      VpdFileCachedReaderContext& context = contexts.local();
      double& sum = sums.local();
      std::uint32_t id;
      std::vector<float> values;
      for (int face = range.begin(); face != range.end(); ++face) {
        if (!reader->findFace(context, face) || !reader->findBlock(context, 0)) continue;
        while (reader->readPrim(context, id, values)) sum += values[0] + double(id);
      }
    });
    benchmark::DoNotOptimize(sums.combine([](double a, double b) { return a + b; }));
  }
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(std::filesystem::file_size(file.path)));
  state.SetItemsProcessed(state.iterations() * faceCount * pointsPerFace);
}

}  // namespace

BENCHMARK(BM_VpdWriteLocations)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_VpdCachedWriteLocations)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_VpdReadLocations)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_VpdCachedReadLocations)->Unit(benchmark::kMillisecond)->UseRealTime();
