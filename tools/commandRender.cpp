// `vorn render`: renders a collection through the render API exactly as a renderer plug-in does,
// and hands the primitives to the output back end that the output's extension names (see
// io/output/VrPrimitiveOutput.h).
//
// Ownership and lifetime: the collection is read once with the library to learn the names of its
// descriptions and patches, then deleted, so that the render API's own import binds the
// geometry. Every patch gets a PatchRenderer, whose faces are rendered face by face or through a
// ParallelRenderer; the callbacks object outlives them all.
//
// Memory and order: `flush` never keeps a batch. Each batch is cut into runs of one face, and
// the runs go to the output back end in (patch, face, id) order while the render goes on (see
// io/output/VrOrderedRuns.h): a run waits in memory only until its face and every face before
// it are done, so the output is the same whatever the thread count and memory does not grow
// with the render.
//
// Motion samples: every primitive carries the CVs of each sample (the render API's point rows),
// widths only once, from the first sample. Outputs that list instances also get the location
// (u, v), the ids and the random values of each primitive.
//
// Threads: `flush` and `faceDone` may be called from render workers at once; `flush` builds its
// records on the calling thread, and the back end is fed by one thread at a time.

#include "tools/commands.h"

#include "base/VrObject.h"
#include "base/vrutilSort.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "io/VrImportGeometry.h"
#include "io/alembic/VrAbcArchive.h"
#include "io/output/VrOrderedRuns.h"
#include "io/output/VrPrimitiveOutput.h"
#include "primitives/VrPrimitive.h"
#include "renderers/renderapi/VornRenderAPI.h"
#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"
#include "tools/renderThreads.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <locale>
#include <map>
#include <memory>
#include <mutex>
#include <numeric>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace vorncli {
namespace {

using namespace VornRenderAPI;

// One patch to render, with the names the argument string needs.
struct PatchJob {
  std::string description;
  std::string patch;
};

// The archive channels of one batch: the group and frame of each archive and the file of each
// slot, the low, medium and high ones from the level-of-detail ranges the batch declares.
class ArchiveChannels {
 public:
  ArchiveChannels(PrimitiveCache& cache, unsigned count) : cache(cache) {
    if (count == 0) return;
    using IntKey = PrimitiveCache::EIntArrayAttribute;
    using FloatKey = PrimitiveCache::EFloatArrayAttribute;
    using StringKey = PrimitiveCache::EStringArrayAttribute;
    if (cache.getIntArraySize(IntKey::ArchiveGroup) >= count) groups = cache.getIntArray(IntKey::ArchiveGroup);
    if (cache.getFloatArraySize(FloatKey::ArchiveFrame) >= count) frames = cache.getFloatArray(FloatKey::ArchiveFrame);
    ranges = std::clamp(cache.getInt(PrimitiveCache::EIntAttribute::NumLodRanges), 0, 4);
    for (int r = 0; r < ranges; ++r) {
      const double* range = cache.getVec3(static_cast<PrimitiveCache::EVec3Attribute>(r));
      slotOfRange[r] = range ? static_cast<int>(range[2]) : -1;
      // The ranges are those of the enabled slots; the one in use is the most detailed.
      if (slotOfRange[r] >= 0 && slotOfRange[r] < 3) lodIndex = std::max(lodIndex, slotOfRange[r]);
    }
    hasFiles = cache.getStringArraySize(StringKey::ArchiveFile) >= count * static_cast<unsigned>(ranges);
    hasProxies = cache.getStringArraySize(StringKey::ArchiveProxy) >= count;
  }
  // Fills the values of archive `i`, its four slot files going to `files`.
  void fill(unsigned i, VrOutputPrimitive& out, std::string* files) const {
    using StringKey = PrimitiveCache::EStringArrayAttribute;
    out.archiveGroup = groups ? groups[i] : 0;
    out.archiveFrame = frames ? frames[i] : 0.0f;
    out.lodIndex = lodIndex;
    for (int r = 0; hasFiles && r < ranges; ++r)
      if (slotOfRange[r] >= 0 && slotOfRange[r] < 3)
        if (const char* file =
                cache.getStringArray(StringKey::ArchiveFile, i * static_cast<unsigned>(ranges) + r))
          files[slotOfRange[r]] = file;
    if (hasProxies)
      if (const char* file = cache.getStringArray(StringKey::ArchiveProxy, i)) files[3] = file;
  }

