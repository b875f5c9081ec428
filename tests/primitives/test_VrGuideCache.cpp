// Guides taken from a guide cache file, and the shape a spline's guides are given when they are
// placed on the surface.

#include "primitives/VrSplinePrimitive.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "geometry/VrSubdPatch.h"
#include "io/VrImportGeometry.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcCurvesWriter.h"
#include "support/CaptureLogger.h"
#include "support/ExpectNear.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using vrtest::expectNear;

// A named collection with one description, a flat 4 x 4 patch and a spline primitive with three
// guides shaped from guides (CV interpolation) at face centres.
struct Scene : vrtest::PatchScene {
  Scene() : PatchScene(vrtest::gridSurface(4), nullptr, "hair") {
    palette->setAttr("name", "cacheScene");
    spline = std::make_unique<VrSplinePrimitive>(description);
    spline->setAttr("iMethod", "1");
    const int faces[] = {5, 6, 10};
    for (int i = 0; i < 3; ++i) {
      VrGuide& g = spline->addGuide();
      g.setId(std::to_string(i + 1));
      g.setPatch(patch);
      g.setFaceId(faces[i]);
      g.setU(0.5);
      g.setV(0.5);
      // Offsets in the exported frame (U, N, V): straight up, two units.
      g.setOrigIGeom({Vec(0, 0, 0), Vec(0, 1, 0), Vec(0, 2, 0)});
    }
    vrutil::clearFileCache();
  }

  std::vector<std::vector<Vec>> origCVs() const {
    std::vector<std::vector<Vec>> out;
    for (unsigned i = 0; i < spline->numGuides(); ++i) out.push_back(spline->guide(i).iOrigGuideGeom());
    return out;
  }

  std::unique_ptr<VrSplinePrimitive> spline;
};

// Curves for guides 2, 0 and 1 (in that order in the file), each leaning its own way.
std::vector<VrCacheCurve> rigCurves() {
  std::vector<VrCacheCurve> curves(3);
  const int index[] = {2, 0, 1};
  for (int k = 0; k < 3; ++k) {
    VrCacheCurve& c = curves[static_cast<size_t>(k)];
    c.guideIndex = index[k];
    c.space = "local";
    const double lean = 0.25 * (index[k] + 1);
    c.cvs = {Vec(0, 0, 0), Vec(lean, 1, 0), Vec(2 * lean, 2, -lean)};
  }
  return curves;
}

// A file with a good guide curve (3 CVs, no guide index, so it goes to the guide whose root is
// nearest) and an object of linear curves, which no guide cache may hold.
bool writeMixedFile(const std::string& path) {
  VrAbcArchiveWriter writer;
  if (!writer.open(path, VrAbcArchiveWriter::Options())) return false;
  VrAbcCurvesWriter good;
  if (!good.create(writer.top(), "good", 0)) return false;
  VrAbcCurvesWriter::Sample sample;
  const std::vector<float> points = {0, 0, 0, 1, 1, 0, 2, 2, 0};
  const std::vector<int32_t> counts = {3};
  const std::vector<uint8_t> orders = {3};
  const std::vector<float> knots = {0, 0, 0, 1, 1, 1};
  sample.positions = points;
  sample.numVertices = counts;
  sample.type = VrAbcCurvesWriter::VariableOrder;
  sample.basis = VrAbcCurvesWriter::Bspline;
  sample.orders = orders;
  sample.knots = knots;
  if (!good.write(sample)) return false;
  VrAbcCurvesWriter bad;
  if (!bad.create(writer.top(), "bad", 0)) return false;
  VrAbcCurvesWriter::Sample line;
  line.positions = points;
  line.numVertices = counts;
  line.type = VrAbcCurvesWriter::Linear;
  if (!bad.write(line)) return false;
  return writer.close();
}

void expectSameCVs(const std::vector<Vec>& a, const std::vector<Vec>& b, double tolerance) {
  ASSERT_EQ(a.size(), b.size());
  for (size_t k = 0; k < a.size(); ++k) expectNear(a[k], b[k], tolerance);
}

}  // namespace

// Overriding guides from the cache

TEST(VrGuideCache, CacheNameIsExpandedAndFoundAlongTheDataPath) {
  Scene scene;
  vrtest::TempDir dir;
  dir.write("hair/placeholder", "");  // makes the description's folder
  ASSERT_TRUE(AlembicUtil(dir.file("hair/guides.abc")).writeCurves(rigCurves()));
  scene.palette->setAttr("vrDataPath", dir.path(), "string");
  VrSplinePrimitive& s = *scene.spline;
  s.setAttr("useCache", "true", "bool");  // the default name "${DESC}/guides.abc"
  EXPECT_EQ(s.guideCacheFile(), dir.file("hair/guides.abc"));
  ASSERT_TRUE(s.overrideGuidesWithCache());
  expectSameCVs(s.guide(0u).iOrigGuideGeom(), rigCurves()[1].cvs, 1e-6);
}

