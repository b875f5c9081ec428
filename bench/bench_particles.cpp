// Particle files: writing and reading 1,000,000 particles with the channels a particle renderer
// bakes per hair (position, aim, up and scale vectors; ids, render index and random float; the
// instance index; the surface location's u, v, face and geometry), in each format. Bytes per
// second are the file's bytes (compressed bytes for .bgeo.gz). BM_ParticlesStream writes the same
// particles as a render does: batches of one face's particles, encoded on every thread and
// stored in order.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "io/particles/VrParticleStream.h"
#include "io/particles/VrParticles.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <vector>

namespace {

constexpr size_t particleCount = 1000000;

VrParticleSet rendererSet() {
  VrParticleSet set;
  const struct {
    const char* name;
    VrParticleType type;
    int count;
  } channels[] = {{"position", VrParticleType::Vector, 3}, {"aim_VP", VrParticleType::Vector, 3},
                  {"up_VP", VrParticleType::Vector, 3},    {"scale", VrParticleType::Vector, 3},
                  {"id_VP", VrParticleType::Int, 1},       {"descid_VP", VrParticleType::Int, 1},
                  {"ri_VP", VrParticleType::Int, 1},       {"rf_VP", VrParticleType::Float, 1},
                  {"index_VP", VrParticleType::Int, 1},    {"u_VS", VrParticleType::Float, 1},
                  {"v_VS", VrParticleType::Float, 1},      {"faceid_VS", VrParticleType::Int, 1},
                  {"geomid_VS", VrParticleType::Int, 1}};
  for (const auto& c : channels) set.addAttribute(c.name, c.type, c.count);
  set.resize(particleCount);
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    VrParticleAttribute& attr = set.attribute(a);
    for (size_t i = 0; i < attr.floats.size(); ++i) attr.floats[i] = static_cast<float>(i % 9973) * 0.001f - 3.0f;
    for (size_t i = 0; i < attr.ints.size(); ++i) attr.ints[i] = static_cast<int32_t>((i * 7) % 100003);
  }
  return set;
}

const VrParticleSet& sharedSet() {
  static const VrParticleSet set = rendererSet();
  return set;
}

struct ScratchFile {
  std::string path;
  explicit ScratchFile(const char* extension)
      : path((std::filesystem::temp_directory_path() /
              ("vorn-bench-particles-" + std::to_string(::getpid()) + extension))
                 .string()) {}
  ~ScratchFile() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
};

void report(benchmark::State& state, const std::string& path) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(std::filesystem::file_size(path)));
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(particleCount));
}

void BM_ParticlesWrite(benchmark::State& state, const char* extension) {
  const VrParticleSet& set = sharedSet();
  ScratchFile file(extension);
  for (auto _ : state)
    if (!VrWriteParticles(file.path, set)) state.SkipWithError("write failed");
  report(state, file.path);
}

void BM_ParticlesRead(benchmark::State& state, const char* extension) {
  ScratchFile file(extension);
  if (!VrWriteParticles(file.path, sharedSet())) state.SkipWithError("write failed");
  for (auto _ : state) {
    VrParticleSet set;
    if (!VrReadParticles(file.path, set)) state.SkipWithError("read failed");
    benchmark::DoNotOptimize(set.attribute(0).floats.data());
  }
  report(state, file.path);
}

// Particles [first, last) of `set`, with its attributes.
VrParticleSet batchOf(const VrParticleSet& set, size_t first, size_t last) {
  VrParticleSet batch;
  for (size_t a = 0; a < set.numAttributes(); ++a)
    batch.addAttribute(set.attribute(a).name, set.attribute(a).type, set.attribute(a).count);
  batch.resize(last - first);
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    const VrParticleAttribute& from = set.attribute(a);
    const size_t k = static_cast<size_t>(from.count);
    if (from.isInt()) std::copy(from.ints.begin() + first * k, from.ints.begin() + last * k, batch.attribute(a).ints.begin());
    else std::copy(from.floats.begin() + first * k, from.floats.begin() + last * k, batch.attribute(a).floats.begin());
  }
  return batch;
}

void BM_ParticlesStream(benchmark::State& state, const char* extension) {
  constexpr size_t perBatch = 32, window = 256;
  const VrParticleSet& set = sharedSet();
  ScratchFile file(extension);
  std::vector<std::string> encoded(window);
  for (auto _ : state) {
    VrParticleStream stream(file.path, VrParticleFormatOf(file.path), set);
    for (size_t first = 0; first < particleCount && stream.ok(); first += perBatch * window) {
      const size_t batches = std::min(window, (particleCount - first + perBatch - 1) / perBatch);
      tbb::parallel_for(size_t(0), batches, [&](size_t b) {
        const size_t from = first + b * perBatch;
        encoded[b].clear();
        stream.encode(batchOf(set, from, std::min(particleCount, from + perBatch)), encoded[b]);
      });
      for (size_t b = 0; b < batches; ++b)
        stream.append(encoded[b], std::min(perBatch, particleCount - first - b * perBatch));
    }
    if (!stream.finish()) state.SkipWithError("write failed");
  }
  report(state, file.path);
}

}  // namespace

BENCHMARK_CAPTURE(BM_ParticlesStream, bgeo, ".bgeo")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesStream, bgeo_gz, ".bgeo.gz")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesStream, geo, ".geo")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesWrite, bgeo, ".bgeo")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesRead, bgeo, ".bgeo")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesWrite, bgeo_gz, ".bgeo.gz")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesRead, bgeo_gz, ".bgeo.gz")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesWrite, geo, ".geo")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesRead, geo, ".geo")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesWrite, pdb, ".pdb")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParticlesRead, pdb, ".pdb")->Unit(benchmark::kMillisecond);