 private:
  PrimitiveCache& cache;
  const int* groups = nullptr;
  const float* frames = nullptr;
  int ranges = 0;
  int slotOfRange[4] = {-1, -1, -1, -1};
  int lodIndex = -1;
  bool hasFiles = false, hasProxies = false;
};

// The plug-in side of the render API: answers from the command's flags and passes the batches on
// as runs, in order.
class RenderCallbacks : public ProceduralCallbacks {
 public:
  RenderCallbacks(const RenderRequest& request, VrOrderedRuns& runs, bool instance)
      : request(request),
        runs(runs),
        instance(instance),
        samples(request.motionSamples.empty() ? 1 : request.motionSamples.size()) {
    for (const std::string& entry : request.overrides) {
      const size_t eq = entry.find('=');
      overrides["user:vorn_" + entry.substr(0, eq)] = eq == std::string::npos ? "" : entry.substr(eq + 1);
    }
    // The back end wants one shutter time per motion sample; without --shutter the samples'
    // frame offsets serve.
    shutter = request.shutter;
    if (shutter.empty() && request.motionSamples.size() > 1)
      for (double offset : request.motionSamples) shutter.push_back(static_cast<float>(offset));
    // Without camera flags the render API is told of a camera at the origin looking down -z
    // with a 90 degree view, so that it has one to read; culling to the view stays as the
    // collection sets it.
    camera = request.camera.empty() ? "vornRender,0,0,-1" : request.camera;
    fov = request.fov.empty() ? "90,90" : request.fov;
    ratio = request.ratio.empty() ? "1" : request.ratio;
    xformText = "1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1";
    if (!request.cameraXform.empty()) {
      std::string text = request.cameraXform;
      std::replace(text.begin(), text.end(), ' ', ',');
      std::string joined;
      std::stringstream in(text);
      for (std::string item; std::getline(in, item, ',');)
        if (!item.empty()) joined += (joined.empty() ? "" : ",") + item;
      xformText = joined;
    }
  }

  void setJob(size_t job) { currentJob = job; }
  uint64_t primitives() const { return numPrimitives.load(); }
  uint64_t cvs() const { return numCVs.load(); }

  void log(const char* text) override {
    if (text && *text) std::cerr << "vorn: render: " << text << (text[std::strlen(text) - 1] == '\n' ? "" : "\n");
  }
  const char* getString(EStringAttribute key) override {
    switch (key) {
      case EStringAttribute::RenderCam:
        return camera.c_str();
      case EStringAttribute::RenderCamFOV:
        return fov.c_str();
      case EStringAttribute::RenderCamRatio:
        return ratio.c_str();
      case EStringAttribute::RenderCamXform:
        return xformText.c_str();
      default:
        return nullptr;
    }
  }
  // A render of several frames deletes each frame's collection; the first setup of the next
  // frame has the descriptions set up afresh.
  bool getBool(EBoolAttribute key) override {
    return key == EBoolAttribute::ClearDescriptionCache && freshSetup.exchange(false);
  }
  float getFloat(EFloatAttribute key) override {
    return key == EFloatAttribute::ShutterOpen && request.hasShutterOpen ? request.shutterOpen : 0.0f;
  }
  const float* getFloatArray(EFloatArrayAttribute key) override {
    return key == EFloatArrayAttribute::Shutter && !shutter.empty() ? shutter.data() : nullptr;
  }
  unsigned getArraySize(EFloatArrayAttribute key) override {
    return key == EFloatArrayAttribute::Shutter ? static_cast<unsigned>(shutter.size()) : 0u;
  }
  const char* getOverride(const char* name) override {
    if (!name) return nullptr;
    auto found = overrides.find(name);
    return found == overrides.end() ? nullptr : found->second.c_str();
  }

  void faceDone(const char* /*geomName*/, unsigned face) override { runs.faceDone(static_cast<int>(face)); }

