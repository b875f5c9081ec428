// Collection file throughput: writing and reading a production-sized collection of 100
// descriptions, each with 19 module objects, an FX module and one patch of 50 faces.

#include "base/VrModules.h"
#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr int descriptionCount = 100;
constexpr int facesPerPatch = 50;

const char* const primitiveModules[] = {"CardPrimitive", "SpherePrimitive", "ArchivePrimitive",
                                        "SplinePrimitive"};
const char* const generatorModules[] = {"RandomGenerator", "GuideGenerator", "UniformGenerator",
                                        "PointGenerator", "FileGenerator"};
const char* const rendererModules[] = {"GLRenderer",   "GeometryRenderer", "GuideRenderer",
                                       "FileRenderer", "PointRenderer",    "NullRenderer",
                                       "OrmRenderer",  "ParticleRenderer", "PromoteRenderer",
                                       "RendermanRenderer"};

// Five attributes of the kinds real objects carry: numbers, an expression, a flag and a path.
void fillAttributes(VrObject* object, int seed) {
  const std::string n = std::to_string(seed);
  object->setAttr("percent", n + ".5");
  object->setAttr("density", std::to_string(seed % 97) + ".25");
  object->setAttr("mask", "map('${DESC}/mask" + n + "')*0.5+rand()");
  object->setAttr("active", seed % 2 ? "true" : "false", "bool");
  object->setAttr("outputDir", "${PROJECT}/vorn/cache/" + n + "/", "string");
}

std::unique_ptr<VrPalette> makeCollection() {
  auto palette = std::make_unique<VrPalette>();
  palette->setAttr("name", "benchCollection");
  palette->setAttr("vrDataPath", "/proj/bench/maps/;/proj/shared/");
  palette->setAttr("vrProjectPath", "/proj/");
  int seed = 0;
  for (int d = 0; d < descriptionCount; ++d) {
    auto* description = new VrDescription;
    palette->addDescription(description);
    description->setAttr("name", "description" + std::to_string(d));
    description->setAttr("minDensity", "0.05");
    for (const char* module : primitiveModules) fillAttributes(description->addObject(module), ++seed);
    for (const char* module : generatorModules) fillAttributes(description->addObject(module), ++seed);
    for (const char* module : rendererModules) fillAttributes(description->addObject(module), ++seed);
    description->setActive("SplinePrimitive");
    description->setActive("RandomGenerator");
    description->setActive("RendermanRenderer");
    description->setPreviewer("GLRenderer");

    VrFXModule* noise = description->activePrimitive()->addFXModule("NoiseFXModule");
    noise->setAttr("name", "Noise");
    fillAttributes(noise, ++seed);

    auto* patch = static_cast<VrPatch*>(VrCreateObject("SubdPatch", description));
    patch->setName("bodyShape" + std::to_string(d));
    std::vector<int> faces;
    for (int f = 0; f < facesPerPatch; ++f) faces.push_back(f * 3 + d);
    patch->setFaceIds(std::move(faces));
    description->addPatch(patch);
  }
  return palette;
}

void BM_ExportCollection(benchmark::State& state) {
  const auto palette = makeCollection();
  size_t bytes = 0;
  for (auto _ : state) {
    std::ostringstream out;
    if (!VrExportPalette(palette.get(), out)) state.SkipWithError("export failed");
    bytes += out.str().size();
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_ExportCollection)->Unit(benchmark::kMillisecond);

void BM_ImportCollection(benchmark::State& state) {
  std::string text;
  {
    const auto palette = makeCollection();
    std::ostringstream out;
    VrExportPalette(palette.get(), out);
    text = out.str();
  }
  for (auto _ : state) {
    std::istringstream in(text);
    std::unique_ptr<VrPalette> palette(VrImport(in, "", 0));
    if (!palette || palette->numDescriptions() != descriptionCount) {
      state.SkipWithError("import failed");
      break;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ImportCollection)->Unit(benchmark::kMillisecond);

}  // namespace
