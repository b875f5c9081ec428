#include "document/VrDescriptionFile.h"

#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "primitives/VrPrimitive.h"
#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

namespace {

std::unique_ptr<VrPalette> groom() {
  return std::unique_ptr<VrPalette>(VrImport(vrtest::examplePath("groom.vorn"), "", 0u));
}

std::string describe(VrDescription* description, bool withGuides, bool withPatches) {
  std::ostringstream out;
  EXPECT_TRUE(VrExportDescription(description, out, withGuides, withPatches));
  return out.str();
}

std::string attrValue(const VrObject* object, const std::string& name) {
  std::string value;
  object->getAttr(name, value);
  return value;
}

}  // namespace

TEST(VrDescriptionFile, CarriesActiveObjectsAndTheGlobalExpressionsInUse) {
  auto source = groom();
  ASSERT_TRUE(source);
  source->setAttr("custom_float_unused", "1.0");
  const std::string text = describe(source->description("scalp"), true, true);
  EXPECT_EQ(text.rfind("# Vorn Description File\n", 0), 0u);
  // Only the expression that an attribute calls travels with the description.
  EXPECT_NE(text.find("\nPalExprs\t1\n\tcustom_float_globalLength\t2.5*rand()\n"), std::string::npos);
  EXPECT_EQ(text.find("unused"), std::string::npos);
  EXPECT_EQ(text.find("Active"), std::string::npos);

  std::unique_ptr<VrPalette> target(new VrPalette);
  std::istringstream in(text);
  VrDescription* imported = VrImportDescription(target.get(), in, false);
  ASSERT_NE(imported, nullptr);
  EXPECT_EQ(imported->name(), "scalp");
  EXPECT_EQ(imported->activePrimitive()->typeName(), "SplinePrimitive");
  EXPECT_EQ(imported->activeGenerator()->typeName(), "RandomGenerator");
  EXPECT_EQ(imported->activeRenderer()->typeName(), "RendermanRenderer");
  EXPECT_EQ(imported->activePreviewer()->typeName(), "GLRenderer");  // the second renderer
  ASSERT_EQ(imported->activePrimitive()->modules().size(), 2u);
  EXPECT_EQ(attrValue(target.get(), "custom_float_globalLength"), "2.5*rand()");
  EXPECT_NE(imported->patch("scalpShape"), nullptr);
  // Guide shapes and the patches' own guides both come back.
  EXPECT_EQ(imported->activePrimitive()->numGuides(), 4u);
  EXPECT_EQ(imported->numSamples(), 0u);
}

TEST(VrDescriptionFile, NameCollisionsRenameOrReplace) {
  auto source = groom();
  const std::string text = describe(source->description("brows"), false, false);
  std::unique_ptr<VrPalette> target(new VrPalette);
  auto import = [&](bool replace) {
    std::istringstream in(text);
    return VrImportDescription(target.get(), in, replace);
  };
  ASSERT_NE(import(false), nullptr);
  VrDescription* second = import(false);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->name(), "brows1");
  EXPECT_EQ(import(false)->name(), "brows2");
  VrDescription* replacing = import(true);
  EXPECT_EQ(replacing->name(), "brows");
  EXPECT_EQ(target->numDescriptions(), 3u);
  EXPECT_EQ(target->description("brows"), replacing);
}

TEST(VrDescriptionFile, GlobalExpressionClashKeepsTheOldTextAsComment) {
  auto source = groom();
  const std::string text = describe(source->description("scalp"), false, false);
  std::unique_ptr<VrPalette> target(new VrPalette);
  target->setAttr("custom_float_globalLength", "a;b\\nc");
  const unsigned saved = VRWarningLevel;
  VRWarningLevel = 1;
  vrtest::CaptureLogger log;
  std::istringstream in(text);
  ASSERT_NE(VrImportDescription(target.get(), in, false), nullptr);
  VRWarningLevel = saved;
  EXPECT_EQ(attrValue(target.get(), "custom_float_globalLength"), "2.5*rand()\\n### a b\\n###c");
  EXPECT_EQ(log.warnings(), std::vector<std::string>{
                                "Clash on global expression [custom_float_globalLength]. Old value "
                                "stored as comment."});
}

TEST(VrDescriptionFile, RefusedAndBrokenStreamsKeepNothing) {
  std::unique_ptr<VrPalette> target(new VrPalette);
  const auto tryImport = [&](const std::string& text) {
    vrtest::CaptureLogger log;
    std::istringstream in(text);
    EXPECT_EQ(VrImportDescription(target.get(), in, false), nullptr) << text;
    return log.errors().empty() ? std::string() : log.errors().front();
  };
  EXPECT_EQ(tryImport(vrtest::readText(vrtest::examplePath("hairs.vorn"))),
            "This stream is a Vorn collection file and not one produced via the exportDescription "
            "api. Aborting.");
  EXPECT_EQ(tryImport("FileVersion 18\n"), "No description found in stream.");
  EXPECT_EQ(tryImport("Description\n\tname\t\t\tx\n\tendAttrs\n\tActive\tSplinePrimitive\n"),
            "Unrecognized token: Active in VrImportDescription.");
  EXPECT_EQ(target->numDescriptions(), 0u);
}

TEST(VrDescriptionFile, FXModuleFilesRoundTrip) {
  vrtest::TempDir dir;
  auto source = groom();
  VrDescription* scalp = source->description("scalp");
  VrFXModule* cut = scalp->activePrimitive()->findFXModule("Cut");
  ASSERT_NE(cut, nullptr);
  const std::string path = dir.file("cut.vornfx");
  ASSERT_TRUE(VrExportFXModule(cut, path));

  // The cut works on splines only: the card description refuses it, the spline one takes it.
  VrDescription* brows = source->description("brows");
  {
    vrtest::CaptureLogger refusal;
    EXPECT_EQ(VrImportFXModule(brows, path), nullptr);
  }
  VrFXModule* imported = VrImportFXModule(scalp, path);
  ASSERT_NE(imported, nullptr);
  EXPECT_EQ(imported->typeName(), "CutFXModule");
  EXPECT_EQ(attrValue(imported, "active"), "false");
  EXPECT_EQ(scalp->activePrimitive()->modules().back(), imported);
  const size_t scalpModules = scalp->activePrimitive()->modules().size();

  vrtest::CaptureLogger log;
  EXPECT_EQ(VrImportFXModule(brows, vrtest::examplePath("hairs.vorn")), nullptr);
  EXPECT_EQ(log.errors().back(),
            "This file is a Vorn collection file and not one produced via the Modifier preset "
            "api. Aborting. [" + vrtest::examplePath("hairs.vorn") + "]");
  dir.write("broken.vornfx", "FileVersion 18\nCutFXModule\n\tname\t\t\tCut2\n");
  EXPECT_EQ(VrImportFXModule(scalp, dir.file("broken.vornfx")), nullptr);
  EXPECT_EQ(scalp->activePrimitive()->modules().size(), scalpModules);  // the broken module is not kept
}
