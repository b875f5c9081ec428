// The Ptex reader against dumps made with the format's reference library, and `vorn inspect`
// choosing the reader by a file's contents.

#include "io/AlembicTestSupport.h"
#include "io/PtexTestSupport.h"
#include "io/ptex/VrPtexTexture.h"
#include "support/CaptureLogger.h"
#include "support/RunCommand.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

using vrtest::readText;

TEST(PtexReference, EveryShippedTextureDumpsLikeTheReferenceLibrary) {
  vrtest::CaptureLogger log;
  const std::vector<std::string> files = vrtest::ptexFiles();
  ASSERT_EQ(files.size(), 8u);
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    VrPtexDump::Result result;
    const std::vector<std::string> got = vrtest::ptexComparedLines(vrtest::ptexDump(file, &result));
    const std::vector<std::string> expected = vrtest::ptexComparedLines(readText(file + ".ref.txt"));
    EXPECT_EQ(result, VrPtexDump::Result::Ok);
    EXPECT_TRUE(got == expected) << vrtest::firstDifference(got, expected);
  }
  EXPECT_TRUE(log.errors().empty());
}

TEST(PtexReference, MissingAndForeignFilesAreRefusedWithTheirName) {
  vrtest::CaptureLogger log;
  std::string error;
  EXPECT_FALSE(VrPtexTexture::open(vrtest::ptexData("no-such.ptx"), error));
  EXPECT_EQ(error, "no-such.ptx: cannot open the file");
  EXPECT_FALSE(VrPtexTexture::open(vrtest::ptexData("tri_quad.ptx.ref.txt"), error));
  EXPECT_EQ(error, "tri_quad.ptx.ref.txt: not a Ptex texture file (no Ptex header)");
  // The dump says so too.
  VrPtexDump::Result result;
  const std::string dump = vrtest::ptexDump(vrtest::ptexData("no-such.ptx"), &result);
  EXPECT_EQ(result, VrPtexDump::Result::Refused);
  EXPECT_NE(dump.find("open: error\nopen_error: no-such.ptx: cannot open the file\nexit_status: 1\n"), std::string::npos);
  EXPECT_EQ(log.errors().size(), 1u);
}

TEST(PtexReference, InspectChoosesTheReaderByTheFileContents) {
  // A texture under an Alembic name and an archive under a texture name.
  vrtest::TempDir dir;
  const std::string texture = dir.write("map.abc", readText(vrtest::ptexData("tri_quad.ptx")));
  const std::string archive =
      dir.write("cube.ptx", readText(vrtest::alembicData("valid/cube.abc")));
  const auto ptex = vrtest::runCommand(vrtest::vornCli() + " inspect " + texture + " 2>&1");
  EXPECT_EQ(ptex.exitCode, 0);
  EXPECT_EQ(ptex.output.rfind("format: ptex-ref-v1\nfile: map.abc\nopen: ok\n", 0), 0u) << ptex.output;
  EXPECT_NE(ptex.output.find("\ntexel_sum_all_faces: 32.8235314 31.2235312 32.7098058\n"), std::string::npos);
  const auto abc = vrtest::runCommand(vrtest::vornCli() + " inspect " + archive + " 2>&1");
  EXPECT_EQ(abc.exitCode, 0);
  EXPECT_EQ(abc.output.rfind("format: alembic-ref-v1\n", 0), 0u) << abc.output.substr(0, 200);
}
