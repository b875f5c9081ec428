#include "fxmodules/VrWireSupport.h"

#include "fxmodules/VrClumpingFXModule.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"

const VrClumpingFXModule* VrWireSupport::clumpModule(const VrPrimitive& primitive, unsigned clumpType,
                                                     const VrFXModule* follower) {
  if (clumpType == 0) return nullptr;
  unsigned seen = 0;
  for (const VrFXModule* module : primitive.modules()) {
    if (module == follower) break;
    if (const auto* clumps = dynamic_cast<const VrClumpingFXModule*>(module))
      if (++seen == clumpType) return clumps;
  }
  return nullptr;
}

const VrClumpGuide* VrWireSupport::getClumpGuides(const VrClumpingFXModule& clumps,
                                                  const VrPrimitiveContext& context) {
  const VrPatch* patch = context.cPatch();
  const unsigned id =
      clumps.regionIdAt(context.cu(false), context.cv(false), context.cFaceId(), patch ? &patch->name() : nullptr);
  if (id == 0 || id > clumps.numClumpGuides()) return nullptr;
  const VrClumpGuide& guide = clumps.clumpGuides()[id - 1];
  return guide.valid ? &guide : nullptr;
}
