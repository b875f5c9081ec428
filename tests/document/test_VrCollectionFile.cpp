#include "document/VrCollectionFile.h"

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/TempDir.h"
#include "support/TextPattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace {

using PalettePtr = std::unique_ptr<VrPalette>;

PalettePtr importText(const std::string& text, const std::string& nameSpace = "") {
  std::istringstream in(text);
  return PalettePtr(VrImport(in, nameSpace, 0));
}

std::string exportText(VrPalette* palette) {
  std::ostringstream out;
  EXPECT_TRUE(VrExportPalette(palette, out));
  return out.str();
}

std::string attrValue(const VrObject* object, const std::string& name) {
  std::string value;
  EXPECT_TRUE(object->getAttr(name, value)) << name;
  return value;
}

const std::string header = "# Vorn Palette File\n#\nFileVersion 18\n";

}  // namespace

// What `vorn ls` lists of the example (the objects, modules, patches and faces) is checked by
// the command's tests; here, what it does not show.
TEST(VrCollectionFile, WorkedExampleImports) {
  PalettePtr pal(VrImport(vrtest::examplePath("hairs.vorn"), "", 0u));
  ASSERT_TRUE(pal);
  EXPECT_EQ(VrPalette::palette("hairs"), pal.get());
  EXPECT_EQ(pal->vrDataPathStr(), "/proj/hairs/");
  VrDescription* one = pal->description("one");
  ASSERT_NE(one, nullptr);
  EXPECT_FALSE(one->hasAttr("vrDataPath"));  // the collection's line is skipped in the description
  EXPECT_EQ(attrValue(one->activePrimitive()->modules().at(0), "magnitude"), "0.2");
  EXPECT_EQ(VrImportedPatches().at("pPlaneShape1").front(), one->patch("pPlaneShape1"));
}

// Blocks of a saved text (the pieces between blank lines), sorted.
std::vector<std::string> sortedBlocks(const std::string& text) {
  std::vector<std::string> blocks;
  size_t start = 0;
  for (size_t at; (at = text.find("\n\n", start)) != std::string::npos; start = at + 2)
    blocks.push_back(text.substr(start, at - start));
  blocks.push_back(text.substr(start));
  std::sort(blocks.begin(), blocks.end());
  return blocks;
}

TEST(VrCollectionFile, SaveReadSaveKeepsEveryBlock) {
  // Property: a second save holds exactly the blocks of the first. It is byte-identical from
  // "FileVersion" on when no two objects of a description share a dictionary bucket, since a
  // re-read fills each bucket's chain in the reverse order (hairs.vorn); groom.vorn's brows
  // description has two objects in one bucket, so only their order may change.
  for (const char* example : {"hairs.vorn", "groom.vorn"}) {
    PalettePtr first(VrImport(vrtest::examplePath(example), "", 0u));
    ASSERT_TRUE(first) << example;
    const std::string saved = vrtest::fromFileVersion(exportText(first.get()));
    first.reset();
    PalettePtr second = importText(saved);
    ASSERT_TRUE(second) << example;
    const std::string resaved = vrtest::fromFileVersion(exportText(second.get()));
    EXPECT_EQ(sortedBlocks(resaved), sortedBlocks(saved)) << example;
    if (std::string(example) == "hairs.vorn") {
      EXPECT_EQ(resaved, saved);
    }
  }
}

