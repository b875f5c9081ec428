#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/VrConfig.h"
#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "base/vrutilPath.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "support/CaptureLogger.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

using namespace vrutil;

namespace {

using std::filesystem::is_directory;

void touch(const std::string& path) { std::ofstream(path) << "x"; }

const std::string kIndent(17, ' ');

}  // namespace

class VrutilFiles : public testing::Test {
 protected:
  void SetUp() override {
    first = base + "/first/";
    second = base + "/second/";
    std::filesystem::create_directories(first);
    std::filesystem::create_directories(second);
    touch(base + "/plainfile");

    palette = new VrPalette;
    palette->setAttr("name", "ns:vrutilShot");
    description = new VrDescription;
    palette->addDescription(description);
    description->setAttr("name", "hairDesc");
    palette->setAttr("vrDataPath", base + "/first;" + base + "/plainfile;" + base + "/second");
    clearFileCache();
  }

  void TearDown() override {
    delete palette;
    clearFileCache();
  }

  // The attempt lines the two repositories add to a failed search for `name`.
  std::string repositoryLines(const std::string& name) const {
    std::string lines;
    for (const std::string& repo : {VrConfig::state().userRepo(), VrConfig::state().globalRepo()}) {
      if (repo.empty()) continue;
      lines += "\n" + kIndent + validPath(expandMacros(repo, "", description)) + name +
               " (Part of path doesn't exist)";
    }
    return lines;
  }

  vrtest::ScopedEnv home{"HOME", "/home/tester"};
  vrtest::ScopedEnv unset{"VORN_TEST_UNSET_VARIABLE", nullptr};
  vrtest::ScopedEnv frame{"FRAME", nullptr};
  vrtest::TempDir scratch;
  std::string base = scratch.path(), first, second;
  VrPalette* palette = nullptr;
  VrDescription* description = nullptr;
};

TEST_F(VrutilFiles, ExpandMacrosWithDescription) {
  EXPECT_EQ(description->name(), "ns:hairDesc");
  EXPECT_EQ(expandMacros("${DESC}", "", description), "hairDesc");
  EXPECT_EQ(expandMacros("${NS}", "", description), "ns:");
  EXPECT_EQ(expandMacros("${HOME}/${DESC}/${FRAME}.ptx", "", description), "/home/tester/hairDesc/${FRAME}.ptx");
  // A missing variable empties its place; "${FRAME}" still survives.
  EXPECT_EQ(expandMacros("${VORN_TEST_UNSET_VARIABLE}maps/${FRAME}.ptx", "", description), "maps/${FRAME}.ptx");
  EXPECT_EQ(expandMacros("\\$HOME/x", "", description), "$HOME/x");
  EXPECT_EQ(expandMacros("maps/$g_${DESC}.ptx", "ns:pPlane1", description), "maps/pPlane1_hairDesc.ptx");
  EXPECT_EQ(expandMacros("/a/${DESC}/../b", "", description), "/a/b");
  EXPECT_EQ(expandMacros("${FXMODULE}_guides.abc", "", description, "Clump1"), "Clump1_guides.abc");
  palette->setAttr("vrProjectPath", "/projA/");
  EXPECT_EQ(expandMacros("\"${PROJECT}cache\"", "", description), "/projA/cache");
  EXPECT_EQ(expandInputMapName("\"${DESC}.ptx\"", description, "Clump1"), "hairDesc.ptx");
}

TEST_F(VrutilFiles, FindFileSearchesTheDataPathInOrderAndCaches) {
  vrtest::CaptureLogger log;
  std::string found;
  touch(second + "density.ptx");
  EXPECT_TRUE(findFileInVrDataPath(found, "density.ptx", "", description));
  EXPECT_EQ(found, second + "density.ptx");

  // The cached answer stands until the cache is cleared.
  touch(first + "density.ptx");
  EXPECT_TRUE(findFileInVrDataPath(found, "density.ptx", "", description));
  EXPECT_EQ(found, second + "density.ptx");
  clearFileCache();
  EXPECT_TRUE(findFileInVrDataPath(found, "density.ptx", "", description));
  EXPECT_EQ(found, first + "density.ptx");

  touch(first + "hairDesc_pPlane1.ptx");
  EXPECT_TRUE(findFileInVrDataPath(found, "${DESC}_$g.ptx", "ns:pPlane1", description));
  EXPECT_EQ(found, first + "hairDesc_pPlane1.ptx");

  std::string untouched = "untouched";
  EXPECT_FALSE(findFileInVrDataPath(untouched, "density.ptx", "", nullptr));
  EXPECT_EQ(untouched, "untouched");
  EXPECT_TRUE(log.messages.empty());
}

