#include "support/RunCommand.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

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
  EXPECT_NE(result.output.find("texture cache per thread: 524288000 bytes\n"), std::string::npos)
      << result.output;
}

TEST(VornCli, UsageErrorsExitWithTwo) {
  EXPECT_EQ(runCommand(vornCli()).exitCode, 2);
  EXPECT_EQ(runCommand(vornCli() + " no-such-command").exitCode, 2);
  const auto help = runCommand(vornCli() + " --help");
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.output.find("info"), std::string::npos);
}
