#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "base/vrutilCodec.h"
#include "support/CaptureLogger.h"

using namespace vrutil;
using Vec = SgVec3T<double>;

namespace {
const std::string kPrefix = "Array attribute format error: ";
}

TEST(VrutilCodec, VectorText) {
  EXPECT_EQ(vtoa(Vec(1, 2.5, -3)), "[1.00000,2.50000,-3.00000]");
  EXPECT_EQ(vtoa(Vec(0.123456, 0, 10)), "[0.12346,0.00000,10.00000]");
  EXPECT_EQ(vtoa(Vec(1, 2.5, -3), "%g %g %g"), "1 2.5 -3");
  EXPECT_EQ(vtoa(SgVec3T<float>(0.5f, 1, 2)), "[0.50000,1.00000,2.00000]");

  Vec v(7, 7, 7);
  EXPECT_TRUE(stov("[1,2.5,-3]", v));
  EXPECT_EQ(v, Vec(1, 2.5, -3));
  EXPECT_TRUE(stov(vtoa(Vec(0.25, -0.5, 4)), v));
  EXPECT_EQ(v, Vec(0.25, -0.5, 4));
  const Vec before = v;
  EXPECT_FALSE(stov("[1,2]", v));
  EXPECT_FALSE(stov("1,2,3", v));
  EXPECT_FALSE(stov("", v));
  EXPECT_EQ(v, before);
}

TEST(VrutilCodec, NumberAndBoolText) {
  EXPECT_EQ(ftoa(1.5), "1.500000");
  EXPECT_EQ(ftoa(-0.25, "%.2f"), "-0.25");
  EXPECT_EQ(ftoa(1e20), "100000000000000000000.000000");
  EXPECT_EQ(itoa(-7), "-7");
  EXPECT_EQ(itoa(5, "%03d"), "005");
  EXPECT_EQ(btoa(true), "true");
  EXPECT_EQ(btoa(false), "false");
  EXPECT_EQ(btoa(false, "[%s]"), "[false]");
}

TEST(VrutilCodec, MalformedArraysReportTheirFault) {
  struct Case {
    const char* text;
    std::string error;
  };
  const Case cases[] = {
      {"array(3)", kPrefix + "Unable to find the number of elements in array."},
      {"array(x:1)", kPrefix + "Unable to read the number of elements in array."},
      {"array(:1)", kPrefix + "Unable to read the number of elements in array."},
      {"array(2:1:abc)", kPrefix + "Failed to read #1 element."},
      {"array(2:)", kPrefix + "Failed to read #0 element."},
      {"array(3:1:2)", kPrefix + "Didnt find enough elements. Found 2 but needed 3."},
      {"array(4000000000:1)",
       kPrefix + "Didnt find enough elements. Found 1 but needed 4000000000."},
  };
  for (const Case& c : cases) {
    vrtest::CaptureLogger log;
    std::vector<double> out{42.0};
    EXPECT_FALSE(stofs(c.text, out)) << c.text;
    EXPECT_EQ(log.errors(), std::vector<std::string>{c.error}) << c.text;
    EXPECT_EQ(out, std::vector<double>{42.0}) << c.text;
  }
}

TEST(VrutilCodec, NestedArrays) {
  vrtest::CaptureLogger log;
  std::vector<std::vector<double>> floats;
  EXPECT_TRUE(stovvs("array(3:array(2:1:2):array(1:3):array(0:))", floats));
  EXPECT_EQ(floats, (std::vector<std::vector<double>>{{1, 2}, {3}, {}}));
  EXPECT_TRUE(stovvs("array(1:array(1:4))", floats, true));
  EXPECT_EQ(floats.size(), 4u);
  EXPECT_EQ(floats[3], std::vector<double>{4});

  std::vector<std::vector<Vec>> vectors;
  EXPECT_TRUE(stovvs("array(2:ptArray(1:1,2,3):ptArray(2:4,5,6:7,8,9))", vectors));
  ASSERT_EQ(vectors.size(), 2u);
  EXPECT_EQ(vectors[0], std::vector<Vec>{Vec(1, 2, 3)});
  EXPECT_EQ(vectors[1], (std::vector<Vec>{Vec(4, 5, 6), Vec(7, 8, 9)}));
  EXPECT_TRUE(log.errors().empty());

  EXPECT_FALSE(stovvs("ptArray(1:1,2,3)", floats));
  EXPECT_FALSE(stovvs("nothing here", vectors));
  EXPECT_FALSE(stovvs("array(3:array(1:1):array(1:2))", floats));
  EXPECT_FALSE(stovvs("array(2:array(1:1):list(1:2))", floats));
  EXPECT_FALSE(stovvs("array(2:ptArray(1:1,2,3):array(1:1))", vectors));
  EXPECT_FALSE(stovvs("array(x ptArray(1:1,2,3))", vectors));
  EXPECT_EQ(log.errors(),
            (std::vector<std::string>{
                kPrefix + "No Array found in attribute.",
                kPrefix + "No Array found in attribute.",
                kPrefix + "Didnt find enough elements. Found 2 but needed 3.",
                kPrefix + "Failed to read #1 element.",
                kPrefix + "Failed to read #1 element.",
                kPrefix + "Unable to read the number of elements in array."}));
  EXPECT_EQ(floats.size(), 4u);
  EXPECT_EQ(vectors.size(), 2u);
}

