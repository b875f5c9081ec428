#include "base/VrMessage.h"

#include "support/CaptureLogger.h"
#include "support/TextPattern.h"

#include <gtest/gtest.h>
#include <tbb/parallel_for.h>

#include <set>
#include <string>


using vrutil::VrMessage;

TEST(VrMessage, ShellLineFormats) {
  const char esc = '\x1b';
  const std::string reset = std::string(1, esc) + "[0m\n";
  EXPECT_EQ(VrMessage::formatLine(vrmsg::Error, "", 0, "boom", "12:34:56"),
            std::string(1, esc) + "[31m12:34:56 Vorn Error:       boom  " + reset);
  EXPECT_EQ(VrMessage::formatLine(vrmsg::Warning | 2, "a/b/c", 12, "careful", "01:02:03"),
            std::string(1, esc) + "[33m01:02:03 Vorn Warning(2):  careful  (c:12)" + reset);
  EXPECT_EQ(VrMessage::formatLine(vrmsg::Stats | 1, "file.cpp", 0, "n", "00:00:00"),
            std::string(1, esc) + "[34m00:00:00 Vorn Stats(1):    n  (file.cpp:0)" + reset);
  EXPECT_EQ(VrMessage::formatLine(vrmsg::Debug | vrmsg::CatFile | 5, "", 0, "d", "00:00:00"),
            std::string(1, esc) + "[32m00:00:00 Vorn Debug(5):    d  " + reset);
  EXPECT_EQ(VrMessage::formatLine(0x20000000, "", 0, "h", "00:00:00"),
            std::string(1, esc) + "00:00:00 Vorn Helph  " + reset);
  EXPECT_EQ(VrMessage::formatLine(vrmsg::Warning | 2, "a/b/c", 12, "careful", "01:02:03", false),
            "01:02:03 Vorn Warning(2):  careful  (c:12)\n");
}

TEST(VrMessage, ShellLoggerWritesTimeStampedLineToStandardError) {
  ASSERT_LE(vrutil::msg::numLoggers(), 1u);
  testing::internal::CaptureStderr();
  vrmessage(vrmsg::Warning | 1, "dir/x.cpp", 7, "hello");
  const std::string out = testing::internal::GetCapturedStderr();
  // The time checked by shape; no colour, as standard error is no terminal here.
  EXPECT_TRUE(
      vrtest::matchesPattern(out, "[0-9]{2}:[0-9]{2}:[0-9]{2} Vorn Warning\\(1\\):  hello  \\(x\\.cpp:7\\)\n"))
      << out;
}

TEST(VrMessage, HostLoggerGetsEachMessageOnceAndSilencesShell) {
  vrtest::CaptureLogger host("host");
  vrtest::CaptureLogger duplicate("host");  // same name: refused silently
  testing::internal::CaptureStderr();
  EXPECT_EQ(vrmessage(vrmsg::Error, "", 0, "one"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_EQ(host.messages.size(), 1u);
  EXPECT_EQ(host.messages[0].text, "one");
  EXPECT_EQ(duplicate.messages.size(), 0u);
}

TEST(VrMessage, MessagesFromManyThreadsReachTheLoggerOneAtATime) {
  vrtest::CaptureLogger host("host");
  tbb::parallel_for(0, 2000, [](int i) { vrmessage(vrmsg::Warning, "", 0, std::to_string(i)); });
  std::set<std::string> texts;
  for (const auto& m : host.messages) texts.insert(m.text);
  EXPECT_EQ(host.messages.size(), 2000u);
  EXPECT_EQ(texts.size(), 2000u);
}

TEST(VrMessage, QtLoggerIsReplaced) {
  vrtest::CaptureLogger first("qt");
  {
    vrtest::CaptureLogger second("qt");
    vrmessage(vrmsg::Error, "", 0, "to second");
    EXPECT_EQ(first.messages.size(), 0u);
    EXPECT_EQ(second.messages.size(), 1u);
  }
}

TEST(VrMessage, CallSiteGatesAndFilter) {
  vrtest::CaptureLogger log;
  const unsigned savedWarning = VRWarningLevel, savedDebug = VRDebugLevel,
                 savedFilter = VRMessageFilter;
  int built = 0;
  auto text = [&built] {
    ++built;
    return std::string("t");
  };
  VRWarningLevel = 1;
  VR_WARNING(2, text());
  VR_WARNING(1, text());
  VRDebugLevel = 0;
  VR_DEBUG(1, vrmsg::CatFile, text());
  EXPECT_EQ(built, 1);  // suppressed messages never build their text
  VRDebugLevel = 3;
  VRMessageFilter = vrmsg::CatPatch;
  VR_DEBUG(1, vrmsg::CatFile, text());   // filtered out
  VR_DEBUG(1, vrmsg::CatPatch, text());  // passes
  EXPECT_EQ(log.messages.size(), 2u);
  EXPECT_EQ(log.messages.back().flags, vrmsg::Debug | vrmsg::CatPatch | 1);
  VRWarningLevel = savedWarning;
  VRDebugLevel = savedDebug;
  VRMessageFilter = savedFilter;
}

TEST(VrMessageDeathTest, QuitOnErrorEndsTheProcessAfterItsText) {
  EXPECT_EXIT(
      {
        vrutil::msg::clearLogger();
        VRQuitOnError = true;
        vrmessage(vrmsg::Error, "", 0, "fatal");
      },
      testing::ExitedWithCode(255), "fatal.*\n(.|\n)*Vorn set to quit on error. Bye.\n\n$");
}
