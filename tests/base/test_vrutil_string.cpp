#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "base/vrutilName.h"
#include "base/vrutilString.h"

using namespace vrutil;

TEST(VrutilString, StripWhitespaceTrimsFiveCharactersAndOnePairOfQuotes) {
  EXPECT_EQ(stripWhitespace(" \t\v\n\rab c \r\n\t\v "), "ab c");
  EXPECT_EQ(stripWhitespace(" \t\n "), "");
  EXPECT_EQ(stripWhitespace(""), "");
  EXPECT_EQ(stripWhitespace("  \"a b\"  "), "\"a b\"");
  EXPECT_EQ(stripWhitespace("  \"a b\"  ", true), "a b");
  EXPECT_EQ(stripWhitespace("\"\"x\"\"", true), "\"x\"");
  EXPECT_EQ(stripWhitespace("\"x", true), "\"x");
  EXPECT_EQ(stripWhitespace("\"", true), "\"");
  EXPECT_EQ(stripWhitespace("\"\"", true), "");
}

TEST(VrutilString, SafeGetlineAcceptsAllThreeLineEnds) {
  std::istringstream in("unix\nwindows\r\nmac\rlast");
  std::string line;
  std::vector<std::string> lines;
  while (safeGetline(in, line)) lines.push_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"unix", "windows", "mac", "last"}));

  std::istringstream blanks("a\r\n\r\n\rb\n");
  lines.clear();
  while (safeGetline(blanks, line)) lines.push_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"a", "", "", "b"}));
}

TEST(VrutilString, ArrayIndex) {
  const std::pair<const char*, int> cases[] = {{"archive_vector_size[3]", 3}, {"a[12]b[7]", 12},
                                               {"a[0]", 0}, {"a[-4]", 0}, {"a[x]", 0},
                                               {"a", -1}, {"a[5", -1}, {"a5]", -1}};
  for (const auto& [text, index] : cases) EXPECT_EQ(arrayindex(text), index) << text;
}

TEST(VrutilString, BaseFileName) {
  EXPECT_EQ(baseFileName("/maps/v1.2/density.tar.ptx"), "density.tar");
  EXPECT_EQ(baseFileName("C:\\maps\\region.ptx"), "region");
  EXPECT_EQ(baseFileName("dir.v2/name"), "name");
  EXPECT_EQ(baseFileName("plain"), "plain");
}

TEST(VrutilString, Stob) {
  for (const char* yes : {"true", "TRUE", "True", "on", "ON", "one", "One", "1"})
    EXPECT_TRUE(stob(yes)) << yes;
  for (const char* no : {"false", "off", "0", "yes", "", "2", "onee", "truth"})
    EXPECT_FALSE(stob(no)) << no;
}

TEST(VrutilString, PrepForEditorUnescapesOnlyUnprotectedSequences) {
  EXPECT_EQ(prepForEditor("$a=1;\\n$b=2;\\t#c"), "$a=1;\n$b=2;\t#c");
  EXPECT_EQ(prepForEditor("\\n\\n"), "\n\n");
  EXPECT_EQ(prepForEditor("p\\\\nq"), "p\\\\nq");
  EXPECT_EQ(prepForEditor("p\\\\tq"), "p\\\\tq");
  EXPECT_EQ(prepForEditor("ends\\"), "ends\\");

  const std::string plain = "$a = 1;\n\t$b = $a;\n$b";
  EXPECT_EQ(prepForEditor(prepForAttribute(plain)), plain);
  // A doubled backslash before n does not survive the round trip.
  const std::string doubled = "p\\\\nq";
  EXPECT_EQ(prepForAttribute(doubled), "p\\\\\\nq");
  EXPECT_NE(prepForEditor(prepForAttribute(doubled)), doubled);
}

TEST(VrutilString, EscapeForDumpWritesEveryControlAndHighByteAsAnEscape) {
  const std::string text = std::string("a\r\\\"\t\n") + char(1) + char(0xff) + "z";
  EXPECT_EQ(escapeForDump(text, true), "a\\r\\\\\\\"\\t\\n\\x01\\xffz");
  EXPECT_EQ(escapeForDump(text, false), "a\\r\\\\\"\\t\\n\\x01\\xffz");
}

TEST(VrutilName, ObjectNamesAndShapeNames) {
  EXPECT_EQ(sgObjName("|grp|ns:pCube1"), "ns:pCube1");
  EXPECT_EQ(sgObjName("pCube1"), "pCube1");
  EXPECT_EQ(sgObjName("grp|"), "");

  EXPECT_EQ(sgXformToShape("|grp|pCube12", true), "pCubeShape12");
  EXPECT_EQ(sgXformToShape("|grp|pCube12", false), "pCube12Shape");
  EXPECT_EQ(sgXformToShape("pCube", true), "pCubeShape");
  EXPECT_EQ(sgXformToShape("12", true), "Shape12");
}

TEST(VrutilName, NameSpaces) {
  EXPECT_EQ(objNameSpace("a:b:c"), "a:b:");
  EXPECT_EQ(objBaseNameSpace("a:b:c"), "a:b");
  EXPECT_EQ(objNameSpace("plain"), "");
  EXPECT_EQ(objBaseNameSpace("plain"), "");
  // Only the last path element counts.
  EXPECT_EQ(objNameSpace("ns1:grp|ns2:obj"), "ns2:");
  EXPECT_EQ(objNameSpace("ns:grp|obj"), "");

  EXPECT_EQ(stripNameSpace("ns:a|ns:b"), "a|b");
  EXPECT_EQ(stripNameSpace("a:b:c"), "c");
  EXPECT_EQ(stripNameSpace("plain"), "plain");
  EXPECT_EQ(stripNameSpace("ns:"), "");
}
