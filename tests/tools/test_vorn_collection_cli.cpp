// The collection file commands of the `vorn` tool (check, ls, get, set, resave), run as a
// separate process on the bundled examples and on broken copies of them.

#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using vrtest::ran;
using vrtest::ranWith;
using vrtest::readText;
using vrtest::runCommand;
using vrtest::vorn;
using vrtest::vornCli;

namespace {

const std::string hairsFile = vrtest::examplePath("hairs.vorn");
const std::string groomFile = vrtest::examplePath("groom.vorn");

std::string q(const std::string& text) { return vrtest::shellWord(text); }
bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// A command line and what it answers: a value, or a message.
struct Case {
  std::string arguments, answer;
};

const char* const hairsListing =
    "collection: hairs\n"
    "descriptions: 1\n"
    "description: one\n"
    "  primitive: SplinePrimitive\n"
    "  generator: RandomGenerator\n"
    "  renderer: GLRenderer\n"
    "  previewer: GLRenderer\n"
    "  objects (3):\n"
    "    GLRenderer\n"
    "    RandomGenerator\n"
    "    SplinePrimitive\n"
    "  fx modules of SplinePrimitive (1):\n"
    "    Noise: NoiseFXModule\n"
    "  patches (1):\n"
    "    pPlaneShape1 (Subd)\n"
    "      faces (2): 0 1\n"
    "      guides: 0\n"
    "  guides: 0\n";

const char* const browsListing =
    "description: brows\n"
    "  primitive: CardPrimitive\n"
    "  generator: UniformGenerator\n"
    "  renderer: RendermanRenderer\n"
    "  previewer: (none)\n"
    "  objects (3):\n"
    "    CardPrimitive\n"
    "    RendermanRenderer\n"
    "    UniformGenerator\n"
    "  fx modules of CardPrimitive (0):\n"
    "  patches (1):\n"
    "    browShape (Nurbs)\n"
    "      faces (1): 0\n"
    "      guides: 0\n"
    "  guides: 0\n";

}  // namespace

TEST(VornCliCheck, BundledExamplesAreSound) {
  EXPECT_TRUE(ran(vorn("check " + q(hairsFile)), 0, "ok: hairs: 1 descriptions\n"));
  EXPECT_TRUE(ran(vorn("check " + q(groomFile)), 0, "ok: groom: 2 descriptions\n"));
}

TEST(VornCliCheck, MissingFileAndFolderFail) {
  vrtest::TempDir dir;
  EXPECT_TRUE(
      ran(vorn("check " + q(dir.file("absent.vorn"))), 1, "vorn: no such file: " + dir.file("absent.vorn") + "\n"));
  EXPECT_TRUE(ran(vorn("check " + q(dir.path())), 1, "vorn: is a folder, not a collection file: " + dir.path() + "\n"));
}

TEST(VornCliLs, UnwritableStandardOutputIsAFailure) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  for (const std::string& arguments : {"ls " + q(groomFile), "get " + q(groomFile) + " name",
                                       "check " + q(groomFile)})
    EXPECT_EQ(vorn(arguments + " >/dev/full").exitCode, 1) << arguments;
}

TEST(VornCliGet, MissingPartsAreNamed) {
  const Case cases[] = {
      {"noSuchAttr", "vorn: collection \"groom\" has no attribute \"noSuchAttr\"\n"},
      {"minDensity beard", "vorn: no description \"beard\" in collection \"groom\"\n"},
      {"noSuchAttr brows", "vorn: description \"brows\" has no attribute \"noSuchAttr\"\n"},
      {"density brows RandomGenerator",
       "vorn: no object or FX module \"RandomGenerator\" in description \"brows\"\n"},
      {"mask brows Clumping", "vorn: no object or FX module \"Clumping\" in description \"brows\"\n"},
      {"magnitude scalp Clumping",
       "vorn: FX module \"Clumping\" of description \"scalp\" has no attribute \"magnitude\"\n"},
      {"noSuchAttr scalp SplinePrimitive",
       "vorn: object \"SplinePrimitive\" of description \"scalp\" has no attribute \"noSuchAttr\"\n"},
  };
  for (const Case& c : cases)
    EXPECT_TRUE(ran(vorn("get " + q(groomFile) + " " + c.arguments), 1, c.answer)) << c.arguments;
}

TEST(VornCliSet, SetThenGetRoundTripsThroughAnOutputFile) {
  vrtest::TempDir dir;
  const std::string out = dir.file("edited.vorn");
  const std::string original = readText(hairsFile);
  const struct {
    std::string attribute, value, address;
  } cases[] = {
      {"magnitude", "-1.5", "one Noise"},
      {"length", "2.0*rand() + 1", "one SplinePrimitive"},
      {"minDensity", "0.25", "one"},
      {"vrDogTag", "", ""},
      {"vrDataPath", "/elsewhere/maps/", "Palette"},
      {"mask", "map('${DESC}/a b')", "one Noise"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.attribute);
    ASSERT_TRUE(ran(
        vorn("set " + q(hairsFile) + " " + c.attribute + " " + q(c.value) + " " + c.address + " -o " + q(out)), 0, ""));
    EXPECT_TRUE(ran(vorn("get " + q(out) + " " + c.attribute + " " + c.address), 0, c.value + "\n"));
    EXPECT_EQ(vorn("ls " + q(out)).output, hairsListing);  // nothing else moved
  }
  EXPECT_EQ(readText(hairsFile), original);
}

