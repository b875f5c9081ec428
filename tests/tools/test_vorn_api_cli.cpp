// The scripting commands of the `vorn` tool: `api` (facade calls read from a script) and `eval`
// (an attribute's expression at a location), run as a separate process.

#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

using vrtest::ran;
using vrtest::runCommand;
using vrtest::vorn;
using vrtest::vornCli;

namespace {

const std::string hairsFile = vrtest::examplePath("hairs.vorn");
const std::string groomFile = vrtest::examplePath("groom.vorn");

std::string q(const std::string& text) { return vrtest::shellWord(text); }

// Writes the script into the folder and runs `vorn api` on it.
vrtest::CommandResult api(const vrtest::TempDir& dir, const std::string& script) {
  return vorn("api " + q(dir.write("script.api", script)));
}

// A copy of hairs.vorn with one attribute of its spline primitive set by `vorn set`.
std::string hairsWith(const vrtest::TempDir& dir, const std::string& attribute, const std::string& value) {
  const std::string copy = dir.file("hairs-" + attribute + ".vorn");
  const auto set = vorn("set -o " + q(copy) + " " + q(hairsFile) + " " + attribute + " " + q(value) +
                        " one SplinePrimitive");
  EXPECT_EQ(set.exitCode, 0) << set.output;
  return copy;
}

vrtest::CommandResult evalSpline(const std::string& file, const std::string& attribute,
                                 const std::string& options = "") {
  return vorn("eval " + q(file) + " one SplinePrimitive " + attribute + (options.empty() ? "" : " " + options));
}

}  // namespace

// ---------------------------------------------------------------------------------------------

TEST(VornCliApi, BuildsExportsAndReimportsACollection) {
  vrtest::TempDir dir;
  const std::string saved = dir.file("made.vorn");
  const auto build = api(dir,
                         "# a collection made from nothing\n"
                         "createDescription made hair Spline Random Renderman Attribute\n"
                         "\n"
                         "addCustomAttr custom_float_bend made hair SplinePrimitive\n"
                         "   # an indented comment\n"
                         "setAttr custom_float_bend \"0.5 * rand() + 1\" made hair SplinePrimitive\n"
                         "setAttr strayPercentage 0.25 made hair \"\"\n"
                         "addFXModule made hair NoiseFXModule wobble\n"
                         "fxModules made hair\n"
                         "objects made hair on\n"
                         "exportPalette made " + saved + "\n");
  EXPECT_TRUE(ran(build, 0,
            "hair\n"
            "true\n"
            "true\n"
            "true\n"
            "wobble\n"
            "wobble\n"
            "SplinePrimitive RandomGenerator RendermanRenderer GLRenderer\n"
            "true\n"));

  EXPECT_TRUE(ran(vorn("check " + q(saved)), 0, "ok: made: 1 descriptions\n"));

  // A second process reads the file back into a name space: every name carries it.
  const auto reread = api(dir,
                          "importPalette " + saved + " \"\" other\n"
                          "palettes\n"
                          "descriptions other:made\n"
                          "getAttr custom_float_bend other:made other:hair SplinePrimitive\n"
                          "getAttr strayPercentage other:made other:hair \"\"\n"
                          "fxModules other:made other:hair\n"
                          "fxModuleType other:made other:hair other:wobble\n"
                          "getActive other:made other:hair Renderer\n");
  EXPECT_TRUE(ran(reread, 0,
            "other:made\n"
            "other:made\n"
            "other:hair\n"
            "0.5 * rand() + 1\n"
            "0.25\n"
            "other:wobble\n"
            "NoiseFXModule\n"
            "RendermanRenderer\n"));
}

TEST(VornCliApi, FailedCallsReportAndTheScriptGoesOn) {
  vrtest::TempDir dir;
  const auto run = api(dir,
                       "importPalette " + hairsFile + " \"\" \"\"\n"
                       "importPalette " + hairsFile + " \"\" \"\"\n"
                       "descriptions hairs\n"
                       "setAttr length \"0.5*rand()\" hairs one SplinePrimitive\n"
                       "getAttr length hairs one SplinePrimitive\n"
                       "getAttr length hairs gone SplinePrimitive\n"
                       "createPalette hairs\n"
                       "attrExists colour hairs one SplinePrimitive\n"
                       "boundFaces hairs one pPlaneShape1 off\n"
                       "boundFaces hairs one nowhere off\n"
                       "palettes\n");
  EXPECT_TRUE(ran(run, 1,
            "hairs\n"
            // Messages sent during a call come before its result.
            "error: rTriedToImportDuplicate " + hairsFile + "\n"
            "\n"
            "one\n"
            "true\n"
            "0.5*rand()\n"
            "error: Call to getAttr failed.\n"
            "\n"
            // A silent false still fails, with the line named.
            "false\n"
            "vorn: line 7: createPalette failed\n"
            // A false answer to a question is not a failure.
            "false\n"
            "0 1\n"
            "error: rCouldNotReturnBoundFaceNotFound hairs one nowhere\n"
            "\n"
            "hairs\n"));

  // Without a failed call the status is 0.
  const auto clean = api(dir, "importPalette " + hairsFile + " \"\" \"\"\nattrExists colour hairs one Noise\n");
  EXPECT_TRUE(ran(clean, 0, "hairs\nfalse\n"));
}

