// The geometry back end: hand-computed strips, the sizes of every shape, closed shapes facing
// outwards, the uv layouts, and whole renders that give the same meshes on one and two threads;
// archives as their file's mesh in the frame their instance transform gives, or as their box.

#include "renderers/BakeScene.h"
#include "renderers/VrGeometryRenderer.h"
#include "renderers/VrGeometryRendererDataHelper.h"
#include "renderers/VrRenderDescription.h"
#include "support/ArchiveScene.h"
#include "support/CaptureLogger.h"
#include "support/ShapeScene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;

Vec pointOf(const VrMeshData& mesh, size_t i) {
  return Vec(mesh.positions[3 * i], mesh.positions[3 * i + 1], mesh.positions[3 * i + 2]);
}

// The volume a closed mesh encloses, positive when its faces turn outwards (fans from each
// face's first corner).
double signedVolume(const VrMeshData& mesh) {
  double volume = 0.0;
  size_t at = 0;
  for (int32_t count : mesh.faceCounts) {
    const Vec a = pointOf(mesh, size_t(mesh.faceIndices[at]));
    for (int32_t k = 1; k + 1 < count; ++k)
      volume += a.dot(pointOf(mesh, size_t(mesh.faceIndices[at + size_t(k)]))
                          .cross(pointOf(mesh, size_t(mesh.faceIndices[at + size_t(k) + 1])))) / 6.0;
    at += size_t(count);
  }
  return volume;
}

TEST(VrGeometryRendererDataHelper, StraightStripByHand) {
  // A spline from the origin one unit up y, 0.2 wide; the side direction x, the surface normal z.
  const std::vector<Vec> cvs = {Vec(0, 0, 0), Vec(0, 1, 0)};
  const std::vector<float> widths = {0.2f, 0.2f};
  struct Case {
    int orientation;
    int spans;
    double curvature;
    std::vector<Vec> points;  // root row first, each row across
  };
  const Case cases[] = {
      {VrMeshSettings::AsDescription, 1, 0.0, {{-0.1, 0, 0}, {0.1, 0, 0}, {-0.1, 1, 0}, {0.1, 1, 0}}},
      // Flat to the surface: the side is normal x tangent, -x.
      {VrMeshSettings::AlignSurfaceNormal, 1, 0.0, {{0.1, 0, 0}, {-0.1, 0, 0}, {0.1, 1, 0}, {-0.1, 1, 0}}},
      // Two spans bent by 0.5: the edges rise 0.5 x 0.1 along the strip's normal (y x x = -z).
      {VrMeshSettings::AsDescription, 2, 0.5,
       {{-0.1, 0, -0.05}, {0, 0, 0}, {0.1, 0, -0.05}, {-0.1, 1, -0.05}, {0, 1, 0}, {0.1, 1, -0.05}}},
  };
  for (const Case& c : cases) {
    VrMeshSettings settings;
    settings.orientation = c.orientation;
    settings.insertWidthSpan = c.spans > 1;
    settings.widthSpanNum = c.spans;
    settings.curvature = c.curvature;
    VrMeshData mesh;
    ASSERT_TRUE(VrGeometryRendererDataHelper(settings).addDataForSplinePrim(cvs, widths, Vec(1, 0, 0), Vec(0, 0, 1), mesh));
    ASSERT_EQ(mesh.numPoints(), c.points.size());
    for (size_t i = 0; i < c.points.size(); ++i)
      EXPECT_LT((pointOf(mesh, i) - c.points[i]).length(), 1e-6) << "case " << &c - cases << " point " << i;
    // u across from 0 to 1, v 0 at the root row and 1 at the tip row.
    const size_t row = size_t(c.spans) + 1;
    for (size_t i = 0; i < mesh.numPoints(); ++i) {
      EXPECT_FLOAT_EQ(mesh.uvs[2 * i], float(i % row) / float(c.spans));
      EXPECT_FLOAT_EQ(mesh.uvs[2 * i + 1], i < row ? 0.0f : 1.0f);
    }
    ASSERT_EQ(mesh.numFaces(), size_t(c.spans));
    const std::vector<int32_t> firstFace(mesh.faceIndices.begin(), mesh.faceIndices.begin() + 4);
    EXPECT_EQ(firstFace, (std::vector<int32_t>{0, int32_t(row), int32_t(row) + 1, 1}));
  }
  VrMeshData none;
  EXPECT_FALSE(VrGeometryRendererDataHelper(VrMeshSettings()).addDataForSplinePrim({Vec()}, {0.1f}, Vec(1, 0, 0),
                                                                                   Vec(0, 0, 1), none));
  EXPECT_TRUE(none.empty());
}

