#include "io/VrImportGeometry.h"

#include "base/VrMessage.h"
#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/VrNurbsPatch.h"
#include "geometry/VrPatch.h"
#include "geometry/VrSubdPatch.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcCurvesWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/alembic/VrAbcNuPatchWriter.h"
#include "primitives/VrBasePrimitive.h"
#include "support/BoxMesh.h"
#include "support/CaptureLogger.h"
#include "support/ExpectNear.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using PalettePtr = std::unique_ptr<VrPalette>;

const std::vector<float>& cube = vrtest::cubePoints;
using vrtest::cubeCounts;
using vrtest::cubeIndices;
using vrtest::moved;

struct MeshDef {
  std::string name;
  VrAbcMeshWriter::Kind kind = VrAbcMeshWriter::Kind::SubD;
  std::vector<std::vector<float>> samples;  // positions per sample
  std::vector<float> pref;                  // empty: none
};

// Writes meshes on frames 24, 25, ... (seconds 1, 1 + 1/24, ...), or on the given `frames`, and,
// with `nurbs`, one flat 4 x 4 bicubic NURBS surface "brow" on the unit square at height 2.
bool writeArchive(const std::string& path, const std::vector<MeshDef>& meshes, bool nurbs,
                  const std::vector<float>& nurbsKnots = {0, 0, 0, 0, 1, 1, 1, 1},
                  const std::vector<int>& frames = {}) {
  VrAbcArchiveWriter writer;
  if (!writer.open(path, VrAbcArchiveWriter::Options())) return false;
  std::vector<double> times;
  for (int frame : frames) times.push_back(frame / 24.0);
  const uint32_t ts = writer.addTimeSampling(frames.empty() ? VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0)
                                                            : VrAbcTimeSampling::acyclic(times));
  VrAbcObjectWriter* group = writer.top().createChild("group");
  if (!group) return false;
  for (const MeshDef& def : meshes) {
    VrAbcMeshWriter mesh;
    if (!mesh.create(*group, def.name, def.kind, ts)) return false;
    for (size_t i = 0; i < def.samples.size(); ++i) {
      VrAbcMeshWriter::Sample s;
      s.positions = def.samples[i];
      if (i == 0) {
        s.faceCounts = cubeCounts;
        s.faceIndices = cubeIndices;
      }
      if (!mesh.write(s)) return false;
    }
    if (!def.pref.empty() && !mesh.writeArbitraryPoints("vorn_Pref", def.pref)) return false;
  }
  if (nurbs) {
    std::vector<float> points;
    for (int v = 0; v < 4; ++v)
      for (int u = 0; u < 4; ++u) points.insert(points.end(), {u / 3.0f, v / 3.0f, 2.0f});
    VrAbcNuPatchWriter patch;
    if (!patch.create(writer.top(), "brow", 0)) return false;
    VrAbcNuPatchWriter::Sample s;
    s.positions = points;
    s.numU = s.numV = 4;
    s.uOrder = s.vOrder = 4;
    s.uKnots = nurbsKnots;
    s.vKnots = nurbsKnots;
    if (!patch.write(s)) return false;
  }
  return writer.close();
}

struct PatchDef {
  std::string description;
  std::string kind;  // "Subd" or "Nurbs"
  std::string name;
};

// A collection with the given patches, read as the base sample.
PalettePtr importCollection(const std::string& name, const std::vector<PatchDef>& patches) {
  std::ostringstream text;
  text << "# Vorn Palette File\n#\nFileVersion 18\n\nPalette\n\tname\t\t\t" << name << "\n\tendAttrs\n\n";
  std::vector<std::string> descriptions;
  for (const PatchDef& p : patches)
    if (std::find(descriptions.begin(), descriptions.end(), p.description) == descriptions.end())
      descriptions.push_back(p.description);
  for (const std::string& d : descriptions) text << "Description\n\tname\t\t\t" << d << "\n\tendAttrs\n\n";
  for (const std::string& d : descriptions) {
    text << "Patches\t" << d << "\t0\n";
    for (const PatchDef& p : patches)
      if (p.description == d)
        text << "Patch\t" << p.kind << "\n\tname\t\t" << p.name << "\n\tfaceIds\t\t0\nendObject\n";
    text << "endPatches\n\n";
  }
  std::istringstream in(text.str());
  return PalettePtr(VrImport(in, "", 0));
}

