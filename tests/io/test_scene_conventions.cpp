// Geometry as other tools write it: clockwise faces, meshes under animated transforms, uv sets,
// normals and face sets, topology that changes, and the format's own acyclic time sampling.

#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/VrPatch.h"
#include "io/VrImportGeometry.h"
#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcDump.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/alembic/VrAbcOgawaFile.h"
#include "io/alembic/VrAbcXformWriter.h"
#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/ExpectNear.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using PalettePtr = std::unique_ptr<VrPalette>;

// A closed UV sphere of radius 1 around the origin, faces counter-clockwise seen from outside.
struct Sphere {
  std::vector<float> points;
  std::vector<int32_t> counts, indices;
  Sphere(int rings = 8, int segments = 12) {
    points.insert(points.end(), {0, 0, 1});
    for (int r = 1; r < rings; ++r)
      for (int s = 0; s < segments; ++s) {
        const double theta = M_PI * r / rings, phi = 2 * M_PI * s / segments;
        points.insert(points.end(), {float(std::sin(theta) * std::cos(phi)), float(std::sin(theta) * std::sin(phi)),
                                     float(std::cos(theta))});
      }
    points.insert(points.end(), {0, 0, -1});
    const int south = 1 + (rings - 1) * segments;
    auto at = [&](int ring, int s) { return 1 + (ring - 1) * segments + (s % segments); };
    for (int s = 0; s < segments; ++s) add({0, at(1, s), at(1, s + 1)});
    for (int r = 1; r + 1 < rings; ++r)
      for (int s = 0; s < segments; ++s) add({at(r, s), at(r + 1, s), at(r + 1, s + 1), at(r, s + 1)});
    for (int s = 0; s < segments; ++s) add({at(rings - 1, s), south, at(rings - 1, s + 1)});
  }
  void add(std::vector<int32_t> face) {
    counts.push_back(static_cast<int32_t>(face.size()));
    indices.insert(indices.end(), face.begin(), face.end());
  }
  // The faces as other tools store them: each one reversed.
  std::vector<int32_t> clockwise() const {
    std::vector<int32_t> out;
    size_t start = 0;
    for (int32_t n : counts) {
      for (int32_t k = n - 1; k >= 0; --k) out.push_back(indices[start + static_cast<size_t>(k)]);
      start += static_cast<size_t>(n);
    }
    return out;
  }
};

// A collection whose one description grows on every face of the named geometries.
PalettePtr importPatches(const std::vector<std::string>& names, unsigned faces) {
  std::ostringstream text;
  text << "# Vorn Palette File\n#\nFileVersion 18\n\nPalette\n\tname\t\t\tscene\n\tendAttrs\n\n"
       << "Description\n\tname\t\t\td\n\tendAttrs\n\nPatches\td\t0\n";
  for (const std::string& name : names) {
    text << "Patch\tSubd\n\tname\t\t" << name << "\n\tfaceIds\t\t" << faces;
    for (unsigned f = 0; f < faces; ++f) text << ' ' << f;
    text << "\nendObject\n";
  }
  text << "endPatches\n";
  std::istringstream in(text.str());
  return PalettePtr(VrImport(in, "", 0));
}

SgVec3T<double> pointAt(const VrPatch* patch, int face, bool ref) {
  SgVec3T<double> P;
  EXPECT_TRUE(patch->evalGeom(0.5, 0.5, face, P, ref));
  return P;
}

void expectNear(const SgVec3T<double>& a, const SgVec3T<double>& b) { vrtest::expectNear(a, b, 1e-5); }

void matrix(double m[16], double angleZ, double tx, double ty, double tz, double scale = 1.0) {
  const double c = std::cos(angleZ * M_PI / 180.0) * scale, s = std::sin(angleZ * M_PI / 180.0) * scale;
  const double values[16] = {c, s, 0, 0, -s, c, 0, 0, 0, 0, scale, 0, tx, ty, tz, 1};
  std::memcpy(m, values, sizeof values);
}

// The sphere as the polygon mesh "ball", faces given in the order `winding` says.
bool writeBall(const std::string& file, const Sphere& sphere, const std::vector<int32_t>& faces,
               const std::vector<float>& uvs, VrAbcMeshWriter::Winding winding) {
  VrAbcArchiveWriter writer;
  VrAbcMeshWriter mesh;
  VrAbcMeshWriter::Sample sample;
  sample.positions = sphere.points;
  sample.faceCounts = sphere.counts;
  sample.faceIndices = faces;
  if (!uvs.empty()) sample.uvs = uvs;
  return writer.open(file, VrAbcArchiveWriter::Options()) &&
         mesh.create(writer.top(), "ball", VrAbcMeshWriter::Kind::PolyMesh, 0, winding) && mesh.write(sample) &&
         writer.close();
}