TEST(VrGuideCache, MissingOrUnreadableCachesKeepTheGuides) {
  Scene scene;
  vrtest::TempDir dir;
  VrSplinePrimitive& s = *scene.spline;
  const std::vector<std::vector<Vec>> before = scene.origCVs();
  vrtest::CaptureLogger log;

  // Off: nothing is read, whatever the name.
  s.setAttr("cacheFileName", dir.file("absent.abc"), "string");
  EXPECT_FALSE(s.overrideGuidesWithCache());
  EXPECT_TRUE(log.messages.empty());

  s.setAttr("useCache", "true", "bool");
  EXPECT_FALSE(s.overrideGuidesWithCache());
  ASSERT_EQ(log.errors().size(), 1u);
  EXPECT_EQ(log.errors()[0], "File does not exist: " + dir.file("absent.abc") + " [cacheScene,hair]");
  EXPECT_EQ(scene.origCVs(), before);

  // Unreadable files; one read in part has what was read undone.
  ASSERT_TRUE(writeMixedFile(dir.file("mixed.abc")));
  const std::string kept = ". The guides are kept as they were. [cacheScene,hair]";
  const struct {
    std::string file, lastError;
    bool only;  // the one error
  } unreadable[] = {
      {dir.write("broken.abc", "not an archive"),
       "Failed to override guides from cache " + dir.file("broken.abc") + kept, false},
      {dir.file("mixed.abc"), "Failed to override guides from cache " + dir.file("mixed.abc") + kept, false},
      {dir.write("guides.txt", "0 0 0"),
       "Unable to read guide cache " + dir.file("guides.txt") + ": only Alembic files are read. [cacheScene,hair]",
       true},
  };
  for (const auto& c : unreadable) {
    log.clear();
    s.setAttr("cacheFileName", c.file, "string");
    EXPECT_FALSE(s.overrideGuidesWithCache()) << c.file;
    ASSERT_FALSE(log.errors().empty());
    EXPECT_EQ(log.errors().back(), c.lastError);
    if (c.only) {
      EXPECT_EQ(log.errors().size(), 1u);
    }
    EXPECT_EQ(scene.origCVs(), before);
  }
}

TEST(VrGuideCache, BreakFollowsTheCachedGuides) {
  Scene scene;
  vrtest::TempDir dir;
  VrSplinePrimitive& s = *scene.spline;
  s.guide(0u).guideCVAttrs()["break"] = {1.0f, 1.0f, 1.0f};
  std::vector<VrCacheCurve> rig = rigCurves();
  rig[1].cvValues = {{1.0f}, {0.5f}, {0.0f}};  // guide 0
  const std::string file = dir.file("guides.abc");
  ASSERT_TRUE(AlembicUtil(file).writeCurves(rig));
  s.setAttr("cacheFileName", file, "string");

  // Off: the flag is cleared, though a guide carries "break".
  EXPECT_FALSE(s.overrideGuidesWithCache());
  EXPECT_FALSE(s.breakActive());
  EXPECT_FALSE(s.splineContext().breakActive);

  s.setAttr("useCache", "true", "bool");
  ASSERT_TRUE(s.overrideGuidesWithCache());
  EXPECT_TRUE(s.breakActive());
  EXPECT_TRUE(s.splineContext().breakActive);
  EXPECT_TRUE(static_cast<VrSplinePrimitiveContext&>(*s.createContext()).breakActive);
  const std::vector<float>* values = s.guide(0u).guideCVAttrs().find("break");
  ASSERT_NE(values, nullptr);
  EXPECT_EQ(*values, (std::vector<float>{1.0f, 0.5f, 0.0f}));

  // Without the attribute the flag drops again.
  s.guide(0u).guideCVAttrs().clear();
  rig[1].cvValues.clear();
  ASSERT_TRUE(AlembicUtil(file).writeCurves(rig));
  ASSERT_TRUE(s.overrideGuidesWithCache());
  EXPECT_FALSE(s.breakActive());
}

// Placing a spline's guides

TEST(VrGuideCache, SplineGuidesShareTheFirstGuidesCVCount) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  // Guide 1: straight up along the exported normal, 5 CVs over two units; guide 2: too short.
  s.guide(1u).setOrigIGeom({Vec(0, 0, 0), Vec(0, 0.5, 0), Vec(0, 1, 0), Vec(0, 1.5, 0), Vec(0, 2, 0)});
  s.guide(2u).setOrigIGeom({Vec(0, 0, 0), Vec(0, 3, 0)});
  vrtest::CaptureLogger log;
  EXPECT_EQ(s.transformGuidesToSurface(), 3u);
  ASSERT_EQ(log.warnings().size(), 1u);
  EXPECT_EQ(log.warnings()[0], "Guide 3 has 2 CVs, fewer than a spline needs; it takes the default shape.");
  expectSameCVs(s.guide(1u).iGuideGeom(), {Vec(0, 0, 0), Vec(0, 1, 0), Vec(0, 2, 0)}, 1e-9);
  // The default shape (four CVs, one unit along the exported normal) resampled to three.
  expectSameCVs(s.guide(2u).iGuideGeom(), {Vec(0, 0, 0), Vec(0, 0.5, 0), Vec(0, 1, 0)}, 1e-9);
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_TRUE(s.guide(i).transformedToSurface());
    EXPECT_EQ(s.guide(i).cGuideGeom().size(), 3u);
  }
  // The root on face 10 (centre (2.5, 2.5)), the tip one unit up.
  expectNear(s.guide(2u).cGuideGeom()[0], Vec(2.5, 2.5, 0), 1e-6);
  expectNear(s.guide(2u).cGuideGeom()[2], Vec(2.5, 2.5, 1), 1e-6);

  EXPECT_FALSE(s.prepGuideCGeom(3));
  s.guide(0u).setPatch(nullptr);
  EXPECT_FALSE(s.prepGuideCGeom(0));
  EXPECT_FALSE(s.guide(0u).transformedToSurface());
}