SgVec3T<double> point(const VrPatch* patch, int face, bool ref, double u = 0.5, double v = 0.5) {
  SgVec3T<double> P;
  EXPECT_TRUE(patch->evalGeom(u, v, face, P, ref));
  return P;
}

void expectNear(const SgVec3T<double>& a, const SgVec3T<double>& b, double tolerance = 1e-5) {
  vrtest::expectNear(a, b, tolerance);
}

bool contains(const std::vector<std::string>& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

class ImportGeometry : public ::testing::Test {
 protected:
  void SetUp() override { VrResetImportGeometry(); }
  void TearDown() override {
    palette.reset();
    VrResetImportGeometry();
    VrCloseGeometryFiles();
    VRDebugLevel = savedDebug;
  }
  // A sample mode and frame, and how far along x the cage stands from its rest pose there.
  struct Offset {
    std::string file;
    const char* mode;
    double frame;
    double offset;
  };
  // Each case read afresh: a file and frame already read are reused whatever the mode (the
  // patches of the last case still hold their surface, which must not come back).
  void expectOffsets(const std::vector<Offset>& cases, double tolerance) {
    static int round = 0;
    for (const Offset& c : cases) {
      SCOPED_TRACE(std::string(c.mode) + " " + std::to_string(c.frame));
      VrResetImportGeometry();
      PalettePtr next = importCollection("round" + std::to_string(++round), {{"d", "Subd", "skin"}});
      ASSERT_TRUE(next);
      ASSERT_TRUE(VrImportGeometry(c.file, c.frame, c.mode, 24.0));
      const VrPatch* skin = next->description("d")->patch("skin");
      ASSERT_TRUE(skin && skin->isBound());
      expectNear(point(skin, 0, false), point(skin, 0, true) + SgVec3T<double>(c.offset, 0, 0), tolerance);
      palette = std::move(next);
    }
    EXPECT_TRUE(log.errors().empty());
  }
  // The cube moved along x by i * i at sample i, i = 0..3.
  static std::vector<std::vector<float>> accelerated() {
    std::vector<std::vector<float>> samples;
    for (int i = 0; i < 4; ++i) samples.push_back(moved(cube, static_cast<float>(i * i), 0, 0));
    return samples;
  }

  vrtest::TempDir dir;
  vrtest::CaptureLogger log;
  PalettePtr palette;
  unsigned savedDebug = VRDebugLevel;
};

}  // namespace