TEST(VornCliSet, RenamingADescriptionTakesItsPatchesAlong) {
  vrtest::TempDir dir;
  const std::string out = dir.file("renamed.vorn");
  ASSERT_EQ(vorn("set " + q(groomFile) + " name beard brows -o " + q(out)).exitCode, 0);
  std::string expected = std::string("collection: groom\ndescriptions: 2\n") + browsListing;
  expected.replace(expected.find("description: brows"), 18, "description: beard");
  EXPECT_TRUE(ran(vorn("ls " + q(out) + " beard"), 0, expected));
  EXPECT_EQ(vorn("ls " + q(out) + " brows").exitCode, 1);
}

// An unknown attribute is kept and a value the object cannot parse is stored as it parses it,
// each with a warning.
TEST(VornCliSet, UnknownAttributesAndUnparsedValuesWarn) {
  vrtest::TempDir dir;
  const std::string out = dir.file("out.vorn");
  EXPECT_TRUE(ran(vorn("set " + q(hairsFile) + " stiffness 0.7 one Noise -o " + q(out)), 0,
                  "vorn: warning: \"stiffness\" is not a known attribute of FX module \"Noise\" of description "
                  "\"one\"; adding it\n"));
  EXPECT_EQ(vorn("get " + q(out) + " stiffness one Noise").output, "0.7\n");
  EXPECT_TRUE(ran(vorn("set " + q(hairsFile) + " lodFlag maybe one -o " + q(out)), 0,
                  "vorn: warning: \"lodFlag\" of description \"one\" was stored as \"false\"\n"));
  EXPECT_EQ(vorn("get " + q(out) + " lodFlag one").output, "false\n");
}

TEST(VornCliSet, FailuresWriteNothing) {
  vrtest::TempDir dir;
  const std::string out = dir.file("out.vorn");
  const Case cases[] = {
      {"magnitude 1 one Wind", "vorn: no object or FX module \"Wind\" in description \"one\"\n"},
      {"density 1 one UniformGenerator",
       "vorn: no object or FX module \"UniformGenerator\" in description \"one\"\n"},
      {"minDensity 1 two", "vorn: no description \"two\" in collection \"hairs\"\n"},
      {"endAttrs 1 one", "vorn: \"endAttrs\" cannot be used as an attribute name in a collection file\n"},
      {"'#note' 1 one", "vorn: \"#note\" cannot be used as an attribute name in a collection file\n"},
      {"'two words' 1", "vorn: attribute name \"two words\" holds a blank or control character\n"},
      {"'' 1", "vorn: an attribute name cannot be empty\n"},
      {"mask $'1\\n2' one Noise", "vorn: the value of \"mask\" must be a single line\n"},
      {"mask ' 1' one Noise", "vorn: the value of \"mask\" cannot begin or end with a blank\n"},
      {"name 'a b' one", "vorn: a name cannot hold blanks: \"a b\"\n"},
      {"vrDataPath /x/ one",
       "vorn: \"vrDataPath\" of description \"one\" is written from the collection; set it on the "
       "collection\n"},
  };
  for (const Case& c : cases) {
    EXPECT_TRUE(
        ran(runCommand("bash -c " + q(vornCli() + " set " + q(hairsFile) + " " + c.arguments + " -o " + q(out))), 1,
            c.answer))
        << c.arguments;
    EXPECT_FALSE(std::filesystem::exists(out)) << c.arguments;
  }
}

TEST(VornCliSet, UnwritableOutputFails) {
  vrtest::TempDir dir;
  const std::string plain = dir.write("plain", "not a folder");
  EXPECT_TRUE(ranWith(vorn("set " + q(hairsFile) + " minDensity 0.5 one -o " + q(plain + "/out.vorn")), 1,
                      "vorn: could not save " + plain + "/out.vorn\n"));
  EXPECT_EQ(readText(plain), "not a folder");
}

TEST(VornCliResave, OutputReadsBackWithTheSameLayout) {
  vrtest::TempDir dir;
  for (const std::string& source : {hairsFile, groomFile}) {
    const std::string out = dir.file("resaved.vorn");
    ASSERT_TRUE(ran(vorn("resave " + q(source) + " " + q(out)), 0, ""));
    const auto before = vorn("ls " + q(source));
    EXPECT_TRUE(ran(vorn("ls " + q(out)), 0, before.output)) << source;
    // A second generation is the same again.
    const std::string again = dir.file("again.vorn");
    ASSERT_EQ(vorn("resave " + q(out) + " " + q(again)).exitCode, 0);
    EXPECT_EQ(vorn("ls " + q(again)).output, before.output);
  }
  // Values come through as text, expressions and texture-linked attributes included.
  const std::string out = dir.file("groom.vorn");
  ASSERT_EQ(vorn("resave " + q(groomFile) + " " + q(out)).exitCode, 0);
  const std::string written = readText(out);
  EXPECT_TRUE(contains(written,
                       "\nMapTextures\n\tRandomGenerator\tdensity\t${DESC}/density\n"
                       "\tClumping\tmask\t${DESC}/clumpMask\n\tendAttrs\n"))
      << written;
  for (const char* address : {"custom_float_globalLength", "vrDataPath", "strayPercentage scalp",
                              "custom_color_tint scalp SplinePrimitive", "mask scalp Clumping",
                              "density scalp RandomGenerator", "length brows CardPrimitive"}) {
    const auto before = vorn("get " + q(groomFile) + " " + address);
    EXPECT_EQ(before.exitCode, 0) << address;
    EXPECT_EQ(vorn("get " + q(out) + " " + address).output, before.output) << address;
  }
}

TEST(VornCliResave, UnreadableInputWritesNothing) {
  vrtest::TempDir dir;
  const std::string broken = dir.write("broken.vorn", "FileVersion 18\nPalette\n\tname\tx\n");
  EXPECT_TRUE(ranWith(vorn("resave " + q(broken) + " " + q(dir.file("out.vorn"))), 1,
                      "The Palette block ends before its endAttrs line."));
  EXPECT_FALSE(std::filesystem::exists(dir.file("out.vorn")));
}
