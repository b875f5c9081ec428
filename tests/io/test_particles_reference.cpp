// The particle readers against dumps made with the formats' reference library, and the texts
// of refused files.

#include "io/AlembicTestSupport.h"
#include "io/particles/VrParticleDump.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

std::string particleData(const std::string& name) { return std::string(VORN_TEST_DATA_DIR) + "/particles/" + name; }

// The compared lines: no blank lines and nothing about the reference's process or its tool.
std::vector<std::string> comparedLines(const std::string& dump) {
  std::vector<std::string> lines;
  std::istringstream in(dump);
  std::string line;
  while (std::getline(in, line))
    if (!line.empty() && line.rfind("exit_status", 0) != 0 && line.rfind("partinfo", 0) != 0 && line.rfind("| ", 0) != 0 && line != "|")
      lines.push_back(line);
  return lines;
}

std::string dump(const std::string& path, bool* ok = nullptr, VrParticleFormat format = VrParticleFormat::Unknown) {
  std::ostringstream out;
  const bool read = VrParticleDump::write(path, out, format);
  if (ok) *ok = read;
  return out.str();
}

}  // namespace

TEST(ParticleReference, EveryShippedFileDumpsLikeTheReferenceLibrary) {
  for (const char* name : {"base.bgeo", "scatter.bgeo", "test.bgeo", "test.geo", "test.pdb"}) {
    SCOPED_TRACE(name);
    std::string expected = vrtest::readText(particleData(name) + ".ref.txt");
    // test.pdb's reference first fails with a 64-bit guess; its second block reads the 32-bit layout.
    expected = expected.substr(expected.rfind("format: partio-ref-v1"));
    bool ok = false;
    const std::vector<std::string> got = comparedLines(dump(particleData(name), &ok));
    const std::vector<std::string> want = comparedLines(expected);
    EXPECT_TRUE(ok);
    EXPECT_TRUE(got == want) << vrtest::firstDifference(got, want);
  }
}

TEST(ParticleReference, RefusedFilesSayWhy) {
  vrtest::TempDir dir;
  const std::string pdb = vrtest::readText(particleData("test.pdb"));
  const std::string bgeo = vrtest::readText(particleData("test.bgeo"));
  const struct {
    std::string name, bytes, message;
  } cases[] = {
      {"long.pdb", pdb + std::string(8, '\0'), "long.pdb: 8 bytes after the last channel: not the 32-bit PDB layout"},
      {"short.pdb", pdb.substr(0, 200), "short.pdb: 10 channels announced, more than the file can hold"},
      {"plain.pdb", "PGEOMETRY V5", "plain.pdb: not a PDB particle file (shorter than its header)"},
      {"v4.bgeo", bgeo.substr(0, 8) + '\4' + bgeo.substr(9), "v4.bgeo: version 4; only version 5 is read"},
      {"huge.bgeo", bgeo.substr(0, 9) + "\x7f\xff\xff\xff" + bgeo.substr(13), "huge.bgeo: 2147483647 points of 28 bytes announced, 191 bytes left"},
      {"new.bgeo", "\x7fNSJ" + bgeo, "new.bgeo: a binary Houdini geometry file of the newer (JSON) kind; only the classic version 5 layout is read"},
      {"bad.bgeo.gz", std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10) + "garbage", "bad.bgeo.gz: damaged gzip data (invalid block type)"},
      {"bad.geo", "PGEOMETRY V5\nNPoints 2 NPrims 0\nNPointGroups 0 NPrimGroups 0\nNPointAttrib 0 NVertexAttrib 0 NPrimAttrib 0 NAttrib 0\n1 2 3 1\n1 2 x 1\n",
       "bad.geo: bad or missing values of point 1"},
      {"points.txt", "1 2 3", "points.txt: not a particle file of a known kind (.bgeo, .bgeo.gz, .geo, .pdb)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    VrParticleSet set;
    std::string error;
    EXPECT_FALSE(VrReadParticles(dir.write(c.name, c.bytes), set, &error));
    EXPECT_EQ(error, c.message);
  }
  // The dump carries the reason and stops there.
  bool ok = true;
  EXPECT_EQ(dump(dir.file("long.pdb"), &ok),
            "format: partio-ref-v1\nfile: long.pdb\nreader: pdb32 (forced)\nread: error\n"
            "read_messages: long.pdb: 8 bytes after the last channel: not the 32-bit PDB layout\n");
  EXPECT_FALSE(ok);
}
