#include "base/VrObject.h"

#include "expressions/VrExpression.h"
#include "support/CaptureLogger.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

// A small object class with typed members, declared the way every document class declares them.
class Widget : public VrObject {
 public:
  Widget() : VrObject(nullptr) {
    setAttr("name", "Unnamed");
    setAttr("count", "3", "int");
    setAttr("enabled", "true", "bool");
    setAttr("scale", "1.0", "float");
    setAttr("mode", "fast", "enum", "fast:slow:off");
    setAttr("eightChr", "x");
    setAttr("fifteenCharName", "y");
    setAttr("sixteenCharNames", "z");
  }
  std::string typeName() const override { return "Widget"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override {
    if (VrObject::setAttr(name, value, type, enumStrings)) return true;
    if (name == "count") return intAttr(name, value, count);
    if (name == "enabled") return boolAttr(name, value, enabled);
    if (name == "scale") return floatAttr(name, value, scale);
    if (name == "limit") return uintAttr(name, value, limit);
    return name == "mode" || name == "eightChr" || name == "fifteenCharName" ||
           name == "sixteenCharNames";
  }
  int count = 0;
  bool enabled = false;
  double scale = 0.0;
  unsigned limit = 0;
};

std::string attrValue(const VrObject& object, const std::string& name) {
  std::string value;
  object.getAttr(name, value);
  return value;
}

}  // namespace

TEST(VrObject, AttributesKeepDeclarationOrderAndUnknownNames) {
  Widget w;
  ASSERT_EQ(w.numAttrs(), 8u);
  EXPECT_EQ(w.attr(0), "name");
  EXPECT_EQ(w.attr(4), "mode");
  EXPECT_EQ(w.attr(99), "sixteenCharNames");  // past the end: the last name
  EXPECT_FALSE(w.setAttr("mystery", "42"));    // unknown to the class, kept all the same
  EXPECT_EQ(w.attr(8), "mystery");
  std::string value = "untouched", type = "untouched";
  EXPECT_TRUE(w.getAttr("mystery", value, type));
  EXPECT_EQ(value, "42");
  EXPECT_EQ(type, "float");
  EXPECT_FALSE(w.getAttr("absent", value));
  EXPECT_EQ(value, "42");
  // A later set changes the value only, never the declared type.
  w.setAttr("count", "5", "string");
  w.getAttr("count", value, type);
  EXPECT_EQ(type, "int");
  EXPECT_EQ(w.count, 5);
  EXPECT_EQ(w.getEnumStrings("mode"), (std::vector<std::string>{"fast", "slow", "off"}));
  EXPECT_TRUE(w.getEnumStrings("absent").empty());
}

TEST(VrObject, BadTypedValuesAreRewrittenToCanonicalText) {
  Widget w;
  EXPECT_FALSE(w.setAttr("enabled", "YES"));
  EXPECT_EQ(attrValue(w, "enabled"), "false");
  EXPECT_FALSE(w.enabled);
  EXPECT_TRUE(w.setAttr("enabled", "On"));
  EXPECT_TRUE(w.enabled);
  EXPECT_TRUE(w.setAttr("enabled", "ZERO"));
  EXPECT_FALSE(w.enabled);

  EXPECT_FALSE(w.setAttr("count", "12abc"));
  EXPECT_EQ(attrValue(w, "count"), "0");
  EXPECT_TRUE(w.setAttr("count", "-7"));
  EXPECT_EQ(w.count, -7);

  w.setAttr("limit", "9", "int");
  EXPECT_EQ(w.limit, 9u);
  EXPECT_FALSE(w.setAttr("limit", "-1"));
  EXPECT_EQ(attrValue(w, "limit"), "0");

  EXPECT_FALSE(w.setAttr("scale", "1.5x"));
  EXPECT_EQ(attrValue(w, "scale"), "0.0");
  EXPECT_EQ(w.scale, 0.0);
  EXPECT_TRUE(w.setAttr("scale", "2.5e1"));
  EXPECT_EQ(w.scale, 25.0);

  // A failed parse also drops a texture link.
  w.setTexture("scale", "map.ptx");
  EXPECT_FALSE(w.floatAttr("scale", "bad", w.scale));
  std::string texture = "x";
  w.getTexture("scale", texture);
  EXPECT_EQ(texture, "");
}

