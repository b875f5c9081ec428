#include "expressions/VrExpression.h"

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrSeExprHash.h"
#include "support/CaptureLogger.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace {

// A collection with one description, owned together.
struct Scene {
  Scene() : palette(new VrPalette), description(new VrDescription) {
    palette->addDescription(description);
    description->setAttr("name", "fur");
  }
  std::unique_ptr<VrPalette> palette;
  VrDescription* description;
};

double evalAt(const VrExpression& e, double u, double v, int face = 0) { return e.eval(u, v, face).x; }

}  // namespace

TEST(VrExpression, InvalidTextsAreReportedAndEvaluateToZero) {
  Scene scene;
  VrExpression e("length", "SplinePrimitive", scene.description, "$foo + 1", "float");
  vrtest::CaptureLogger log;
  EXPECT_FALSE(e.isValid());
  EXPECT_TRUE(log.messages.empty());  // only a caller that asks for the report gets it
  std::string error;
  EXPECT_FALSE(e.isValid(&error));
  EXPECT_EQ(error, "Error in expression \"fur::length\". [$foo + 1]\nError: No variable named $foo.");
  EXPECT_EQ(log.errors(), std::vector<std::string>{error});
  EXPECT_EQ(e.eval(0.5, 0.5, 0).x, 0.0);
  EXPECT_FALSE(VrExpression("x", "T", nullptr, "1 +", "float").syntaxOK());
  EXPECT_FALSE(VrExpression("x", "T", nullptr, "stray()", "float").isValid());  // needs a description
}

TEST(VrExpression, RandIsStablePerCallSiteAndLocation) {
  Scene scene;
  VrExpression two("width", "SplinePrimitive", scene.description, "[rand(), rand(), rand(5)]", "vector");
  const SgVec3T<double> first = two.eval(0.25, 0.75, 3);
  EXPECT_NE(first.x, first.y);  // two call sites differ
  EXPECT_EQ(two.eval(0.25, 0.75, 3).x, first.x);
  EXPECT_NE(two.eval(0.26, 0.75, 3).x, first.x);

  VrExpression again("width", "SplinePrimitive", scene.description, "[rand(), rand(), rand(5)]", "vector");
  const SgVec3T<double> second = again.eval(0.25, 0.75, 3);
  EXPECT_EQ(second.x, first.x);  // the same text parsed again gives the same values
  EXPECT_EQ(second.z, first.z);
  two.setExpression(two.expression());
  EXPECT_EQ(two.randInstance(), 0);
  EXPECT_EQ(two.eval(0.25, 0.75, 3).y, first.y);

  // The value is hash(u, v, face seed, call site): computed here from its parts.
  double siteKey[2] = {two.exprSeed(), 0.0};
  const double site = vrSeExprHash(2, siteKey);
  double faceKey[3] = {static_cast<double>(scene.description->descriptionId()), 0.0, 3.0};
  double key[4] = {0.25, 0.75, vrSeExprHash(3, faceKey), site};
  EXPECT_EQ(first.x, vrSeExprHash(4, key));

  VrExpression ranged("r", "T", scene.description, "rand(2, 2)", "float");
  EXPECT_EQ(evalAt(ranged, 0.1, 0.2), 2.0);
  VrExpression bounded("r", "T", scene.description, "rand(10, 20, 7)", "float");
  const double b = evalAt(bounded, 0.1, 0.2);
  EXPECT_GE(b, 10.0);
  EXPECT_LE(b, 20.0);
}

TEST(VrExpression, RandGoldenValues) {
  // Pinned values: a change here changes every groom on every farm.
  double a[2] = {1.0, 2.0};
  EXPECT_DOUBLE_EQ(vrSeExprHash(2, a), 0.4160771925039769);
}

TEST(VrExpression, ConstantsExcludeSystemFunctions) {
  EXPECT_TRUE(VrExpression("c", "T", nullptr, "1 + 2", "float").isConstant());
  EXPECT_FALSE(VrExpression("c", "T", nullptr, "rand()", "float").isConstant());
  EXPECT_FALSE(VrExpression("c", "T", nullptr, "noise()", "float").isConstant());
  EXPECT_FALSE(VrExpression("c", "T", nullptr, "$u", "float").isConstant());
  VrExpression noise("n", "T", nullptr, "noise()", "float");
  EXPECT_NE(evalAt(noise, 0.3, 0.7), evalAt(noise, 0.7, 0.3));
  EXPECT_TRUE(VrExpression("c", "T", nullptr, "rand() + myGlobal()", "float").usesFunc("myGlobal"));
}

// A constant text is evaluated once and then answered from its value; anything that can vary
// from one location to the next is evaluated every time.
TEST(VrExpression, ConstantTextsAreFoldedOnFirstUse) {
  struct Case {
    const char* text;
    const char* type;
    bool folded;
    double x, z;  // the value at (0.25, 0.75)
  };
  const Case cases[] = {
      {"0.05", "float", true, 0.05, 0.05},
      {"$a=0.1;#0.005,0.5\n$a * 2", "float", true, 0.2, 0.2},
      {"[0.4, 0.26, 0.15] * 2", "color", true, 0.8, 0.3},
      {"3", "vector", true, 3.0, 3.0},
      {"$u", "float", false, 0.25, 0.25},
      {"0.5 + rand() * 0", "float", false, 0.5, 0.5},
      {"1 +", "float", false, 0.0, 0.0},  // invalid: zero, every time
  };
  vrtest::CaptureLogger quiet;
  for (const Case& c : cases) {
    VrExpression e("attr", "Test", nullptr, c.text, c.type);
    for (int pass = 0; pass < 2; ++pass) {
      const SgVec3T<double> value = e.eval(0.25, 0.75, 3);
      EXPECT_DOUBLE_EQ(value.x, c.x) << c.text;
      EXPECT_DOUBLE_EQ(value.z, c.z) << c.text;
    }
    EXPECT_EQ(e.isFoldedConstant(), c.folded) << c.text;
  }
  // A custom variable is read at every evaluation; a new text is folded afresh.
  VrExpression e("a", "Test", nullptr, "$q * 10", "float");
  VrExpression::setCustomVariable("q", 1.0);
  EXPECT_EQ(evalAt(e, 0, 0), 10.0);
  VrExpression::setCustomVariable("q", 2.0);
  EXPECT_EQ(evalAt(e, 0, 0), 20.0);
  EXPECT_FALSE(e.isFoldedConstant());
  e.setExpression("7");
  EXPECT_EQ(evalAt(e, 0, 0), 7.0);
  EXPECT_TRUE(e.isFoldedConstant());
  e.setExpression("$q");
  EXPECT_EQ(evalAt(e, 0, 0), 2.0);
  VrExpression::removeAllCustomVariables();
}

