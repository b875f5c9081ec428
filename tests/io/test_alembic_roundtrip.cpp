// Writing archives and reading them back. Every valid test archive is copied through the
// writer and must dump exactly as the original, digests included, which checks the writer's
// layout, sample keys and digests against files the format's own library wrote. Archives made
// from scratch by the schema writers must read back with the values that went in; their meshes
// are written with faces as stored (clockwise), so the stored indices are the ones given.

#include "io/AlembicTestSupport.h"
#include "support/BoxMesh.h"
#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcCurves.h"
#include "io/alembic/VrAbcCurvesWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/alembic/VrAbcNuPatchWriter.h"
#include "support/CaptureLogger.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

bool copyCompound(const VrAbcCompoundProperty& from, VrAbcCompoundWriter& to) {
  VrAbcSample sample;
  for (size_t i = 0; i < from.numProperties(); ++i) {
    const VrAbcPropertyHeader& h = from.propertyHeader(i);
    if (h.isCompound()) {
      VrAbcCompoundProperty child;
      VrAbcCompoundWriter* target = to.createCompound(h.name, h.metaData);
      if (!target || !from.compound(i, child) || !copyCompound(child, *target)) return false;
      continue;
    }
    VrAbcPropertyWriter* target = h.isScalar() ? to.createScalar(h.name, h.metaData, h.dataType, h.timeSamplingIndex)
                                               : to.createArray(h.name, h.metaData, h.dataType, h.timeSamplingIndex);
    if (!target) return false;
    VrAbcScalarProperty scalar;
    VrAbcArrayProperty array;
    if (h.isScalar() ? !from.scalar(i, scalar) : !from.array(i, array)) return false;
    for (uint32_t s = 0; s < h.numSamples; ++s) {
      if (h.isScalar() ? !scalar.read(s, sample) : !array.read(s, sample)) return false;
      const bool stored = vrabc::isStringPod(h.dataType.pod) ? target->setStrings(sample.strings)
                                                              : target->setSample(sample.bytes.data(), sample.dims);
      if (!stored) return false;
    }
  }
  return true;
}

bool copyObject(const VrAbcObject& from, VrAbcObjectWriter& to) {
  VrAbcCompoundProperty props;
  if (!from.properties(props) || !copyCompound(props, to.properties())) return false;
  for (size_t i = 0; i < from.numChildren(); ++i) {
    VrAbcObject child;
    VrAbcObjectWriter* target = to.createChild(from.childHeader(i).name, from.childHeader(i).metaData);
    if (!target || !from.child(i, child) || !copyObject(child, *target)) return false;
  }
  return true;
}

// Copies an archive object by object, property by property and sample by sample.
bool copyArchive(const std::string& source, const std::string& target) {
  VrAbcArchive in;
  if (!in.open(source)) return false;
  VrAbcArchiveWriter::Options options;
  options.useMetaDataAsIs = true;
  options.metaData = in.metaData();
  options.archiveVersion = in.archiveVersion();
  VrAbcArchiveWriter out;
  if (!out.open(target, options)) return false;
  for (size_t i = 1; i < in.numTimeSamplings(); ++i)
    if (out.addTimeSampling(in.timeSampling(i)) != i) return false;
  return copyObject(in.top(), out.top()) && out.close();
}

}  // namespace

TEST(AlembicRoundTrip, CopiesOfTheValidArchivesDumpLikeTheOriginals) {
  vrtest::CaptureLogger log;
  for (const std::string& source : vrtest::alembicFiles("valid")) {
    SCOPED_TRACE(source);
    const std::string copy = vrtest::scratchFile("copy.abc");
    ASSERT_TRUE(copyArchive(source, copy)) << VrAbcArchive::lastError();
    EXPECT_EQ(vrtest::dumpWithoutFileLine(copy), vrtest::dumpWithoutFileLine(source));
    // The same blocks, laid out in another order: the same size.
    EXPECT_EQ(std::filesystem::file_size(copy), std::filesystem::file_size(source));
    std::remove(copy.c_str());
  }
  EXPECT_TRUE(log.errors().empty());
}

namespace {

using vrtest::cubeCounts;
using vrtest::cubeIndices;
using vrtest::cubePoints;
using vrtest::moved;

}  // namespace