TEST_F(ImportGeometry, BindsSubdivisionAndNurbsPatchesAndInterpolatesBetweenFrames) {
  const std::string file = dir.file("geo.abc");
  const std::vector<float> rest = moved(cube, 0, 5, 0);
  ASSERT_TRUE(
      writeArchive(file, {{"ns:scalp", VrAbcMeshWriter::Kind::SubD, {cube, moved(cube, 2, 0, -4)}, rest}}, true));
  palette = importCollection("bind", {{"one", "Subd", "scalp"}, {"one", "Nurbs", "brow"}, {"two", "Subd", "scalp"}});
  ASSERT_TRUE(palette);
  ASSERT_TRUE(VrImportGeometry(file, 24.5, "linear", 24.0));
  EXPECT_TRUE(log.errors().empty());

  VrPatch* scalp = palette->description("one")->patch("scalp");
  VrPatch* scalpTwo = palette->description("two")->patch("scalp");
  VrPatch* brow = palette->description("one")->patch("brow");
  ASSERT_TRUE(scalp && scalpTwo && brow);
  ASSERT_TRUE(scalp->isBound());
  ASSERT_TRUE(brow->isBound());
  EXPECT_TRUE(scalp->isReferenced());

  // Halfway between the two samples the cage has moved by half of (2, 0, -4); the reference
  // pose is the cube raised by 5.
  expectNear(point(scalp, 0, false), point(scalp, 0, true) + SgVec3T<double>(1.0, -5.0, -2.0));

  // Both descriptions share the surfaces of one geometry name.
  auto* one = dynamic_cast<VrSubdPatch*>(scalp);
  auto* two = dynamic_cast<VrSubdPatch*>(scalpTwo);
  ASSERT_TRUE(one && two);
  EXPECT_EQ(one->surface(false), two->surface(false));
  EXPECT_EQ(one->surface(true), two->surface(true));

  // The NURBS surface is the flat unit square at height 2.
  expectNear(point(brow, 0, false, 0.25, 0.75), SgVec3T<double>(0.25, 0.75, 2.0));
  expectNear(point(brow, 0, true, 0.25, 0.75), SgVec3T<double>(0.25, 0.75, 2.0));
  // The patch table is emptied by the binding.
  EXPECT_TRUE(VrImportedPatches().empty());
}

TEST_F(ImportGeometry, TheSameFileAndFrameIsParsedOnce) {
  const std::string file = dir.file("once.abc");
  ASSERT_TRUE(writeArchive(file, {{"scalp", VrAbcMeshWriter::Kind::SubD, {cube, moved(cube, 1, 0, 0)}, {}}}, false));
  VRDebugLevel = 2;
  const unsigned before = VrImportGeometryReadCount();
  // Two descriptions on the same geometry: one read, one shared surface.
  palette = importCollection("once", {{"d", "Subd", "scalp"}, {"e", "Subd", "scalp"}});
  ASSERT_TRUE(VrImportGeometry(file, 24.0, "linear", 24.0));
  EXPECT_EQ(VrImportGeometryReadCount(), before + 1);
  const auto* first = dynamic_cast<VrSubdPatch*>(palette->description("d")->patch("scalp"));
  const auto* second = dynamic_cast<VrSubdPatch*>(palette->description("e")->patch("scalp"));
  ASSERT_TRUE(first && first->isBound() && second && second->isBound());
  EXPECT_EQ(first->surface(false), second->surface(false));
  // At its first sample the cage stands where its reference does: one surface serves as both.
  EXPECT_EQ(first->surface(false), first->surface(true));
  EXPECT_FALSE(first->isReferenced());
  EXPECT_TRUE(log.has("Importing geometry: " + file + "(  24.0000)"));

  // A new base collection binds afresh, from the file already open.
  PalettePtr next = importCollection("onceMore", {{"d", "Subd", "scalp"}});
  ASSERT_TRUE(VrImportGeometry(file, 25.0, "linear", 24.0));
  EXPECT_EQ(VrImportGeometryReadCount(), before + 1);
  auto* later = dynamic_cast<VrSubdPatch*>(next->description("d")->patch("scalp"));
  ASSERT_TRUE(later && later->isBound());
  EXPECT_NE(later->surface(false), first->surface(false));
  EXPECT_TRUE(later->isReferenced());
  next.reset();

  // A file rewritten on disk is opened again.
  std::filesystem::remove(file);
  ASSERT_TRUE(writeArchive(file, {{"scalp", VrAbcMeshWriter::Kind::SubD, {moved(cube, 0, 2, 0)}, {}}}, false));
  PalettePtr rewritten = importCollection("rewritten", {{"d", "Subd", "scalp"}});
  ASSERT_TRUE(VrImportGeometry(file, 1.0, "linear", 24.0));
  EXPECT_EQ(VrImportGeometryReadCount(), before + 2);
  EXPECT_TRUE(log.errors().empty());
}