  void flush(const char* /*geomName*/, PrimitiveCache* cache) override {
    if (!cache) return;
    const unsigned count = cache->getUInt(PrimitiveCache::EUIntAttribute::BatchCount);
    if (count == 0) return;
    FlushScratch& scratch = flushScratch();
    const std::string kind = cache->getString() ? cache->getString() : "";
    using IntKey = PrimitiveCache::EIntArrayAttribute;
    using FloatKey = PrimitiveCache::EFloatArrayAttribute;
    // A channel counts only when it has an entry for every primitive of the batch.
    auto channel = [&](IntKey key) { return cache->getIntArraySize(key) >= count ? cache->getIntArray(key) : nullptr; };
    const int* cvCounts = channel(IntKey::CVCount);
    const int* ids = channel(IntKey::PrimitiveId);
    const int* faces = channel(IntKey::FaceId);
    const int* descriptionIds = channel(IntKey::DescriptionId);
    const int* geomIds = channel(IntKey::GeomId);
    const int* randomInts = channel(IntKey::RandomInt);
    auto floatChannel = [&](FloatKey key) {
      return cache->getFloatArraySize(key) >= count ? cache->getFloatArray(key) : nullptr;
    };
    const bool archive = kind == "ArchivePrimitive";
    const ArchiveChannels archives(*cache, archive ? count : 0);
    const float* us = floatChannel(FloatKey::U);
    const float* vs = floatChannel(FloatKey::V);
    const float* randomFloats = floatChannel(FloatKey::RandomFloat);
    // One row of points per motion sample. Should a batch hold fewer rows than the render asked
    // for, its last row stands in for the missing ones, and rows beyond are left out.
    const unsigned rows = std::max(cache->getUInt(PrimitiveCache::EUIntAttribute::SampleCount), 1u);
    if (rows != samples && !sampleMismatch.exchange(true))
      log(("a batch came with " + std::to_string(rows) + " motion samples where " + std::to_string(samples) +
           " were asked for")
              .c_str());
    using RowKey = PrimitiveCache::EVec3Array2DAttribute;
    std::vector<const float*>& points = scratch.points;
    points.assign(samples, nullptr);
    size_t numPoints = SIZE_MAX;
    bool missing = false;
    for (size_t s = 0; s < samples; ++s) {
      const unsigned row = static_cast<unsigned>(std::min<size_t>(s, rows - 1));
      points[s] = cache->getVec3Array2D(RowKey::Points, row);
      numPoints = std::min<size_t>(numPoints, cache->getVec3Array2DSize(RowKey::Points, row));
      missing = missing || !points[s];
    }

    // Where each primitive's CVs start; splines, cards and spheres give their CVs or control
    // points with a count, archives their four placement vectors.
    std::vector<size_t>& first = scratch.first;
    std::vector<size_t>& stride = scratch.stride;
    first.assign(count + 1, 0);
    stride.assign(count, 1);
    for (unsigned i = 0; i < count; ++i) {
      const size_t n = cvCounts ? static_cast<size_t>(std::max(cvCounts[i], 0)) : 1;
      stride[i] = cvCounts ? n : 4;
      first[i + 1] = first[i] + stride[i];
    }
    if (missing || first[count] > numPoints) {
      log("a batch with fewer points than its CV counts was passed over");
      return;
    }
    const size_t totalCVs = first[count];
    const float* cvWidths = nullptr;
    const float* primWidths = nullptr;
    float constant = 0.0f;
    if (cvCounts && cache->getFloatArray2DSize(PrimitiveCache::EFloatArray2DAttribute::WidthsPerCV, 0) >= totalCVs)
      cvWidths = cache->getFloatArray2D(PrimitiveCache::EFloatArray2DAttribute::WidthsPerCV, 0);
    else if (cache->getFloatArraySize(FloatKey::ConstantWidth) >= count)
      primWidths = cache->getFloatArray(FloatKey::ConstantWidth);
    else if (cache->getFloatArraySize(FloatKey::Width) >= count)
      primWidths = cache->getFloatArray(FloatKey::Width);
    else if (cache->getBool(PrimitiveCache::EBoolAttribute::ConstantWidth))
      constant = cache->getFloat(PrimitiveCache::EFloatAttribute::ConstantWidth);

    // Runs of one face, ids ascending.
    std::vector<unsigned>& order = scratch.order;
    order.resize(count);
    std::iota(order.begin(), order.end(), 0u);
    auto faceOf = [&](unsigned i) { return faces ? faces[i] : -1; };
    auto idOf = [&](unsigned i) { return ids ? ids[i] : static_cast<int>(i); };
    vrutil::stableSortUnlessSorted(order.begin(), order.end(), [&](unsigned a, unsigned b) {
      if (faceOf(a) != faceOf(b)) return faceOf(a) < faceOf(b);
      return idOf(a) < idOf(b);
    });
    uint64_t cvTotal = 0;
    for (size_t k = 0; k < order.size();) {
      VrOutputRun run;
      run.job = currentJob;
      run.kind = kind;
      run.face = faceOf(order[k]);
      run.firstId = idOf(order[k]);
      size_t end = k, runCVs = 0;
      for (; end < order.size() && faceOf(order[end]) == run.face; ++end) runCVs += stride[order[end]];
      run.prims.resize(end - k);
      run.floats.resize(runCVs * (3 * samples + 1));
      if (archive) run.files.resize(4 * (end - k));
      // The CVs of the whole run come first, then its widths: a single sample thus lies in two
      // blocks that the curves take as they are.
      float* at = run.floats.data();
      float* widthAt = at + runCVs * 3 * samples;
      // A run that lies in the batch in order, with one sample, is already laid out so: its CVs
      // and widths are copied a block each.
      bool asBlocks = samples == 1;
      for (size_t j = k + 1; asBlocks && j < end; ++j) asBlocks = order[j] == order[j - 1] + 1;
      if (asBlocks) {
        const size_t from = first[order[k]];
        std::copy_n(points[0] + 3 * from, 3 * runCVs, at);
        if (cvWidths) std::copy_n(cvWidths + from, runCVs, widthAt);
      }
      for (size_t p = 0; k < end; ++k, ++p) {
        const unsigned i = order[k];
        const size_t n = stride[i];
        VrOutputPrimitive& out = run.prims[p];
        out.face = run.face;
        out.id = idOf(i);
        out.numCVs = n;
        out.numSamples = samples;
        out.cvs = at;
        if (asBlocks) {
          at += 3 * n;
        } else {
          for (const float* sample : points) {
            std::copy_n(sample + 3 * first[i], 3 * n, at);
            at += 3 * n;
          }
        }
        out.widths = widthAt;
        if (cvWidths) {
          if (!asBlocks) std::copy_n(cvWidths + first[i], n, widthAt);
        } else {
          std::fill_n(widthAt, n, primWidths ? primWidths[i] : constant);
        }
        widthAt += n;
        if (instance) {
          out.u = us ? us[i] : 0.0f;
          out.v = vs ? vs[i] : 0.0f;
          out.descriptionId = descriptionIds ? descriptionIds[i] : 0;
          out.geomId = geomIds ? geomIds[i] : 0;
          out.randomInt = randomInts ? randomInts[i] : 0;
          out.randomFloat = randomFloats ? randomFloats[i] : 0.0f;
        }
        if (archive) archives.fill(i, out, &run.files[4 * p]);
        cvTotal += n;
      }
      runs.add(std::move(run));
    }
    numPrimitives += count;
    numCVs += cvTotal;
  }

