#include "renderers/VrFileRenderer.h"

#include "renderers/BakeScene.h"
#include "renderers/VrRenderDescription.h"

#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>

// A description with a motion sample bakes each primitive once, at sample 0, building no
// primitive of the sample, and the same bytes as without it.
TEST(VrFileRenderer, AMotionSampleBakesOncePerPrimitive) {
  vrtest::TempDir dir;
  vrtest::BakeScene scene("FileRenderer"), later("FileRenderer");
  auto& bake = scene.renderer<VrFileRenderer>();
  scene.palette->setAttr("vrDataPath", dir.path());
  bake.setAttr("outputDir", "still/");
  ASSERT_TRUE(VrRenderDescription(bake, 2));
  scene.description->addSample(later.description);
  bake.setAttr("outputDir", "moving/");
  const int builtBefore = vrtest::FramePrimitive::built.load();
  ASSERT_TRUE(VrRenderDescription(bake, 2));
  EXPECT_EQ(vrtest::FramePrimitive::built.load() - builtBefore, static_cast<int>(bake.totalEmitCount()));
  EXPECT_GT(bake.totalEmitCount(), 20u);
  EXPECT_EQ(vrtest::readText(dir.file("moving/skin.vpd")), vrtest::readText(dir.file("still/skin.vpd")));
  scene.description->removeSample(later.description);
}

// A bake that fails leaves nothing at its path, an older file included.
TEST(VrFileRenderer, FailedBakeLeavesNoFile) {
  vrtest::TempDir dir;
  const std::string blocker = dir.write("blocker", "a file, not a folder");
  struct Case {
    std::string outputDir;
    int space;
    std::string message;
  };
  for (const Case& c : {Case{"blocker/bake/", 1, "Failed to create directory: " + blocker + "/bake"},
                        Case{"", 3, "Not yet supported"}}) {
    for (size_t threads : {1u, 2u}) {
      vrtest::BakeScene scene("FileRenderer");
      auto& bake = scene.renderer<VrFileRenderer>();
      scene.palette->setAttr("vrDataPath", dir.path());
      bake.setAttr("outputDir", c.outputDir);
      bake.setCoordSpace(c.space);
      const std::string old = dir.write("skin.vpd", "an older bake");
      vrtest::CaptureLogger log;
      ASSERT_TRUE(VrRenderDescription(bake, threads));
      EXPECT_TRUE(bake.failed()) << c.message;
      EXPECT_FALSE(std::filesystem::exists(bake.outputPath())) << c.message;
      EXPECT_EQ(std::filesystem::exists(old), c.space == 1) << c.message;
      bool said = false;
      for (const auto& m : log.messages) said = said || m.text.rfind(c.message, 0) == 0;
      EXPECT_TRUE(said) << c.message;
      std::filesystem::remove(old);
    }
  }
}