TEST(VornCliApi, RefusedLinesCallNothing) {
  vrtest::TempDir dir;
  const auto run = api(dir,
                       "createPalette kept\n"
                       "bogus 1 2\n"
                       "getAttr length\n"
                       "palettes extra\n"
                       "expandFilepath a b c d e f g\n"
                       "moveFXModule kept hair wobble up\n"
                       "moveFXModule kept hair wobble 99999999999\n"
                       "objects kept hair maybe\n"
                       "createPalette \"never\n"
                       "createPalette \"after all\"\n"
                       "palettes\n");
  EXPECT_TRUE(ran(run, 1,
            "true\n"
            "vorn: line 2: unknown function \"bogus\"\n"
            "vorn: line 3: getAttr takes 4 arguments, got 1\n"
            "vorn: line 4: palettes takes 0 arguments, got 1\n"
            "vorn: line 5: expandFilepath takes 4 to 6 arguments, got 7\n"
            "vorn: line 6: moveFXModule: argument 4 must be an integer, not \"up\"\n"
            "vorn: line 7: moveFXModule: argument 4 must be an integer, not \"99999999999\"\n"
            "vorn: line 8: objects: argument 3 must be true, false, 1, 0, on or off, not \"maybe\"\n"
            "vorn: line 9: unterminated quote\n"
            "true\n"
            "after all kept\n"));

  EXPECT_TRUE(ran(api(dir, "nothing\n"), 1, "vorn: line 1: unknown function \"nothing\"\n"));
}

TEST(VornCliApi, QuotesKeepBlanksAndEscapes) {
  vrtest::TempDir dir;
  const auto run = api(dir,
                       "createDescription q hair Spline Random Renderman Attribute\n"
                       "addCustomAttr custom_float_text q hair \"\"\n"
                       "setAttr custom_float_text \"say \\\"hi\\\" \\\\ there \\n\" q hair \"\"\n"
                       "getAttr custom_float_text q hair \"\"\n"
                       "stripNameSpace   \t ns:\"two words\"   \n");
  EXPECT_TRUE(ran(run, 0,
            "hair\n"
            "true\n"
            "true\n"
            "say \"hi\" \\ there \\n\n"
            "two words\n"));
}

TEST(VornCliApi, EveryFacadeFunctionIsCallable) {
  // Each function declared by the facade is known to the command: called with too many
  // arguments it is refused for its argument count, never as an unknown name.
  std::ifstream header(std::string(VORN_SOURCE_DIR) + "/document/vrapi.h");
  ASSERT_TRUE(header);
  // A declaration line starts with its return type; the name stands right before the '('.
  const auto word = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
  const auto declaredName = [&](const std::string& line) -> std::string {
    const size_t paren = line.find('(');
    if (paren == std::string::npos || !std::isalpha(static_cast<unsigned char>(line[0]))) return {};
    size_t begin = paren;
    while (begin > 0 && word(line[begin - 1])) --begin;
    return line.substr(begin, paren - begin);
  };
  std::set<std::string> names;
  std::string line;
  while (std::getline(header, line)) {
    const std::string name = declaredName(line);
    if (!name.empty()) names.insert(name);
  }
  ASSERT_GE(names.size(), 50u);
  EXPECT_TRUE(names.count("createDescription") && names.count("setMessageLevel") && names.count("palettes"));

  std::string script;
  for (const std::string& name : names) script += name + " a b c d e f g\n";
  vrtest::TempDir dir;
  const auto run = api(dir, script);
  EXPECT_EQ(run.exitCode, 1);
  std::istringstream lines(run.output);
  unsigned number = 0;
  for (const std::string& name : names) {
    ASSERT_TRUE(std::getline(lines, line)) << name;
    const std::string prefix = "vorn: line " + std::to_string(++number) + ": " + name + " takes ";
    EXPECT_EQ(line.compare(0, prefix.size(), prefix), 0) << line;
    EXPECT_NE(line.find(", got 7"), std::string::npos) << line;
  }
  EXPECT_FALSE(std::getline(lines, line)) << line;
}