 private:
  // Working arrays of flush, one set per thread: workers flush at once, and a face of a dense
  // mesh makes a batch of only a few primitives, for which allocating them would count.
  struct FlushScratch {
    std::vector<const float*> points;
    std::vector<size_t> first, stride;
    std::vector<unsigned> order;
  };
  static FlushScratch& flushScratch() {
    thread_local FlushScratch scratch;
    return scratch;
  }

  const RenderRequest& request;
  VrOrderedRuns& runs;
  const bool instance;
  std::atomic<bool> freshSetup{true};
  std::map<std::string, std::string> overrides;
  std::string camera, fov, ratio, xformText;
  std::vector<float> shutter;
  const size_t samples;
  size_t currentJob = 0;
  std::atomic<bool> sampleMismatch{false};
  std::atomic<uint64_t> numPrimitives{0};
  std::atomic<uint64_t> numCVs{0};
};

// "faces done / total" on standard error, redrawn in place.
class ProgressBar {
 public:
  /// A bar over `frames` frames, each counted by its faces once it is set up.
  ProgressBar(bool shown, size_t frames) : shown(shown), frames(frames ? frames : 1) {}
  void startFrame(const std::string& label, size_t faces) {
    frameLabel = label;
    total = faces;
    done = 0;
    draw();
  }
  void advance(size_t faces) {
    done += faces;
    draw();
  }
  void endFrame() {
    ++framesDone;
    done = total = 0;
  }
  void finish() {
    if (shown) std::cerr << "\n";
  }

