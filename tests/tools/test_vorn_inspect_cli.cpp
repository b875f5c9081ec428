// `vorn inspect` on particle files and on point/primitive files: the dump on standard output,
// and exit status 1 with an "error: ..." line for a refused or damaged file.

#include "io/vpd/VpdWriter.h"
#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

using vrtest::ran;
using vrtest::ranWith;

TEST(VornInspect, ParticleFilesByMagicAndName) {
  vrtest::TempDir dir;
  const std::string data = std::string(VORN_TEST_DATA_DIR) + "/particles/";
  // Geometry text under a binary name is still read as text; its dump matches the reference.
  const std::string geo = dir.write("points.bgeo", vrtest::readText(data + "test.geo"));
  EXPECT_TRUE(ranWith(vrtest::vorn("inspect " + geo), 0,
                      "file: points.bgeo\nreader: auto (by file extension)\nread: ok\nread_messages: -\nnum_particles: 5\n"));
  EXPECT_TRUE(ranWith(vrtest::vorn("inspect " + data + "test.pdb"), 0, "reader: pdb32 (forced)\nread: ok\n"));
  const std::string cut = dir.write("cut.pdb", vrtest::readText(data + "test.pdb").substr(0, 1000));
  EXPECT_TRUE(ranWith(vrtest::vorn("inspect " + cut), 1, "error: cut.pdb: channel 'pstate' needs 52 bytes, 29 are left"));
}

TEST(VornInspect, PointFileSummary) {
  vrtest::TempDir dir;
  const std::string path = dir.file("points.vuv");
  auto writer = VpdWriter::open(path, {7, 9}, Vpd::PointPrimitive, 1, Vpd::WorldSpace, {"Location"}, 2.5f, 1, {"width"});
  ASSERT_TRUE(writer);
  ASSERT_TRUE(writer->startFace(7) && writer->startBlock(0));
  for (uint32_t id = 1; id <= 4; ++id) ASSERT_TRUE(writer->writePrim(id, {0.25f * id, 0.5f, 1, 2, 3}));
  ASSERT_TRUE(writer->close());
  EXPECT_TRUE(ran(vrtest::vorn("inspect " + path), 0,
                  "format: vpd-summary-v1\nfile: points.vuv\nopen: ok\nversion: 1.0\nprim_type: 0 PointPrimitive\n"
                  "cv_count: 1\ncoord_space: 0 WorldSpace\ntime: 2.5\nattr_version: 1\nnum_face_ids: 2\nnum_blocks: 1\n"
                  "block[0]: Location\nnum_keys: 1\nkey[0]: id=0 name=width\nnum_faces_with_records: 1\n"
                  "face[0]: id=7 Location=4\n"
                  "record: face=7 block=Location id=1 u=0.25 v=0.5 values=1,2,3\n"
                  "record: face=7 block=Location id=2 u=0.5 v=0.5 values=1,2,3\n"
                  "record: face=7 block=Location id=3 u=0.75 v=0.5 values=1,2,3\nend: ok\n"));
  const std::string bytes = vrtest::readText(path);
  const std::string cut = dir.write("cut.vpd", bytes.substr(0, bytes.size() - 5));
  EXPECT_TRUE(ranWith(vrtest::vorn("inspect " + cut), 1, "error: Truncated Vorn point/primitive file: " + cut));
}