TEST(VrExpression, FunctionsOfTheTable) {
  Scene scene;
  VrDescription* d = scene.description;
  VrExpression frames("f", "T", d, "frameArray(1, 10, 20, 30)", "float");
  const auto at = [&](double frame) {
    scene.palette->setFrame(frame);
    return evalAt(frames, 0, 0);
  };
  EXPECT_EQ(at(1), 10.0);
  EXPECT_EQ(at(2), 20.0);
  EXPECT_EQ(at(99), 30.0);
  EXPECT_EQ(at(-5), 10.0);
  std::string error;
  vrtest::CaptureLogger log;
  EXPECT_FALSE(VrExpression("f", "T", d, "frameArray(1)", "float").isValid(&error));
  EXPECT_NE(error.find("fur,f: Error in frameArray expression. Should have at least 2 elements. Aborting function prep."),
            std::string::npos)
      << error;

  VrExpression shadow("s", "T", d, "shadow(0.5)", "vector");
  EXPECT_EQ(shadow.eval(0, 0, 0).y, 1.0);
  VrExpression::setShadowPass(true);
  EXPECT_EQ(shadow.eval(0, 0, 0).y, 0.5);
  VrExpression::setShadowPass(false);

  d->setAttr("strayPercentage", "100");
  VrExpression stray("s", "T", d, "stray()", "float");
  EXPECT_EQ(evalAt(stray, 0.5, 0.5), 1.0);
  d->setAttr("strayPercentage", "0");
  EXPECT_EQ(evalAt(stray, 0.5, 0.5), 0.0);

  VrExpression map("m", "T", d, "map('density')", "float");
  EXPECT_TRUE(map.isValid());
  EXPECT_EQ(evalAt(map, 0.5, 0.5), 0.001);  // no painted maps yet: the failure value
  EXPECT_FALSE(VrExpression("m", "T", d, "map(1)", "float").isValid(&error));
  EXPECT_NE(error.find("First arg must be a string for function map"), std::string::npos) << error;
}

TEST(VrExpression, CollectionExpressions) {
  Scene scene;
  VrDescription* d = scene.description;
  scene.palette->setAttr("custom_float_twice", "2 * $u");
  VrExpression user("length", "SplinePrimitive", d, "twice() + twice()", "float");
  vrtest::CaptureLogger log;
  EXPECT_TRUE(user.isValid());
  EXPECT_EQ(evalAt(user, 0.25, 0), 1.0);  // the same global twice is not a loop
  EXPECT_TRUE(log.errors().empty());

  scene.palette->setAttr("custom_float_loop", "loop() + 1");
  VrExpression looping("length", "SplinePrimitive", d, "loop()", "float");
  EXPECT_TRUE(looping.isValid());
  EXPECT_EQ(evalAt(looping, 0.5, 0.5), 1.0);  // the inner call gives 0
  evalAt(looping, 0.6, 0.5);
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Expression \"loop\" has an infinite loop. [loop() + 1]"});

  std::string error;
  EXPECT_FALSE(VrExpression("x", "T", d, "nothere()", "float").isValid(&error));
  EXPECT_NE(error.find("No function named nothere."), std::string::npos) << error;
}

TEST(VrExpression, CustomVariablesSetOnAThreadStayWithIt) {
  VrExpression e("a", "Test", nullptr, "$q * 10", "float");
  VrExpression::setCustomVariable("q", 1.0);
  ASSERT_TRUE(e.isValid());
  double other = 0.0;
  std::thread worker([&] {
    VrExpression::setCustomVariable("q", 2.0);
    other = e.eval(0.0, 0.0, 0).x;
    VrExpression::removeCustomVariable("q");
  });
  worker.join();
  EXPECT_EQ(other, 20.0);
  EXPECT_EQ(e.eval(0.0, 0.0, 0).x, 10.0);  // the worker's value and its removal stay with it

  // A handle made on one thread names the same variable on another, whose value stays its own.
  VrExpression r("b", "Test", nullptr, "$r * 10", "float");
  VrExpression::setCustomVariable("r", 1.0);
  ASSERT_TRUE(r.isValid());
  const VrExpression::ThreadVariable handle("r");
  double set = 0.0, removed = 0.0;
  std::thread handled([&] {
    VrExpression::setThreadVariable(handle, 3.0);
    set = r.eval(0.0, 0.0, 0).x;
    VrExpression::removeThreadVariable(handle);
    removed = r.eval(0.0, 0.0, 0).x;
  });
  handled.join();
  EXPECT_EQ(set, 30.0);
  EXPECT_EQ(removed, 10.0) << "without a value of its own a thread reads the process-wide one";
  EXPECT_EQ(r.eval(0.0, 0.0, 0).x, 10.0);
  VrExpression::removeAllCustomVariables();
}
