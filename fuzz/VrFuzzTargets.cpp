#include "fuzz/VrFuzzTargets.h"

#include "base/VrMessage.h"
#include "document/VrCollectionFile.h"
#include "document/VrDelta.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "io/alembic/VrAbcDump.h"
#include "io/particles/VrParticles.h"
#include "io/ptex/VrPtexDump.h"
#include "io/vpd/VpdDump.h"
#include "renderers/renderapi/VornRenderAPI.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

namespace vrfuzz {
namespace {

// Swallows every message: the readers' Errors are expected answers here.
class QuietLogger : public vrutil::VrMessage {
 public:
  void log(unsigned, const char*, int, const std::string&) override {}
  std::string typeName() const override { return "fuzz"; }
};

std::string text(const uint8_t* data, size_t size) { return std::string(reinterpret_cast<const char*>(data), size); }

// The readers below take paths: the input goes to a file of this process, named with the
// extension the reader expects, and removed after the read.
class InputFile {
 public:
  InputFile(const std::string& extension, const uint8_t* data, size_t size) {
    const char* dir = std::getenv("TMPDIR");
    path = std::string(dir && *dir ? dir : "/tmp") + "/vorn-fuzz-" + std::to_string(getpid()) + "-input" + extension;
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  ~InputFile() { std::remove(path.c_str()); }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  std::string path;
};

// The reader keeps the version of the file it reads process-wide.
void resetFileVersion() {
  VRImportFileVersion = VrCurrentFileVersion;
  VRLowestImportFileVersion = VrCurrentFileVersion;
}

void discard(VrPalette* palette) {
  if (!palette) return;
  VrForgetImported(palette);
  delete palette;
}

void feedCollection(const uint8_t* data, size_t size) {
  resetFileVersion();
  std::istringstream in(text(data, size));
  VrPalette* palette = VrImportAside(in, "");
  if (palette) {
    std::ostringstream out;
    VrExportPalette(palette, out);
  }
  discard(palette);
}

// A delta applies to a collection; every input gets a fresh copy of the same small example.
void feedDelta(const uint8_t* data, size_t size) {
  static const std::string base = [] {
    std::ifstream in(std::string(VORN_SOURCE_DIR) + "/examples/hairs.vorn", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }();
  resetFileVersion();
  std::istringstream in(base);
  VrPalette* palette = VrImportAside(in, "");
  if (!palette) return;
  VrApplyDelta(palette, InputFile(".delta", data, size).path);
  discard(palette);
}

void feedAlembic(const uint8_t* data, size_t size) {
  VrAbcDump::Options options;
  options.maxSamplesPerObject = 200;
  options.maxSamples = 20000;
  options.maxObjects = 2000;
  options.maxDepth = 200;
  std::ostringstream out;
  VrAbcDump::write(InputFile(".abc", data, size).path, out, options);
}

void feedPtex(const uint8_t* data, size_t size) {
  std::ostringstream out;
  VrPtexDump::write(InputFile(".ptx", data, size).path, out);
}

void feedVpd(const uint8_t* data, size_t size) {
  std::ostringstream out;
  VpdDump::write(InputFile(".vpd", data, size).path, out);
}

// Every particle format reads the same bytes.
void feedParticles(const uint8_t* data, size_t size) {
  const InputFile input(".bgeo", data, size);
  for (VrParticleFormat format : {VrParticleFormat::Unknown, VrParticleFormat::Geo, VrParticleFormat::Pdb32}) {
    VrParticleSet set;
    VrReadParticles(input.path, set, nullptr, format);
  }
}

// A shutter makes every collection temporary: it goes with its last user instead of staying in
// the process-wide table for the next input.
struct NoCallbacks : VornRenderAPI::ProceduralCallbacks {
  void flush(const char*, VornRenderAPI::PrimitiveCache*) override {}
  const float* getFloatArray(EFloatArrayAttribute key) override {
    static const float open = 0.0f;
    return key == EFloatArrayAttribute::Shutter ? &open : nullptr;
  }
  unsigned getArraySize(EFloatArrayAttribute key) override { return key == EFloatArrayAttribute::Shutter ? 1u : 0u; }
};

// The argument string of a plug-in, rendered up to the first two faces. "-quitOnError" is left
// out: it ends the process by design.
void feedRenderArgs(const uint8_t* data, size_t size) {
  const std::string args = text(data, size);
  if (args.find("quitOnError") != std::string::npos || args.find('\0') != std::string::npos) return;
  NoCallbacks callbacks;
  std::unique_ptr<VornRenderAPI::PatchRenderer> patch(VornRenderAPI::PatchRenderer::init(&callbacks, args.c_str()));
  if (patch) {
    double bbox[6];
    unsigned face = 0;
    for (int n = 0; n < 2 && patch->nextFace(bbox, face); ++n) {
      std::unique_ptr<VornRenderAPI::FaceRenderer> renderer(VornRenderAPI::FaceRenderer::init(patch.get(), face));
      if (renderer) renderer->render();
    }
  }
  patch.reset();
  VornRenderAPI::PatchRenderer::deleteTempRenderPalettes();
  VRDebugLevel = VRStatsLevel = 0;
  VRWarningLevel = 2;
}

// One expression of a description, checked and evaluated at a few locations. The collection is
// made once: its setup costs more than most expressions.
void feedExpression(const uint8_t* data, size_t size) {
  static VrDescription* const description = [] {
    auto* palette = new VrPalette;
    auto* made = new VrDescription;
    palette->addDescription(made);
    made->setAttr("name", "fuzz");
    return made;
  }();
  for (const char* type : {"float", "vector"}) {
    VrExpression expression("length", "SplinePrimitive", description, text(data, size), type);
    if (!expression.isValid()) continue;
    for (double u : {0.0, 0.5, 1.0}) expression.eval(u, 1.0 - u, 0);
  }
}

}  // namespace

const std::vector<Target>& targets() {
  static const std::vector<Target> all = {
      {"collection", feedCollection}, {"delta", feedDelta},         {"alembic", feedAlembic},
      {"ptex", feedPtex},             {"vpd", feedVpd},             {"particles", feedParticles},
      {"renderargs", feedRenderArgs}, {"expression", feedExpression},
  };
  return all;
}

const Target* findTarget(const std::string& name) {
  for (const Target& target : targets())
    if (name == target.name) return &target;
  return nullptr;
}

void initialise() {
  static QuietLogger quiet;
  static bool done = false;
  if (done) return;
  done = true;
  vrutil::msg::addLogger(&quiet);
  // A compressed particle file may claim gigabytes; the harness keeps well under its own limit.
  setenv("VORN_MAX_PARTICLE_BYTES", "64000000", 0);
  VornRenderAPI::PatchRenderer::setBannerShown(true);
}

}  // namespace vrfuzz