TEST_F(ImportGeometry, PatchKindMustMatchTheObject) {
  const std::string file = dir.file("kinds.abc");
  ASSERT_TRUE(writeArchive(file, {{"scalp", VrAbcMeshWriter::Kind::SubD, {cube}, {}}}, true));
  palette = importCollection("kinds", {{"d", "Nurbs", "scalp"}, {"d", "Subd", "brow"}});
  ASSERT_TRUE(palette);
  EXPECT_FALSE(VrImportGeometry(file, 24.0));
  EXPECT_EQ(palette->description("d")->numPatches(), 0u);
  const std::vector<std::string> errors = log.errors();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), "rAlembicErrorGeoTypeMismatch"), 2);
}

TEST_F(ImportGeometry, BadNurbsKnotsAreRefused) {
  const std::string file = dir.file("knots.abc");
  // Decreasing knots.
  ASSERT_TRUE(writeArchive(file, {}, true, {0, 0, 0, 1, 0, 1, 1, 1}));
  palette = importCollection("knots", {{"d", "Nurbs", "brow"}});
  EXPECT_FALSE(VrImportGeometry(file, 24.0));
  EXPECT_TRUE(contains(log.errors(), "rAlembicErrorBadKnot"));
  EXPECT_EQ(palette->description("d")->patch("brow"), nullptr);
}

TEST_F(ImportGeometry, FileNameRulesAndFallbacks) {
  const std::string file = dir.file("fall.abc");
  ASSERT_TRUE(writeArchive(file, {{"scalp", VrAbcMeshWriter::Kind::SubD, {cube}, {}}}, false));
  VRDebugLevel = 2;
  palette = importCollection("fall", {{"d", "Subd", "scalp"}});
  const std::string lumo = dir.file("fall.lumo");
  EXPECT_TRUE(VrImportGeometry(lumo, 24.0));
  EXPECT_TRUE(palette->description("d")->patch("scalp")->isBound());
  EXPECT_TRUE(log.has("Using .abc: " + lumo + " -> " + file));

  log.clear();
  EXPECT_FALSE(VrImportGeometry("a.b", 24.0));
  EXPECT_TRUE(contains(log.errors(), "Failed to open file because the filename is too short: a.b -> a.b"));

  log.clear();
  const std::string missing = dir.file("missing.abc");
  EXPECT_FALSE(VrImportGeometry(missing, 24.0));
  EXPECT_TRUE(log.has("Fallback to .abc failed: " + missing + " -> " + missing));
  EXPECT_TRUE(log.has("Fallback to .lumo failed: " + missing + " -> " + dir.file("missing.lumo")));
  EXPECT_TRUE(contains(log.errors(),
                       "Failed to open file and the fallback attempts also failed: " + missing + " -> " + missing));

  // A ".lumo" file alone is found but has no reader.
  log.clear();
  const std::string only = dir.write("only.lumo", "x");
  palette.reset();
  palette = importCollection("fall", {{"d", "Subd", "scalp"}});
  EXPECT_FALSE(VrImportGeometry(only, 24.0));
  EXPECT_TRUE(log.has("Using .lumo: " + only + " -> " + only));
  EXPECT_TRUE(contains(log.errors(), "rUnableToLoadFile"));
}

namespace {

// Two curves of 3 and 2 points in one object "guides", moving up by 2 between frames 24 and 25.
bool writeCurves(const std::string& path) {
  VrAbcArchiveWriter writer;
  if (!writer.open(path, VrAbcArchiveWriter::Options())) return false;
  const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0));
  VrAbcCurvesWriter curves;
  if (!curves.create(writer.top(), "rig:guides", ts)) return false;
  const std::vector<float> points = {0, 0, 0, 0, 1, 0, 0, 2, 0, 5, 0, 0, 5, 1, 0};
  const std::vector<int32_t> counts = {3, 2};
  VrAbcCurvesWriter::Sample first;
  first.positions = points;
  first.numVertices = counts;
  first.type = VrAbcCurvesWriter::Linear;
  if (!curves.write(first)) return false;
  const std::vector<float> raised = moved(points, 0, 2, 0);
  VrAbcCurvesWriter::Sample second;
  second.positions = raised;
  if (!curves.write(second)) return false;
  return writer.close();
}

}  // namespace