TEST(VrObject, SettingAnAttributeClearsItsTextureLink) {
  Widget w;
  std::string texture;
  EXPECT_FALSE(w.setTexture("absent", "a.ptx"));
  EXPECT_FALSE(w.getTexture("absent", texture));
  EXPECT_TRUE(w.setTexture("scale", "a.ptx"));
  EXPECT_TRUE(w.getTexture("scale", texture));
  EXPECT_EQ(texture, "a.ptx");
  w.setAttr("scale", attrValue(w, "scale"));  // the same value clears it too
  EXPECT_TRUE(w.getTexture("scale", texture));
  EXPECT_EQ(texture, "");

  w.setTexMap("painted", "p.ptx");  // unknown name: a record is made
  EXPECT_TRUE(w.hasAttr("painted"));
  w.setTexture("count", "c.ptx");
  std::vector<std::string> lines;
  w.getTexMap(lines);
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(lines, (std::vector<std::string>{"Unnamed\tcount\tc.ptx", "Unnamed\tpainted\tp.ptx"}));
}

TEST(VrObject, CustomAttributes) {
  Widget w;
  vrtest::CaptureLogger log;
  EXPECT_TRUE(w.setAttr("custom_float_myValue", "rand()"));
  const auto* expr = w.customAttrs().find("myValue");
  ASSERT_NE(expr, nullptr);
  EXPECT_EQ((*expr)->type(), "float");
  EXPECT_EQ((*expr)->expression(), "rand()");
  EXPECT_TRUE(w.enabledCustomAttr("myValue"));
  EXPECT_TRUE(w.setAttr("custom_vector_myValue", "##[1,2,3]"));  // same short name: updated
  EXPECT_EQ((*w.customAttrs().find("myValue"))->type(), "vector");
  EXPECT_FALSE(w.enabledCustomAttr("myValue"));
  EXPECT_FALSE(w.enabledCustomAttr("nothing"));
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Failed to find custom attribute: nothing"});

  // Without the second underscore: stored under the whole name with the rest as its type.
  EXPECT_TRUE(w.setAttr("custom_float", "1"));
  const auto* odd = w.customAttrs().find("custom_float");
  ASSERT_NE(odd, nullptr);
  EXPECT_EQ((*odd)->type(), "float");
  log.clear();
  EXPECT_FALSE(w.remAttr("custom_float"));
  EXPECT_EQ(log.errors(), std::vector<std::string>{
                              "Tried to remove a custom attribute with invalid format: custom_float"});

  EXPECT_TRUE(w.remAttr("custom_vector_myValue"));
  EXPECT_EQ(w.customAttrs().find("myValue"), nullptr);
}

TEST(VrObject, BlockReaderRoundTripsAndWarns) {
  Widget source;
  source.setAttr("count", "11");
  source.setAttr("mystery", "kept\tas is");
  source.setAttr("custom_float_g", "$u*2");
  std::ostringstream written;
  source.exportObj(written);

  std::istringstream in(written.str().substr(std::string("\nWidget\n").size()) + "next\n");
  Widget copy;
  const unsigned saved = VRWarningLevel;
  VRWarningLevel = 3;
  vrtest::CaptureLogger log;
  EXPECT_TRUE(copy.importObj(in, ""));
  VRWarningLevel = saved;
  std::string rest;
  in >> rest;
  EXPECT_EQ(rest, "next");  // reading stops at endAttrs
  EXPECT_EQ(copy.count, 11);
  EXPECT_EQ(attrValue(copy, "mystery"), "kept\tas is");  // inner tabs survive
  EXPECT_EQ((*copy.customAttrs().find("g"))->expression(), "$u*2");
  EXPECT_EQ(log.warnings(),
            (std::vector<std::string>{
                "Found token [mystery] which isnt recognized by object [Widget] Attempting "
                "conversion/cleanup.",
                "Unable to process token [mystery] for object object [Widget] Carrying it "
                "forward unchanged."}));

  std::ostringstream rewritten;
  copy.exportObj(rewritten);
  EXPECT_EQ(rewritten.str(), written.str());
}