TEST(VrCollectionFile, UnknownAttributesGuidesCullsAndTexturesSurvive) {
  PalettePtr first(VrImport(vrtest::examplePath("groom.vorn"), "", 0u));
  ASSERT_TRUE(first);
  PalettePtr pal = importText(exportText(first.get()));
  first.reset();
  ASSERT_TRUE(pal);
  VrDescription* scalp = pal->description("scalp");
  ASSERT_NE(scalp, nullptr);
  EXPECT_EQ(attrValue(scalp->activePrimitive(), "length"), "globalLength()");
  EXPECT_EQ(attrValue(pal.get(), "custom_float_globalLength"), "2.5*rand()");
  EXPECT_EQ(pal->namedAttr("globalLength")->expression(), "2.5*rand()");
  EXPECT_EQ(scalp->activePreviewer()->typeName(), "GLRenderer");

  std::string texture;
  EXPECT_TRUE(scalp->activeGenerator()->getTexture("density", texture));
  EXPECT_EQ(texture, "${DESC}/density");
  VrFXModule* clumping = scalp->activePrimitive()->findFXModule("Clumping");
  ASSERT_NE(clumping, nullptr);
  EXPECT_TRUE(clumping->getTexture("mask", texture));
  EXPECT_EQ(texture, "${DESC}/clumpMask");
  EXPECT_EQ(scalp->activePrimitive()->modules()[1]->name(), "Cut");  // stack order kept

  VrPatch* patch = scalp->patch("scalpShape");
  ASSERT_NE(patch, nullptr);
  EXPECT_TRUE(patch->isCulled(1, 7));
  EXPECT_TRUE(patch->isCulled(1, 9));
  EXPECT_TRUE(patch->isCulled(3, 4));
  EXPECT_FALSE(patch->isCulled(3, 7));

  VrPrimitive* spline = scalp->activePrimitive();
  ASSERT_EQ(spline->numGuides(), 2u);
  const VrGuide& g = spline->guide(0u);
  EXPECT_EQ(g.id(), "1");
  EXPECT_EQ(g.patch(), patch);
  EXPECT_EQ(g.faceId(), 1);
  EXPECT_DOUBLE_EQ(g.patchU(), 0.25);
  EXPECT_EQ(g.interpolation(), "linear");
  ASSERT_EQ(g.iOrigGuideGeom().size(), 3u);  // the root and the two CV lines
  EXPECT_DOUBLE_EQ(g.iOrigGuideGeom()[2].x, 0.1);
  EXPECT_EQ(spline->guide(1u).iOrigGuideGeom().size(), 1u);  // a CV count of 1 has no CV lines

  EXPECT_EQ(pal->description("brows")->patch("browShape")->typeName(), "NurbsPatch");
}

