#include "io/output/VrInstanceRecord.h"

#include "renderers/BakeScene.h"
#include "renderers/VrGuideRenderer.h"
#include "renderers/VrOrmRenderer.h"
#include "renderers/VrParticleRenderer.h"
#include "renderers/VrPromoteRenderer.h"
#include "renderers/VrRenderDescription.h"

#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "support/CaptureLogger.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

namespace {

std::vector<std::string> linesOf(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

size_t culledCount(const VrPatch& patch) {
  size_t n = 0;
  for (const auto& face : patch.culledPrims()) n += face.second.size();
  return n;
}

// Expects the numbers of a line of text; `any` matches every number.
void expectNumbers(const std::string& line, const std::vector<double>& expected) {
  std::istringstream in(line);
  std::vector<double> got;
  for (double x; in >> x;) got.push_back(x);
  ASSERT_EQ(got.size(), expected.size()) << line;
  for (size_t i = 0; i < got.size(); ++i)
    if (!std::isnan(expected[i])) {
      EXPECT_NEAR(got[i], expected[i], 1e-12) << line;
    }
}

// Every built primitive has the frame of vrtest::FramePrimitive on the plane z = 0: up along N
// with |d| = 2, aim along U at 0.25 and the third axis along V at 0.75.
const double any = std::nan("");

}  // namespace

TEST(VrInstanceRecord, FrameAndTextFromHandComputedValues) {
  // d = (0, 0, 2), middle (1, 2, 4); aim (3, 0, 4) of length 5; third axis of length 0.5.
  const std::vector<SgVec3T<double>> cvs = {{1, 2, 3}, {1, 2, 5}, {4, 2, 8}, {1, 2.5, 4}};
  VrInstanceRecord r;
  ASSERT_TRUE(VrInstanceFrame(cvs, r));
  r.id = 7;
  r.descId = 3;
  r.randInt = 4242;
  r.randFloat = 0.25;
  r.archiveIndex = 2;
  r.u = 0.5;
  r.v = 0.125;
  r.faceId = 4;
  r.geomId = 1;
  std::ostringstream out;
  out.precision(3);
  VrWriteInstanceHeader(out);
  VrWriteInstanceRecord(out, r);
  out << 0.123456;  // the stream's own format comes back
  EXPECT_EQ(out.str(),
            "# px py pz (position)\n# ux uy uz (up vec)\n# ax ay az (aim vec)\n# sx sy sz (scale)\n# id_VP\n"
            "# descid_VP\n# ri_VP\n# rf_VP\n# index_VP\n# u_VS\n# v_VS\n# faceid_VS\n# geomid_VS\n\n"
            "1.0000000000000000 2.0000000000000000 3.0000000000000000\n"
            "0.0000000000000000 0.0000000000000000 1.0000000000000000\n"
            "0.6000000000000000 0.0000000000000000 0.8000000000000000\n"
            "10.0000000000000000 2.0000000000000000 1.0000000000000000\n"
            "7\n3\n4242\n0.2500000000000000\n2\n0.5000000000000000\n0.1250000000000000\n4\n1\n\n0.123");

  // An aim point at the middle of P0-P1 has no direction; fewer than four CVs make no frame.
  ASSERT_TRUE(VrInstanceFrame({{0, 0, 0}, {0, 2, 0}, {0, 1, 0}, {0, 1, 0}}, r));
  EXPECT_EQ(r.aim, SgVec3T<double>());
  EXPECT_EQ(r.scale, SgVec3T<double>(0, 2, 0));
  EXPECT_FALSE(VrInstanceFrame({{9, 9, 9}, {9, 9, 9}, {9, 9, 9}}, r));
  EXPECT_EQ(r.position, SgVec3T<double>());
}

TEST(VrPromoteRenderer, OneRecordPerArchiveAndEachIsCulled) {
  vrtest::TempDir dir;
  vrtest::ScopedEnv tmp("TMP", dir.path().c_str());
  vrtest::BakeScene scene("PromoteRenderer");
  auto& promote = scene.renderer<VrPromoteRenderer>();
  scene.primitive().setAttr("hiIndex", "# none");
  scene.primitive().setAttr("medIndex", "$aIndex*$aMul + 1 + 3");
  ASSERT_TRUE(VrRenderDescription(promote));
  EXPECT_FALSE(promote.failed());
  EXPECT_EQ(promote.outputPath(), dir.path() + "/fur.pmt");
  const std::vector<std::string> lines = linesOf(promote.outputPath());
  const size_t n = promote.totalEmitCount();
  ASSERT_GT(n, 20u);
  ASSERT_EQ(lines.size(), 14u + 14u * n);
  for (size_t at = 14; at < lines.size(); at += 14) {
    expectNumbers(lines[at], {any, any, 0.0});
    expectNumbers(lines[at + 1], {0.0, 0.0, 1.0});
    expectNumbers(lines[at + 2], {1.0, 0.0, 0.0});
    expectNumbers(lines[at + 3], {0.5, 2.0, 1.5});
    EXPECT_EQ(lines[at + 8], "1");  // the medium slot
    EXPECT_EQ(lines[at + 13], "");
  }
  // What was exported is culled in its patch: a second render exports nothing.
  EXPECT_EQ(culledCount(*scene.description->patch("skin")), n);
  ASSERT_TRUE(VrRenderDescription(promote));
  EXPECT_EQ(promote.totalEmitCount(), 0u);
  EXPECT_EQ(linesOf(promote.outputPath()).size(), 14u);

  // Other kinds are refused once, and the render stops there.
  scene.description->patch("skin")->cullReset();
  for (const auto& c : std::vector<std::pair<std::string, std::string>>{
           {"SplinePrimitive", "Spline primitive not yet supported by PromoteRenderer."},
           {"Widget", "Unsupported primitive type: Widget"}}) {
    scene.primitive().kind = c.first;
    vrtest::CaptureLogger log;
    ASSERT_TRUE(VrRenderDescription(promote));
    EXPECT_TRUE(promote.failed());
    EXPECT_EQ(log.errors(), std::vector<std::string>{c.second});
    EXPECT_EQ(culledCount(*scene.description->patch("skin")), 0u);
  }
}

TEST(VrParticleRenderer, MaskChoosesWhatBecomesAParticle) {
  vrtest::TempDir dir;
  vrtest::BakeScene scene("ParticleRenderer");
  auto& particles = scene.renderer<VrParticleRenderer>();
  scene.palette->setAttr("vrDataPath", dir.path());
  particles.setAttr("particleFile", "fur.pdb");

  vrtest::CaptureLogger log;  // the file is written where the library can write particle files
  // The default mask keeps nothing.
  particles.initDescription();
  particles.render(0, "skin");
  EXPECT_EQ(particles.particles().numParticles(), 0u);
  EXPECT_EQ(particles.emitCount(), 0);
  EXPECT_EQ(culledCount(*scene.description->patch("skin")), 0u);
  particles.finishDescription();

  particles.setAttr("mask", "1.0");
  particles.initDescription();
  particles.render(0, "skin");
  const VrParticleSet& set = particles.particles();
  ASSERT_GT(set.numParticles(), 10u);
  EXPECT_EQ(set.numParticles(), static_cast<size_t>(particles.emitCount()));
  EXPECT_EQ(culledCount(*scene.description->patch("skin")), set.numParticles());
  ASSERT_EQ(set.numAttributes(), 13u);
  const VrParticleAttribute& scale = set.attribute(static_cast<size_t>(set.findAttribute("scale")));
  EXPECT_NEAR(scale.floats[0], 0.5f, 1e-6f);
  EXPECT_NEAR(scale.floats[1], 2.0f, 1e-6f);
  EXPECT_NEAR(scale.floats[2], 1.5f, 1e-6f);
  EXPECT_EQ(set.attribute(static_cast<size_t>(set.findAttribute("index_VP"))).ints[0], -1);
  particles.finishDescription();
}

TEST(VrOrmRenderer, OneCommandPerPrimitiveUnderTheDumpGroup) {
  vrtest::TempDir dir;
  vrtest::BakeScene scene("OrmRenderer");
  auto& orm = scene.renderer<VrOrmRenderer>();
  scene.palette->setAttr("vrDataPath", dir.path());
  ASSERT_TRUE(VrRenderDescription(orm));
  std::vector<std::string> lines = linesOf(orm.outputPath());
  ASSERT_EQ(lines.size(), 4u + orm.totalEmitCount());
  EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 3),
            (std::vector<std::string>{"orm 1", "group furDump", "import archive"}));
  EXPECT_EQ(lines.back(), "end");
  // Rows aim * 0.5, up * 2, (aim x up) * 1.5, then the root.
  ASSERT_EQ(lines[3].rfind("instance 0 ", 0), 0u) << lines[3];
  expectNumbers(lines[3].substr(9), {0, any, 0.5, 0, 0, 0, 0, 0, 2, 0, 0, -1.5, 0, 0, any, any, 0, 1});

  scene.primitive().kind = "Widget";
  vrtest::CaptureLogger log;
  ASSERT_TRUE(VrRenderDescription(orm));
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Unsupported primitive type: Widget"});
  EXPECT_EQ(linesOf(orm.outputPath()), (std::vector<std::string>{"orm 1", "group furDump", "end"}));
}