 private:
  void draw() {
    if (!shown) return;
    const int width = 40;
    const double part = total ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
    const double whole = (static_cast<double>(framesDone) + part) / static_cast<double>(frames);
    const size_t filled = std::min<size_t>(width, static_cast<size_t>(whole * width));
    std::cerr << "\r[" << std::string(filled, '#') << std::string(width - filled, ' ') << "] " << done << "/"
              << total << " faces";
    if (frames > 1) std::cerr << ", " << frameLabel << " (" << framesDone + 1 << "/" << frames << ")";
    std::cerr << std::flush;
  }
  bool shown;
  size_t frames;
  size_t framesDone = 0;
  std::string frameLabel;
  size_t total = 0;
  size_t done = 0;
};

// The description `description` of the collection the render API imported as `collection`: the
// names may carry a name space ("ns:head", "VR_RENDER_:ns:head") in front.
VrDescription* importedDescription(const std::string& collection, const std::string& description) {
  auto named = [](const std::string& full, const std::string& name) {
    return full == name ||
           (full.size() > name.size() && full.compare(full.size() - name.size(), name.size(), name) == 0 &&
            full[full.size() - name.size() - 1] == ':');
  };
  for (auto it = VrPalette::palettes().begin(); it != VrPalette::palettes().end(); ++it) {
    VrPalette* palette = it.value();
    if (!palette || !named(palette->name(), collection)) continue;
    for (unsigned d = 0; d < palette->numDescriptions(); ++d) {
      VrDescription* found = palette->description(d);
      if (found && named(found->name(), description)) return found;
    }
  }
  return nullptr;
}

std::string argWord(const std::string& text) { return "\"" + text + "\""; }

std::string number(double value) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out.precision(17);
  out << value;
  return out.str();
}

// The frames of a --frames range "FIRST-LAST[:STEP]"; false when the text is not one.
bool parseFrames(const std::string& text, std::vector<int>& frames) {
  frames.clear();
  long first = 0, last = 0, step = 1;
  char dash = 0, colon = 0;
  int used = 0;
  const int fields = std::sscanf(text.c_str(), "%ld%c%ld%n", &first, &dash, &last, &used);
  if (fields != 3 || dash != '-') return false;
  const char* rest = text.c_str() + used;
  if (*rest) {
    int more = 0;
    if (std::sscanf(rest, "%c%ld%n", &colon, &step, &more) != 2 || colon != ':' || rest[more] != '\0') return false;
  }
  if (first > last || step < 1 || last - first > 1000000) return false;
  for (long f = first; f <= last; f += step) frames.push_back(static_cast<int>(f));
  return true;
}

// `pattern` with its run of '#' replaced by `frame`, zero-padded to the run's length.
std::string frameFileName(const std::string& pattern, int frame) {
  const size_t first = pattern.find('#');
  if (first == std::string::npos) return pattern;
  size_t end = first;
  while (end < pattern.size() && pattern[end] == '#') ++end;
  char number[32];
  std::snprintf(number, sizeof number, "%0*d", static_cast<int>(end - first), frame);
  return pattern.substr(0, first) + number + pattern.substr(end);
}

// Where an output will be written must be a folder this process can write in; checked before
// any work, so that a long render does not end in a failed write.
bool writableOutput(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  const std::string dir = folder.empty() ? "." : folder.string();
  std::error_code ec;
  if (!std::filesystem::is_directory(dir, ec)) {
    fail("cannot write " + path + ": no folder " + dir);
    return false;
  }
  if (access(dir.c_str(), W_OK) != 0) {
    fail("cannot write " + path + ": the folder " + dir + " is not writable");
    return false;
  }
  return true;
}

// What a whole run counts, for the summary line.
struct RunTotals {
  uint64_t primitives = 0;
  uint64_t cvs = 0;
  // Wall seconds of the phases of every frame: setting the patches up, rendering them while the
  // output takes the runs, and completing the output after the last face.
  double setupSeconds = 0.0, renderSeconds = 0.0, finishSeconds = 0.0;
};

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// What a render covers: the collection's name and its (description, patch) pairs, read once for
// every frame from a read of our own that is deleted again.
struct RenderPlan {
  std::string collectionName;
  std::vector<PatchJob> jobs;
  bool splinesOnly = true;  // every description to render makes splines
};

