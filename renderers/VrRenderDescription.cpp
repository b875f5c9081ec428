#include "renderers/VrRenderDescription.h"

#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "geometry/VrPatch.h"
#include "renderers/VrRenderer.h"

bool VrRenderDescription(VrRenderer& renderer, size_t threads) {
  VrDescription* desc = renderer.description();
  if (!desc || !desc->activeGenerator() || !desc->activePrimitive()) {
    VR_ERROR(std::string("Cannot render ") + (desc ? "description " + desc->name() : std::string("a renderer")) +
             ": it has no " + (desc ? "active generator or primitive." : "description."));
    return false;
  }
  VrObject* const savedRenderer = desc->activeRenderer();
  VrObject* const savedPreviewer = desc->activePreviewer();
  desc->setActiveRenderer(&renderer);
  desc->setActivePreviewer(nullptr);
  const size_t savedThreads = VrTaskManager::threadCount();
  const bool parallel = threads != 1 && renderer.canRunInParallel();
  if (parallel && threads > 1) VrTaskManager::setThreadCount(threads);

  renderer.initDescription();
  for (const auto& entry : desc->patches()) {
    const VrPatch* patch = entry.second;
    if (!patch || !patch->isBound()) continue;
    if (parallel) {
      renderer.renderPatchInParallel(entry.first);
    } else {
      for (int face : patch->faceIds()) renderer.render(face, entry.first);
    }
  }
  renderer.finishDescription();

  VrTaskManager::setThreadCount(savedThreads);
  desc->setActiveRenderer(savedRenderer);
  desc->setActivePreviewer(savedPreviewer);
  return true;
}