TEST(AlembicUtil, ReadsCurvesMeshesAndBoxesAtATime) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string curvesFile = dir.file("curves.abc");
  ASSERT_TRUE(writeCurves(curvesFile));
  AlembicUtil curvesReader(curvesFile);
  std::vector<std::vector<SgVec3T<double>>> curves;
  ASSERT_TRUE(curvesReader.readCurves(1.0 + 0.5 / 24.0, {"guides"}, curves));
  ASSERT_EQ(curves.size(), 2u);
  ASSERT_EQ(curves[0].size(), 3u);
  ASSERT_EQ(curves[1].size(), 2u);
  expectNear(curves[0][2], SgVec3T<double>(0, 3, 0));
  expectNear(curves[1][0], SgVec3T<double>(5, 1, 0));

  const std::string meshFile = dir.file("meshes.abc");
  ASSERT_TRUE(
      writeArchive(meshFile, {{"skin", VrAbcMeshWriter::Kind::PolyMesh, {cube, moved(cube, 0, 0, 4)}, {}}}, false));
  AlembicUtil meshes(meshFile);
  std::vector<std::vector<SgVec3T<double>>> positions;
  std::vector<std::vector<int>> counts, indices;
  ASSERT_TRUE(meshes.readMeshes(1.0 + 0.25 / 24.0, {"skin"}, positions, counts, indices));
  ASSERT_EQ(positions.size(), 1u);
  ASSERT_EQ(positions[0].size(), 8u);
  expectNear(positions[0][0], SgVec3T<double>(-1, -1, 2));
  EXPECT_EQ(counts[0], std::vector<int>(cubeCounts.begin(), cubeCounts.end()));
  EXPECT_EQ(indices[0], std::vector<int>(cubeIndices.begin(), cubeIndices.end()));
  ASSERT_TRUE(meshes.readMeshPositions(10.0, {"skin"}, positions));
  expectNear(positions[0][7], SgVec3T<double>(1, -1, 3));

  SgBox3T<double> box;
  ASSERT_TRUE(meshes.boundingBox(1.0, {}, box));
  ASSERT_TRUE(box.valid);
  expectNear(box.min, SgVec3T<double>(-1, -1, -1));
  expectNear(box.maxCorner(), SgVec3T<double>(1, 1, 1));
  EXPECT_TRUE(log.errors().empty());

  // Wrong kinds and missing names are refused with their keys.
  EXPECT_FALSE(meshes.readCurves(1.0, {"skin"}, curves));
  EXPECT_FALSE(curvesReader.readMeshPositions(1.0, {"guides"}, positions));
  EXPECT_FALSE(meshes.readMeshPositions(1.0, {"nothing"}, positions));
  const std::vector<std::string> errors = log.errors();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), "rAlembicErrorGeoTypeMismatch"), 2);
  EXPECT_TRUE(contains(errors, "rAlembicErrorNoGeoFound"));
  log.clear();
  AlembicUtil missing(dir.file("absent.abc"));
  EXPECT_FALSE(missing.boundingBox(1.0, {}, box));
  EXPECT_TRUE(contains(log.errors(), "rFileDoesNotExist"));
}