TEST(VornCliApi, ReadsStandardInput) {
  EXPECT_TRUE(ran(runCommand("printf '%s\\n' 'createPalette piped' '# note' 'palettes' 'getMessageLevel warning' | " +
                             vornCli() + " api -"),
                  0, "true\npiped\n2\n"));

  EXPECT_TRUE(ran(runCommand("printf 'deletePalette nothing\\nversion extra\\n' | " + vornCli() + " api -"), 1,
                  "error: rCouldNotDeleteCollection nothing\n"
                  "false\n"
                  "vorn: line 2: version takes 0 arguments, got 1\n"));
}

TEST(VornCliApi, MissingScriptAndUsage) {
  vrtest::TempDir dir;
  EXPECT_TRUE(ran(vorn("api " + q(dir.file("none.api"))), 1, "vorn: no such file: " + dir.file("none.api") + "\n"));
  EXPECT_TRUE(ran(vorn("api " + q(dir.path())), 1, "vorn: is a folder, not a script: " + dir.path() + "\n"));
  EXPECT_EQ(vorn("api").exitCode, 2);
  EXPECT_EQ(vorn("api a b").exitCode, 2);

  // An empty script, or one of comments only, calls nothing and succeeds.
  EXPECT_TRUE(ran(api(dir, "\n   \n# nothing to do\n"), 0, ""));
}

// ---------------------------------------------------------------------------------------------

TEST(VornCliEval, ConstantsLocationsVectorsAndFrames) {
  vrtest::TempDir dir;
  EXPECT_TRUE(ran(evalSpline(hairsWith(dir, "width", "2*3"), "width"), 0, "6\n"));

  // The value as written in the file, through the other objects a description holds.
  EXPECT_EQ(evalSpline(hairsFile, "taper").output, "0.80000000000000004\n");
  EXPECT_TRUE(ran(vorn("eval " + q(hairsFile) + " one Noise magnitude"), 0, "0.20000000000000001\n"));
  EXPECT_EQ(vorn("eval " + q(hairsFile) + " one Description averageWidth").output, "1\n");
  EXPECT_EQ(vorn("eval " + q(hairsFile) + " one RandomGenerator density").output, "250\n");

  const std::string located = hairsWith(dir, "width", "$u + 10*$v + 100*$faceid");
  EXPECT_EQ(evalSpline(located, "width").output, "5.5\n");
  EXPECT_EQ(evalSpline(located, "width", "--u 0.25 --v 0.75 --face 3").output, "307.75\n");
  EXPECT_EQ(evalSpline(located, "width", "--face 2 --u 0").output, "205\n");

  // Vectors print three numbers.
  EXPECT_TRUE(ran(vorn("eval " + q(groomFile) + " scalp SplinePrimitive custom_color_tint"), 0,
                  "0.80000000000000004 0.59999999999999998 0.40000000000000002\n"));

  const std::string file = hairsWith(dir, "taper", "frameArray(1, 10, 20)");
  // What frameArray gives before and after its frames is VrExpression.FunctionsOfTheTable's.
  EXPECT_EQ(evalSpline(file, "taper").output, "10\n");  // the collection's frame, 0
  EXPECT_EQ(evalSpline(file, "taper", "--frame 2").output, "20\n");
}

TEST(VornCliEval, FailuresSayWhy) {
  vrtest::TempDir dir;
  EXPECT_TRUE(ran(evalSpline(hairsWith(dir, "width", "$nope + 1"), "width"), 1,
                  "error: Error in expression \"one::width\". [$nope + 1]\n"
                  "Error: No variable named $nope.\n"));
  const auto broken = evalSpline(hairsWith(dir, "taper", "bogus("), "taper");
  EXPECT_EQ(broken.exitCode, 1);
  EXPECT_EQ(broken.output.rfind("error: Error in expression \"one::taper\". [bogus(]\nError: ", 0), 0u)
      << broken.output;

  const std::pair<std::string, std::string> failures[] = {
      {q(hairsFile) + " two SplinePrimitive length", "vorn: no description \"two\" in collection \"hairs\"\n"},
      {q(hairsFile) + " one CutFXModule length",
       "vorn: no object or FX module \"CutFXModule\" in description \"one\"\n"},
      {q(hairsFile) + " one SplinePrimitive colour",
       "vorn: object \"SplinePrimitive\" of description \"one\" has no attribute \"colour\"\n"},
      {q(dir.file("none.vorn")) + " one SplinePrimitive length", "vorn: no such file: " + dir.file("none.vorn") + "\n"},
  };
  for (const auto& [arguments, message] : failures)
    EXPECT_TRUE(ran(vorn("eval " + arguments), 1, message)) << arguments;

  EXPECT_EQ(vorn("eval " + q(hairsFile) + " one SplinePrimitive").exitCode, 2);
  EXPECT_EQ(evalSpline(hairsFile, "length", "--face x").exitCode, 2);
}
