#include "generators/VrUniformGenerator.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <cmath>

namespace {

// Cells along a length: at least one (a face without a measurable length gets one), and never
// more than an int holds.
int cellCount(double length, double spacing) {
  const double cells = std::ceil(length / spacing);
  if (!(cells >= 1.0)) return 1;
  return cells < 2147483647.0 ? static_cast<int>(cells) : 2147483647;
}

}  // namespace

VrUniformGenerator::VrUniformGenerator(VrDescription* description) : VrGenerator(description) {
  setAttr("spacing", "1.0", "float");
}

bool VrUniformGenerator::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                 const std::string& enumStrings) {
  if (VrGenerator::setAttr(name, value, type, enumStrings)) return true;
  if (name == "spacing") {
    double parsed = 0.0;
    const bool ok = floatAttr(name, value, parsed);
    spacingValue = parsed > minSpacing ? parsed : minSpacing;
    return ok;
  }
  return false;
}

std::pair<int, int> VrUniformGenerator::gridSize(const VrPatch& patch, int face) const {
  // lengthU measures a curve of constant u, which runs along v.
  const double alongV = patch.lengthU(0.5, face);
  const double alongU = patch.lengthV(0.5, face);
  return {cellCount(alongU, spacingValue), cellCount(alongV, spacingValue)};
}

void VrUniformGenerator::genPrimitives(int face, const std::vector<VrPatch*>& patches, double start,
                                       double percent) {
  if (primitive) genPrimitivesInParallel(primitive->context(), face, patches, start, percent);
}

void VrUniformGenerator::genPrimitivesInParallel(VrPrimitiveContext& context, int face,
                                                 const std::vector<VrPatch*>& patches, double start,
                                                 double percent) {
  if (patches.empty() || !patches[0]) return;
  const auto [countU, countV] = gridSize(*patches[0], face);
  const unsigned culledBefore = culledOnFace(context);
  unsigned generated = 0;
  double acc = start;
  for (int j = 0; j < countV; ++j) {
    const double v = j / static_cast<double>(countV) + 0.5 / countV;
    for (int i = 0; i < countU; ++i) {
      const double u = i / static_cast<double>(countU) + 0.5 / countU;
      context.incrId();
      if (offerLocation(context, acc, percent, u, v, face, patches)) ++generated;
    }
  }
  if (VRStatsLevel >= 3)
    vrmessage(vrmsg::Stats | vrmsg::CatGenerator | 3, "", 0,
              "[" + patches[0]->name() + "] " + std::to_string(generated) + " generated, from dimension " +
                  std::to_string(countU) + " x " + std::to_string(countV) + ", " +
                  std::to_string(culledOnFace(context) - culledBefore) + " culled.");
}
