#include "renderers/VrFileRenderer.h"

#include "renderers/BakeScene.h"
#include "renderers/VrPointRenderer.h"
#include "renderers/VrRenderDescription.h"

#include "io/vpd/VpdReader.h"
#include "support/CaptureLogger.h"
#include "support/TempDir.h"
#include "support/VpdRecords.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

std::string bytesOf(const std::string& path) {
  std::ostringstream out;
  out << std::ifstream(path, std::ios::binary).rdbuf();
  return out.str();
}

using Record = vrtest::VpdRecord;
using vrtest::readRecords;

void expectNear(const float* values, SgVec3T<double> expected, const std::string& what) {
  EXPECT_NEAR(values[0], expected.x, 1e-5) << what;
  EXPECT_NEAR(values[1], expected.y, 1e-5) << what;
  EXPECT_NEAR(values[2], expected.z, 1e-5) << what;
}

}  // namespace

// The file holds, per face, u, v, the four CVs and the tagged "tint" attribute the primitive
// made; in surface space the CVs are the offsets the primitive was built from.
TEST(VrFileRenderer, BakeReadsBackWithTheCVsItEmitted) {
  vrtest::TempDir dir;
  vrtest::BakeScene scene("FileRenderer");
  auto& bake = scene.renderer<VrFileRenderer>();
  std::string text;
  ASSERT_TRUE(bake.getAttr("outputDir", text));
  EXPECT_EQ(text, "${DESC}/Bake/");
  EXPECT_TRUE(bake.getAttr("startFrame", text) && text == "1" && bake.getAttr("endFrame", text) && text == "1");
  EXPECT_TRUE(bake.okToEmit(0, 0.5, 0.5));
  EXPECT_FALSE(bake.okToEmit(1, 0.5, 0.5));
  // Output directories are relative to the collection's first data directory.
  scene.palette->setAttr("vrDataPath", dir.path());
  bake.setAttr("outputDir", "${DESC}/");

  for (int space : {1, 2}) {
    bake.setCoordSpace(space);
    ASSERT_TRUE(VrRenderDescription(bake, 1));
    ASSERT_FALSE(bake.failed());
    EXPECT_EQ(bake.outputPath(), dir.file("fur/skin.vpd"));
    std::unique_ptr<VpdReader> reader = VpdReader::open(bake.outputPath());
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->primType(), Vpd::ArchivePrimitive);
    EXPECT_EQ(reader->cvCount(), 4);
    EXPECT_EQ(reader->coordSpace(), space);
    EXPECT_EQ(reader->blockNames(), std::vector<std::string>{"BakedGroom"});
    EXPECT_EQ(reader->keyNames(), (std::vector<std::string>{"tint", "skin"}));
    const std::vector<Record> records = readRecords(*reader);
    ASSERT_EQ(records.size(), bake.totalEmitCount());
    ASSERT_GT(records.size(), 20u);
    for (const Record& r : records) {
      ASSERT_EQ(r.values.size(), 2u + 12u + 2u + 12u);
      const float* cv = r.values.data() + 2;
      if (space == 1) {
        // On the plane z = 0 with N = z, U = x and V = y.
        EXPECT_NEAR(cv[2], 0.0, 1e-6);
        expectNear(cv + 3, SgVec3T<double>(cv[0], cv[1], 2.0), "P + 2N");
        expectNear(cv + 6, SgVec3T<double>(cv[0] + 0.25, cv[1], 1.0), "P + N + U/4");
        expectNear(cv + 9, SgVec3T<double>(cv[0], cv[1] + 0.75, 1.0), "P + N + 3V/4");
      } else {
        expectNear(cv, SgVec3T<double>(0.0, 0.0, 0.0), "root");
        expectNear(cv + 3, SgVec3T<double>(0.0, 2.0, 0.0), "2N");
        expectNear(cv + 6, SgVec3T<double>(0.25, 1.0, 0.0), "N + U/4");
        expectNear(cv + 9, SgVec3T<double>(0.0, 1.0, 0.75), "N + 3V/4");
      }
      // The attribute comes back under its key.
      VrPrimitiveContext back;
      ASSERT_TRUE(back.unpackCVAttrs(r.values.data() + 14, 14, reader->keyNames()));
      ASSERT_EQ(back.cvAttr("tint")->size(), 4u);
      EXPECT_EQ(back.cvAttr("tint")->back(), SgVec3T<double>(r.values[0], r.values[1], 1.0));
    }
  }
}

