#pragma once
// The stage of the file-writing renderer tests: a collection "bakeGroom" with a description
// "fur" whose primitive builds a known instance frame at every location, a random generator,
// and subdivision patches on flat quad grids (z = 0). The primitive's CVs are P, P + 2N,
// P + N + U/4 and P + N + 3V/4 (surface point, normal and unit tangents at the location), and
// its CV attribute "tint" is (u, v, 1) at every CV; it counts how many it built.

#include "base/VrModules.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrRenderer.h"
#include "support/QuadGrid.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace vrtest {

class FramePrimitive : public VrPrimitive {
 public:
  explicit FramePrimitive(VrDescription* description)
      : VrPrimitive(description, std::make_unique<VrPrimitiveContext>(description)) {
    context().getCVAttrs()["tint"];
  }
  std::string typeName() const override { return kind; }
  unsigned finalCVCount() const override { return 4; }
  void mkGeometryInParallel(VrPrimitiveContext& c, double u, double v) override {
    ++built;
    const SgVec3T<double> P = c.cP(u, v, false), N = c.cN(u, v, false);
    const SgVec3T<double> U = c.cU(u, v, false), V = c.cV(u, v, false);
    c.getGeom() = {P, P + N * 2.0, P + N + U * 0.25, P + N + V * 0.75};
    c.getCVAttrs()["tint"].assign(4, SgVec3T<double>(u, v, 1.0));
  }
  static void* create(VrDescription* description) { return static_cast<VrObject*>(new FramePrimitive(description)); }

  std::string kind = "ArchivePrimitive";
  static inline std::atomic<int> built{0};
};

struct BakeScene {
  /// `renderer`: the module name of the active renderer.
  explicit BakeScene(const std::string& renderer) : palette(new VrPalette) {
    VrRegisterModule("TestFramePrimitive", &FramePrimitive::create);
    palette->setAttr("name", "bakeGroom");
    description = new VrDescription;
    palette->addDescription(description);
    description->setAttr("name", "fur");
    EXPECT_TRUE(description->setActive("TestFramePrimitive"));
    EXPECT_TRUE(description->setActive("RandomGenerator"));
    description->activeGenerator()->setAttr("density", "30");
    EXPECT_TRUE(description->setActive(renderer));
    addPatch("skin", 2, 1);
  }
  ~BakeScene() {
    for (auto& entry : description->patches()) entry.second->unbindGeometry();
  }
  VrPatch* addPatch(const std::string& name, int n, int m) {
    surfaces.push_back(quadGrid(n, m).surface());
    auto* patch = new VrSubdPatch(description);
    patch->setName(name);
    description->addPatch(patch);
    patch->bindGeometry(nullptr, surfaces.back().get(), false);
    return patch;
  }
  template <class T>
  T& renderer() const {
    return *dynamic_cast<T*>(description->activeRenderer());
  }
  FramePrimitive& primitive() const { return *dynamic_cast<FramePrimitive*>(description->activePrimitive()); }

  std::vector<std::unique_ptr<SgSubdSurface>> surfaces;
  std::unique_ptr<VrPalette> palette;
  VrDescription* description;  // owned by the palette
};

}  // namespace vrtest
