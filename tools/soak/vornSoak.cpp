// vorn_soak: drives the render API the way a renderer plug-in does through a long shot. Every
// frame gets a fresh PatchRenderer with motion blur (three samples, a shutter) and an object
// transform that moves with the frame, renders all faces in view on a ParallelRenderer, and ends
// with deleteTempRenderPalettes. Each frame's primitives are reduced to one fingerprint, which
// must equal that of the same frame rendered alone by a fresh process (this program with
// --only). Prints the peak memory (VmHWM) and resident size at frames 10, 100 and the last one,
// and the frame times. Exit status 1 when a frame differs or fails.
//
//   vorn_soak [--frames N] [--threads T] [--density D] [--check-every K] [--only FRAME]

#include "renderers/renderapi/VornRenderAPI.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

using namespace VornRenderAPI;
using Cache = PrimitiveCache;

struct Options {
  int frames = 500;
  int threads = 2;
  int checkEvery = 1;  // frames between comparisons with a fresh process
  int only = 0;        // > 0: render this frame alone and print its fingerprint
  std::string density = "2000";
  std::string example = std::string(VORN_SOURCE_DIR) + "/examples/head/";
};

uint64_t fnv(uint64_t hash, const void* data, size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 1099511628211ull;
  return hash;
}

// One primitive's place and the fingerprint of its points (every motion sample) and widths.
struct PrimPrint {
  std::string patch;
  int face, id;
  uint64_t hash;
  bool operator<(const PrimPrint& o) const { return std::tie(patch, face, id, hash) < std::tie(o.patch, o.face, o.id, o.hash); }
};

class SoakCallbacks : public ProceduralCallbacks {
 public:
  SoakCallbacks(int frame, const std::string& density) : frame(frame), density(density) {}

  void flush(const char* geomName, Cache* cache) override {
    const unsigned count = cache->getUInt(Cache::EUIntAttribute::BatchCount);
    const unsigned samples = cache->getUInt(Cache::EUIntAttribute::SampleCount);
    const int* ids = cache->getIntArray(Cache::EIntArrayAttribute::PrimitiveId);
    const int* faces = cache->getIntArray(Cache::EIntArrayAttribute::FaceId);
    const int* cvCounts = cache->getIntArray(Cache::EIntArrayAttribute::CVCount);
    const float* widths = cache->getFloatArray2D(Cache::EFloatArray2DAttribute::WidthsPerCV, 0);
    std::vector<const float*> points;
    for (unsigned s = 0; s < samples; ++s) points.push_back(cache->getVec3Array2D(Cache::EVec3Array2DAttribute::Points, s));
    std::vector<PrimPrint> batch;
    size_t cv = 0;
    for (unsigned i = 0; i < count; ++i) {
      const int cvs = cvCounts ? cvCounts[i] : 0;
      uint64_t hash = 1469598103934665603ull;
      for (const float* p : points)
        if (p) hash = fnv(hash, p + 3 * cv, sizeof(float) * 3 * size_t(cvs));
      if (widths) hash = fnv(hash, widths + cv, sizeof(float) * size_t(cvs));
      batch.push_back({geomName, faces ? faces[i] : -1, ids ? ids[i] : -1, hash});
      cv += size_t(cvs);
    }
    std::lock_guard<std::mutex> hold(lock);
    prims.insert(prims.end(), batch.begin(), batch.end());
  }

  // The shutter and the camera of a colour pass; the density comes as a user override.
  const float* getFloatArray(EFloatArrayAttribute key) override {
    return key == EFloatArrayAttribute::Shutter ? shutter : nullptr;
  }
  unsigned getArraySize(EFloatArrayAttribute key) override { return key == EFloatArrayAttribute::Shutter ? 3u : 0u; }
  const char* getString(EStringAttribute key) override {
    switch (key) {
      case EStringAttribute::RenderCam: return "persp,0,0,-1";
      case EStringAttribute::RenderCamFOV: return "90,90";
      case EStringAttribute::RenderCamRatio: return "1";
      case EStringAttribute::RenderCamXform: return "1,0,0,0,0,1,0,0,0,0,1,0,0,0,10,1";
      case EStringAttribute::Phase: return "Final";
      default: return "";
    }
  }
  const char* getOverride(const char* name) override {
    return std::strcmp(name, "user:vorn_density") == 0 ? density.c_str() : "";
  }
  // The object drifts and turns with the frame, and moves within the shutter.
  void getTransform(float time, float m[16]) override {
    const double t = frame + 0.1 * time;
    const double angle = 0.01 * t, c = std::cos(angle), s = std::sin(angle);
    const float rows[16] = {float(c), 0, float(-s), 0, 0, 1, 0, 0, float(s), 0, float(c), 0,
                            float(0.2 * std::sin(0.05 * t)), float(0.001 * t), 0, 1};
    std::memcpy(m, rows, sizeof rows);
  }

  // The fingerprint of everything flushed, whatever order the workers delivered it in.
  uint64_t fingerprint() {
    std::sort(prims.begin(), prims.end());
    uint64_t hash = 1469598103934665603ull;
    for (const PrimPrint& p : prims) {
      hash = fnv(hash, p.patch.data(), p.patch.size());
      hash = fnv(hash, &p.face, sizeof p.face);
      hash = fnv(hash, &p.id, sizeof p.id);
      hash = fnv(hash, &p.hash, sizeof p.hash);
    }
    return hash;
  }
  size_t primitives() const { return prims.size(); }

 private:
  int frame;
  std::string density;
  const float shutter[3] = {-0.25f, 0.0f, 0.25f};
  std::mutex lock;
  std::vector<PrimPrint> prims;
};

struct FrameResult {
  bool ok = false;
  uint64_t fingerprint = 0;
  size_t primitives = 0;
};