TEST(VrFileRenderer, SameBytesSeriallyAndOnTwoThreads) {
  vrtest::TempDir dir;
  vrtest::BakeScene scene("FileRenderer");
  scene.addPatch("tail", 3, 2);
  auto& bake = scene.renderer<VrFileRenderer>();
  scene.palette->setAttr("vrDataPath", dir.path());
  bake.setAttr("outputDir", "");
  std::string serial[2];
  for (size_t threads : {1u, 2u}) {
    ASSERT_TRUE(VrRenderDescription(bake, threads));
    ASSERT_FALSE(bake.failed());
    const std::string files[2] = {bytesOf(dir.file("skin.vpd")), bytesOf(dir.file("tail.vpd"))};
    ASSERT_GT(files[1].size(), 1000u);
    for (int i = 0; i < 2; ++i) {
      if (threads == 1) serial[i] = files[i];
      EXPECT_EQ(files[i], serial[i]);
    }
  }
}

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
  EXPECT_EQ(bytesOf(dir.file("moving/skin.vpd")), bytesOf(dir.file("still/skin.vpd")));
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

// Faces of "skin" in two runs with "tail" between: the second run starts the file afresh.
TEST(VrFileRenderer, PatchInTwoRunsIsReopened) {
  vrtest::TempDir dir;
  vrtest::BakeScene scene("FileRenderer");
  scene.addPatch("tail", 1, 1);
  auto& bake = scene.renderer<VrFileRenderer>();
  scene.palette->setAttr("vrDataPath", dir.path());
  bake.setAttr("outputDir", "");
  bake.initDescription();
  bake.render(0, "skin");
  bake.render(0, "tail");
  bake.render(1, "skin");
  bake.finishDescription();
  ASSERT_FALSE(bake.failed());
  for (const auto& c : std::vector<std::pair<std::string, int>>{{"skin.vpd", 1}, {"tail.vpd", 0}}) {
    std::unique_ptr<VpdReader> reader = VpdReader::open(dir.file(c.first));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->facesInFile(), std::vector<int>{c.second}) << c.first;
  }
}

// One record of u, v and the surface point per location, without building a primitive.
TEST(VrPointRenderer, RecordsLocationsWithoutGeometry) {
  vrtest::TempDir dir;
  vrtest::BakeScene scene("PointRenderer");
  auto& points = scene.renderer<VrPointRenderer>();
  scene.palette->setAttr("vrDataPath", dir.path());
  points.setAttr("outputDir", "");
  const int builtBefore = vrtest::FramePrimitive::built.load();
  ASSERT_TRUE(VrRenderDescription(points, 2));
  EXPECT_EQ(vrtest::FramePrimitive::built.load(), builtBefore);
  std::unique_ptr<VpdReader> reader = VpdReader::open(dir.file("skin.vuv"));
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->primType(), Vpd::PointPrimitive);
  EXPECT_EQ(reader->blockNames(), std::vector<std::string>{"Location"});
  EXPECT_TRUE(reader->keyNames().empty());
  const std::vector<Record> records = readRecords(*reader);
  ASSERT_EQ(records.size(), points.totalEmitCount());
  ASSERT_GT(records.size(), 20u);
  for (const Record& r : records) {
    ASSERT_EQ(r.values.size(), 5u);
    SgVec3T<double> P;
    ASSERT_TRUE(scene.description->patch("skin")->evalGeom(r.values[0], r.values[1], r.face, P, false));
    expectNear(r.values.data() + 2, P, "surface point");
  }
}
