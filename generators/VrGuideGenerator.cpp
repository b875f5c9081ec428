#include "generators/VrGuideGenerator.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

VrGuideGenerator::VrGuideGenerator(VrDescription* description) : VrGenerator(description) {}

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
  for (unsigned index = 0; index < guides->numGuides(); ++index) {
    const VrGuide& guide = guides->guide(index);
    if (guide.faceId() != face || !guide.patch() || guide.patch()->name() != patchName) continue;
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