bool readPlan(const RenderRequest& request, RenderPlan& plan) {
  PalettePtr palette = importCollection(request.collection);
  if (!palette) return false;
  plan.collectionName = palette->name();
  for (unsigned d = 0; d < palette->numDescriptions(); ++d) {
    const VrDescription* description = palette->description(d);
    if (!description) continue;
    const VrObject* renderer = description->activeRenderer();
    const std::string kind = renderer ? renderer->typeName() : std::string("(none)");
    if (kind != "RendermanRenderer") {
      warn("description " + inQuotes(description->name()) + " renders with " + kind +
           ", not RendermanRenderer: skipped");
      continue;
    }
    for (const auto& entry : description->patches()) plan.jobs.push_back({description->name(), entry.first});
    const VrObject* primitive = description->activePrimitive();
    if (!primitive || primitive->typeName() != "SplinePrimitive") plan.splinesOnly = false;
  }
  if (plan.jobs.empty()) warn("nothing to render in " + request.collection);
  return true;
}

// Renders one frame (`request.frame`) of `plan` to `request.output` on `workers` threads (1:
// face by face); every failure has been reported when it answers ExitFailed.
int renderFrame(const RenderRequest& request, const RenderPlan& plan, unsigned workers, const CliLogger& logger,
                ProgressBar& progress, RunTotals& totals) {
  const std::string& collectionName = plan.collectionName;
  const std::vector<PatchJob>& jobs = plan.jobs;

  const unsigned errorsBefore = logger.errors();
  auto phaseStart = std::chrono::steady_clock::now();
  VrOutputSettings settings;
  settings.frame = request.frame;
  settings.framesPerSecond = request.fps;
  settings.sampleOffsets = request.motionSamples;
  settings.threads = static_cast<int>(workers);
  settings.archivesInline = request.archivesInline;
  settings.splinesOnly = plan.splinesOnly;
  std::unique_ptr<VrPrimitiveOutput> output = VrPrimitiveOutput::create(request.output, settings);
  if (!output) {
    fail("the output must end in " + VrPrimitiveOutput::extensionList() + ": " + request.output);
    return ExitUsage;
  }
  const bool instance = output->wantsInstanceChannels();
  VrOrderedRuns runs(
      [&](VrOutputRun& run) { return VrWriteRun(*output, jobs[run.job].patch, jobs[run.job].description, run); },
      [&](VrOutputRun& run) { VrEncodeRun(*output, jobs[run.job].patch, jobs[run.job].description, run); });
  RenderCallbacks callbacks(request, runs, instance);

  std::string common = " -file " + argWord(request.collection) + " -geom " + argWord(request.geometry) +
                       " -palette " + argWord(collectionName) + " -frame " + number(request.frame) +
                       " -fps " + number(request.fps);
  // The same offsets serve the lookup of the collection and the placement on the geometry.
  if (!request.motionSamples.empty()) {
    std::string list;
    for (double offset : request.motionSamples) list += (list.empty() ? "" : ",") + number(offset);
    common += " -motionSamplesLookup " + argWord(list) + " -motionSamplesPlacement " + argWord(list);
  }
  if (!request.deltas.empty()) {
    std::string list;
    for (const std::string& delta : request.deltas) list += (list.empty() ? "" : " ") + delta;
    common += " -delta " + argWord(list);
  }
  if (!request.nameSpace.empty()) common += " -nameSpace " + argWord(request.nameSpace);

  // Every patch is set up first, so that the number of faces is known for the progress bar.
  struct Prepared {
    std::unique_ptr<PatchRenderer> patch;
    std::vector<unsigned> faces;
  };
  std::vector<Prepared> prepared(jobs.size());
  size_t totalFaces = 0;
  std::map<std::string, bool> channelsOn;
  for (size_t j = 0; j < jobs.size(); ++j) {
    const std::string args = "-description " + argWord(jobs[j].description) + " -patch " + argWord(jobs[j].patch) +
                             common + (request.extraArgs.empty() ? "" : " " + request.extraArgs);
    prepared[j].patch.reset(PatchRenderer::init(&callbacks, args.c_str()));
    if (!prepared[j].patch) {
      fail("the render API could not set up patch " + inQuotes(jobs[j].patch) + " of description " +
           inQuotes(jobs[j].description));
      return ExitFailed;
    }
    // Primitive and face ids travel with every batch, so that the output can be ordered. No
    // output reads the length channel (cards and spheres tell theirs by their points), and a
    // spline that the FX modules reshaped would have its length worked out for it.
    if (!channelsOn[jobs[j].description]) {
      VrDescription* description = importedDescription(collectionName, jobs[j].description);
      VrObject* renderer = description ? description->activeRenderer() : nullptr;
      if (!renderer) {
        fail("the render API's collection has no renderer for description " + inQuotes(jobs[j].description));
        return ExitFailed;
      }
      renderer->setAttr("addPrimitiveId", "true");
      renderer->setAttr("addFaceId", "true");
      renderer->setAttr("length_VP", "false");
      if (instance)
        for (const char* channel : {"addU", "addV", "descid_VP", "geomid_VS", "addRandomInt", "addRandomFloat"})
          renderer->setAttr(channel, "true");
      channelsOn[jobs[j].description] = true;
    }
    double box[6];
    unsigned face = 0;
    while (prepared[j].patch->nextFace(box, face)) {
      bool empty = true;
      for (double v : box) empty = empty && v == 0.0;
      if (!empty) prepared[j].faces.push_back(face);
    }
    totalFaces += prepared[j].faces.size();
  }

  // An Error while setting up (a delta that failed, geometry that did not bind) would make a
  // render of something else than what was asked for.
  if (logger.errors() != errorsBefore) {
    fail("the render API reported errors while setting up the render; nothing was written");
    return ExitFailed;
  }
  const unsigned setupErrors = logger.errors();
  // The back end takes runs from now on; nothing appears at the path before it ends.
  if (!output->begin()) return ExitFailed;
  totals.setupSeconds += secondsSince(phaseStart);
  phaseStart = std::chrono::steady_clock::now();

  progress.startFrame("frame " + number(request.frame), totalFaces);
  for (size_t j = 0; j < jobs.size(); ++j) {
    callbacks.setJob(j);
    runs.startJob(j, prepared[j].faces);
    PatchRenderer* patch = prepared[j].patch.get();
    std::vector<std::unique_ptr<FaceRenderer>> faces;
    for (unsigned face : prepared[j].faces) {
      faces.emplace_back(FaceRenderer::init(patch, face, &callbacks));
      if (!faces.back()) {
        fail("the render API could not set up face " + std::to_string(face) + " of patch " + inQuotes(jobs[j].patch));
        return ExitFailed;
      }
    }
    if (workers > 1) {
      std::unique_ptr<ParallelRenderer> parallel(ParallelRenderer::init(patch));
      if (!parallel) {
        fail("the render API could not set up a parallel render of patch " + inQuotes(jobs[j].patch));
        return ExitFailed;
      }
      for (auto& face : faces) parallel->enqueue(face.get());
      parallel->setThreads(static_cast<int>(workers));
      parallel->run();
      parallel->release();
      progress.advance(faces.size());
    } else {
      for (auto& face : faces) {
        face->render();
        progress.advance(1);
      }
    }
    faces.clear();
    runs.finishJob();
  }
  progress.endFrame();
  for (Prepared& p : prepared) p.patch.reset();
  PatchRenderer::deleteTempRenderPalettes();
  // The collection the render API kept for later procedurals is ours to release: a host would
  // at the end of its session, and the per-thread parses of its expressions go with it.
  for (const std::string& name : {collectionName, request.nameSpace + ":" + collectionName})
    delete VrPalette::palette(name);
  VrResetImportGeometry();

  if (logger.errors() != setupErrors)
    warn("the render reported " + std::to_string(logger.errors() - setupErrors) + " errors");
  totals.renderSeconds += secondsSince(phaseStart);
  phaseStart = std::chrono::steady_clock::now();
  if (runs.failed() || !output->end()) return ExitFailed;
  totals.finishSeconds += secondsSince(phaseStart);
  totals.primitives += callbacks.primitives();
  totals.cvs += callbacks.cvs();
  return ExitOk;
}