class SceneFiles : public ::testing::Test {
 protected:
  void SetUp() override { VrResetImportGeometry(); }
  void TearDown() override {
    palette.reset();
    VrSetGeometrySpace(VrGeometrySpace::World);
    VrResetImportGeometry();
  }
  vrtest::TempDir dir;
  vrtest::CaptureLogger log;
  PalettePtr palette;
};

}  // namespace

TEST_F(SceneFiles, AClockwiseSphereGrowsOutwards) {
  const Sphere sphere;
  const std::string file = dir.file("sphere.abc");
  const std::vector<int32_t> stored = sphere.clockwise();
  ASSERT_TRUE(writeBall(file, sphere, stored, {}, VrAbcMeshWriter::Winding::Clockwise));
  const unsigned faces = static_cast<unsigned>(sphere.counts.size());
  palette = importPatches({"ball"}, faces);
  ASSERT_TRUE(palette);
  ASSERT_TRUE(VrImportGeometry(file, 1.0));
  const VrPatch* ball = palette->description("d")->patch("ball");
  ASSERT_TRUE(ball && ball->isBound());
  for (unsigned f = 0; f < faces; ++f)
    for (const bool ref : {true, false}) {
      SgVec3T<double> P, N, dPdu, dPdv;
      ASSERT_TRUE(ball->evalGeom(0.5, 0.5, static_cast<int>(f), P, N, dPdu, dPdv, ref));
      EXPECT_GT(N.dot(P), 0.5 * P.length()) << "face " << f;
    }
}

// /rig (animated translation) > /rig/head (a turn, then a lift) > /rig/head/skin, and
// /rig/loose (not inheriting) > /rig/loose/plate; samples on frames 24 and 25.
TEST_F(SceneFiles, NestedAnimatedTransformsPlaceTheSurfaces) {
  const std::vector<float> quad = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
  const std::vector<int32_t> counts = {4}, indices = {0, 1, 2, 3};
  const std::string file = dir.file("rig.abc");
  {
    VrAbcArchiveWriter writer;
    ASSERT_TRUE(writer.open(file, VrAbcArchiveWriter::Options()));
    const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0));
    VrAbcXformWriter rig, head, loose;
    ASSERT_TRUE(rig.create(writer.top(), "rig", ts));
    ASSERT_TRUE(head.create(*rig.object(), "head", ts));
    ASSERT_TRUE(loose.create(*rig.object(), "loose", ts));
    double m[16];
    for (int s = 0; s < 2; ++s) {
      matrix(m, 0, 4.0 * s, 0, 0);
      ASSERT_TRUE(rig.write(m));
      matrix(m, 90, 0, 2.0 * s, 0);
      ASSERT_TRUE(head.write(m));
      matrix(m, 0, 0, 0, 10, 1.0 + s);
      ASSERT_TRUE(loose.write(m, false));
    }
    for (VrAbcXformWriter* parent : {&head, &loose}) {
      VrAbcMeshWriter mesh;
      ASSERT_TRUE(mesh.create(*parent->object(), parent == &head ? "skin" : "plate", VrAbcMeshWriter::Kind::SubD, ts));
      VrAbcMeshWriter::Sample sample;
      sample.positions = quad;
      sample.faceCounts = counts;
      sample.faceIndices = indices;
      ASSERT_TRUE(mesh.write(sample));
    }
    ASSERT_TRUE(writer.close());
  }
  // The quad's centre (0.5, 0.5, 0) turned a quarter about z is (-0.5, 0.5, 0).
  struct Case {
    double frame;
    const char* interpolation;
    SgVec3T<double> skin, plate;
  } cases[] = {
      {24.0, "linear", {-0.5, 0.5, 0}, {0.5, 0.5, 10}},
      {25.0, "linear", {3.5, 2.5, 0}, {1.0, 1.0, 10}},
      {24.25, "linear", {0.5, 1.0, 0}, {0.625, 0.625, 10}},
      {24.75, "linear", {2.5, 2.0, 0}, {0.875, 0.875, 10}},
      {24.75, "none", {-0.5, 0.5, 0}, {0.5, 0.5, 10}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("frame " + std::to_string(c.frame) + " " + c.interpolation);
    VrResetImportGeometry();
    palette = importPatches({"skin", "plate"}, 1);
    ASSERT_TRUE(palette);
    ASSERT_TRUE(VrImportGeometry(file, c.frame, c.interpolation, 24.0));
    const VrPatch* skin = palette->description("d")->patch("skin");
    const VrPatch* plate = palette->description("d")->patch("plate");
    ASSERT_TRUE(skin && plate && skin->isBound() && plate->isBound());
    expectNear(pointAt(skin, 0, false), c.skin);
    expectNear(pointAt(plate, 0, false), c.plate);
    // The reference pose is the scene at its first samples.
    expectNear(pointAt(skin, 0, true), {-0.5, 0.5, 0});
    expectNear(pointAt(plate, 0, true), {0.5, 0.5, 10});
  }
  EXPECT_TRUE(log.errors().empty());

  // In object space the transforms are left out.
  VrSetGeometrySpace(VrGeometrySpace::Object);
  palette = importPatches({"skin"}, 1);
  ASSERT_TRUE(VrImportGeometry(file, 25.0, "linear", 24.0));
  expectNear(pointAt(palette->description("d")->patch("skin"), 0, false), {0.5, 0.5, 0});

  // The module readers see the world too.
  VrSetGeometrySpace(VrGeometrySpace::World);
  AlembicUtil util(file);
  std::vector<std::vector<SgVec3T<double>>> positions;
  ASSERT_TRUE(util.readMeshPositions(25.0 / 24.0, {"plate"}, positions));
  ASSERT_EQ(positions.size(), 1u);
  expectNear(positions[0][2], {2, 2, 10});
}

