// The export of clump guides as curves: the face list, and the script the guides give.

#include "fxmodules/VrClumpCurves.h"
#include "fxmodules/VrClumpGuides.h"
#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/ShapeScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

TEST(VrClumpCurves, FaceLists) {
  struct Case {
    const char* text;
    bool ok;
    std::vector<int> faces;
  };
  const Case cases[] = {
      {"", true, {}},         {"1,4,10-12", true, {1, 4, 10, 11, 12}}, {" 3 1\t3 ", true, {1, 3}},
      {"7-7", true, {7}},     {"a", false, {}},                        {"5-2", false, {}},
      {"-1", false, {}},      {"2-", false, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    std::vector<int> faces{99};
    EXPECT_EQ(VrParseFaceList(c.text, faces), c.ok);
    EXPECT_EQ(faces, c.faces);
  }
}

TEST(VrClumpCurves, GuidesOfTheListedFacesBecomeCurvesWithTheirMapIds) {
  vrtest::TempDir dir;
  vrtest::ShapeScene scene("ClumpingFXModule", {{"exportDir", "out/"}, {"exportFaces", "2-3"}});
  scene.palette->setAttr("vrDataPath", dir.path() + "/", "string");
  std::vector<VrClumpGuide> guides(4);
  for (int g = 0; g < 4; ++g) {
    guides[g].valid = g != 2;  // an invalid guide is left out
    guides[g].face = g;
    guides[g].cvs = {{0.0, 0.0, 0.0}, {0.5, 0.25, 1.0 / 3.0}};
  }
  ASSERT_TRUE(VrExportClumpCurves(*scene.module, guides));
  EXPECT_EQ(vrtest::readText(dir.file("out/hair_Clumping.orm")),
            "orm 1\n"
            "note Set the two attachment attributes of the animated wire modules to these curves. Do not use the "
            "\"Attach Wires\" button.\n"
            "group ClumpingCurves\n"
            "curve 3 4 2 0.0000000000 0.0000000000 0.0000000000 0.5000000000 0.2500000000 0.3333333333\n"
            "end\n");

  vrtest::CaptureLogger log;
  scene.module->setAttr("exportFaces", "x", "string");
  EXPECT_FALSE(VrExportClumpCurves(*scene.module, guides));
  EXPECT_TRUE(log.has("Unreadable face list \"x\" in exportFaces. " + scene.module->messageTag()));
}
