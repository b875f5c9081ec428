#pragma once
// A null renderer that records every primitive's CVs by (face, id), and the three renders of a
// patch that must agree: in parallel on 1 and on 2 workers, and the serial walk.

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrNullRenderer.h"

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace vrtest {

class CVRecorder : public VrNullRenderer {
 public:
  using CVs = std::map<std::pair<int, unsigned>, std::vector<SgVec3T<double>>>;
  using VrNullRenderer::VrNullRenderer;
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override {
    VrNullRenderer::emitPrimitiveInParallel(context, sample, u, v, face, patches);
    std::lock_guard<std::mutex> hold(mutex);
    cvs[{face, context.id()}] = context.cGeom();
  }
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override {
    VrNullRenderer::emitPrimitive(sample, u, v, face, patches);
    const VrPrimitiveContext& context = description()->activePrimitive()->context();
    cvs[{face, context.id()}] = context.cGeom();
  }

  /// The CVs of the patch rendered in parallel on 1 and on 2 workers, then face by face.
  std::vector<CVs> renderThreeWays(const std::string& patch, int faces) {
    std::vector<CVs> runs;
    const size_t saved = VrTaskManager::threadCount();
    for (size_t threads : {1u, 2u}) {
      VrTaskManager::setThreadCount(threads);
      initDescription();
      renderPatchInParallel(patch);
      finishDescription();
      runs.push_back(std::move(cvs));
      cvs.clear();
    }
    VrTaskManager::setThreadCount(saved);
    initDescription();
    for (int face = 0; face < faces; ++face) render(face, patch);
    finishDescription();
    runs.push_back(std::move(cvs));
    cvs.clear();
    return runs;
  }

  CVs cvs;
  std::mutex mutex;
};

/// Renders `patch` of `description` the three ways of `renderThreeWays`, checks that they agree
/// and hold more than 50 splines, and answers the CVs.
inline CVRecorder::CVs sameThreeWays(VrDescription* description, const std::string& patch, int faces) {
  CVRecorder renderer(description);
  description->setActiveRenderer(&renderer);
  std::vector<CVRecorder::CVs> runs = renderer.renderThreeWays(patch, faces);
  description->setActiveRenderer(nullptr);
  EXPECT_GT(runs[0].size(), 50u);
  EXPECT_EQ(runs[0], runs[1]);
  EXPECT_EQ(runs[0], runs[2]);
  return std::move(runs[0]);
}

}  // namespace vrtest
