// Description presets and FX module presets: what a preset leaves behind, its kind, its round
// trip, and the global expressions and module attributes it carries.

#include "document/VrDescriptionFile.h"

#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "primitives/VrPrimitive.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

namespace {

using PalettePtr = std::unique_ptr<VrPalette>;

PalettePtr groom() { return PalettePtr(VrImport(vrtest::examplePath("groom.vorn"), "", 0u)); }

std::string preset(VrDescription* description, bool withGuides = false, bool withModules = true) {
  std::ostringstream out;
  EXPECT_TRUE(VrExportDescriptionAsPreset(description, out, withGuides, withModules));
  return out.str();
}

VrDescription* importText(VrPalette* palette, const std::string& text) {
  std::istringstream in(text);
  return VrImportDescription(palette, in, false);
}

std::string attrValue(const VrObject* object, const std::string& name) {
  std::string value;
  object->getAttr(name, value);
  return value;
}

bool holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

TEST(VrDescriptionPreset, LeavesSceneDataBehindAndBringsTheExpressionsInUse) {
  PalettePtr source = groom();
  VrDescription* scalp = source->description("scalp");
  VrPrimitive* spline = scalp->activePrimitive();
  spline->setAttr("length", "0.5 * map('${DESC}/length')");
  spline->setAttr("width", "patchAttr(\"w\") + 0.01");
  scalp->setAttr("groom", "rig:scalpGroom");
  source->setAttr("custom_float_clumpAmount", "0.75");  // called by a module only
  spline->findFXModule("Clumping")->setAttr("clump", "clumpAmount()");
  const std::string text = preset(scalp);

  EXPECT_EQ(text.rfind("# Vorn Description Preset File\n", 0), 0u);
  EXPECT_TRUE(holds(text, "\n\tgroom\t\t\tscalpGroom\n")) << text;
  // globalLength() was called by the old length only.
  EXPECT_TRUE(holds(text, "\nPalExprs\t1\n\tcustom_float_clumpAmount\t0.75\n"));
  for (const char* gone : {"\tlength\t", "\twidth\t", "\tcacheFileName\t", "map(", "MapTextures", "Patches", "vrDataPath"})
    EXPECT_FALSE(holds(text, gone)) << gone;
  EXPECT_FALSE(holds(preset(scalp, false, false), "clumpAmount"));  // no modules, no module expressions

  PalettePtr target(new VrPalette);
  VrDescription* imported = importText(target.get(), text);
  ASSERT_NE(imported, nullptr);
  EXPECT_EQ(imported->numPatches(), 0u);
  EXPECT_EQ(attrValue(imported->activePrimitive(), "length"), "$a=1.0;#0.05,5.0\\n$a");  // the default
  EXPECT_EQ(attrValue(imported->activePrimitive()->findFXModule("Clumping"), "clump"), "clumpAmount()");
  EXPECT_EQ(attrValue(target.get(), "custom_float_clumpAmount"), "0.75");
}

TEST(VrDescriptionPreset, KindIsGuideForInterpolationWhateverTheGroom) {
  const char* cases[][3] = {{"0", "", "AttrExpr"}, {"0", "g", "Groom"}, {"1", "", "Guide"}, {"1", "g", "Guide"}};
  PalettePtr source = groom();
  VrDescription* scalp = source->description("scalp");
  for (const auto& c : cases) {
    scalp->activePrimitive()->setAttr("iMethod", c[0]);
    scalp->setAttr("groom", c[1]);
    EXPECT_TRUE(holds(preset(scalp), "\nVornPresetType\t" + std::string(c[2]) + "\t")) << c[0] << c[1];
  }
}
