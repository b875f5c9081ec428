#include "primitives/VrGuideRepair.h"

#include "base/VrMessage.h"
#include "primitives/VrBasePrimitive.h"
#include "primitives/VrGuide.h"

namespace vrguide {

void readyGuideCVs(const VrBasePrimitive& primitive, VrGuide& guide, const std::string& kindWord,
                   Straighten straighten) {
  if (guide.iGuideGeom().empty()) guide.setIGeom(guide.iOrigGuideGeom());
  if (!primitive.verifyGuideGeom(guide.iGuideGeom())) {
    VR_WARNING(2, "Guide " + guide.id() + " has " + std::to_string(guide.iGuideGeom().size()) + " CVs, fewer than a " +
                      kindWord + " needs; it takes the default shape.");
    primitive.defaultGuideGeom(guide);
    guide.setIGeom(guide.iOrigGuideGeom());
  }
  if (!straighten) return;
  std::vector<SgVec3T<double>> cvs = guide.iGuideGeom();
  if (straighten(cvs)) guide.setIGeom(std::move(cvs));
}

}  // namespace vrguide