TEST_F(SceneFiles, WhatRealMeshesCarryAndChangingFaces) {
  const Sphere sphere;
  const std::string file = dir.file("rich.abc");
  {
    VrAbcArchiveWriter writer;
    ASSERT_TRUE(writer.open(file, VrAbcArchiveWriter::Options()));
    const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0));
    // Indexed face-varying uvs, normals, a second uv set, a reference pose and a face set.
    VrAbcMeshWriter mesh;
    ASSERT_TRUE(mesh.create(writer.top(), "ball", VrAbcMeshWriter::Kind::PolyMesh, ts));
    std::vector<float> uvs, normals;
    std::vector<uint32_t> uvIndices;
    for (size_t p = 0; p < sphere.points.size() / 3; ++p) uvs.insert(uvs.end(), {float(p), 0.5f});
    for (int32_t index : sphere.indices) {
      uvIndices.push_back(static_cast<uint32_t>(index));
      normals.insert(normals.end(), sphere.points.begin() + 3 * index, sphere.points.begin() + 3 * index + 3);
    }
    for (int s = 0; s < 2; ++s) {
      VrAbcMeshWriter::Sample sample;
      sample.positions = sphere.points;
      sample.faceCounts = sphere.counts;
      sample.faceIndices = sphere.indices;
      sample.uvs = uvs;
      sample.uvIndices = uvIndices;
      sample.normals = normals;
      ASSERT_TRUE(mesh.write(sample));
    }
    ASSERT_TRUE(mesh.writeArbitraryPoints("vorn_Pref", sphere.points));
    ASSERT_TRUE(mesh.writeArbitraryPoints("st2", sphere.points));
    VrAbcMetaData setMeta, schemaMeta;
    setMeta.set("schema", "AbcGeom_FaceSet_v1");
    setMeta.set("schemaObjTitle", "AbcGeom_FaceSet_v1:.faceset");
    schemaMeta.set("schema", "AbcGeom_FaceSet_v1");
    VrAbcObjectWriter* faceSet = mesh.object()->createChild("eyesSet", setMeta);
    VrAbcCompoundWriter* schema = faceSet ? faceSet->properties().createCompound(".faceset", schemaMeta) : nullptr;
    VrAbcPropertyWriter* setFaces =
        schema ? schema->createArray(".faces", VrAbcMetaData(), VrAbcDataType{VrAbcPod::Int32, 1}, 0) : nullptr;
    const int32_t eyes[] = {0, 1, 2};
    ASSERT_TRUE(setFaces && setFaces->setSample(eyes, 3));
    // A mesh whose second sample loses a face.
    VrAbcMeshWriter melting;
    ASSERT_TRUE(melting.create(writer.top(), "melt", VrAbcMeshWriter::Kind::PolyMesh, ts));
    VrAbcMeshWriter::Sample first, second;
    first.positions = second.positions = sphere.points;
    first.faceCounts = sphere.counts;
    first.faceIndices = sphere.indices;
    const std::vector<int32_t> fewerCounts(sphere.counts.begin() + 1, sphere.counts.end());
    const std::vector<int32_t> fewerIndices(sphere.indices.begin() + sphere.counts[0], sphere.indices.end());
    second.faceCounts = fewerCounts;
    second.faceIndices = fewerIndices;
    ASSERT_TRUE(melting.write(first) && melting.write(second));
    ASSERT_TRUE(writer.close());
  }
  palette = importPatches({"ball", "melt"}, 4);
  ASSERT_TRUE(palette);
  // The first frame binds both; the second refuses the mesh whose faces changed.
  EXPECT_TRUE(VrImportGeometry(file, 24.0, "linear", 24.0));
  EXPECT_TRUE(log.errors().empty());
  VrResetImportGeometry();
  palette = importPatches({"ball", "melt"}, 4);
  EXPECT_FALSE(VrImportGeometry(file, 25.0, "linear", 24.0));
  ASSERT_FALSE(log.errors().empty());
  EXPECT_NE(
      log.errors()[0].find("The geometry melt changes its faces over time (" + std::to_string(sphere.counts.size()) +
                           " faces in its first sample, " + std::to_string(sphere.counts.size() - 1) + " in sample 1)"),
      std::string::npos)
      << log.errors()[0];
  EXPECT_TRUE(palette->description("d")->patch("ball")->isBound());
  EXPECT_EQ(palette->description("d")->patch("melt"), nullptr);
}