TEST(AlembicRoundTrip, CurvesWithWidthsOrdersAndKnotsReadBack) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string path = dir.file("curves.abc");
  const std::vector<int32_t> counts = {4, 5};
  std::vector<float> points, widths;
  for (int i = 0; i < 9; ++i) {
    points.insert(points.end(), {static_cast<float>(i), static_cast<float>(i * i), 0.5f});
    widths.push_back(0.1f * static_cast<float>(i + 1));
  }
  const std::vector<uint8_t> orders = {4, 3};
  const std::vector<float> knots = {0, 0, 0, 0, 1, 1, 1, 1, 0, 0, 0, 0.5f, 1, 1, 1, 1};
  {
    VrAbcArchiveWriter writer;
    ASSERT_TRUE(writer.open(path, VrAbcArchiveWriter::Options()));
    const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(0.5, 0.0));
    VrAbcCurvesWriter curves;
    ASSERT_TRUE(curves.create(writer.top(), "guides", ts));
    VrAbcCurvesWriter::Sample s;
    s.positions = points;
    s.numVertices = counts;
    s.type = VrAbcCurvesWriter::VariableOrder;
    s.basis = VrAbcCurvesWriter::Bspline;
    s.widths = widths;
    s.orders = orders;
    s.knots = knots;
    ASSERT_TRUE(curves.write(s));
    const std::vector<float> later = moved(points, 0.0f, 0.0f, 1.0f);
    VrAbcCurvesWriter::Sample s2 = s;
    s2.positions = later;
    s2.widths = VrAbcView<float>();  // widths repeat
    ASSERT_TRUE(curves.write(s2));
    ASSERT_TRUE(writer.close());
  }
  VrAbcArchive archive;
  VrAbcObject object;
  ASSERT_TRUE(archive.open(path));
  ASSERT_TRUE(archive.findObject("/guides", object));
  VrAbcCurves curves;
  ASSERT_TRUE(curves.open(object));
  ASSERT_EQ(curves.numSamples(), 2u);
  EXPECT_EQ(curves.topologyVariance(), VrAbcSchema::Variance::Homogeneous);
  VrAbcCurves::Sample s;
  ASSERT_TRUE(curves.read(1, s));
  EXPECT_EQ(s.numVertices, counts);
  EXPECT_EQ(s.type, VrAbcCurvesWriter::VariableOrder);
  EXPECT_EQ(s.basis, VrAbcCurvesWriter::Bspline);
  EXPECT_EQ(s.orders, orders);
  EXPECT_EQ(s.knots, knots);
  EXPECT_EQ(s.points.positions[2], 1.5f);
  ASSERT_TRUE(s.hasWidths);
  std::vector<float> widthsBack;
  ASSERT_TRUE(s.widths.values.as(widthsBack));
  EXPECT_EQ(widthsBack, widths);
  EXPECT_EQ(s.widths.scope, VrAbcScope::Vertex);
  EXPECT_TRUE(log.errors().empty());
}

TEST(AlembicRoundTrip, WriterRefusesBadInputAndLeavesNoFile) {
  vrtest::CaptureLogger log;
  const std::string path = vrtest::scratchFile("refused.abc");
  {
    VrAbcArchiveWriter writer;
    ASSERT_TRUE(writer.open(path, VrAbcArchiveWriter::Options()));
    EXPECT_EQ(writer.top().createChild(""), nullptr);
    EXPECT_EQ(writer.top().createChild("a/b"), nullptr);
    ASSERT_NE(writer.top().createChild("mesh"), nullptr);
    EXPECT_EQ(writer.top().createChild("mesh"), nullptr);
    const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::acyclic({0.0, 1.0}));
    VrAbcMeshWriter mesh;
    ASSERT_TRUE(mesh.create(writer.top(), "cube", VrAbcMeshWriter::Kind::PolyMesh, ts, VrAbcMeshWriter::Winding::Clockwise));
    VrAbcMeshWriter::Sample noTopology;
    noTopology.positions = cubePoints;
    EXPECT_FALSE(mesh.write(noTopology));
    EXPECT_FALSE(writer.close());
  }
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_GE(log.errors().size(), 4u);
  for (const std::string& e : log.errors()) EXPECT_EQ(e.rfind("vorn-abc-", 0), 0u) << e;

  // Acyclic sampling: no more samples than times.
  log.clear();
  {
    VrAbcArchiveWriter writer;
    ASSERT_TRUE(writer.open(path, VrAbcArchiveWriter::Options()));
    const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::acyclic({0.0, 1.0}));
    VrAbcMeshWriter mesh;
    ASSERT_TRUE(mesh.create(writer.top(), "cube", VrAbcMeshWriter::Kind::PolyMesh, ts, VrAbcMeshWriter::Winding::Clockwise));
    VrAbcMeshWriter::Sample s;
    s.positions = cubePoints;
    s.faceCounts = cubeCounts;
    s.faceIndices = cubeIndices;
    EXPECT_TRUE(mesh.write(s));
    EXPECT_TRUE(mesh.write(s));
    EXPECT_FALSE(mesh.write(s));
    EXPECT_FALSE(writer.close());
  }
  EXPECT_FALSE(std::filesystem::exists(path));
  ASSERT_FALSE(log.errors().empty());
  EXPECT_NE(log.errors()[0].find("acyclic"), std::string::npos) << log.errors()[0];
}

