#include "base/VrConfig.h"
#include "base/VrProfiler.h"
#include "base/VrService.h"
#include "base/VrTaskManager.h"

#include "support/CaptureLogger.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>


TEST(VrConfig, LoadsKeysSkipsCommentsAndReportsUnknownTokens) {
  vrtest::TempDir dir;
  const std::string path = dir.write("config.txt",
                                     "# a comment line GlobalRepo /wrong/\n"
                                     "GlobalRepo /data/global/ # trailing comment\n"
                                     "UserRepo /data/user/\n"
                                     "Bogus value here\n"
                                     "FlipParam ON\n"
                                     "PromoteFunction");  // last key, no newline: not read
  VrConfig& config = VrConfig::state();
  const unsigned saved = VRWarningLevel;
  {
    VRWarningLevel = 2;
    vrtest::CaptureLogger log;
    EXPECT_FALSE(config.loadConfig(path, false));
    EXPECT_EQ(log.warnings(), std::vector<std::string>{"Unrecognized token: Bogus in config file " + path});
    EXPECT_EQ(log.messages[0].flags, vrmsg::Warning | 2);
  }
  EXPECT_EQ(config.globalRepo(), "/data/global/");
  EXPECT_EQ(config.userRepo(), "/data/user/");
  EXPECT_TRUE(config.flipParam());
  EXPECT_EQ(config.promoteFunc(), "");
  {
    VRWarningLevel = 1;
    vrtest::CaptureLogger log;
    EXPECT_FALSE(config.loadConfig(path, false));
    EXPECT_TRUE(log.messages.empty());  // the warning is level 2
  }
  VRWarningLevel = saved;

  const std::string clean = dir.write("clean.txt", "LocalRepo /data/local/\nFlipParam 0\n");
  EXPECT_TRUE(config.loadConfig(clean, false));
  EXPECT_EQ(config.localRepo(), "/data/local/");
  EXPECT_FALSE(config.flipParam());
}

TEST(VrConfig, MissingFiles) {
  vrtest::TempDir dir;
  VrConfig& config = VrConfig::state();
  {
    vrtest::CaptureLogger log;
    EXPECT_FALSE(config.loadConfig(dir.file("nothere/config.txt"), false));
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Failed to open config file: " +
                                                     dir.file("nothere/config.txt")});
  }
  {
    vrtest::ScopedEnv home("HOME", dir.path().c_str());
    vrtest::CaptureLogger log;
    EXPECT_FALSE(config.loadConfig("", true));  // "${HOME}/.vornrc" is optional
    EXPECT_TRUE(log.messages.empty());
  }
}

TEST(VrConfig, PrintConfigRespectsTheWarningLevel) {
  vrtest::CaptureLogger log;
  const unsigned saved = VRWarningLevel;
  VRWarningLevel = 0;
  VrConfig::state().printConfig(1);
  EXPECT_TRUE(log.messages.empty());
  VRWarningLevel = 1;
  VrConfig::state().printConfig(1);
  ASSERT_EQ(log.messages.size(), 6u);
  EXPECT_EQ(log.messages[0].text.rfind("Vorn: GlobalRepo       ", 0), 0u);
  EXPECT_EQ(log.messages[5].text.rfind("Vorn: FlipParam        ", 0), 0u);
  EXPECT_EQ(log.messages[5].flags, vrmsg::Warning | 1);
  VRWarningLevel = saved;
}

TEST(VrConfig, BrokenCustomModuleIsReportedAndSkipped) {
  vrtest::TempDir dir;
  dir.write("plugins/broken.so", "not a shared library");
  dir.write("plugins/readme.txt", "ignored");
  testing::internal::CaptureStderr();
  VrConfig::state().loadModules(dir.path() + "/");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("Vorn: Failed to load custom module " + dir.path() + "/plugins/broken.so: "), std::string::npos)
      << err;
  EXPECT_EQ(err.find("readme"), std::string::npos);
  VrConfig::state().loadModules(dir.file("no-such-repo/"));  // silently passed over
}

