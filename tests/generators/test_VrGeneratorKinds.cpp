// The uniform, guide, point and file generators, observed through the files the point and file
// renderers write: what a generator emits is what lands in them.

#include "generators/VrFileGenerator.h"
#include "generators/VrUniformGenerator.h"

#include "renderers/BakeScene.h"
#include "renderers/VrFileRenderer.h"
#include "renderers/VrPointRenderer.h"
#include "renderers/VrRenderDescription.h"

#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/TempDir.h"
#include "support/VpdRecords.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

using vrtest::readRecords;
using vrtest::VpdRecord;

// A bake scene whose data path is `dir`, with `generator` active.
struct Stage {
  Stage(const vrtest::TempDir& dir, const std::string& generator) : scene("PointRenderer") {
    scene.palette->setAttr("vrDataPath", dir.path());
    EXPECT_TRUE(scene.description->setActive(generator));
  }
  VrObject& generator() const { return *scene.description->activeGenerator(); }
  /// The records the point renderer writes for the patch "skin" into `folder` (under the data path).
  std::vector<VpdRecord> points(const vrtest::TempDir& dir, const std::string& folder, size_t threads = 1) {
    VrPointRenderer renderer(scene.description);
    renderer.setAttr("outputDir", folder);
    for (const auto& [name, value] : rendererAttrs) renderer.setAttr(name, value);
    EXPECT_TRUE(VrRenderDescription(renderer, threads));
    return readRecords(dir.file(folder + "skin.vuv"));
  }
  vrtest::BakeScene scene;
  std::vector<std::pair<std::string, std::string>> rendererAttrs;
};

}  // namespace

// Cells of equal size, centres only, u fastest, ids counting cells; a spacing wider than the face
// leaves one primitive at its centre.
TEST(VrUniformGenerator, OnePrimitivePerCellCentre) {
  vrtest::TempDir dir;
  Stage stage(dir, "UniformGenerator");
  auto& uniform = dynamic_cast<VrUniformGenerator&>(stage.generator());
  for (const char* small : {"0", "-2"}) {
    uniform.setAttr("spacing", small);
    EXPECT_EQ(uniform.spacing(), VrUniformGenerator::minSpacing) << small;
  }
  struct Case {
    const char* spacing;
    int countU, countV;
  };
  // The faces of the 2 x 1 grid are unit squares.
  for (const Case& c : {Case{"5", 1, 1}, Case{"1", 1, 1}, Case{"0.45", 3, 3}, Case{"0.3", 4, 4}}) {
    uniform.setAttr("spacing", c.spacing);
    const std::vector<VpdRecord> records = stage.points(dir, "grid/");
    EXPECT_EQ(stage.points(dir, "grid2/", 2), records) << c.spacing;
    ASSERT_EQ(records.size(), 2u * c.countU * c.countV) << c.spacing;
    for (size_t k = 0; k < records.size(); ++k) {
      const VpdRecord& r = records[k];
      const int cell = static_cast<int>(r.id) - 1;
      EXPECT_EQ(r.face, static_cast<int>(k) / (c.countU * c.countV));
      EXPECT_EQ(cell, static_cast<int>(k) % (c.countU * c.countV));
      EXPECT_FLOAT_EQ(r.values[0], (cell % c.countU + 0.5) / c.countU) << c.spacing;
      EXPECT_FLOAT_EQ(r.values[1], (cell / c.countU + 0.5) / c.countV) << c.spacing;
    }
  }
}

// `percent` keeps an even share and leaves ids alone: a half keeps every second cell, the
// second being the first kept; `startPercent` shifts where the count begins.
TEST(VrUniformGenerator, PercentKeepsAnEvenShareWithTheSameIds) {
  vrtest::TempDir dir;
  Stage stage(dir, "UniformGenerator");
  stage.generator().setAttr("spacing", "0.24");  // 5 x 5 cells
  struct Case {
    const char* percent;
    const char* start;
    std::vector<unsigned> ids;
  };
  for (const Case& c : {Case{"100", "0", {1, 2, 3, 4, 5, 6}}, Case{"50", "0", {2, 4, 6, 8, 10, 12}},
                        Case{"50", "50", {1, 3, 5, 7, 9, 11}}, Case{"25", "0", {4, 8, 12, 16, 20, 24}}}) {
    stage.rendererAttrs = {{"percent", c.percent}, {"startPercent", c.start}};
    std::vector<unsigned> ids;
    for (const VpdRecord& r : stage.points(dir, "share/"))
      if (r.face == 0 && ids.size() < c.ids.size()) ids.push_back(r.id);
    EXPECT_EQ(ids, c.ids) << c.percent << " from " << c.start;
  }
}

// One primitive at the root of each guide bound to the face, ids counting those guides only.
TEST(VrGuideGenerator, OnePrimitiveAtEachGuideRootOfTheFace) {
  vrtest::TempDir dir;
  Stage stage(dir, "GuideGenerator");
  VrPatch* tail = stage.scene.addPatch("tail", 1, 1);
  VrPatch* skin = stage.scene.description->patch("skin");
  struct Root {
    VrPatch* patch;
    int face;
    double u, v;
  };
  for (const Root& root : {Root{skin, 1, 0.25, 0.75}, Root{skin, 0, 0.5, 0.5}, Root{tail, 0, 0.1, 0.1},
                           Root{skin, 1, 0.125, 0.5}}) {
    VrGuide& guide = stage.scene.primitive().addGuide();
    guide.setPatch(root.patch);
    guide.setFaceId(root.face);
    guide.setU(root.u);
    guide.setV(root.v);
  }
  const std::vector<VpdRecord> records = stage.points(dir, "guides/");
  EXPECT_EQ(stage.points(dir, "guides2/", 2), records);
  std::vector<std::tuple<int, unsigned, float, float>> got;
  for (const VpdRecord& r : records) got.emplace_back(r.face, r.id, r.values[0], r.values[1]);
  EXPECT_EQ(got, (std::vector<std::tuple<int, unsigned, float, float>>{
                     {0, 1, 0.5f, 0.5f}, {1, 1, 0.25f, 0.75f}, {1, 2, 0.125f, 0.5f}}));
}