FrameResult renderFrame(const Options& options, int frame) {
  SoakCallbacks callbacks(frame, options.density);
  const std::string args = "-file " + options.example + "head.vorn -geom " + options.example +
                           "head.abc -palette head -description hair -patch scalpShape -frame " +
                           std::to_string(frame) +
                           " -fps 24 -motionSamplesLookup -0.25 0 0.25 -motionSamplesPlacement -0.25 0 0.25";
  FrameResult result;
  std::unique_ptr<PatchRenderer> patch(PatchRenderer::init(&callbacks, args.c_str()));
  if (!patch) return result;
  std::vector<std::unique_ptr<FaceRenderer>> faces;
  std::unique_ptr<ParallelRenderer> parallel(ParallelRenderer::init(patch.get()));
  if (!parallel) return result;
  double bbox[6];
  unsigned face = 0;
  while (patch->nextFace(bbox, face)) {
    if (bbox[0] == 0 && bbox[1] == 0 && bbox[2] == 0 && bbox[3] == 0 && bbox[4] == 0 && bbox[5] == 0) continue;
    faces.emplace_back(FaceRenderer::init(patch.get(), face));
    if (!faces.back() || !parallel->enqueue(faces.back().get())) return result;
  }
  parallel->setThreads(options.threads);
  parallel->run();
  parallel->release();
  parallel.reset();
  faces.clear();
  patch.reset();
  PatchRenderer::deleteTempRenderPalettes();
  result.ok = true;
  result.fingerprint = callbacks.fingerprint();
  result.primitives = callbacks.primitives();
  return result;
}

// The same frame from a fresh process: this program with --only.
bool freshFingerprint(const Options& options, int frame, uint64_t& fingerprint) {
  const std::string command = "/proc/" + std::to_string(getpid()) + "/exe --only " + std::to_string(frame) +
                              " --threads 1 --density " + options.density + " 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return false;
  unsigned long long value = 0;
  const bool read = std::fscanf(pipe, "fingerprint %llx", &value) == 1;
  const bool exited = pclose(pipe) == 0;
  fingerprint = value;
  return read && exited;
}

// VmHWM and VmRSS of this process in kB.
std::pair<long, long> memoryKb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  long peak = -1, resident = -1;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) peak = std::atol(line.c_str() + 6);
    if (line.rfind("VmRSS:", 0) == 0) resident = std::atol(line.c_str() + 6);
  }
  return {peak, resident};
}

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (i + 1 >= argc) return false;
    const char* value = argv[++i];
    if (flag == "--frames") options.frames = std::atoi(value);
    else if (flag == "--threads") options.threads = std::atoi(value);
    else if (flag == "--density") options.density = value;
    else if (flag == "--check-every") options.checkEvery = std::max(1, std::atoi(value));
    else if (flag == "--only") options.only = std::atoi(value);
    else return false;
  }
  return options.frames > 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse(argc, argv, options)) {
    std::fprintf(stderr, "usage: vorn_soak [--frames N] [--threads T] [--density D] [--check-every K] [--only FRAME]\n");
    return 2;
  }
  PatchRenderer::setBannerShown(true);
  if (options.only > 0) {
    const FrameResult result = renderFrame(options, options.only);
    if (!result.ok) return 1;
    std::printf("fingerprint %llx primitives %zu\n", static_cast<unsigned long long>(result.fingerprint),
                result.primitives);
    return 0;
  }

  using Clock = std::chrono::steady_clock;
  std::vector<double> millis;
  int failures = 0;
  size_t primitives = 0;
  for (int frame = 1; frame <= options.frames; ++frame) {
    const auto start = Clock::now();
    const FrameResult result = renderFrame(options, frame);
    millis.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    primitives += result.primitives;
    if (!result.ok || result.primitives == 0) {
      std::printf("frame %d: the render failed or gave no primitive\n", frame);
      ++failures;
      continue;
    }
    uint64_t fresh = 0;
    if (frame % options.checkEvery == 0 || frame == 1) {
      if (!freshFingerprint(options, frame, fresh)) {
        std::printf("frame %d: the fresh process rendering it alone failed\n", frame);
        ++failures;
      } else if (fresh != result.fingerprint) {
        std::printf("frame %d: differs from the same frame rendered alone\n", frame);
        ++failures;
      }
    }
    if (frame == 10 || frame == 100 || frame == options.frames) {
      const auto [peak, resident] = memoryKb();
      std::printf("frame %d: VmHWM %ld kB, VmRSS %ld kB\n", frame, peak, resident);
      std::fflush(stdout);
    }
  }
  // Drift: the mean of the first and the last tenth of the frames (at least one frame each).
  const size_t tenth = std::max<size_t>(1, millis.size() / 10);
  auto mean = [](auto first, auto last) {
    double sum = 0;
    for (auto it = first; it != last; ++it) sum += *it;
    return sum / static_cast<double>(last - first);
  };
  std::vector<double> sorted = millis;
  std::sort(sorted.begin(), sorted.end());
  std::printf("frames %zu, primitives per frame %zu, threads %d\n", millis.size(), primitives / millis.size(),
              options.threads);
  std::printf("frame ms: mean %.1f, median %.1f, min %.1f, max %.1f; first %zu frames %.1f, last %zu frames %.1f\n",
              mean(millis.begin(), millis.end()), sorted[sorted.size() / 2], sorted.front(), sorted.back(), tenth,
              mean(millis.begin(), millis.begin() + long(tenth)), tenth, mean(millis.end() - long(tenth), millis.end()));
  std::printf("%s: %d frame(s) failed\n", failures ? "FAILED" : "ok", failures);
  return failures ? 1 : 0;
}
