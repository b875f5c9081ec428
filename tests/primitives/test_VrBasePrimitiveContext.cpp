// The frames a primitive context keeps per location: a slot answered from another slot at the
// same place must hold what evaluating it afresh gives, bit for bit.

#include "primitives/VrPrimitiveContext.h"

#include "document/VrDescription.h"
#include "primitives/VrPrimitive.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using Vec = SgVec3T<double>;

// Slots 0 to 3: plain reference, plain animated, displaced reference, displaced animated.
struct Frame {
  Vec point, normal, dPdu, dPdv, unitU, unitV;
  bool operator==(const Frame& o) const {
    return point == o.point && normal == o.normal && dPdu == o.dPdu && dPdv == o.dPdv && unitU == o.unitU &&
           unitV == o.unitV;
  }
};

Frame frameOf(VrPrimitiveContext& c, int slot, double u, double v) {
  const bool ref = slot % 2 == 0;
  if (slot < 2) return {c.cPg(u, v, ref), c.cNg(u, v, ref), c.cdPdug(u, v, ref), c.cdPdvg(u, v, ref),
                        c.cUg(u, v, ref), c.cVg(u, v, ref)};
  return {c.cP(u, v, ref), c.cN(u, v, ref), c.cdPdu(u, v, ref), c.cdPdv(u, v, ref), c.cU(u, v, ref),
          c.cV(u, v, ref)};
}

}  // namespace

TEST(VrPrimitiveContextSlots, AFrameTakenFromAnotherSlotIsTheFreshOne) {
  struct Case {
    const char* what;
    bool referenced;          // the reference surface is another one than the animated
    const char* generatorAttr;  // of the active generator (flipNormals: of the description)
    const char* value;
  };
  const Case cases[] = {
      {"static", false, nullptr, nullptr},
      {"rest pose apart", true, nullptr, nullptr},
      {"offset", false, "offset", "0.01"},
      {"displacement", false, "displacement", "0.02 * $u"},
      {"vector displacement", false, "vectorDisplacement", "true"},
      {"zero constants", false, "bump", "0 * 3"},
      {"flipped normals", false, "flipNormals", "true"},
  };
  // A curved grid, so that the frames differ from place to place and from the rest pose.
  const double u = 0.3, v = 0.7;
  for (const Case& c : cases) {
    vrtest::PatchScene scene(vrtest::gridSurface(4, 0.5f, 0.3f),
                             c.referenced ? vrtest::gridSurface(4, 1.5f, 0.1f) : nullptr);
    scene.description->setActive("SplinePrimitive");
    scene.description->setActive("RandomGenerator");
    const std::string attr = c.generatorAttr ? c.generatorAttr : "";
    VrObject* owner = attr == "flipNormals" ? static_cast<VrObject*>(scene.description)
                                            : scene.description->activeGenerator();
    ASSERT_TRUE(owner);
    if (!attr.empty()) {
      ASSERT_TRUE(owner->setAttr(attr, c.value, attr == "flipNormals" || attr == "vectorDisplacement" ? "bool" : "expr"));
    }
    VrPrimitive* primitive = scene.description->activePrimitive();
    for (int first = 0; first < 4; ++first)
      for (int second = 0; second < 4; ++second) {
        if (first == second) continue;
        SCOPED_TRACE(std::string(c.what) + ": slot " + std::to_string(second) + " after " + std::to_string(first));
        std::unique_ptr<VrPrimitiveContext> fresh = primitive->createContext();
        fresh->setActivePatchFace(scene.patch, 5);
        const Frame expected = frameOf(*fresh, second, u, v);
        VrPrimitiveContext& context = primitive->context();
        context.setActivePatchFace(scene.patch, 5);
        frameOf(context, first, u, v);
        EXPECT_TRUE(frameOf(context, second, u, v) == expected);
      }
  }
}
