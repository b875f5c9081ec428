#include "io/output/VrInstanceRecord.h"

#include "base/VrObject.h"
#include "base/vrutilString.h"

#include <charconv>
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

void VrInstancePlacement(const SgVec3T<double>& position, const SgVec3T<double>& xAxis,
                         const SgVec3T<double>& yAxis, const SgVec3T<double>& zAxis, VrInstanceRecord& record) {
  double x = 0.0, y = 0.0, z = 0.0;
  record.position = position;
  record.aim = unitOf(xAxis, x);
  record.up = unitOf(yAxis, y);
  unitOf(zAxis, z);
  record.scale = SgVec3T<double>(x, y, z);
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
  // Fixed notation with 16 decimals, as a stream set to fixed and precision 16 writes it, made
  // without the stream or the locale (and much faster than printf's exact digits).
  // The largest double in fixed notation with 16 decimals takes 327 characters.
  char text[400];
  auto real = [&](double value, char after) {
    char* at = std::to_chars(text, text + sizeof text - 1, value, std::chars_format::fixed, 16).ptr;
    *at++ = after;
    out.append(text, at);
  };
  auto whole = [&](long long value) {
    char* at = std::to_chars(text, text + sizeof text - 1, value).ptr;
    *at++ = '\n';
    out.append(text, at);
  };
  for (const SgVec3T<double>* v : {&record.position, &record.up, &record.aim, &record.scale}) {
    real(v->x, ' ');
    real(v->y, ' ');
    real(v->z, '\n');
  }
  whole(record.id);
  whole(record.descId);
  whole(record.randInt);
  real(record.randFloat, '\n');
  whole(record.archiveIndex);
  real(record.u, '\n');
  real(record.v, '\n');
  whole(record.faceId);
  whole(record.geomId);
  out += '\n';
}

void VrWriteInstanceRecord(std::ostream& out, const VrInstanceRecord& record) {
  std::string text;
  VrAppendInstanceRecord(text, record);
  out << text;
}