TEST(VrGeometryRendererDataHelper, PointAndFaceCountsOfEveryShape) {
  const std::vector<Vec> spline = {Vec(0, 0, 0), Vec(0, 1, 0), Vec(0, 2, 0.5), Vec(0, 3, 1.5), Vec(0.2, 4, 3)};
  const std::vector<float> widths(5, 0.1f);
  const std::vector<Vec> handles = {Vec(0, 0, 0), Vec(0, 2, 0), Vec(0.5, 1, 0), Vec(0, 1, 0.3)};
  const std::vector<Vec> card = {Vec(0, 0, 0), Vec(0.5, 0, 0), Vec(0, 0.5, 0), Vec(1, 0, 0), Vec(0, 1, 0)};
  struct Case {
    const char* kind;
    int shape, spans;
    size_t points, faces;
  };
  const Case cases[] = {{"spline", VrMeshSettings::Ribbon, 1, 10, 4},  {"spline", VrMeshSettings::Ribbon, 3, 20, 12},
                        {"spline", VrMeshSettings::Cross, 1, 20, 8},   {"spline", VrMeshSettings::Cross, 2, 30, 16},
                        {"spline", VrMeshSettings::Tube, 1, 35, 24},   {"sphere", 0, 1, 2 * 12 + 7 * 13, 96},
                        {"card", 0, 1, 25, 16},                        {"archive", 0, 1, 24, 6}};
  for (const Case& c : cases) {
    VrMeshSettings settings;
    settings.shape = c.shape;
    settings.insertWidthSpan = true;
    settings.widthSpanNum = c.spans;
    const VrGeometryRendererDataHelper helper(settings);
    VrMeshData mesh;
    const std::string kind = c.kind;
    const Vec edges[3] = {Vec(1, 0, 0), Vec(0, 2, 0), Vec(0, 0, 3)};
    bool made = true;
    if (kind == "spline") made = helper.addDataForSplinePrim(spline, widths, Vec(1, 0, 0), Vec(0, 0, 1), mesh);
    if (kind == "sphere") made = helper.addDataForSpherePrim(handles, mesh);
    if (kind == "card") made = helper.addDataForCardPrim(card, mesh);
    if (kind == "archive") helper.addDataForArchivePrim(Vec(), edges, mesh);
    ASSERT_TRUE(made) << kind;
    EXPECT_EQ(mesh.numPoints(), c.points) << kind << " shape " << c.shape << " spans " << c.spans;
    EXPECT_EQ(mesh.numFaces(), c.faces) << kind << " shape " << c.shape << " spans " << c.spans;
    EXPECT_EQ(mesh.uvs.size(), 2 * mesh.numPoints());
    size_t corners = 0;
    for (int32_t n : mesh.faceCounts) corners += size_t(n);
    ASSERT_EQ(mesh.faceIndices.size(), corners);
    for (int32_t i : mesh.faceIndices) EXPECT_LT(size_t(i), mesh.numPoints());
  }
}

TEST(VrGeometryRendererDataHelper, ClosedShapesFaceOutwardsInEitherHandedness) {
  const VrGeometryRendererDataHelper helper{VrMeshSettings()};
  for (double hand : {1.0, -1.0}) {
    VrMeshData box;
    const Vec edges[3] = {Vec(1, 0, 0), Vec(0, 2, 0), Vec(0, 0, 3 * hand)};
    helper.addDataForArchivePrim(Vec(1, 1, 1), edges, box);
    EXPECT_NEAR(signedVolume(box), 6.0, 1e-5) << hand;
    // An ellipsoid of half-axes 1, 0.5 and 0.3: a little under 4/3 pi x 0.15 as polygons.
    VrMeshData sphere;
    ASSERT_TRUE(helper.addDataForSpherePrim({Vec(0, 0, 0), Vec(0, 2, 0), Vec(0.5, 1, 0), Vec(0, 1, 0.3 * hand)}, sphere));
    const double exact = 4.0 / 3.0 * 3.14159265358979 * 0.15;
    EXPECT_GT(signedVolume(sphere), 0.85 * exact) << hand;
    EXPECT_LT(signedVolume(sphere), exact) << hand;
  }
}