int render(const RenderRequest& request, const CliLogger& logger) {
  const auto start = std::chrono::steady_clock::now();
  std::vector<int> frameList;
  if (!request.frames.empty() && !parseFrames(request.frames, frameList)) {
    fail("--frames takes FIRST-LAST or FIRST-LAST:STEP, whole numbers with FIRST <= LAST and STEP >= 1: " +
         request.frames);
    return ExitUsage;
  }
  if (request.frames.empty() == !request.hasFrame) {
    fail(request.hasFrame ? "--frame and --frames cannot both be given" : "--frame or --frames is required");
    return ExitUsage;
  }
  const std::string& out = request.output;
  if (!VrPrimitiveOutput::knowsExtension(out)) {
    fail("the output must end in " + VrPrimitiveOutput::extensionList() + ": " + out);
    return ExitUsage;
  }
  if (request.archivesInline && std::filesystem::path(out).extension() != ".abc") {
    fail("--archives-inline needs an .abc output: " + out);
    return ExitUsage;
  }
  if (frameList.size() > 1 && out.find('#') == std::string::npos) {
    fail("several frames need a '#' in the output name for the frame number (hair.####.abc): " + out);
    return ExitUsage;
  }
  if (request.threads < 0) {
    fail("--threads must be 1 or more");
    return ExitUsage;
  }
  if (!(request.fps > 0.0) || !std::isfinite(request.fps)) {
    fail("--fps must be above 0");
    return ExitUsage;
  }
  for (size_t i = 1; i < request.motionSamples.size(); ++i)
    if (!(request.motionSamples[i] > request.motionSamples[i - 1])) {
      fail("--motion-samples must be frame offsets in increasing order");
      return ExitUsage;
    }
  if (request.motionSamples.size() > 1 && !request.shutter.empty() &&
      request.shutter.size() != request.motionSamples.size()) {
    fail("--shutter needs one time per motion sample (" + std::to_string(request.motionSamples.size()) + ")");
    return ExitUsage;
  }

  // Every output must be writable and the geometry readable before anything is rendered.
  std::vector<std::pair<double, std::string>> jobs;
  if (frameList.empty()) jobs.emplace_back(request.frame, out);
  for (int frame : frameList) jobs.emplace_back(frame, frameFileName(out, frame));
  for (const auto& job : jobs)
    if (!writableOutput(job.second)) return ExitFailed;
  std::error_code ec;
  if (request.geometry.empty() || !std::filesystem::is_regular_file(request.geometry, ec)) {
    fail("no such geometry file: " + request.geometry);
    return ExitFailed;
  }
  {
    VrAbcArchive archive;
    if (!archive.open(request.geometry)) {
      fail("not a readable Alembic archive: " + request.geometry);
      return ExitFailed;
    }
  }

  const unsigned workers = renderWorkers(request.threads);
  VrSetGeometrySpace(request.space == "object" ? VrGeometrySpace::Object : VrGeometrySpace::World);
  if (!request.verbose) PatchRenderer::setBannerShown(true);

  RenderPlan plan;
  if (!readPlan(request, plan)) return ExitFailed;
  ProgressBar progress(request.progress || isatty(2), jobs.size());
  RunTotals totals;
  // The geometry file stays open from frame to frame; it is closed however the range ends.
  struct CloseGeometryFiles {
    ~CloseGeometryFiles() { VrCloseGeometryFiles(); }
  } closeGeometryFiles;
  for (const auto& job : jobs) {
    RenderRequest one = request;
    one.frame = job.first;
    one.output = job.second;
    const int status = renderFrame(one, plan, workers, logger, progress, totals);
    if (status != ExitOk) {
      progress.finish();
      if (jobs.size() > 1)
        fail("frame " + number(job.first) + " failed; the frames before it are written, " + job.second + " is not");
      return status;
    }
  }
  progress.finish();

  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::ostringstream summary;
  startSummary(summary);
  summary << "rendered " << totals.primitives << " primitives, " << totals.cvs << " CVs";
  if (jobs.size() > 1) summary << " over " << jobs.size() << " frames";
  summary << " in " << seconds << " s (";
  summary.precision(0);
  summary << (seconds > 0.0 ? static_cast<double>(totals.primitives) / seconds : 0.0) << " primitives/s) on " << workersText(workers) << "\n";
  std::cout << summary.str();
  if (request.verbose) {
    std::ostringstream phases;
    phases.imbue(std::locale::classic());
    phases << std::fixed << std::setprecision(3) << "vorn render: setup " << totals.setupSeconds << " s, render "
           << totals.renderSeconds << " s, finishing the output " << totals.finishSeconds << " s\n";
    std::cerr << phases.str();
  }
  return ExitOk;
}

}  // namespace

int runRender(const RenderRequest& request) {
  CliLogger logger;
  return guarded(ExitFailed, [&] { return render(request, logger); });
}

}  // namespace vorncli
