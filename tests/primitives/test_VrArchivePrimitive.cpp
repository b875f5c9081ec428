// The archive primitive: the archive list, the slot a location gets by distance and a renderer by
// pixel area, and the reports of missing files and keys outside the list.

#include "primitives/VrArchivePrimitive.h"

#include "renderers/VrRenderer.h"
#include "support/CaptureLogger.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// The description's active primitive is an archive, so that expressions read its context.
struct Scene : vrtest::PatchScene {
  Scene() : PatchScene(vrtest::gridSurface(4)) {
    EXPECT_TRUE(description->setActive("ArchivePrimitive"));
    archivePtr = dynamic_cast<VrArchivePrimitive*>(description->activePrimitive());
  }
  // Makes the primitive at the middle of face 5 and answers its context.
  const VrArchivePrimitiveContext& make() {
    archive().context().setActivePatchFace(patch, 5);
    archive().makeGeometry(0.5, 0.5, nullptr);
    return static_cast<const VrArchivePrimitiveContext&>(archive().context());
  }
  VrArchivePrimitive& archive() { return *archivePtr; }
  VrArchivePrimitive* archivePtr = nullptr;
};

// Files that exist, so that the list resolves them: two groups of six levels.
std::string twoGroups(const vrtest::TempDir& dir) {
  std::string text;
  for (int group = 0; group < 2; ++group) {
    text += "#ArchiveGroup " + std::to_string(group) + " name=\"g " + std::to_string(group) + "\"\\n";
    for (int level = 0; level < 6; ++level)
      text += std::to_string(level) + " " + dir.write("g" + std::to_string(group) + std::to_string(level) + ".abc", "") +
              "\\n";
  }
  return text;
}

}  // namespace