TEST(VrGeometryRendererDataHelper, UVLayouts) {
  struct Case {
    bool tiles;
    int layout;
    double separation;
    size_t index, count;
    float u, v;  // where the square's corner (1, 1) goes
  };
  const Case cases[] = {{false, VrMeshSettings::Overlap, 0.2, 3, 4, 1.0f, 1.0f},
                        {false, VrMeshSettings::SideBySide, 0.0, 1, 4, 0.5f, 1.0f},
                        {false, VrMeshSettings::SideBySide, 0.2, 0, 2, 0.45f, 1.0f},
                        {true, VrMeshSettings::Overlap, 0.0, 12, 20, 3.0f, 2.0f},
                        {true, VrMeshSettings::SideBySide, 0.1, 0, 20, 0.9f, 0.9f}};
  for (const Case& c : cases) {
    VrMeshSettings settings;
    settings.uvInTiles = c.tiles;
    settings.uvLayout = c.layout;
    settings.uvTileSeparation = c.separation;
    VrMeshData mesh;
    mesh.positions = {0, 0, 0, 0, 0, 0};
    mesh.uvs = {0.0f, 0.0f, 1.0f, 1.0f};
    VrGeometryRendererDataHelper(settings).layoutUVs(mesh, 1, c.index, c.count);
    EXPECT_EQ(mesh.uvs[0], 0.0f);  // before the first point: untouched
    EXPECT_FLOAT_EQ(mesh.uvs[2], c.u) << &c - cases;
    EXPECT_FLOAT_EQ(mesh.uvs[3], c.v) << &c - cases;
  }
}

TEST(VrGeometryRenderer, JointsPerCVOrSpacedByLength) {
  const std::vector<Vec> cvs = {Vec(0, 0, 0), Vec(1, 0, 0), Vec(3, 0, 0)};
  EXPECT_EQ(VrGeometryRenderer::placeJoints(cvs, true, 7), cvs);
  const std::vector<Vec> four = VrGeometryRenderer::placeJoints(cvs, false, 4);
  ASSERT_EQ(four.size(), 4u);
  for (size_t j = 0; j < 4; ++j) EXPECT_NEAR(four[j].x, double(j), 1e-12);
  EXPECT_EQ(VrGeometryRenderer::placeJoints(cvs, false, 0).size(), 2u);
}

// A render of the scattered splines: the meshes, the names and the strip joints.
struct Converted {
  unsigned emitted = 0;
  std::vector<std::string> names;
  std::vector<VrMeshData> meshes;
  size_t chains = 0;
};

Converted convert(size_t threads, const std::vector<std::pair<const char*, const char*>>& attrs) {
  vrtest::ShapeScene scene(nullptr, {});
  scene.scatter();
  auto* converter = dynamic_cast<VrGeometryRenderer*>(scene.description->addObject("GeometryRenderer"));
  EXPECT_NE(converter, nullptr);
  Converted out;
  if (!converter) return out;
  std::string old, type;
  for (const auto& [name, value] : attrs) {
    EXPECT_TRUE(converter->getAttr(name, old, type)) << name;
    converter->setAttr(name, value, type);
  }
  EXPECT_TRUE(VrRenderDescription(*converter, threads));
  out.emitted = converter->totalEmitCount();
  for (const VrGeometryRenderer::Mesh& mesh : converter->meshes()) {
    out.names.push_back(mesh.name);
    out.meshes.push_back(mesh.data);
  }
  out.chains = converter->stripJoints().size();
  return out;
}

TEST(VrGeometryRenderer, MeshesAreTheSameOnOneAndTwoThreads) {
  const std::vector<std::pair<const char*, const char*>> attrs = {
      {"shapeType", "2"}, {"uvLayoutType", "1"}, {"createStripJoints", "true"}};
  const Converted one = convert(1, attrs), two = convert(2, attrs);
  ASSERT_GT(one.emitted, 20u);
  EXPECT_EQ(one.emitted, two.emitted);
  ASSERT_EQ(one.names, std::vector<std::string>{"hair"});
  ASSERT_EQ(two.meshes.size(), 1u);
  const VrMeshData& a = one.meshes[0];
  const VrMeshData& b = two.meshes[0];
  // Eight CVs a spline, a tube of six sides around each.
  EXPECT_EQ(a.numFaces(), size_t(one.emitted) * 7 * VrGeometryRendererDataHelper::tubeSides);
  EXPECT_EQ(a.positions, b.positions);
  EXPECT_EQ(a.uvs, b.uvs);
  EXPECT_EQ(a.faceIndices, b.faceIndices);
  EXPECT_EQ(one.chains, size_t(one.emitted));
  // Side by side, the primitives share the unit square without overlapping.
  for (float uv : a.uvs) {
    EXPECT_GE(uv, 0.0f);
    EXPECT_LE(uv, 1.0f);
  }
}

TEST(VrGeometryRenderer, OneMeshPerPrimitiveWithoutCombining) {
  const Converted split = convert(2, {{"combineMesh", "false"}});
  ASSERT_EQ(split.meshes.size(), size_t(split.emitted));
  EXPECT_EQ(split.names.front().rfind("hair_body_", 0), 0u);
  for (const VrMeshData& mesh : split.meshes) EXPECT_EQ(mesh.numFaces(), 7u);  // one strip over eight CVs
  // Converting only a selection with nothing selected converts nothing.
  EXPECT_TRUE(convert(1, {{"convertSelected", "true"}}).meshes.empty());
}