// A guide takes the primitive's CVs as offsets from its root in the frame (U, N, V); with applyFX
// off the stack is off for the render and back on after it.
TEST(VrGuideRenderer, GuidesTakeThePrimitivesCVs) {
  vrtest::BakeScene scene("GuideRenderer");
  auto& guides = scene.renderer<VrGuideRenderer>();
  VrFXModule* module = scene.primitive().addFXModule("SnapshotFXModule");
  ASSERT_NE(module, nullptr);
  guides.setAttr("applyFX", "false");
  ASSERT_TRUE(VrRenderDescription(guides, 2));
  EXPECT_TRUE(module->isActive());
  ASSERT_GT(scene.primitive().numGuides(), 20u);
  const std::vector<SgVec3T<double>> expected = {{0, 0, 0}, {0, 2, 0}, {0.25, 1, 0}, {0, 1, 0.75}};
  for (unsigned g = 0; g < scene.primitive().numGuides(); ++g) {
    const std::vector<SgVec3T<double>>& cvs = scene.primitive().guide(g).iOrigGuideGeom();
    ASSERT_EQ(cvs.size(), 4u);
    for (size_t i = 0; i < 4; ++i) EXPECT_NEAR((cvs[i] - expected[i]).length(), 0.0, 1e-9) << g << " " << i;
  }
}
