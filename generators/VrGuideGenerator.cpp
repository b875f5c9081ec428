#include "generators/VrGuideGenerator.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <tuple>

VrGuideGenerator::VrGuideGenerator(VrDescription* description) : VrGenerator(description) {}

void VrGuideGenerator::initDescription() {
  VrGenerator::initDescription();
  index.clear();
  const VrDescription* desc = description();
  indexedOwner = desc ? desc->activePrimitive() : nullptr;
  indexedCount = indexedOwner ? indexedOwner->numGuides() : 0;
  for (unsigned i = 0; i < indexedCount; ++i) {
    const VrGuide& guide = indexedOwner->guide(i);
    if (guide.patch()) index.push_back({guide.patch()->name(), guide.faceId(), i});
  }
  std::sort(index.begin(), index.end(), [](const Entry& a, const Entry& b) {
    return std::tie(a.patch, a.face, a.index) < std::tie(b.patch, b.face, b.index);
  });
}

void VrGuideGenerator::finishDescription() {
  VrGenerator::finishDescription();
  index.clear();
  indexedOwner = nullptr;
  indexedCount = 0;
}

std::vector<unsigned> VrGuideGenerator::guidesOn(const VrPrimitive& guides, const std::string& patchName,
                                                 int face) const {
  std::vector<unsigned> found;
  if (&guides == indexedOwner && guides.numGuides() == indexedCount) {
    auto at = std::lower_bound(index.begin(), index.end(), std::tie(patchName, face),
                               [](const Entry& e, const std::tuple<const std::string&, int>& key) {
                                 return std::tie(e.patch, e.face) < key;
                               });
    for (; at != index.end() && at->face == face && at->patch == patchName; ++at) found.push_back(at->index);
    return found;
  }
  for (unsigned i = 0; i < guides.numGuides(); ++i) {
    const VrGuide& guide = guides.guide(i);
    if (guide.faceId() == face && guide.patch() && guide.patch()->name() == patchName) found.push_back(i);
  }
  return found;
}

void VrGuideGenerator::genPrimitives(int face, const std::vector<VrPatch*>& patches, double start,
                                     double percent) {
  if (primitive) genPrimitivesInParallel(primitive->context(), face, patches, start, percent);
}

void VrGuideGenerator::genPrimitivesInParallel(VrPrimitiveContext& context, int face,
                                               const std::vector<VrPatch*>& patches, double start,
                                               double percent) {
  VrDescription* desc = description();
  const VrPrimitive* guides = desc ? desc->activePrimitive() : nullptr;
  if (patches.empty() || !patches[0] || !guides) return;
  VR_DEBUG(3, vrmsg::CatGenerator, "Starting generator on patch.");
  const std::string& patchName = patches[0]->name();
  // The render walk gives one patch per motion sample of the renderer.
  const int samples = static_cast<int>(patches.size());

  const unsigned culledBefore = culledOnFace(context);
  unsigned generated = 0;
  double acc = start;
  for (unsigned index : guidesOn(*guides, patchName, face)) {
    const VrGuide& guide = guides->guide(index);
    double u = guide.patchU(), v = guide.patchV();
    for (int s = 1; s < samples; ++s) {
      const VrDescription* sampleDesc = sampleDescription(s);
      const VrPrimitive* samplePrimitive = sampleDesc ? sampleDesc->activePrimitive() : nullptr;
      if (!samplePrimitive || index >= samplePrimitive->numGuides()) continue;
      u = samplePrimitive->guide(index).patchU();
      v = samplePrimitive->guide(index).patchV();
    }
    context.incrId();
    if (offerLocation(context, acc, percent, u, v, face, patches)) ++generated;
  }
  if (VRStatsLevel >= 3)
    vrmessage(vrmsg::Stats | vrmsg::CatGenerator | 3, "", 0,
              "[" + patchName + "] " + std::to_string(generated) + " generated, " +
                  std::to_string(culledOnFace(context) - culledBefore) + " culled.");
}