TEST(VrArchivePrimitive, ListLinesGiveKeysGroupsAndEntries) {
  struct Row {
    const char* what;
    const char* text;
    std::vector<int> keys;
    unsigned groups;
    const char* error;  // "" for none
  };
  const Row rows[] = {
      {"a file line before any group is group 0", "1 a.abc\\n#ArchiveGroup 2 name=x\\n3 b.abc", {1, 203}, 1, ""},
      {"comments and short group lines are passed over", "# note\\n#ArchiveGroup 4\\n0 a.abc", {0}, 0, ""},
      {"lines share a key", "#ArchiveGroup 1 name=x\\n0 a.abc\\n0 b.abc objects=p,q material=m", {100}, 1, ""},
      {"a file line needs a file", "#ArchiveGroup 1 name=x\\n7", {}, 1, "Error in the archive file list, this line is not understood: 7"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Scene scene;
    vrtest::CaptureLogger log;
    ASSERT_TRUE(scene.archive().setAttr("files", row.text, "string"));
    std::vector<int> keys;
    for (const auto& entry : scene.archive().archiveFiles().entries()) keys.push_back(entry.first);
    EXPECT_EQ(keys, row.keys);
    EXPECT_EQ(scene.archive().archiveFiles().groupCount(), row.groups);
    std::string count;
    scene.archive().getAttr("aCount", count);
    EXPECT_EQ(count, std::to_string(row.groups));
    const std::vector<std::string> errors = log.errors();
    EXPECT_EQ(errors.empty() ? std::string() : errors[0], row.error);
  }
  Scene scene;
  scene.archive().setAttr("files", "#ArchiveGroup 1 name=\"big rocks\" color=[1,0,0]\\n0 a.abc objects=p,q", "string");
  EXPECT_EQ(scene.archive().archiveFiles().groupName(1), "big rocks");
  EXPECT_EQ(scene.archive().objectNamesOfLod(100, 0), (std::vector<std::string>{"p", "q"}));
  EXPECT_TRUE(scene.archive().hasAttr("archive__aColor[1]"));
  // Renumbering the group moves its attribute; the old number's goes.
  scene.archive().setAttr("files", "#ArchiveGroup 3 name=\"big rocks\"\\n0 a.abc", "string");
  EXPECT_FALSE(scene.archive().hasAttr("archive__aColor[1]"));
  EXPECT_TRUE(scene.archive().hasAttr("archive__aColor[3]"));

  // The archives' size is the largest side of the last file that could be read, not the
  // largest of all: the example's high pebble is 0.913 across, its low slab 0.9.
  const std::string rocks = std::string(VORN_SOURCE_DIR) + "/examples/archives/";
  scene.archive().setAttr("files", "0 " + rocks + "pebble_hi.abc\\n1 " + rocks + "slab_lo.abc\\n2 none.abc", "string");
  EXPECT_NEAR(scene.archive().setArchiveSize(), 0.9, 1e-6);
  std::string size;
  scene.archive().getAttr("archiveSize", size);
  EXPECT_NEAR(std::stod(size), 0.9, 1e-6);
}

TEST(VrArchivePrimitive, MissingFilesAndKeysOutsideTheListAreReportedOnce) {
  vrtest::TempDir dir;
  Scene scene;
  vrtest::CaptureLogger log;
  scene.archive().setAttr("files", "#ArchiveGroup 0 name=a\\n3 " + dir.file("absent.abc"), "string");
  scene.archive().initDescription();
  ASSERT_EQ(log.errors().size(), 1u);
  EXPECT_NE(log.errors()[0].find("absent.abc (group 0, level 3) was not found"), std::string::npos);
  EXPECT_EQ(scene.archive().fileNameOfLod(3, 0, true), "");

  // Group 5 has no files: every slot's key is outside the list; the pass still makes frames.
  scene.archive().setAttr("files", twoGroups(dir), "string");
  scene.archive().setAttr("aIndex", "5", "expr");
  scene.archive().setAttr("loIndex", "# none", "expr");
  scene.archive().initDescription();
  log.messages.clear();
  for (int i = 0; i < 3; ++i) {
    const VrArchivePrimitiveContext& context = scene.make();
    EXPECT_FALSE(context.cullPrim());
    EXPECT_EQ(context.slotKeys, (std::array<int32_t, 4>{{-1, -1, -1, -1}}));
  }
  EXPECT_TRUE(log.errors().empty());
  scene.archive().finishDescription();
  EXPECT_EQ(log.errors(), (std::vector<std::string>{"Invalid medIndex given: 504", "Invalid hiIndex given: 503",
                                                     "Invalid proxyIndex given: 500"}));

  // An empty list: reported when the pass begins, and every primitive is culled.
  log.messages.clear();
  scene.archive().setAttr("files", "", "string");
  scene.archive().initDescription();
  EXPECT_EQ(log.errors(), (std::vector<std::string>{"Archive files list is empty."}));
  EXPECT_TRUE(scene.make().cullPrim());
}

// The default aLOD picks the proxy level by the camera's distance: above 30 the low one (2),
// above 10 the medium one (1), else the high one (0). The location stands at (0.5, 0.5, 0) of the
// grid's face 5; the camera straight above it.
TEST(VrArchivePrimitive, ProxySlotFollowsTheCameraDistance) {
  vrtest::TempDir dir;
  Scene scene;
  ASSERT_TRUE(scene.description->setActive("NullRenderer"));
  scene.archive().setAttr("files", twoGroups(dir), "string");
  scene.archive().setAttr("aIndex", "1", "expr");
  scene.archive().initDescription();
  const SgXform3T<double> before = VrRenderer::camInverseXform();
  const SgVec3T<double> P = [&] { return scene.make().cGeom()[0]; }();
  const struct {
    double height;
    int proxy;
  } rows[] = {{5.0, 100}, {9.999, 100}, {10.001, 101}, {29.999, 101}, {30.001, 102}, {400.0, 102}};
  for (const auto& row : rows) {
    SgXform3T<double> worldToCamera;
    worldToCamera.setTranslation(-(P + SgVec3T<double>(0.0, 0.0, row.height)));
    VrRenderer::setCamInverseXform(worldToCamera);
    const VrArchivePrimitiveContext& context = scene.make();
    EXPECT_EQ(context.slotKeys[VrArchivePrimitive::Proxy], row.proxy) << row.height;
    // The renderer's slots are the group's levels 3, 4 and 5 wherever the camera is.
    EXPECT_EQ(context.slotKeys[VrArchivePrimitive::High], 103);
    EXPECT_EQ(context.slotKeys[VrArchivePrimitive::Low], 105);
    EXPECT_EQ(scene.archive().fileName(VrArchivePrimitive::Proxy, 0, false, context),
              "g1" + std::to_string(row.proxy - 100));
  }
  VrRenderer::setCamInverseXform(before);
  scene.archive().finishDescription();
}

// The default ranges: low 0..2500, medium 10000..40000, high 62500..160000. Between two ranges
// the nearer one shows; the midpoints are 6250 and 51250.
TEST(VrArchivePrimitive, RendererSlotFollowsThePixelAreaBounds) {
  using S = VrArchivePrimitive;
  const struct {
    const char* off;  // a slot switched off, or ""
    double area;
    int slot;
  } rows[] = {
      {"", 0, S::Low},          {"", 2500, S::Low},        {"", 6250, S::Low},     {"", 6251, S::Medium},
      {"", 10000, S::Medium},   {"", 40000, S::Medium},    {"", 51250, S::Medium}, {"", 51251, S::High},
      {"", 62500, S::High},     {"", 160000, S::High},     {"", 1e9, S::High},     {"hiIndex", 1e9, S::Medium},
      {"hiIndex", 62500, S::Medium}, {"loIndex", 0, S::Medium}, {"medIndex", 30000, S::Low},
      {"medIndex", 32501, S::High},
  };
  for (const auto& row : rows) {
    Scene scene;
    if (*row.off) scene.archive().setAttr(row.off, "#", "expr");
    scene.archive().initDescription();
    EXPECT_EQ(scene.archive().slotForPixelArea(row.area), row.slot) << row.off << " " << row.area;
  }
  Scene scene;
  scene.archive().setAttr("lodMedLower", "20000", "int");
  EXPECT_EQ(scene.archive().pixelRange(S::Medium).lower, 20000u);
  EXPECT_EQ(scene.archive().slotForPixelArea(11250), S::Low);
  EXPECT_EQ(scene.archive().slotForPixelArea(11251), S::Medium);
}
