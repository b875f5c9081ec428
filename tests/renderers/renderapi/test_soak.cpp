// The plug-in's long night in short (scripts/soak.sh runs 500 frames): 20 frames of the head
// example through fresh PatchRenderers with motion blur on 2 threads, every frame equal to the
// same frame rendered alone by a fresh process on 1 thread.

#include "support/RunCommand.h"

#include <gtest/gtest.h>

TEST(RenderAPISoak, TwentyFramesEachEqualToAFreshSingleFrameRender) {
  const vrtest::CommandResult run =
      vrtest::runCommand(std::string(VORN_SOAK_PATH) + " --frames 20 --threads 2 --density 300");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  EXPECT_NE(run.output.find("ok: 0 frame(s) failed"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("frame 10: VmHWM"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("frame 20: VmHWM"), std::string::npos) << run.output;
}