TEST(VrTaskManager, ThreadCountFromEnvironment) {
  {
    vrtest::ScopedEnv limit("VORN_THREAD_LIMIT", "3");
    EXPECT_EQ(VrTaskManager::threadCountFromEnvironment(), 3u);
  }
  {
    vrtest::ScopedEnv limit("VORN_THREAD_LIMIT", "0");
    EXPECT_EQ(VrTaskManager::threadCountFromEnvironment(), 0u);  // 0 stays 0
  }
  const size_t saved = VrTaskManager::threadCount();
  VrTaskManager::setThreadCount(0);  // unlike the environment, 0 means the hardware
  EXPECT_GE(VrTaskManager::threadCount(), 1u);
  VrTaskManager::setThreadCount(saved);
}

TEST(VrTaskManager, GrainSizeAndTextureCacheShares) {
  const size_t saved = VrTaskManager::threadCount();
  VrTaskManager::setThreadCount(4);
  EXPECT_EQ(VrTaskManager::taskGrainSize(0), 1u);
  EXPECT_EQ(VrTaskManager::taskGrainSize(4 * 16), 1u);
  EXPECT_EQ(VrTaskManager::taskGrainSize(4 * 16 + 1), 1u);
  EXPECT_EQ(VrTaskManager::taskGrainSize(4 * 32), 2u);
  EXPECT_EQ(VrTaskManager::taskGrainSize(1000), 15u);

  VrTaskManager::setPtexCacheSize(1000, false, 0.0f);
  EXPECT_EQ(VrTaskManager::ptexCacheSize(), 250u);
  VrTaskManager::setMultithreading(false);
  EXPECT_EQ(VrTaskManager::ptexCacheSize(), 1000u);
  VrTaskManager::setMultithreading(true);
  VrTaskManager::setPtexCacheSize(1000, true, 0.25f);  // 1000 + 250 * 3
  VrTaskManager::setMultithreading(false);
  EXPECT_EQ(VrTaskManager::ptexCacheSize(), 1750u);
  VrTaskManager::setMultithreading(true);
  VrTaskManager::setPtexCacheSize(0x1F400000, false, 0.0f);
  VrTaskManager::setThreadCount(saved);
}

TEST(VrServiceOfServices, RegistryOwnsItsServices) {
  struct Counted : VrService {
    explicit Counted(int& alive) : alive(alive) { ++alive; }
    ~Counted() override { --alive; }
    int& alive;
  };
  int alive = 0;
  auto& registry = VrServiceOfServices::theOne();
  EXPECT_FALSE(registry.registerService(42, nullptr));
  EXPECT_TRUE(registry.registerService(42, new Counted(alive)));
  EXPECT_FALSE(registry.registerService(42, new Counted(alive)));  // offered one destroyed
  EXPECT_EQ(alive, 1);
  EXPECT_TRUE(registry.exists(42));
  EXPECT_NE(registry.find<Counted>(42), nullptr);
  EXPECT_TRUE(registry.deregisterService(42));
  EXPECT_EQ(alive, 0);
  EXPECT_FALSE(registry.deregisterService(42));
}

namespace {
int lastBegin = -1, endedId = -1;
int beginHook(int category, int colour, const char*, const char* group) {
  lastBegin = category * 100 + colour + (std::string(group) == "Vorn" ? 1000 : 0);
  return 7;
}
void endHook(int id) { endedId = id; }
}  // namespace

TEST(VrProfiler, ScopeCallsHostHooks) {
  lastBegin = endedId = -1;
  { vrutil::VrProfileScope scope("no hooks"); }
  EXPECT_EQ(endedId, -1);
  vrutil::VrProfiler::eventBeginFunc = beginHook;
  vrutil::VrProfiler::eventEndFunc = endHook;
  vrutil::VrProfiler::sVornCategory = 3;
  { vrutil::VrProfileScope scope("VrPrimitive::finishDescription"); }
  EXPECT_EQ(lastBegin, 1309);
  EXPECT_EQ(endedId, 7);
  vrutil::VrProfiler::eventBeginFunc = nullptr;
  vrutil::VrProfiler::eventEndFunc = nullptr;
  vrutil::VrProfiler::sVornCategory = -1;

  long long counter = 0;
  std::string text = "took ";
  vrutil::beginTiming(counter);
  vrutil::endTiming(counter, text);
  EXPECT_TRUE(text.rfind("took 0.0", 0) == 0 && text.find(" seconds") != std::string::npos) << text;
}
