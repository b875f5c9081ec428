// Cards and spheres baked through the file renderer: the file's primitive type and control
// point count follow the kind, and the bytes do not depend on the thread count.

#include "renderers/VrFileRenderer.h"

#include "renderers/BakeScene.h"
#include "renderers/VrRenderDescription.h"

#include "io/vpd/VpdReader.h"
#include "support/Examples.h"
#include "support/TempDir.h"
#include "support/VpdRecords.h"

#include <gtest/gtest.h>

TEST(VrCardSphereRenders, BakedControlPointsSameSeriallyAndOnTwoThreads) {
  struct Row {
    const char* kind;
    Vpd::PrimType type;
    int count;
  };
  const Row rows[] = {
      {"CardPrimitive", Vpd::CardPrimitive, 5},
      {"SpherePrimitive", Vpd::SpherePrimitive, 4},
  };
  for (const Row& row : rows) {
    vrtest::TempDir dir;
    vrtest::BakeScene scene("FileRenderer");
    scene.addPatch("tail", 3, 2);
    ASSERT_TRUE(scene.description->setActive(row.kind));
    auto& bake = scene.renderer<VrFileRenderer>();
    scene.palette->setAttr("vrDataPath", dir.path());
    bake.setAttr("outputDir", "");
    std::string serial[2];
    for (size_t threads : {1u, 2u}) {
      ASSERT_TRUE(VrRenderDescription(bake, threads)) << row.kind;
      ASSERT_FALSE(bake.failed()) << row.kind;
      const std::string files[2] = {vrtest::readText(dir.file("skin.vpd")), vrtest::readText(dir.file("tail.vpd"))};
      ASSERT_GT(files[1].size(), 1000u) << row.kind;
      for (int i = 0; i < 2; ++i) {
        if (threads == 1) serial[i] = files[i];
        EXPECT_EQ(files[i], serial[i]) << row.kind << " on " << threads << " threads";
      }
    }
    std::unique_ptr<VpdReader> reader = VpdReader::open(dir.file("skin.vpd"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->primType(), row.type);
    EXPECT_EQ(reader->cvCount(), row.count);
    EXPECT_GT(vrtest::readRecords(*reader).size(), 20u);
  }
}