TEST(AlembicUtil, GuideCurvesWriteAndReadBack) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string file = dir.file("guides.abc");
  std::vector<VrCacheCurve> written(2);
  written[0].guideIndex = 3;
  written[0].space = "world";
  for (int i = 0; i < 5; ++i) written[0].cvs.emplace_back(0.5 * i, 1.0, -0.25 * i);
  written[1].space = "local";
  written[1].cvs = {SgVec3T<double>(1, 2, 3), SgVec3T<double>(4, 5, 6)};
  AlembicUtil out(file);
  ASSERT_TRUE(out.writeCurves(written));

  AlembicUtil in(file);
  std::vector<VrCacheCurve> read;
  ASSERT_TRUE(in.readGuideCurves(0.0, read));
  ASSERT_EQ(read.size(), 2u);
  EXPECT_EQ(read[0].guideIndex, 3);
  EXPECT_EQ(read[0].space, "world");
  ASSERT_EQ(read[0].cvs.size(), 5u);
  expectNear(read[0].cvs[4], SgVec3T<double>(2.0, 1.0, -1.0));
  EXPECT_EQ(read[1].guideIndex, -1);
  EXPECT_EQ(read[1].space, "local");
  ASSERT_EQ(read[1].cvs.size(), 2u);
  expectNear(read[1].cvs[1], SgVec3T<double>(4, 5, 6));
  EXPECT_TRUE(log.errors().empty());

  // Linear curves are not NURBS curves.
  const std::string linear = dir.file("linear.abc");
  ASSERT_TRUE(writeCurves(linear));
  AlembicUtil other(linear);
  EXPECT_FALSE(other.readGuideCurves(1.0, read));
  EXPECT_TRUE(read.empty());
  EXPECT_TRUE(contains(log.errors(), "Object found [rig:guides] is not a nurbs curve. [" + linear + "]"));
  // A curve without CVs cannot be written.
  log.clear();
  AlembicUtil empty(dir.file("empty.abc"));
  EXPECT_FALSE(empty.writeCurves(std::vector<VrCacheCurve>(1)));
  EXPECT_FALSE(log.errors().empty());
}

namespace {

class GuideHolder : public VrBasePrimitive {
 public:
  GuideHolder() : VrBasePrimitive(nullptr) {}
  std::string typeName() const override { return "SplinePrimitive"; }
};

}  // namespace

TEST(AlembicUtil, OverrideGuidesByIndexAndByNearestRoot) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string file = dir.file("rig.abc");
  std::vector<VrCacheCurve> rig(3);
  rig[0].guideIndex = 1;
  rig[0].cvs = {SgVec3T<double>(10, 0, 0), SgVec3T<double>(10, 1, 0)};
  rig[1].cvs = {SgVec3T<double>(0.1, 0, 0), SgVec3T<double>(0.1, 2, 0)};  // nearest to guide 0
  rig[2].guideIndex = 7;                                                  // no such guide
  rig[2].cvs = {SgVec3T<double>(7, 7, 7)};
  ASSERT_TRUE(AlembicUtil(file).writeCurves(rig));

  GuideHolder primitive;
  for (double x : {0.0, 5.0, 20.0})
    primitive.addGuide().setOrigIGeom({SgVec3T<double>(x, 0, 0), SgVec3T<double>(x, 1, 0)});
  AlembicUtil reader(file);
  ASSERT_TRUE(reader.overrideGuides(primitive, 0.0, "/proj/rig.vorn"));
  expectNear(primitive.guide(0u).iOrigGuideGeom()[1], SgVec3T<double>(0.1, 2, 0));
  expectNear(primitive.guide(1u).iOrigGuideGeom()[0], SgVec3T<double>(10, 0, 0));
  expectNear(primitive.guide(2u).iOrigGuideGeom()[0], SgVec3T<double>(20, 0, 0));
  EXPECT_TRUE(contains(log.warnings(), "No vorn_guideIndex attribute on rig guide. Use closest guide instead."));
  EXPECT_TRUE(log.errors().empty());

  GuideHolder none;
  EXPECT_FALSE(reader.overrideGuides(none, 0.0, "/proj/rig.vorn"));
  EXPECT_TRUE(contains(log.errors(), "No guides to override [/proj/rig.vorn]"));
  AlembicUtil absent(dir.file("absent.abc"));
  EXPECT_FALSE(absent.overrideGuides(primitive, 0.0, "/proj/rig.vorn"));
  EXPECT_TRUE(contains(log.errors(), "File does not exist: " + dir.file("absent.abc")));
}

