#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "base/vrutilPath.h"
#include "support/CaptureLogger.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

using namespace vrutil;

namespace {

using std::filesystem::is_directory;

const std::string kNoEntry = " (Part of path doesn't exist)";

}  // namespace

TEST(VrutilPath, ValidPathAddsOneSlashUnlessTheTextEndsInASeparatorOrBrace) {
  EXPECT_EQ(validPath("${DESC}"), "${DESC}");
  EXPECT_EQ(validPath("  /data/maps \n"), "/data/maps/");
  EXPECT_EQ(validPath("/data/"), "/data/");
  EXPECT_EQ(validPath("C:\\data\\"), "C:\\data\\");
  EXPECT_EQ(validPath(""), "");
  EXPECT_EQ(validPath(" \t "), "");

  for (const char* dir : {"/data/", " C:\\data\\ "}) EXPECT_TRUE(validDirPath(dir)) << dir;
  for (const char* other : {"/data", "${DESC}", "  "}) EXPECT_FALSE(validDirPath(other)) << other;
}

TEST(VrutilPath, IsAbsolutePathIgnoresASingleLeadingSlashOnLongerTexts) {
  for (const char* yes : {"C:\\maps", "c:/maps", "\\\\server\\share", "//server/share", "/a", "/"})
    EXPECT_TRUE(isAbsolutePath(yes)) << yes;
  for (const char* no : {"/usr/maps", "C:maps", "maps/a.ptx", "ab", "a", ""})
    EXPECT_FALSE(isAbsolutePath(no)) << no;
}

TEST(VrutilPath, FileCleanupExpandsEscapesAndCollapses) {
  vrtest::ScopedEnv home("HOME", "/a/b");
  vrtest::ScopedEnv missing("VORN_TEST_UNSET_VARIABLE", nullptr);
  vrtest::ScopedEnv empty("VORN_TEST_EMPTY_VARIABLE", "");

  struct Case {
    const char* in;
    const char* out;
    bool ok;
  };
  const Case cases[] = {
      {"\\$HOME", "$HOME", true},
      {"$HOME/../x", "/a/x", true},
      {"${HOME}/maps", "/a/b/maps", true},
      {"$HOME.ptx", "/a/b.ptx", true},
      {"$HOME", "/a/b", true},
      {"x${VORN_TEST_EMPTY_VARIABLE}y", "xy", true},
      {"/p/${VORN_TEST_UNSET_VARIABLE}/q", "/p//q", false},
      {"$VORN_TEST_UNSET_VARIABLE/q", "/q", false},
      {"cost $/x", "cost $/x", true},
      {"end$", "end$", true},
      {"a/b/../c", "a/c", true},
      {"/r/a/b/../../c", "/r/c", true},
      {"/../x", "/../x", true},
      {"/a/...b", "/a/...b", true},
      {"\"/quoted/path\"", "/quoted/path", true},
      {"\"$HOME\"", "/a/b", true},
      {"C:\\maps\\a", "C:mapsa", true},
      {"open ${HOME", "open ${HOME", false},
  };
  for (const Case& c : cases) {
    std::string text = c.in;
    EXPECT_EQ(fileCleanup(text), c.ok) << c.in;
    EXPECT_EQ(text, c.out) << c.in;
  }

  std::string dir = "${HOME}/cache";
  EXPECT_TRUE(pathCleanup(dir));
  EXPECT_EQ(dir, "/a/b/cache/");
}

TEST(VrutilPath, RootIconAndVersion) {
  vrtest::CaptureLogger log;
  const std::string root = rootDir();
  // Without VORN_LOCATION the first call falls back to the temp directory and says so.
  if (!getenv("VORN_LOCATION") && !log.messages.empty()) {
    EXPECT_EQ(log.errors(), std::vector<std::string>{
                                "Can't find root of Vorn installation. Using temp directory" + root});
  }
  ASSERT_FALSE(root.empty());
  EXPECT_EQ(root.back(), '/');
  EXPECT_EQ(rootDir(), root);
  EXPECT_EQ(iconDir(), root + "icons/");

  EXPECT_EQ(versionOf("/opt/vorn_2.1/", "/tmp/"), "2.1");
  EXPECT_EQ(versionOf("/opt/vorn_2.1_beta/", "/tmp/"), "2.1_beta");
  EXPECT_EQ(versionOf("/tmp/", "/tmp/"), "NOT VERSIONED");
  EXPECT_EQ(versionOf("/home/u/projects/vorn_2.1/", "/tmp/"), "NOT VERSIONED");
  EXPECT_EQ(versionOf("/opt/vorn/", "/tmp/"), "NOT VERSIONED");
}

TEST(VrutilPath, MemUsageReadsThisProcess) { EXPECT_GT(memUsage(), 0u); }

TEST(VrutilPath, CreateDirMakesTheWholeChain) {
  vrtest::TempDir scratch;
  const std::string base = scratch.path();

  EXPECT_TRUE(createDir(base + "/a/b/c/file.vpd", true));
  EXPECT_TRUE(is_directory(base + "/a/b/c"));
  EXPECT_FALSE(std::filesystem::exists(base + "/a/b/c/file.vpd"));

  EXPECT_TRUE(createDir(base + "/d/e", false));
  EXPECT_TRUE(is_directory(base + "/d/e"));
  EXPECT_TRUE(createDir(base + "/d/e", false));  // already there
  EXPECT_TRUE(createDir("file.vpd", true));      // no directory part

  std::ofstream(base + "/plainfile") << "x";
  vrtest::CaptureLogger log;
  EXPECT_FALSE(createDir(base + "/plainfile/sub", false));
  EXPECT_EQ(log.errors(), (std::vector<std::string>{"Failed to create directory: " + base +
                                                    "/plainfile/sub\n( system = \"Not a directory\")"}));
}

TEST(VrutilPath, FilepathExistsNamesTheReason) {
  vrtest::TempDir scratch;
  const std::string file = scratch.write("present.ptx", "x");

  std::string tried = "before";
  EXPECT_TRUE(filepathExists(file, tried));
  EXPECT_TRUE(filepathExists(scratch.path(), tried));
  EXPECT_EQ(tried, "before");

  tried.clear();
  EXPECT_FALSE(filepathExists(scratch.path() + "/absent.ptx", tried));
  EXPECT_EQ(tried, scratch.path() + "/absent.ptx" + kNoEntry);
  EXPECT_FALSE(filepathExists(file + "/inner.ptx", tried));
  EXPECT_EQ(tried, scratch.path() + "/absent.ptx" + kNoEntry + file + "/inner.ptx" +
                       " (Part of path prefix is not a directory)");

  tried.clear();
  const std::string longName(5000, 'n');
  EXPECT_FALSE(filepathExists(longName, tried));
  EXPECT_EQ(tried, longName + " (Name too long)");

  EXPECT_EQ(convertPathSeperateToWindows("/a/b\\c"), "/a/b\\c");
}
