#pragma once
// A flat 4 x 4 patch "body" with straight 8-CV splines of length 2 along +z, and one module
// under test on the spline primitive: the stage of the shaping and bending module tests. Each
// spline's frame is the surface's x, y, z all along it.

#include "fxmodules/VrFXModule.h"
#include "primitives/VrSplinePrimitive.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace vrtest {

struct ShapeScene : PatchScene {
  using Vec = SgVec3T<double>;
  using Attrs = std::vector<std::pair<const char*, const char*>>;

  ShapeScene(const char* type, const Attrs& attrs) : PatchScene(gridSurface(4), nullptr, "hair") {
    palette->setAttr("name", "coll");
    description->setActive("SplinePrimitive");
    spline = static_cast<VrSplinePrimitive*>(description->activePrimitive());
    spline->setAttr("fxCVCount", "8", "int");
    spline->setAttr("length", "2.0", "expr");
    if (type) add(type, attrs);
  }
  /// For renders of the whole patch: about 40 splines per unit of area, of lengths 1 to 2
  /// leaning over in u, so that they differ from one another.
  void scatter() {
    description->setActive("RandomGenerator");
    description->activeGenerator()->setAttr("density", "40");
    spline->setAttr("length", "1.0 + $u", "expr");
    spline->setAttr("offU", "0.6 * $v", "expr");
  }
  /// Appends a module of `type`, setting the attributes it has.
  VrFXModule* add(const char* type, const Attrs& attrs) {
    module = spline->addFXModule(type);
    std::string old, kind;
    for (const auto& [name, value] : attrs)
      if (module->getAttr(name, old, kind)) module->setAttr(name, value, kind);
    return module;
  }
  /// The spline at (u, v) of `face` before and after the last module added.
  std::pair<std::vector<Vec>, std::vector<Vec>> build(int face, double u, double v) {
    VrPrimitiveContext& context = spline->context();
    context.setActivePatchFace(patch, face);
    spline->makeGeometry(u, v, module);
    std::vector<Vec> before = context.cGeom();
    EXPECT_TRUE(module->computeParallel(context));
    return {before, context.cGeom()};
  }
  VrSplinePrimitive* spline = nullptr;
  VrFXModule* module = nullptr;
};

}  // namespace vrtest