TEST_F(ImportGeometry, InterpolationModesFollowTheSampledMotion) {
  // accel: x = i * i at sample i (frames 24..27). The curved modes follow the parabola on every
  // segment, the end ones included (at 26.5 a repeated end sample would pull the cubic to
  // 6.6875); linear cuts the corner and "none" holds. pair: two samples (x = 0 and 4), nothing
  // to bend with, so the curved modes are linear. uneven: frames 24, 25, 27 and 30 (an acyclic
  // sampling), x = (frame - 24)^2; linear at 28.5 gives 9 + 27 / 2 = 22.5.
  const std::string accel = dir.file("accel.abc"), pair = dir.file("pair.abc"), uneven = dir.file("uneven.abc");
  ASSERT_TRUE(writeArchive(accel, {{"skin", VrAbcMeshWriter::Kind::SubD, accelerated(), {}}}, false));
  ASSERT_TRUE(writeArchive(pair, {{"skin", VrAbcMeshWriter::Kind::SubD, {cube, moved(cube, 4, 0, 0)}, {}}}, false));
  std::vector<std::vector<float>> samples;
  for (int frame : {24, 25, 27, 30})
    samples.push_back(moved(cube, static_cast<float>((frame - 24) * (frame - 24)), 0, 0));
  ASSERT_TRUE(writeArchive(uneven, {{"skin", VrAbcMeshWriter::Kind::SubD, samples, {}}}, false, {}, {24, 25, 27, 30}));
  expectOffsets({{accel, "none", 25.5, 1.0},
                 {accel, "linear", 25.5, 2.5},
                 {accel, "quadratic", 25.5, 2.25},
                 {accel, "cubic", 25.5, 2.25},
                 {accel, "quadratic", 24.5, 0.25},
                 {accel, "cubic", 26.5, 6.25},
                 {accel, "quadratic", 26.5, 6.25},
                 {accel, "cubic", 24.5, 0.25},
                 {accel, "cubic", 26.25, 2.25 * 2.25},
                 {pair, "cubic", 24.25, 1.0},
                 {pair, "quadratic", 24.75, 3.0}},
                1e-4);
  expectOffsets({{uneven, "quadratic", 28.5, 20.25},
                 {uneven, "cubic", 28.5, 20.25},
                 {uneven, "quadratic", 26.0, 4.0},
                 {uneven, "cubic", 26.0, 4.0},
                 {uneven, "cubic", 24.5, 0.25},
                 {uneven, "quadratic", 24.5, 0.25},
                 {uneven, "linear", 28.5, 22.5}},
                1e-3);
}