TEST(VrutilCodec, FrameArrayPicksTheEntryOfTheFrame) {
  vrtest::CaptureLogger log;
  const std::pair<int, const char*> picks[] = {{10, "1"}, {11, "2"}, {12, "3"},
                                               {99, "3"}, {9, "1"}, {-1000, "1"}};
  for (const auto& [frame, entry] : picks)
    EXPECT_EQ(checkFrameArray("frameArray(10,1,2,3)", frame), entry) << frame;
  EXPECT_EQ(checkFrameArray("frameArray(-2, a , b )", -1), "b");

  // Commas inside parentheses do not split entries.
  const std::string matrices = "frameArray(1,matrix(1,2),matrix(3,4))";
  EXPECT_EQ(checkFrameArray(matrices, 1), "matrix(1,2)");
  EXPECT_EQ(checkFrameArray(matrices, 2), "matrix(3,4)");

  // Not a frame array: the text as given.
  EXPECT_EQ(checkFrameArray("0.5", 3), "0.5");
  EXPECT_EQ(checkFrameArray("frameArray", 3), "frameArray");
  EXPECT_EQ(checkFrameArray("frameArray(1,2", 3), "frameArray(1,2");
  EXPECT_TRUE(log.errors().empty());

  for (const char* unbalanced : {"frameArray(1,(a,b)", "frameArray(1,a),b)"}) {
    log.clear();
    EXPECT_EQ(checkFrameArray(unbalanced, 1), unbalanced);
    EXPECT_EQ(log.errors(), std::vector<std::string>{"FrameArray attribute format error: Unbalanced parentheses."});
  }
}

TEST(VrutilCodec, MatrixText) {
  SgXform3T<double> x;
  EXPECT_TRUE(stox("matrix(1,0,0,0, 0,1,0,0, 0,0,1,0, 5,6,7,1)", x));
  EXPECT_EQ(x.m[3][0], 5.0);
  EXPECT_EQ(x.m[3][2], 7.0);
  Vec p(1, 2, 3);
  x.apply(p);
  EXPECT_EQ(p, Vec(6, 8, 10));

  const std::string animated =
      "frameArray(1,matrix(1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1),"
      "matrix(2,0,0,0,0,2,0,0,0,0,2,0,1,1,1,1))";
  EXPECT_TRUE(stox(animated, x, 1));
  EXPECT_EQ(x, SgXform3T<double>());
  EXPECT_TRUE(stox(animated, x, 5));
  EXPECT_EQ(x.m[0][0], 2.0);
  EXPECT_EQ(x.m[3][1], 1.0);

  SgXform3T<float> f;
  EXPECT_TRUE(stox("matrix(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16)", f));
  EXPECT_EQ(f.m[1][2], 7.0f);

  const SgXform3T<double> before = x;
  EXPECT_FALSE(stox("matrix(1,2,3)", x));
  EXPECT_FALSE(stox("mat(1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1)", x));
  EXPECT_FALSE(stox("", x));
  EXPECT_EQ(x, before);
}

TEST(VrutilCodec, IdColourCodes) {
  // Bit 0 lands in the top bit of channel 0, bit 3 in its second bit; bits above 23 do not count.
  const std::pair<unsigned, std::vector<int>> codes[] = {
      {0, {0xFF, 0xFF, 0xFF}}, {1, {0x7F, 0xFF, 0xFF}}, {8, {0xBF, 0xFF, 0xFF}},
      {0xFFFFFF, {0, 0, 0}}, {0x1000000, {0xFF, 0xFF, 0xFF}}};
  unsigned char rgb[3];
  for (const auto& [id, channels] : codes) {
    encodeId2RGB(id, rgb);
    EXPECT_EQ(std::vector<int>(rgb, rgb + 3), channels) << id;
  }

  EXPECT_EQ(decodeRGB2Id(255, 255, 255), 0u);
  EXPECT_EQ(decodeRGB2Id(127.9, 255.2, 255.99), 1u);
  EXPECT_EQ(decodeRGB2Id(0, 0, 0), 0u);
  EXPECT_EQ(decodeRGB2Id(Vec(191, 255, 255)), 8u);
  for (unsigned id : {1u, 2u, 3u, 12345u, 0xABCDEFu, 0x7FFFFEu}) {
    encodeId2RGB(id, rgb);
    EXPECT_EQ(decodeRGB2Id(rgb[0], rgb[1], rgb[2]), id) << id;
  }
  // Wild channel values do not upset the decoder.
  EXPECT_LE(decodeRGB2Id(1e30, -1e30, std::nan("")), 0xFFFFFFu);
}

// The arithmetic is exercised by every geometry test; what they would not catch is how a
// vector too short to have a direction is normalised.
TEST(VrutilMathTypes, NormalizeReturnsTheLengthAndZeroesATinyVector) {
  Vec n(3, 0, 4);
  EXPECT_DOUBLE_EQ(n.normalize(), 5.0);
  EXPECT_DOUBLE_EQ(n.x, 0.6);
  EXPECT_DOUBLE_EQ(n.z, 0.8);
  Vec tiny(1e-7, 0, 0);
  EXPECT_EQ(tiny.normalize(), 0.0);
  EXPECT_EQ(tiny, Vec());
}

TEST(VrutilMathTypes, XformAppliesToRowVectorsAndUndoesRigidMotion) {
  // 90 degrees about z (row-vector convention: x axis goes to y) and a translation.
  const double values[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 10, 20, 30, 1};
  const SgXform3T<double> x(values);
  Vec p(1, 0, 0);
  x.apply(p);
  EXPECT_EQ(p, Vec(10, 21, 30));
  x.apply(p, false, true);
  EXPECT_EQ(p, Vec(1, 0, 0));

  Vec d(1, 0, 0);
  x.apply(d, true);
  EXPECT_EQ(d, Vec(0, 1, 0));
  x.apply(d, true, true);
  EXPECT_EQ(d, Vec(1, 0, 0));
}