TEST(VrCollectionFile, HeaderAndTabRule) {
  PalettePtr pal(new VrPalette);
  pal->setAttr("name", "tabs");
  pal->setAttr("abcdefg", "7");           // 7 characters: three tabs
  pal->setAttr("abcdefgh", "8");          // 8: two
  pal->setAttr("abcdefghijklmno", "15");  // 15: two
  pal->setAttr("abcdefghijklmnop", "16"); // 16: one
  setenv("USER", "tester", 1);
  const std::string text = exportText(pal.get());
  // The date's own newline leaves a blank line before "FileVersion".
  EXPECT_TRUE(vrtest::containsPattern(text, "^# Vorn Palette File\n#\n# Version:  [^\n]*\n# Author:   tester\n"
                                                 "# Date:     [^\n]*\n\nFileVersion 18\n"))
      << text;
  for (const char* line :
       {"\n\tabcdefg\t\t\t7\n", "\n\tabcdefgh\t\t8\n", "\n\tabcdefghijklmno\t\t15\n", "\n\tabcdefghijklmnop\t16\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
}

TEST(VrCollectionFile, VersionRules) {
  const unsigned collectionsBefore = VrPalette::palettes().size();
  {
    vrtest::CaptureLogger log;
    EXPECT_FALSE(importText("FileVersion 13\nPalette\n\tname\t\t\told\n\tendAttrs\n"));
    EXPECT_EQ(log.errors(), std::vector<std::string>{
                                "Vorn files with a FileVersion prior to 14 cannot be used with this release."});
    EXPECT_EQ(VrPalette::palettes().size(), collectionsBefore);  // nothing left registered
  }
  {
    const unsigned saved = VRWarningLevel;
    VRWarningLevel = 2;
    vrtest::CaptureLogger log;
    PalettePtr pal = importText("FileVersion 19\nPalette\n\tname\t\t\tfuture\n\tendAttrs\n");
    VRWarningLevel = saved;
    ASSERT_TRUE(pal);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{"Invalid file version: 19"});
    EXPECT_EQ(VRImportFileVersion, 19u);
  }
}

TEST(VrCollectionFile, BrokenFilesGiveTheirErrorAndNoCollection) {
  struct Case {
    std::string text;
    std::string error;
  };
  const std::string palette = "Palette\n\tname\t\t\tp\n\tendAttrs\n";
  const std::vector<Case> cases = {
      {"", "No collection found in file."},
      {header, "No collection found in file."},
      {header + palette + palette, "Found multiple collections in the same file."},
      {header + palette + "Bogus\n", "Unrecognized token: Bogus in VrImport."},
      {header + "Description\n\tendAttrs\n", "Reached a description token without finding a collection."},
      {header + palette + "\tActive\tSplinePrimitive\n", "Reached an Active token without finding a description."},
      {header + palette + "SplinePrimitive\n\tendAttrs\n",
       "Reached a SplinePrimitive token without finding a description."},
      {header + palette + "Description\n\tendAttrs\nNoiseFXModule\n\tendAttrs\n",
       "Reached a NoiseFXModule token without finding a primitive."},
      {header + "Patches\tx\t0\nendPatches\n", "Reached a Patches token without finding a collection."},
      {header + palette + "Patches\tnobody\t0\nendPatches\n",
       "No description found named nobody to match Patches token."},
      {header + palette + "Description\n\tname\t\t\td\n\tendAttrs\nPatches\td\t0\nPatch\tSubd\n\tbogus\nendObject\n",
       "Unrecognized token: bogus in Patch import."},
      {header + palette + "Description\n\tname\t\t\td\n\tendAttrs\nPatches\td\t0\nPatch\tCone\n",
       "Failed to create patch."},
      {header + palette + "Description\n\tname\t\t\td\n\tendAttrs\nPatches\td\t0\nwhat\n",
       "Unrecognized token: what in Description Patches import."},
      {header + palette + "Description\n\tname\t\t\td\n", "The Description block ends before its endAttrs line."},
  };
  const unsigned collectionsBefore = VrPalette::palettes().size();
  for (const Case& c : cases) {
    vrtest::CaptureLogger log;
    EXPECT_FALSE(importText(c.text)) << c.text;
    const auto errors = log.errors();
    ASSERT_FALSE(errors.empty()) << c.text;
    EXPECT_EQ(errors.front(), c.error) << c.text;
    EXPECT_EQ(VrPalette::palettes().size(), collectionsBefore) << c.text;
  }
}

TEST(VrCollectionFile, NameSpaceOnImportAndStrippedOnSave) {
  PalettePtr pal(VrImport(vrtest::examplePath("hairs.vorn"), ":ns:", 0u));
  ASSERT_TRUE(pal);
  EXPECT_EQ(pal->name(), "ns:hairs");
  ASSERT_NE(pal->description("ns:one"), nullptr);
  EXPECT_NE(pal->description("ns:one")->patch("pPlaneShape1"), nullptr);
  const std::string text = exportText(pal.get());
  for (const char* line : {"\tname\t\t\thairs\n", "\tname\t\t\tone\n", "Patches\tone\t0\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
  EXPECT_EQ(text.find("ns:"), std::string::npos);
}

TEST(VrCollectionFile, OldStyleGuidesOfVersion14) {
  const std::string text =
      "FileVersion 14\nPalette\n\tname\t\t\told\n\tendAttrs\n"
      "Description\n\tname\t\t\td\n\tendAttrs\nSplinePrimitive\n\tendAttrs\n\tActive\tSplinePrimitive\n"
      "Patches\td\n"  // no guide count before version 15
      "Patch\tSubd\n\tname\t\tp\n\tfaceIds\t\t1 3\n\tanimCurves\t0\t\n"
      "Guides\tSpline\t1\n\tu 0.5\n\tv 0.25\n\tfaceId 3\n\tCVs\t\t\t3\n\t[1,2,3]\n\t[4,5,6]\n"
      "endObject\nendPatches\n";
  PalettePtr pal = importText(text);
  ASSERT_TRUE(pal);
  VrPrimitive* spline = pal->description("d")->activePrimitive();
  ASSERT_EQ(spline->numGuides(), 1u);
  const VrGuide& g = spline->guide(0u);
  EXPECT_EQ(g.faceId(), 3);
  EXPECT_DOUBLE_EQ(g.patchV(), 0.25);
  ASSERT_EQ(g.iOrigGuideGeom().size(), 3u);
  EXPECT_DOUBLE_EQ(g.iOrigGuideGeom()[2].z, 6.0);
  EXPECT_FALSE(g.id().empty());  // generated, since old files carry no ids
}

TEST(VrCollectionFile, MotionSamplesAttachToTheBase) {
  const std::string text = vrtest::readText(vrtest::examplePath("hairs.vorn"));
  PalettePtr base = importText(text);
  ASSERT_TRUE(base);
  std::istringstream sampleIn(text);
  VrPalette* sample = VrImport(sampleIn, "", 1);
  ASSERT_NE(sample, nullptr);
  EXPECT_EQ(base->numSamples(), 1u);
  EXPECT_EQ(base->sample(0), sample);
  EXPECT_EQ(base->description("one")->numSamples(), 1u);
  EXPECT_EQ(VrPalette::palette("hairs"), base.get());

  // A sample whose description the base lacks fails, and leaves the base as it was.
  vrtest::CaptureLogger log;
  std::string renamed = text;
  const std::string oneName = "\tname\t\t\tone\n";
  renamed.replace(renamed.find(oneName), oneName.size(), "\tname\t\t\ttwo\n");
  std::istringstream badIn(renamed);
  EXPECT_EQ(VrImport(badIn, "", 2), nullptr);
  EXPECT_EQ(log.errors().front(), "Could not find base description two in base collection hairs");
  EXPECT_EQ(base->numSamples(), 1u);
  base.reset();  // owns and deletes its sample
}

TEST(VrCollectionFile, PathFormsWriteAtomically) {
  vrtest::TempDir dir;
  PalettePtr pal(VrImport(vrtest::examplePath("hairs.vorn"), "", 0u));
  ASSERT_TRUE(pal);
  const std::string path = dir.file("sub/dir/out.vorn");
  EXPECT_TRUE(VrExportPalette(pal.get(), path));  // makes the folders
  const std::string written = vrtest::readText(path);
  EXPECT_EQ(vrtest::fromFileVersion(written), vrtest::fromFileVersion(exportText(pal.get())));
  const auto files = std::filesystem::directory_iterator(dir.file("sub/dir"));
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);  // no temporary file left behind

  dir.write("blocker", "a file, not a folder");
  vrtest::CaptureLogger log;
  EXPECT_FALSE(VrExportPalette(pal.get(), dir.file("blocker/out.vorn")));
  EXPECT_EQ(log.errors().back(), "Failed to open file: " + dir.file("blocker/out.vorn"));
  EXPECT_FALSE(VrImport(dir.file("missing.vorn"), "", 0u));
  EXPECT_EQ(log.errors().back(), "Failed to open file: " + dir.file("missing.vorn"));
}

TEST(VrCollectionFile, GetAttrReadsWithoutKeeping) {
  const unsigned collectionsBefore = VrPalette::palettes().size();
  const std::string path = vrtest::examplePath("groom.vorn");
  EXPECT_EQ(VrGetAttr("density", "RandomGenerator", path), std::vector<std::string>{"800.0"});
  EXPECT_EQ(VrGetAttr("name", "Description", path), (std::vector<std::string>{"scalp", "brows"}));
  EXPECT_EQ(VrGetAttr("active", "Cut", path), std::vector<std::string>{"false"});
  EXPECT_EQ(VrGetAttr("vrProjectPath", "Palette", path), std::vector<std::string>{"/proj/"});
  EXPECT_TRUE(VrGetAttr("nothing", "RandomGenerator", path).empty());
  EXPECT_EQ(VrPalette::palettes().size(), collectionsBefore);
}