TEST(AlembicUtil, CVValuesRoundTripAndReachTheGuides) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string file = dir.file("cvvalues.abc");
  std::vector<VrCacheCurve> rig(2);
  rig[0].guideIndex = 0;
  rig[0].cvs = {SgVec3T<double>(0, 0, 0), SgVec3T<double>(0, 1, 0), SgVec3T<double>(0, 2, 0)};
  rig[0].cvValues = {{0.5f, 10.0f}, {0.25f, 20.0f}, {0.125f, 30.0f}};
  rig[1].guideIndex = 1;
  rig[1].cvs = {SgVec3T<double>(1, 0, 0), SgVec3T<double>(1, 1, 0)};
  ASSERT_TRUE(AlembicUtil(file).writeCurves(rig));

  // Read back, the guide's attribute names, sorted ("clump" before "width"), take the values in
  // order; the curve without values leaves its guide without attributes.
  GuideHolder primitive;
  VrGuide& first = primitive.addGuide();
  first.setOrigIGeom({SgVec3T<double>(), SgVec3T<double>(0, 1, 0), SgVec3T<double>(0, 2, 0)});
  first.guideCVAttrs().insert("width", std::vector<float>(3, 0.0f));
  first.guideCVAttrs().insert("clump", std::vector<float>(3, 0.0f));
  primitive.addGuide().setOrigIGeom({SgVec3T<double>(1, 0, 0), SgVec3T<double>(1, 1, 0)});
  ASSERT_TRUE(AlembicUtil(file).overrideGuides(primitive, 0.0, "/proj/rig.vorn"));
  const std::vector<float>* clump = primitive.guide(0u).guideCVAttrs().find("clump");
  const std::vector<float>* width = primitive.guide(0u).guideCVAttrs().find("width");
  ASSERT_TRUE(clump && width);
  EXPECT_EQ(*clump, (std::vector<float>{0.5f, 0.25f, 0.125f}));
  EXPECT_EQ(*width, (std::vector<float>{10.0f, 20.0f, 30.0f}));
  EXPECT_TRUE(primitive.guide(1u).guideCVAttrs().empty());
  EXPECT_TRUE(log.errors().empty());

  // Values for a different number of CVs are refused.
  rig[1].cvValues = {{1.0f}};
  EXPECT_FALSE(AlembicUtil(dir.file("bad.abc")).writeCurves(rig));
  EXPECT_FALSE(log.errors().empty());
}

TEST(AlembicUtil, WorldSpaceCurvesComeIntoTheGuideFrame) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string file = dir.file("world.abc");
  std::vector<VrCacheCurve> rig(2);
  rig[0].guideIndex = 0;
  rig[0].space = "world";
  rig[0].cvs = {SgVec3T<double>(1, 2, 3), SgVec3T<double>(1, 3, 3), SgVec3T<double>(1, 2, 5),
                SgVec3T<double>(3, 2, 3)};
  rig[1].guideIndex = 1;
  rig[1].space = "world";
  rig[1].cvs = {SgVec3T<double>(7, 8, 9), SgVec3T<double>(7, 9, 9)};
  ASSERT_TRUE(AlembicUtil(file).writeCurves(rig));

  GuideHolder primitive;
  // Root at (1, 2, 3) with tangent +z, normal +y and binormal +x; the exported frame is the
  // default (u tangent +x, normal +y, v tangent +z).
  VrGuide& placed = primitive.addGuide();
  placed.setOrigIGeom({SgVec3T<double>(), SgVec3T<double>(0, 1, 0)});
  placed.setRootFrame(true, SgVec3T<double>(1, 2, 3), SgVec3T<double>(0, 1, 0), SgVec3T<double>(0, 0, 1),
                      SgVec3T<double>(1, 0, 0));
  placed.setTransformedToSurface(true);
  // A guide with no patch cannot be placed: its CVs stay as the file has them.
  primitive.addGuide().setOrigIGeom({SgVec3T<double>(), SgVec3T<double>(0, 1, 0)});
  ASSERT_TRUE(AlembicUtil(file).overrideGuides(primitive, 0.0, "/proj/rig.vorn"));

  const std::vector<SgVec3T<double>>& local = primitive.guide(0u).iOrigGuideGeom();
  ASSERT_EQ(local.size(), 4u);
  expectNear(local[0], SgVec3T<double>(0, 0, 0));
  expectNear(local[1], SgVec3T<double>(0, 1, 0));  // along the normal
  expectNear(local[2], SgVec3T<double>(2, 0, 0));  // two along the tangent: the exported u tangent
  expectNear(local[3], SgVec3T<double>(0, 0, 2));  // two along the binormal: the exported v tangent
  expectNear(primitive.guide(1u).iOrigGuideGeom()[1], SgVec3T<double>(7, 9, 9));
  EXPECT_TRUE(contains(log.warnings(),
                       "Guide 1 is not on its surface: world space CVs are taken as they are. [/proj/rig.vorn]"));
  EXPECT_TRUE(log.errors().empty());
}
