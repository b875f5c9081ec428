// The exported renderers: thin shells over `Procedural` that take the render lock at every entry
// point, destructors included. The shells own their procedural; a `ParallelRenderer` only points
// at the face renderers queued in it.

#include "renderers/renderapi/VornRenderAPI.h"

#include <memory>
#include <mutex>
#include <vector>

#include "base/VrMessage.h"
#include "renderers/renderapi/VornRenderAPIProcedural.h"

namespace VornRenderAPI {

namespace {

std::recursive_mutex& renderMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

class PatchRendererImpl : public PatchRenderer {
 public:
  explicit PatchRendererImpl(std::unique_ptr<Procedural> procedural) : worker(std::move(procedural)) {}
  ~PatchRendererImpl() override {
    RenderLock lock;
    worker.reset();
  }
  bool nextFace(double bbox[6], unsigned& face) override {
    RenderLock lock;
    return worker->nextFace(bbox, face);
  }
  Description* description() override {
    RenderLock lock;
    return worker->descriptionView();
  }
  bool patchBox(double bbox[6], bool padded) override {
    RenderLock lock;
    return worker->patchBox(bbox, padded);
  }
  bool sampleBox(double bbox[6], unsigned sample, bool padded) override {
    RenderLock lock;
    return worker->sampleBox(bbox, sample, padded);
  }
  Procedural& procedural() { return *worker; }

 private:
  std::unique_ptr<Procedural> worker;
};

class FaceRendererImpl : public FaceRenderer {
 public:
  explicit FaceRendererImpl(std::unique_ptr<Procedural> procedural) : worker(std::move(procedural)) {}
  ~FaceRendererImpl() override {
    RenderLock lock;
    worker.reset();
  }
  void render() override {
    RenderLock lock;
    worker->handleFace();
  }
  Procedural& procedural() { return *worker; }

 private:
  std::unique_ptr<Procedural> worker;
};

class ParallelRendererImpl : public ParallelRenderer {
 public:
  explicit ParallelRendererImpl(Procedural& patch) : patch(patch) {}
  ~ParallelRendererImpl() override { RenderLock lock; }
  bool canRunInParallel() override {
    RenderLock lock;
    return patch.canRunInParallel();
  }
  void setThreads(int value) override {
    RenderLock lock;
    threads = value;
  }
  void setGrain(int value) override {
    RenderLock lock;
    grain = value;
  }
  bool enqueue(FaceRenderer* face) override {
    RenderLock lock;
    if (!face) {
      VR_ERROR("in_face is NULL when enqueue a face renderer.");
      return false;
    }
    auto* impl = dynamic_cast<FaceRendererImpl*>(face);
    if (!impl || !impl->procedural().valid()) {
      VR_ERROR("in_face is not initialized properly.");
      return false;
    }
    queue.push_back(impl);
    return true;
  }
  void run() override {
    RenderLock lock;
    if (threads >= 0 && patch.canRunInParallel()) {
      VR_DEBUG(2, vrmsg::CatRender, "Parallel rendering is on.");
      std::vector<Procedural*> faces;
      faces.reserve(queue.size());
      for (FaceRendererImpl* face : queue) faces.push_back(&face->procedural());
      patch.handleParallel(faces, threads, grain);
    } else {
      VR_DEBUG(2, vrmsg::CatRender, "Parallel rendering is off.");
      for (FaceRendererImpl* face : queue) face->render();
    }
  }
  void release() override {
    RenderLock lock;
    queue.clear();
  }

 private:
  Procedural& patch;
  std::vector<FaceRendererImpl*> queue;
  int threads = 0;
  int grain = 0;
};

}  // namespace

PatchRenderer* PatchRenderer::init(ProceduralCallbacks* callbacks, const char* args) {
  RenderLock lock;
  auto procedural = std::make_unique<Procedural>(callbacks, args);
  if (!procedural->valid()) return nullptr;
  return new PatchRendererImpl(std::move(procedural));
}

void PatchRenderer::deleteTempRenderPalettes() {
  RenderLock lock;
  Procedural::deleteTempRenderPalettes();
}

void PatchRenderer::setBannerShown(bool shown) {
  RenderLock lock;
  Procedural::setBannerShown(shown);
}

FaceRenderer* FaceRenderer::init(PatchRenderer* patch, unsigned face, ProceduralCallbacks* callbacks) {
  RenderLock lock;
  auto* impl = dynamic_cast<PatchRendererImpl*>(patch);
  if (!impl || !impl->procedural().valid()) {
    VR_ERROR("Procedural::handleFace was given an invalid Description.");
    return nullptr;
  }
  return new FaceRendererImpl(
      std::make_unique<Procedural>(impl->procedural(), static_cast<int>(face), callbacks));
}

ParallelRenderer* ParallelRenderer::init(PatchRenderer* patch) {
  RenderLock lock;
  if (!patch) {
    VR_ERROR("in_patch is NULL when init a ParallelRenderer.");
    return nullptr;
  }
  auto* impl = dynamic_cast<PatchRendererImpl*>(patch);
  if (!impl || !impl->procedural().patch()) {
    VR_ERROR("in_patch is not initialized properly when init a ParallelRenderer.");
    return nullptr;
  }
  return new ParallelRendererImpl(impl->procedural());
}

RenderLock::RenderLock() { acquire(); }

RenderLock::~RenderLock() { release(); }

void RenderLock::acquire() {
  if (held) return;
  renderMutex().lock();
  held = true;
}

void RenderLock::release() {
  if (!held) return;
  renderMutex().unlock();
  held = false;
}

}  // namespace VornRenderAPI
