// Points streamed straight into the archive read as spooled ones, also when a shape object turns
// up in a render said to hold splines only (it waits for the end of the points).

#include "io/AlembicTestSupport.h"
#include "io/output/VrPrimitiveOutput.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

// `count` primitives of `kind` (null: splines) with `cvs` points and two motion samples each.
std::vector<VrOutputPrimitive> primitives(const char* kind, size_t count, size_t cvs, std::vector<float>& floats) {
  floats.assign(count * cvs * 7, 0.0f);
  std::vector<VrOutputPrimitive> out(count);
  for (size_t p = 0; p < count; ++p) {
    float* at = &floats[p * cvs * 7];
    for (size_t k = 0; k < cvs * 7; ++k) at[k] = 0.01f * static_cast<float>(p + 3 * k) + (k % 3 == 1 ? 0.5f : 0.0f);
    VrOutputPrimitive& prim = out[p];
    prim.kind = kind;
    prim.description = "hair";
    prim.face = static_cast<int>(p / 4);
    prim.id = static_cast<int>(p);
    prim.numCVs = cvs;
    prim.numSamples = 2;
    prim.cvs = at;
    prim.widths = at + cvs * 6;
  }
  return out;
}

}  // namespace

TEST(VrAlembicOutput, StreamedPointsReadAsSpooledOnes) {
  vrtest::TempDir dir;
  std::vector<float> splineFloats, cardFloats;
  const std::vector<VrOutputPrimitive> splines = primitives(nullptr, 40, 6, splineFloats);
  const std::vector<VrOutputPrimitive> cards = primitives("CardPrimitive", 8, 5, cardFloats);
  for (bool withCards : {false, true}) {
    SCOPED_TRACE(withCards ? "splines and cards" : "splines");
    std::string dumps[2];
    for (bool streamed : {false, true}) {
      VrOutputSettings settings;
      settings.sampleOffsets = {0.0, 0.5};
      settings.splinesOnly = streamed;
      const std::string path =
          dir.file(std::string(streamed ? "streamed" : "spooled") + (withCards ? "Cards" : "") + ".abc");
      std::unique_ptr<VrPrimitiveOutput> output = VrPrimitiveOutput::create(path, settings);
      ASSERT_TRUE(output && output->begin());
      ASSERT_TRUE(output->write("patchA", splines.data(), 20));
      if (withCards) {
        ASSERT_TRUE(output->write("patchA", cards.data(), cards.size()));
      }
      ASSERT_TRUE(output->write("patchB", splines.data() + 20, 20));
      ASSERT_TRUE(output->end());
      dumps[streamed] = vrtest::dumpWithoutFileLine(path);
    }
    EXPECT_NE(dumps[0].find("Curves"), std::string::npos);
    EXPECT_EQ(dumps[0].find("PolyMesh") != std::string::npos, withCards);
    EXPECT_EQ(dumps[1], dumps[0]);
  }
}