namespace {

// The archive behind tests/data/alembic/written/vorn_written.abc.ref.txt: a subdivision
// surface with indexed uv and a reference pose, animated over two uniform samples; a rational
// NURBS patch; two curves with widths on acyclic sampling; and a polygon mesh.
bool writeCheckedArchive(const std::string& path) {
  VrAbcArchiveWriter::Options options;
  options.applicationName = "vorn tests";
  options.userDescription = "written by the round-trip tests";
  options.framesPerSecond = 24;
  VrAbcArchiveWriter writer;
  if (!writer.open(path, options)) return false;
  const uint32_t frames = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0 / 24.0));
  const uint32_t keys = writer.addTimeSampling(VrAbcTimeSampling::acyclic({0.5, 2.0}));

  VrAbcMeshWriter subd;
  if (!subd.create(writer.top(), "scalp", VrAbcMeshWriter::Kind::SubD, frames, VrAbcMeshWriter::Winding::Clockwise)) return false;
  const std::vector<float> uvValues = {0, 0, 1, 0, 1, 1, 0, 1};
  std::vector<uint32_t> uvIndices;
  for (int face = 0; face < 6; ++face)
    for (uint32_t corner = 0; corner < 4; ++corner) uvIndices.push_back(corner);
  const std::vector<float> raised = moved(cubePoints, 0.0f, 0.5f, 0.0f);
  VrAbcMeshWriter::Sample first;
  first.positions = cubePoints;
  first.faceCounts = cubeCounts;
  first.faceIndices = cubeIndices;
  first.uvs = uvValues;
  first.uvIndices = uvIndices;
  VrAbcMeshWriter::Sample second;
  second.positions = raised;
  if (!subd.write(first) || !subd.write(second) || !subd.writeArbitraryPoints("vorn_Pref", cubePoints))
    return false;

  VrAbcNuPatchWriter patch;
  if (!patch.create(writer.top(), "patch", 0)) return false;
  VrAbcNuPatchWriter::Sample p;
  std::vector<float> grid, weights;
  for (int v = 0; v < 4; ++v)
    for (int u = 0; u < 4; ++u) {
      grid.insert(grid.end(), {static_cast<float>(u), 0.0f, static_cast<float>(v)});
      weights.push_back(u == 1 && v == 1 ? 2.0f : 1.0f);
    }
  const std::vector<float> knots = {0, 0, 0, 0, 1, 1, 1, 1};
  p.positions = grid;
  p.numU = p.numV = p.uOrder = p.vOrder = 4;
  p.uKnots = knots;
  p.vKnots = knots;
  p.weights = weights;
  if (!patch.write(p)) return false;

  VrAbcCurvesWriter curves;
  if (!curves.create(writer.top(), "guides", keys)) return false;
  const std::vector<int32_t> counts = {4, 3};
  const std::vector<float> points = {0, 0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 1, 0, 0, 1, 1, 0, 1, 2, 0};
  const std::vector<float> widths = {0.4f, 0.3f, 0.2f, 0.1f, 0.3f, 0.2f, 0.1f};
  VrAbcCurvesWriter::Sample c;
  c.positions = points;
  c.numVertices = counts;
  c.type = VrAbcCurvesWriter::Linear;
  c.basis = VrAbcCurvesWriter::NoBasis;
  c.widths = widths;
  const std::vector<float> bent = moved(points, 0.5f, 0.0f, 0.0f);
  VrAbcCurvesWriter::Sample c2 = c;
  c2.positions = bent;
  if (!curves.write(c) || !curves.write(c2)) return false;

  VrAbcMeshWriter cube;
  VrAbcMeshWriter::Sample m;
  m.positions = cubePoints;
  m.faceCounts = cubeCounts;
  m.faceIndices = cubeIndices;
  if (!cube.create(writer.top(), "cube", VrAbcMeshWriter::Kind::PolyMesh, 0, VrAbcMeshWriter::Winding::Clockwise) || !cube.write(m)) return false;
  return writer.close();
}

}  // namespace

TEST(AlembicRoundTrip, WrittenArchiveDumpsAsCheckedByHand) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string path = dir.file("vorn_written.abc");
  ASSERT_TRUE(writeCheckedArchive(path));
  VrAbcDump::Result result;
  const std::string dump = vrtest::dumpText(path, &result);
  if (std::getenv("VORN_PRINT_WRITTEN_DUMP")) std::printf("%s", dump.c_str());
  EXPECT_EQ(result, VrAbcDump::Result::Ok);
  const std::string expected = vrtest::readText(vrtest::alembicData("written/vorn_written.abc.ref.txt"));
  // Every line, digests and sample totals included: this archive is ours, nothing is left to
  // another library's choice.
  EXPECT_EQ(dump, expected);
  // Written twice, the archive is the same to the byte.
  ASSERT_TRUE(writeCheckedArchive(dir.file("again.abc")));
  EXPECT_EQ(vrtest::readText(dir.file("again.abc")), vrtest::readText(path));
  EXPECT_TRUE(log.errors().empty());
}