TEST(VrGeometryRenderer, ArchivesAsBoxesOrInstancesInTheirFrame) {
  // Each archive's frame is (U/2, 2N, 1.5V) at its root on the plane z = 0 (see BakeScene); with
  // no file, its box is the unit cube standing on the root, so each box encloses 0.5 x 2 x 1.5.
  for (bool instances : {false, true}) {
    vrtest::BakeScene scene("NullRenderer");
    auto& converter = *dynamic_cast<VrGeometryRenderer*>(scene.description->addObject("GeometryRenderer"));
    converter.setAttr("outputInstances", instances ? "true" : "false", "bool");
    ASSERT_TRUE(VrRenderDescription(converter, 2));
    const size_t emitted = converter.totalEmitCount();
    ASSERT_GT(emitted, 10u);
    if (!instances) {
      ASSERT_EQ(converter.meshes().size(), 1u);
      EXPECT_TRUE(converter.instances().empty());
      EXPECT_EQ(converter.meshes()[0].data.numFaces(), 6 * emitted);
      EXPECT_NEAR(signedVolume(converter.meshes()[0].data), 1.5 * double(emitted), 1e-3 * double(emitted));
      continue;
    }
    EXPECT_TRUE(converter.meshes().empty());
    ASSERT_EQ(converter.instances().size(), emitted);
    for (const VrGeometryRenderer::Instance& instance : converter.instances()) {
      const double* m = instance.matrix;
      EXPECT_EQ(std::string(instance.name).rfind("fur_skin_", 0), 0u);
      EXPECT_NEAR(Vec(m[0], m[1], m[2]).length(), 0.5, 1e-6);
      EXPECT_NEAR(Vec(m[4], m[5], m[6]).z, 2.0, 1e-6);  // up along the plane's normal
      EXPECT_NEAR(Vec(m[8], m[9], m[10]).length(), 1.5, 1e-6);
      EXPECT_NEAR(m[14], 0.0, 1e-6);  // rooted on the plane
      EXPECT_EQ(m[15], 1.0);
    }
  }
}

}  // namespace

TEST(VrGeometryRenderer, ArchivesCarryTheirFilesMeshInTheFrameOfTheirInstance) {
  vrtest::TempDir dir;
  const std::string tetra = vrtest::writeTetra(dir);
  // The frames, from the instance transforms of a first conversion.
  std::map<std::string, std::vector<double>> frames;
  {
    vrtest::ArchiveScene scene(tetra);
    auto& converter = *static_cast<VrGeometryRenderer*>(scene.description->addObject("GeometryRenderer"));
    converter.setAttr("outputInstances", "true", "bool");
    ASSERT_TRUE(VrRenderDescription(converter, 2));
    for (const VrGeometryRenderer::Instance& instance : converter.instances())
      frames[instance.name].assign(instance.matrix, instance.matrix + 16);
  }
  ASSERT_GT(frames.size(), 10u);
  for (const std::string& file : {tetra, dir.write("garbage.abc", "not an archive")}) {
    SCOPED_TRACE(file);
    const bool readable = file == tetra;
    vrtest::ArchiveScene scene(file);
    auto& converter = *static_cast<VrGeometryRenderer*>(scene.description->addObject("GeometryRenderer"));
    converter.setAttr("combineMesh", "false", "bool");
    vrtest::CaptureLogger log;
    ASSERT_TRUE(VrRenderDescription(converter, 2));
    ASSERT_EQ(converter.meshes().size(), frames.size());
    for (const VrGeometryRenderer::Mesh& mesh : converter.meshes()) {
      ASSERT_EQ(frames.count(mesh.name), 1u) << mesh.name;
      const double* m = frames[mesh.name].data();
      // Each point of the file at origin + x X + y Y + z Z; the faces still turn outwards.
      EXPECT_GT(signedVolume(mesh.data), 0.0);
      if (!readable) {
        EXPECT_EQ(mesh.data.numFaces(), 6u);  // the box
        continue;
      }
      ASSERT_EQ(mesh.data.numPoints(), 4u);
      ASSERT_EQ(mesh.data.numFaces(), 4u);
      for (size_t i = 0; i < 4; ++i) {
        const float* p = &vrtest::tetraPoints[3 * i];
        for (int k = 0; k < 3; ++k)
          EXPECT_NEAR(mesh.data.positions[3 * i + size_t(k)], m[k] * p[0] + m[4 + k] * p[1] + m[8 + k] * p[2] + m[12 + k], 1e-5);
      }
    }
    size_t told = 0;
    for (const std::string& warning : log.warnings()) told += warning.find("its archives are written as boxes") != std::string::npos;
    EXPECT_EQ(told, readable ? 0u : 1u);
  }
}
