#include "base/VrVersion.h"
#include "support/CliExpect.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>

using vrtest::ranWith;
using vrtest::runCommand;
using vrtest::vornCli;

TEST(VornCli, InfoReportsThreadsConfigurationAndModules) {
  vrtest::TempDir dir;
  dir.write("cfg/config.txt", "GlobalRepo /studio/vorn/\nUserRepo ${HOME}/mine\n");
  const auto result = runCommand("VORN_THREAD_LIMIT=3 VORN_CONFIG_PATH=" + dir.file("cfg") +
                                 " HOME=" + dir.path() + " " + vornCli() + " info");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_NE(result.output.find("threads: 3\n"), std::string::npos) << result.output;
  EXPECT_NE(result.output.find("global repository: /studio/vorn/\n"), std::string::npos);
  EXPECT_NE(result.output.find("user repository: " + dir.path() + "/mine/\n"), std::string::npos);
  EXPECT_NE(result.output.find("  RandomGenerator\n"), std::string::npos);
  EXPECT_EQ(result.output.find("SculptRenderer"), std::string::npos);
}

TEST(VornCli, ZeroThreadLimitStaysZeroAndNothingDividesByIt) {
  const auto result = runCommand("VORN_THREAD_LIMIT=0 " + vornCli() + " info");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_NE(result.output.find("threads: 0\n"), std::string::npos) << result.output;
  EXPECT_NE(result.output.find("texture cache per thread: 524288000 bytes\n"), std::string::npos) << result.output;
}

TEST(VornCli, UsageErrorsExitWithTwo) {
  EXPECT_EQ(runCommand(vornCli()).exitCode, 2);
  EXPECT_EQ(runCommand(vornCli() + " no-such-command").exitCode, 2);
  EXPECT_TRUE(ranWith(runCommand(vornCli() + " --help"), 0, "info"));
}

TEST(VornCli, VersionNamesTheReleaseAndTheRevision) {
  const bool checkout = std::filesystem::exists(std::string(VORN_SOURCE_DIR) + "/.git");
  for (const char* command : {" --version", " info"}) {
    const auto result = runCommand(vornCli() + command);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output.rfind("vorn " + std::string(vornLibraryVersion()) + (checkout ? " (git " : ""), 0), 0u)
        << result.output;
    EXPECT_EQ(result.output.find("NOT VERSIONED"), std::string::npos) << result.output;
  }
}

TEST(VornCli, ColourOnlyOnATerminalAndNeverWithNoColor) {
  vrtest::TempDir dir;
  const std::string broken = dir.write("broken.vorn", "garbage\nPalette\n");
  const std::string check = vornCli() + " check " + vrtest::shellWord(broken);
  const auto piped = runCommand(check);
  EXPECT_EQ(piped.exitCode, 1);
  EXPECT_NE(piped.output.find("Unrecognized token: garbage"), std::string::npos) << piped.output;
  EXPECT_EQ(piped.output.find('\x1b'), std::string::npos) << piped.output;
  if (runCommand("command -v script").exitCode != 0) GTEST_SKIP() << "no script(1) to give the command a terminal";
  const std::string onTerminal = "script -qec " + vrtest::shellWord(check) + " /dev/null";
  EXPECT_NE(runCommand(onTerminal).output.find('\x1b'), std::string::npos);
  EXPECT_EQ(runCommand("NO_COLOR=1 " + onTerminal).output.find('\x1b'), std::string::npos);
}
