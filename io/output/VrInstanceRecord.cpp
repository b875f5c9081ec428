#include "io/output/VrInstanceRecord.h"

#include "base/VrObject.h"
#include "base/vrutilString.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <string>

namespace {

// Unit copy (a correctly rounded division) and the length before; below 1e-6 the zero vector.
SgVec3T<double> unitOf(const SgVec3T<double>& v, double& length) {
  length = v.length();
  return length < 1e-6 ? SgVec3T<double>() : v / length;
}


}  // namespace

bool VrInstanceFrame(const std::vector<SgVec3T<double>>& cvs, VrInstanceRecord& record) {
  if (cvs.size() < 4) return false;
  const SgVec3T<double>& p0 = cvs[0];
  const SgVec3T<double> d = cvs[1] - p0;
  const SgVec3T<double> middle = p0 + d * 0.5;
  double upLength = 0.0, aimLength = 0.0, sideLength = 0.0;
  record.position = p0;
  record.up = unitOf(d, upLength);
  record.aim = unitOf(cvs[2] - middle, aimLength);
  unitOf(cvs[3] - middle, sideLength);
  record.scale = SgVec3T<double>(2.0 * aimLength, d.length(), 2.0 * sideLength);
  return true;
}

int VrArchiveSlotInUse(const VrObject& primitive) {
  static const std::pair<const char*, int> slots[] = {{"hiIndex", 2}, {"medIndex", 1}, {"loIndex", 0}};
  for (const auto& slot : slots) {
    std::string text;
    if (!primitive.getAttr(slot.first, text)) continue;
    text = vrutil::stripWhitespace(text);
    if (!text.empty() && text[0] != '#') return slot.second;
  }
  return -1;
}

void VrWriteInstanceHeader(std::ostream& out) {
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

void VrAppendInstanceRecord(std::string& out, const VrInstanceRecord& record) {
  // "%.16f" is what a stream in fixed notation with precision 16 writes, without its cost. A
  // host may have set a locale with a decimal comma; the record has no other commas.
  const size_t start = out.size();
  char text[512];
  const SgVec3T<double>* vectors[] = {&record.position, &record.up, &record.aim, &record.scale};
  for (const SgVec3T<double>* v : vectors) {
    std::snprintf(text, sizeof text, "%.16f %.16f %.16f\n", v->x, v->y, v->z);
    out += text;
  }
  std::snprintf(text, sizeof text, "%u\n%u\n%lld\n%.16f\n%d\n%.16f\n%.16f\n%d\n%u\n\n", record.id, record.descId,
                static_cast<long long>(record.randInt), record.randFloat, record.archiveIndex, record.u, record.v,
                record.faceId, record.geomId);
  out += text;
  std::replace(out.begin() + static_cast<std::ptrdiff_t>(start), out.end(), ',', '.');
}

void VrWriteInstanceRecord(std::ostream& out, const VrInstanceRecord& record) {
  std::string text;
  VrAppendInstanceRecord(text, record);
  out << text;
}