TEST_F(VrutilFiles, CacheMessagesAtDebugLevelFour) {
  const unsigned oldLevel = VRDebugLevel;
  const unsigned oldFilter = VRMessageFilter;
  VRDebugLevel = 4;
  VRMessageFilter = vrmsg::FilterAll;
  vrtest::CaptureLogger log;
  touch(first + "cached.ptx");
  std::string found;
  EXPECT_TRUE(findFileInVrDataPath(found, "cached.ptx", "", description));
  log.clear();
  EXPECT_TRUE(findFileInVrDataPath(found, "cached.ptx", "", description));
  clearFileCache();
  VRDebugLevel = oldLevel;
  VRMessageFilter = oldFilter;

  ASSERT_EQ(log.messages.size(), 2u);
  EXPECT_EQ(log.messages[0].text, "Found file " + first + "cached.ptx in File cache");
  EXPECT_EQ(log.messages[0].flags, vrmsg::Debug | vrmsg::CatExpression | 4u);
  EXPECT_EQ(log.messages[1].text, "clearing _files");
  EXPECT_EQ(log.messages[1].flags, vrmsg::Debug | vrmsg::CatExpression | 4u);
}

TEST_F(VrutilFiles, ConcurrentCacheServesExpressionMultithreading) {
  struct Restore {
    bool old = VrTaskManager::seExprMultithreading();
    ~Restore() { VrTaskManager::setSeExprMultithreading(old); }
  } restore;
  VrTaskManager::setSeExprMultithreading(true);
  vrtest::CaptureLogger log;
  std::string found;
  EXPECT_FALSE(findFileInVrDataPath(found, "late.ptx", "", description));
  EXPECT_EQ(log.errors().size(), 2u);
  touch(first + "late.ptx");
  EXPECT_FALSE(findFileInVrDataPath(found, "late.ptx", "", description));
  EXPECT_EQ(log.errors().size(), 2u);
  clearFileCache();
  EXPECT_TRUE(findFileInVrDataPath(found, "late.ptx", "", description));
  EXPECT_EQ(found, first + "late.ptx");
}

TEST_F(VrutilFiles, ResolveFallsBackToTheFirstDataDirectory) {
  vrtest::CaptureLogger log;
  touch(second + "there.ptx");
  EXPECT_EQ(resolveFileInVrDataPath("there.ptx", "", description), second + "there.ptx");
  EXPECT_TRUE(log.errors().empty());

  EXPECT_EQ(resolveFileInVrDataPath("${DESC}/gone.ptx", "", description), first + "hairDesc/gone.ptx");
  EXPECT_EQ(log.errors().size(), 2u);
  EXPECT_EQ(log.errors()[0], "Failed to find hairDesc/gone.ptx");

  EXPECT_EQ(resolveFileInVrDataPath("//nowhere/gone.ptx", "", description), "//nowhere/gone.ptx");
  EXPECT_EQ(resolveFileInVrDataPath("${HOME}/x.ptx", "", nullptr), "/home/tester/x.ptx");
}

TEST_F(VrutilFiles, ExpandOutputFileNameMakesDirectories) {
  std::string text = "${DESC}/cache/$g.vpd";
  EXPECT_TRUE(expandOutputFileName(text, "ns:pPlane1", description, "", true));
  EXPECT_EQ(text, first + "hairDesc/cache/pPlane1.vpd");
  EXPECT_TRUE(is_directory(first + "hairDesc/cache"));
  EXPECT_FALSE(std::filesystem::exists(text));

  text = "bake/${DESC}/";
  EXPECT_TRUE(expandOutputFileName(text, "", description, "", true));
  EXPECT_EQ(text, first + "bake/hairDesc/");
  EXPECT_TRUE(is_directory(first + "bake/hairDesc"));

  text = "plan/out.vpd";
  EXPECT_TRUE(expandOutputFileName(text, "", description, "", false));
  EXPECT_EQ(text, first + "plan/out.vpd");
  EXPECT_FALSE(std::filesystem::exists(first + "plan"));

  text = "${DESC}.vpd";
  EXPECT_FALSE(expandOutputFileName(text, "", nullptr, "", true));
  EXPECT_EQ(text, "${DESC}.vpd");

  vrtest::CaptureLogger log;
  palette->setAttr("vrDataPath", base + "/plainfile");
  text = "sub/out.vpd";
  EXPECT_FALSE(expandOutputFileName(text, "", description, "", true));
  EXPECT_EQ(text, "sub/out.vpd");
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Failed to create directory: " + base +
                                                   "/plainfile/sub\n( system = \"Not a directory\")"});
}

TEST_F(VrutilFiles, ExpandFilepathFindsTheDescriptionByName) {
  vrtest::CaptureLogger log;
  EXPECT_EQ(expandFilepath("\"${DESC}\\maps\"", "ns:hairDesc", true, true), first + "hairDesc/maps/");
  EXPECT_TRUE(is_directory(first + "hairDesc/maps"));
  EXPECT_EQ(expandFilepath(" ${DESC}.vpd ", "ns:hairDesc", false, false, "", ""), first + "hairDesc.vpd");
  EXPECT_TRUE(log.errors().empty());

  EXPECT_EQ(expandFilepath("out/${DESC}", "noSuchDescription", true, true), "out/${DESC}");
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Could not find Vorn collection: [noSuchDescription]"});
}