// Time sampling `index` of an archive as stored: the table is the top group's fifth child, per
// entry the most samples (uint32), the time per cycle (double), the number of stored times
// (uint32) and the times.
static void storedSampling(const std::string& file, size_t index, uint64_t& tpcBits, std::vector<double>& times) {
  VrAbcOgawaFile ogawa;
  std::string error;
  ASSERT_TRUE(ogawa.open(file, error)) << error;
  std::vector<uint64_t> top;
  ASSERT_TRUE(ogawa.readGroup(ogawa.rootGroup(), top, error)) << error;
  ASSERT_GE(top.size(), 5u);
  VrAbcSpan table;
  ASSERT_TRUE(ogawa.readData(top[4], table, error)) << error;
  size_t at = 0;
  for (size_t i = 0;; ++i) {
    ASSERT_LE(at + 16, table.size);
    uint32_t count = 0;
    std::memcpy(&tpcBits, table.data + at + 4, 8);
    std::memcpy(&count, table.data + at + 12, 4);
    ASSERT_LE(at + 16 + 8 * size_t(count), table.size);
    if (i == index) {
      times.resize(count);
      std::memcpy(times.data(), table.data + at + 16, 8 * size_t(count));
      return;
    }
    at += 16 + 8 * size_t(count);
  }
}

TEST(AlembicTimeSampling, AcyclicSamplingsCarryTheFormatsOwnMark) {
  vrtest::TempDir dir;
  const std::string fresh = dir.file("acyclic.abc");
  {
    VrAbcArchiveWriter writer;
    ASSERT_TRUE(writer.open(fresh, VrAbcArchiveWriter::Options()));
    EXPECT_EQ(writer.addTimeSampling(VrAbcTimeSampling::acyclic({0.5, 0.75, 2.0})), 1u);
    ASSERT_TRUE(writer.close());
  }
  // The committed one is a render of two motion samples, frame 1 -/+ 0.25 at 24 per second.
  const std::string motion = std::string(VORN_TEST_DATA_DIR) + "/alembic/written/vorn_motion.abc";
  const std::pair<std::string, std::vector<double>> cases[] = {
      {fresh, {0.5, 0.75, 2.0}}, {motion, {0.75 * (1.0 / 24.0), 1.25 * (1.0 / 24.0)}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    uint64_t bits = 0;
    std::vector<double> times;
    storedSampling(c.first, 1, bits, times);
    EXPECT_EQ(bits, 0x7f9fffffffffffffull);  // the largest double over 32, to the bit
    EXPECT_EQ(times, c.second);
    VrAbcArchive archive;
    ASSERT_TRUE(archive.open(c.first));
    ASSERT_EQ(archive.numTimeSamplings(), 2u);
    const VrAbcTimeSampling& read = archive.timeSampling(1);
    EXPECT_EQ(read.type(), VrAbcTimeSampling::Type::Acyclic);
    EXPECT_EQ(read.samplesPerCycle(), 4294967295u);
    EXPECT_EQ(read.storedTimes(), c.second);
  }
  // Its dump, velocities and all, stays as it was checked.
  std::ostringstream dump;
  VrAbcDump::write(motion, dump);
  EXPECT_EQ(dump.str(), vrtest::readText(motion + ".ref.txt"));
}
