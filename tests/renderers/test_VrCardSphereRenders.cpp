// Cards and spheres baked through the file renderer: the file's primitive type and control
// point count follow the kind, the control points stand where the kind puts them, and the
// bytes do not depend on the thread count.

#include "renderers/VrFileRenderer.h"

#include "renderers/BakeScene.h"
#include "renderers/VrRenderDescription.h"

#include "io/vpd/VpdReader.h"
#include "support/TempDir.h"
#include "support/VpdRecords.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

std::string bytesOf(const std::string& path) {
  std::ostringstream out;
  out << std::ifstream(path, std::ios::binary).rdbuf();
  return out.str();
}

}  // namespace

TEST(VrCardSphereRenders, BakedControlPointsSameSeriallyAndOnTwoThreads) {
  struct Row {
    const char* kind;
    Vpd::PrimType type;
    int count;
    // Offsets of the control points from the root with default attributes, on the plane z = 0
    // where N = z, U = x and V = y.
    std::vector<SgVec3T<double>> offsets;
  };
  const Row rows[] = {
      {"CardPrimitive", Vpd::CardPrimitive, 5, {{0, 0, 0}, {0.25, 0, 0}, {0, 0.25, 0}, {0.5, 0, 0}, {0, 0.5, 0}}},
      {"SpherePrimitive", Vpd::SpherePrimitive, 4, {{0, 0, 0}, {0, 0, 1}, {0.5, 0, 0.5}, {0, 0.5, 0.5}}},
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
      const std::string files[2] = {bytesOf(dir.file("skin.vpd")), bytesOf(dir.file("tail.vpd"))};
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
    const std::vector<vrtest::VpdRecord> records = vrtest::readRecords(*reader);
    ASSERT_GT(records.size(), 20u);
    for (const vrtest::VpdRecord& r : records) {
      ASSERT_GE(r.values.size(), 2u + 3u * row.count);
      const float* cv = r.values.data() + 2;
      for (int i = 0; i < row.count; ++i) {
        const SgVec3T<double>& o = row.offsets[static_cast<size_t>(i)];
        const double want[3] = {o.x, o.y, o.z};
        for (int k = 0; k < 3; ++k) ASSERT_NEAR(cv[3 * i + k] - cv[k], want[k], 1e-5) << row.kind << " CV " << i;
      }
    }
  }
}
