#include "expressions/VrExprContext.h"

#include "base/vrutilCodec.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "expressions/VrSeExprHash.h"

__thread VrExprContext* VrExprContext::threadContext = nullptr;

VrExprContext& VrExprContext::makeCurrent() {
  thread_local VrExprContext context;
  threadContext = &context;
  return context;
}

double VrExprContext::currentFaceSeed() {
  const int descriptionId = description ? static_cast<int>(description->descriptionId()) : 0;
  // Most calls come from the same face as the one before: compared without building a string.
  if (faceId == lastFace && descriptionId == lastDescriptionId &&
      (patchName ? *patchName == lastPatch : lastPatch.empty()))
    return faceSeed;
  const std::string& patch = patchName ? *patchName : std::string();
  lastFace = faceId;
  lastDescriptionId = descriptionId;
  lastPatch = patch;
  double key[3] = {static_cast<double>(descriptionId),
                   static_cast<double>(vrutil::hashString(vrutil::stripNameSpace(patch))),
                   static_cast<double>(faceId)};
  faceSeed = vrSeExprHash(3, key);
  return faceSeed;
}

void VrExprContext::reset() {
  stack.clear();
  patchName = nullptr;
  description = nullptr;
  lastFace = -1;
  lastDescriptionId = -1;
  lastPatch.clear();
}