// Locations written by the point renderer come back with their ids, on any number of threads.
TEST(VrPointGenerator, ReproducesWrittenLocations) {
  vrtest::TempDir dir;
  Stage stage(dir, "RandomGenerator");
  stage.generator().setAttr("density", "40");
  // Written where the point generator's pointDir, ${DESC}/Points/, looks by default.
  const std::vector<VpdRecord> written = stage.points(dir, "fur/Points/");
  ASSERT_GT(written.size(), 50u);
  ASSERT_TRUE(stage.scene.description->setActive("PointGenerator"));
  for (size_t threads : {1u, 2u}) {
    const std::vector<VpdRecord> again = stage.points(dir, "again/", threads);
    ASSERT_EQ(again.size(), written.size());
    // Locations and ids exactly; the surface points to float precision, being evaluated at the
    // stored (float) location instead of the scattered (double) one.
    for (size_t k = 0; k < again.size(); ++k) {
      const VpdRecord &a = again[k], &w = written[k];
      ASSERT_EQ(std::tie(a.face, a.id, a.values[0], a.values[1]), std::tie(w.face, w.id, w.values[0], w.values[1]));
      for (size_t i = 2; i < 5; ++i) EXPECT_NEAR(a.values[i], w.values[i], 1e-6) << k << " on " << threads;
    }
  }
}

// A bake rendered back through the file generator bakes to the same records without building a
// primitive: exactly in object space, to float precision in surface space.
TEST(VrFileGenerator, BakeRendersBackAsBaked) {
  for (int space : {1, 2}) {
    vrtest::TempDir dir;
    vrtest::BakeScene scene("FileRenderer");
    scene.palette->setAttr("vrDataPath", dir.path());
    auto& bake = scene.renderer<VrFileRenderer>();
    bake.setCoordSpace(space);
    bake.setAttr("outputDir", "first/");
    ASSERT_TRUE(VrRenderDescription(bake, 1));
    const std::vector<VpdRecord> baked = readRecords(dir.file("first/skin.vpd"));
    ASSERT_GT(baked.size(), 20u);

    ASSERT_TRUE(scene.description->setActive("FileGenerator"));
    scene.description->activeGenerator()->setAttr("inputDir", "first/");
    const int builtBefore = vrtest::FramePrimitive::built.load();
    for (size_t threads : {1u, 2u}) {
      bake.setAttr("outputDir", "again" + std::to_string(threads) + "/");
      ASSERT_TRUE(VrRenderDescription(bake, threads));
    }
    EXPECT_EQ(vrtest::FramePrimitive::built.load(), builtBefore);
    EXPECT_EQ(vrtest::readText(dir.file("again1/skin.vpd")), vrtest::readText(dir.file("again2/skin.vpd")));
    const std::vector<VpdRecord> again = readRecords(dir.file("again1/skin.vpd"));
    ASSERT_EQ(again.size(), baked.size());
    for (size_t k = 0; k < again.size(); ++k) {
      ASSERT_EQ(again[k].values.size(), baked[k].values.size());
      EXPECT_EQ(std::tie(again[k].face, again[k].id), std::tie(baked[k].face, baked[k].id));
      for (size_t i = 0; i < again[k].values.size(); ++i)
        if (space == 1)
          EXPECT_EQ(again[k].values[i], baked[k].values[i]);
        else
          EXPECT_NEAR(again[k].values[i], baked[k].values[i], 1e-5);
    }
  }
}

// A bake of another primitive kind is refused with the file named, once; a missing bake is silent.
TEST(VrFileGenerator, RefusesAnotherKindAndIgnoresMissingFiles) {
  vrtest::TempDir dir;
  vrtest::BakeScene scene("FileRenderer");
  scene.palette->setAttr("vrDataPath", dir.path());
  auto& bake = scene.renderer<VrFileRenderer>();
  bake.setAttr("outputDir", "cards/");
  scene.primitive().kind = "CardPrimitive";
  ASSERT_TRUE(VrRenderDescription(bake, 1));
  scene.primitive().kind = "ArchivePrimitive";
  ASSERT_TRUE(scene.description->setActive("FileGenerator"));
  bake.setAttr("outputDir", "out/");
  for (const char* input : {"cards/", "nothing/"}) {
    scene.description->activeGenerator()->setAttr("inputDir", input);
    vrtest::CaptureLogger log;
    ASSERT_TRUE(VrRenderDescription(bake, 1));
    EXPECT_EQ(bake.totalEmitCount(), 0u) << input;
    std::vector<std::string> errors;
    for (const auto& m : log.messages)
      if (m.text.find("VPD") != std::string::npos) errors.push_back(m.text);
    if (std::string(input) == "cards/")
      EXPECT_EQ(errors, std::vector<std::string>{"Incorrect primitive type in VPD file: " + dir.file("cards/skin.vpd")});
    else
      EXPECT_TRUE(errors.empty());
  }
}
