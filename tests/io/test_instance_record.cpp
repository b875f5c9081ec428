// The instance frame of a primitive from its first CVs, and its `.pmt` text, against values
// worked out by hand.

#include "io/output/VrInstanceRecord.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace {

struct FrameCase {
  const char* what;
  std::vector<SgVec3T<double>> cvs;
  SgVec3T<double> up, aim, scale;
};

TEST(VrInstanceRecord, FrameFollowsTheFirstFourCVs) {
  const FrameCase cases[] = {
      // up axis (0,2,0) from (1,2,3); its middle (1,3,3); aim point 3 along x; depth point 2 along z.
      {"full frame", {{1, 2, 3}, {1, 4, 3}, {4, 3, 3}, {1, 3, 5}}, {0, 1, 0}, {1, 0, 0}, {6, 2, 4}},
      // the aim point on the middle of the up axis: no aim, no aim scale.
      {"aim at the middle", {{0, 0, 0}, {0, 0, 2}, {0, 0, 1}, {0, 3, 1}}, {0, 0, 1}, {0, 0, 0}, {0, 2, 6}},
      // two CVs: the missing ones stand at the base point, half an up axis away from the middle.
      {"two CVs", {{0, 0, 0}, {4, 0, 0}}, {1, 0, 0}, {-1, 0, 0}, {4, 4, 4}},
      {"no CVs", {}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}},
  };
  for (const FrameCase& c : cases) {
    SCOPED_TRACE(c.what);
    VrInstanceRecord record;
    record.setFrame(c.cvs.data(), c.cvs.size());
    const SgVec3T<double>* got[] = {&record.up, &record.aim, &record.scale};
    const SgVec3T<double>* want[] = {&c.up, &c.aim, &c.scale};
    for (int k = 0; k < 3; ++k) {
      EXPECT_NEAR(got[k]->x, want[k]->x, 1e-12) << k;
      EXPECT_NEAR(got[k]->y, want[k]->y, 1e-12) << k;
      EXPECT_NEAR(got[k]->z, want[k]->z, 1e-12) << k;
    }
  }
}

TEST(VrInstanceRecord, PmtTextHasTheHeaderAndThirteenLinesPerRecord) {
  VrInstanceRecord record;
  const SgVec3T<double> cvs[] = {{1, 2, 3}, {1, 4, 3}, {4, 3, 3}, {1, 3, 5}};
  record.setFrame(cvs, 4);
  record.id = 7;
  record.descriptionId = 2;
  record.randomInt = 65535;
  record.randomFloat = 0.25;
  record.u = 0.5;
  record.v = 0.125;
  record.faceId = 11;
  record.geomId = 3;
  std::ostringstream out;
  VrPmtText::writeHeader(out);
  VrPmtText::writeRecord(out, record);
  EXPECT_EQ(out.str(),
            "# px py pz (position)\n# ux uy uz (up vec)\n# ax ay az (aim vec)\n# sx sy sz (scale)\n# id_VP\n"
            "# descid_VP\n# ri_VP\n# rf_VP\n# index_VP\n# u_VS\n# v_VS\n# faceid_VS\n# geomid_VS\n\n"
            "1.0000000000000000 2.0000000000000000 3.0000000000000000\n"
            "0.0000000000000000 1.0000000000000000 0.0000000000000000\n"
            "1.0000000000000000 0.0000000000000000 0.0000000000000000\n"
            "6.0000000000000000 2.0000000000000000 4.0000000000000000\n"
            "7\n2\n65535\n0.2500000000000000\n-1\n0.5000000000000000\n0.1250000000000000\n11\n3\n\n");
}

}  // namespace
