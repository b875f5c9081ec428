#include "document/VrDescription.h"

#include "document/VrPalette.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "support/CaptureLogger.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class TestPatch : public VrPatch {
 public:
  TestPatch(VrDescription* d, const std::string& name, int* deleted = nullptr)
      : VrPatch(d), deleted(deleted) {
    setName(name);
  }
  ~TestPatch() override {
    if (deleted) ++*deleted;
  }
  std::string typeName() const override { return "SubdPatch"; }
  int* deleted;
};

std::string attrValue(const VrObject& object, const std::string& name) {
  std::string value;
  object.getAttr(name, value);
  return value;
}

}  // namespace

TEST(VrDescription, OldAttributeNamesMigrate) {
  VrDescription d;
  EXPECT_TRUE(d.setAttr("lodMinDensity", "0.5"));
  EXPECT_FALSE(d.hasAttr("lodMinDensity"));
  EXPECT_DOUBLE_EQ(d.lodMinDensity(), 0.5);
  EXPECT_EQ(attrValue(d, "minDensity"), "0.5");
  d.setAttr("igroom", "undefined");
  EXPECT_FALSE(d.hasAttr("igroom"));
  EXPECT_EQ(attrValue(d, "groom"), "");
  d.setAttr("igroom", "myGroom");
  EXPECT_EQ(attrValue(d, "groom"), "myGroom");
  d.setAttr("lodCullWidth", "0.2");
  EXPECT_DOUBLE_EQ(d.lodCullWidthRatio(), 0.2);
  EXPECT_EQ(d.numAttrs(), 13u);  // no old name is left behind
}

TEST(VrDescription, IdsAreReused) {
  // Other tests may hold descriptions; ids are relative to the first free one.
  auto first = std::make_unique<VrDescription>();
  auto second = std::make_unique<VrDescription>();
  const unsigned firstId = first->descriptionId();
  EXPECT_NE(second->descriptionId(), firstId);
  EXPECT_EQ(attrValue(*first, "descriptionId"), std::to_string(firstId));
  EXPECT_EQ(VrDescription::descriptionIdUseCount(firstId), 1u);
  first.reset();
  EXPECT_EQ(VrDescription::descriptionIdUseCount(firstId), 0u);
  auto third = std::make_unique<VrDescription>();
  EXPECT_EQ(third->descriptionId(), firstId);
  // An imported id may be shared; the counts stay right.
  third->setAttr("descriptionId", std::to_string(second->descriptionId()));
  EXPECT_EQ(VrDescription::descriptionIdUseCount(second->descriptionId()), 2u);
  EXPECT_EQ(VrDescription::descriptionIdUseCount(firstId), 0u);
}

TEST(VrDescription, ActiveObjectsAndPreviewer) {
  VrDescription d;
  vrtest::CaptureLogger log;
  EXPECT_TRUE(d.setActive("SplinePrimitive"));
  EXPECT_TRUE(d.setActive("RandomGenerator"));
  EXPECT_TRUE(d.setActive("RendermanRenderer"));
  EXPECT_EQ(d.addObject("RandomGenerator"), d.activeGenerator());  // reused

  EXPECT_FALSE(d.setPreviewer("RandomGenerator"));
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Object: RandomGenerator is not a valid previewer."});
  EXPECT_TRUE(d.setPreviewer("GLRenderer"));
  EXPECT_EQ(d.activeRenderer(true), d.activePreviewer());
  EXPECT_FALSE(d.setActive("NoSuchThing"));

  d.addObject("CardPrimitive");
  d.addObject("UniformGenerator");
  d.addObject("NullRenderer");
  EXPECT_EQ(d.numObjects(), 7u);
  d.cleanObjects(false);
  EXPECT_EQ(d.numObjects(), 4u);
  EXPECT_NE(d.activePreviewer(), nullptr);
  d.cleanObjects(true);
  EXPECT_EQ(d.numObjects(), 3u);
  EXPECT_EQ(d.activePreviewer(), nullptr);
  std::string module;
  EXPECT_TRUE(d.objectName(0, module));
  EXPECT_FALSE(d.objectName(3, module));
}

TEST(VrDescription, PatchesAreOwnedAndOrderedByName) {
  int deleted = 0;
  {
    VrDescription d;
    d.setAttr("name", "fur");
    d.addPatch(new TestPatch(&d, "pSphereShape1", &deleted));
    d.addPatch(new TestPatch(&d, "Body", &deleted));
    d.addPatch(new TestPatch(&d, "arm", &deleted));
    std::vector<std::string> order;
    for (const auto& entry : d.patches()) order.push_back(entry.first);
    EXPECT_EQ(order, (std::vector<std::string>{"Body", "arm", "pSphereShape1"}));  // byte order

    EXPECT_TRUE(d.changePatchName("arm", "leg"));
    EXPECT_EQ(d.patch("arm"), nullptr);
    ASSERT_NE(d.patch("leg"), nullptr);
    EXPECT_EQ(d.patch("leg")->name(), "leg");
    EXPECT_FALSE(d.changePatchName("arm", "x"));

    vrtest::CaptureLogger log;
    EXPECT_FALSE(d.removePatch(""));
    EXPECT_FALSE(d.removePatch("missing"));
    ASSERT_EQ(log.warnings().size(), 1u);
    const std::string warning = log.warnings()[0];
    EXPECT_EQ(warning.substr(warning.size() - std::string(" in description fur").size()), " in description fur");
    EXPECT_TRUE(d.removePatch("Body"));
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(d.numPatches(), 2u);
  }
  EXPECT_EQ(deleted, 3);
}

TEST(VrDescription, ScreenSizeExpressionBakesTheCamera) {
  VrDescription d;
  VrDescription::setLodCamera(1.0, 2.5, -3.0, 0.5);
  d.setLodScreenSizeFactor();
  EXPECT_EQ(d.lodScreenSizeFactor().expression(),
            "clamp(($initialWidth/2.0*2048.0/length($Pgw-[1.000000,2.500000,-3.000000])*0.500000"
            "-$lodPixelCullSize)/($lodPixelFadeSize-$lodPixelCullSize),0.0001,1)");
  VrDescription::setLodCamera(0.0, 0.0, 0.0, 1.0);
}
