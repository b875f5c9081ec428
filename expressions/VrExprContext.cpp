#include "expressions/VrExprContext.h"

#include "base/vrutilCodec.h"
#include "base/vrutilName.h"
#include "expressions/VrSeExprHash.h"

__thread VrExprContext* VrExprContext::threadContext = nullptr;

VrExprContext& VrExprContext::makeCurrent() {
  thread_local VrExprContext context;
  threadContext = &context;
  return context;
}

void VrExprContext::updateFaceSeed(int descriptionId) {
  // Most calls come from the same face as the one before: compared without building a string.
  if (faceId == lastFace && descriptionId == lastDescriptionId &&
      (patchName ? *patchName == lastPatch : lastPatch.empty()))
    return;
  const std::string& patch = patchName ? *patchName : std::string();
  lastFace = faceId;
  lastDescriptionId = descriptionId;
  lastPatch = patch;
  double key[3] = {static_cast<double>(descriptionId),
                   static_cast<double>(vrutil::hashString(vrutil::stripNameSpace(patch))),
                   static_cast<double>(faceId)};
  faceSeed = vrSeExprHash(3, key);
}

void VrExprContext::reset() {
  stack.clear();
  patchName = nullptr;
  description = nullptr;
  lastFace = -1;
  lastDescriptionId = -1;
  lastPatch.clear();
}
