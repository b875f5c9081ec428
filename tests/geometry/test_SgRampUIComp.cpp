#include <gtest/gtest.h>

#include <vector>

#include "geometry/SgRampUIComp.h"

TEST(SgRampUIComp, ParseAndErrors) {
  SgRampUIComp ramp;
  EXPECT_TRUE(ramp.init(SgRampUIComp::RampUIDefault));
  EXPECT_FLOAT_EQ(ramp.getValue(0.3f), 1.0f);
  EXPECT_TRUE(ramp.isConstant());

  EXPECT_FALSE(ramp.init(""));
  EXPECT_FALSE(ramp.init("rampUI0,1,1:1,1,1)"));
  EXPECT_FALSE(ramp.init("rampUI(0,1,1:1,1,1"));
  // Only the last piece is checked; the pieces before it stay.
  EXPECT_FALSE(ramp.init("rampUI(0,0.5,1:1,1)"));
  ASSERT_EQ(ramp.getKeys().size(), 1u);
  EXPECT_FLOAT_EQ(ramp.getKeys().at(0.0f).value, 0.5f);

  EXPECT_TRUE(ramp.init("rampUI()"));
  EXPECT_TRUE(ramp.getKeys().empty());
  EXPECT_EQ(ramp.getValue(0.5f), 0.0f);
  EXPECT_TRUE(ramp.isConstant());

  EXPECT_TRUE(ramp.init("rampUI(0,0.2,1:0,0.7,2)"));  // the last write of a position wins
  ASSERT_EQ(ramp.getKeys().size(), 1u);
  EXPECT_FLOAT_EQ(ramp.getKeys().at(0.0f).value, 0.7f);
  EXPECT_EQ(ramp.getKeys().at(0.0f).kind, 2);

  EXPECT_FALSE(SgRampUIComp("rampUI(0.2,0.3,1:0.8,0.6,1)").isConstant());
  EXPECT_TRUE(SgRampUIComp("rampUI(0,0.5,1:1,0.5,0)").isConstant());
}

TEST(SgRampUIComp, ValuesOfEachKindBetweenAtAndOutsideTheKeys) {
  const struct {
    const char* text;
    float at, value;
  } cases[] = {
      {"rampUI(0,0,0:1,1,0)", 0.5f, 0.0f},  // step
      {"rampUI(0,0,0:1,1,0)", 1.0f, 1.0f},
      {"rampUI(0,0,1:1,1,1)", 0.25f, 0.25f},
      {"rampUI(0,0,2:1,1,2)", 0.25f, 0.15625f},  // t²(3 − 2t)
      // Spline without neighbours: both tangents (y1 − y0)/2.
      {"rampUI(0,0,3:1,1,3)", 0.25f, 0.203125f},
      // Spline with neighbours: the tangent at the middle key is flat on both sides.
      {"rampUI(0,0,3:0.5,0.5,3:1,0,1)", 0.25f, 0.28125f},
      {"rampUI(0,0,3:0.5,0.5,3:1,0,1)", 0.75f, 0.28125f},
      {"rampUI(0,0,3:0.5,0.5,3:1,0,1)", 0.5f, 0.5f},
      // An unknown kind gives 0 over its span, starting at its own key.
      {"rampUI(0,0.5,7:1,1,1)", 0.0f, 0.0f},
      {"rampUI(0,0.5,7:1,1,1)", 0.5f, 0.0f},
      {"rampUI(0,0.5,7:1,1,1)", 1.0f, 1.0f},
      // Outside the keys the end values hold.
      {"rampUI(0.2,0.3,1:0.8,0.6,1)", 0.1f, 0.3f},
      {"rampUI(0.2,0.3,1:0.8,0.6,1)", 0.8f, 0.6f},
      {"rampUI(0.2,0.3,1:0.8,0.6,1)", 2.0f, 0.6f},
      // Values are clamped to [0, 1], the spline's overshoot between two equal keys too.
      {"rampUI(0,2,1)", 0.5f, 1.0f},
      {"rampUI(0,-1,1:1,1,1)", 0.25f, 0.0f},
      {"rampUI(0,0,3:0.1,1,3:1,1,1)", 0.4f, 1.0f},
  };
  for (const auto& c : cases) {
    SgRampUIComp ramp;
    ASSERT_TRUE(ramp.init(c.text)) << c.text;
    EXPECT_FLOAT_EQ(ramp.getValue(c.at), c.value) << c.text << " at " << c.at;
  }
}

TEST(SgRampUIComp, Sample) {
  SgRampUIComp ramp("rampUI(0,0,1:1,1,1)");
  std::vector<double> out = {9.0};
  ramp.sample(out, 5);
  const std::vector<double> expected = {0, 0.25, 0.5, 0.75, 1};
  EXPECT_EQ(out, expected);
  ramp.sample(out, 1);
  EXPECT_EQ(out, std::vector<double>{0.0});
}

// A flat ramp answers its value everywhere, bit for bit; a smooth span or a second value is not flat.
TEST(SgRampUIComp, FlatRampsGiveTheirValueEverywhere) {
  const struct {
    const char* text;
    bool flat;
  } cases[] = {
      {SgRampUIComp::RampUIDefault, true},
      {"rampUI(0,0.4,0:0.5,0.4,1:1,0.4,3)", true},  // the last key's kind spans nothing
      {"rampUI(0,1.5,1:1,1.5,1)", true},            // clamped to 1
      {"rampUI(0,0.4,2:1,0.4,1)", false},
      {"rampUI(0,0.4,1:1,0.5,1)", false},
      {"rampUI()", false},
  };
  for (const auto& c : cases) {
    SgRampUIComp ramp;
    ASSERT_TRUE(ramp.init(c.text)) << c.text;
    float value = -1.0f;
    EXPECT_EQ(ramp.isFlat(value), c.flat) << c.text;
    if (!c.flat) continue;
    for (int i = 0; i <= 16; ++i) EXPECT_EQ(ramp.getValue(static_cast<float>(i) / 15.0f), value) << c.text << " " << i;
  }
  // Keys set and cleared one by one answer as parsed ones do.
  SgRampUIComp ramp;
  float value = -1.0f;
  ramp.setKey(0.0f, 0.4f, 1);
  EXPECT_TRUE(ramp.isFlat(value));
  EXPECT_EQ(value, 0.4f);
  ramp.setKey(1.0f, 0.5f, 1);
  EXPECT_FALSE(ramp.isFlat(value));
  ramp.clear();
  EXPECT_FALSE(ramp.isFlat(value));
}
