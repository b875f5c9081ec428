#include "io/output/VrInstanceRecord.h"

#include <locale>

void VrInstanceRecord::setFrame(const SgVec3T<double>* cvs, size_t numCVs) {
  auto cv = [&](size_t i) { return numCVs == 0 ? SgVec3T<double>() : cvs[i < numCVs ? i : 0]; };
  const SgVec3T<double> base = cv(0);
  const SgVec3T<double> d = cv(1) - base;
  const SgVec3T<double> middle = base + d * 0.5;
  position = base;
  up = d;
  up.normalize();
  aim = cv(2) - middle;
  const double aimLength = aim.length();
  aim = aimLength < 1e-6 ? SgVec3T<double>() : aim / aimLength;
  scale = SgVec3T<double>(2.0 * aimLength, d.length(), 2.0 * (cv(3) - middle).length());
}

namespace VrPmtText {

namespace {
void putVector(std::ostream& out, const SgVec3T<double>& value) {
  out << value.x << ' ' << value.y << ' ' << value.z << '\n';
}
}  // namespace

void writeHeader(std::ostream& out) {
  out.imbue(std::locale::classic());
  out.setf(std::ios::fixed, std::ios::floatfield);
  out.precision(16);
  out << "# px py pz (position)\n"
         "# ux uy uz (up vec)\n"
         "# ax ay az (aim vec)\n"
         "# sx sy sz (scale)\n"
         "# id_VP\n"
         "# descid_VP\n"
         "# ri_VP\n"
         "# rf_VP\n"
         "# index_VP\n"
         "# u_VS\n"
         "# v_VS\n"
         "# faceid_VS\n"
         "# geomid_VS\n"
         "\n";
}

void writeRecord(std::ostream& out, const VrInstanceRecord& record) {
  putVector(out, record.position);
  putVector(out, record.up);
  putVector(out, record.aim);
  putVector(out, record.scale);
  out << record.id << '\n'
      << record.descriptionId << '\n'
      << record.randomInt << '\n'
      << record.randomFloat << '\n'
      << record.index << '\n'
      << record.u << '\n'
      << record.v << '\n'
      << record.faceId << '\n'
      << record.geomId << "\n\n";
}

}  // namespace VrPmtText
