#pragma once
// VrInstanceRecord: what instancing tools need to place one primitive, and the `.pmt` text that
// lists such records. The frame comes from the primitive's first CVs: CV 0 is the base point,
// CV 1 the tip of the up axis, CV 2 the aim point and CV 3 the depth point, each of the last two
// measured from the middle of the up axis.

#include "geometry/SgVec3T.h"

#include <cstddef>
#include <cstdint>
#include <ostream>

struct VrInstanceRecord {
  SgVec3T<double> position;
  SgVec3T<double> up;     ///< unit vector from CV 0 to CV 1
  SgVec3T<double> aim;    ///< unit vector from the middle of the up axis to CV 2; zero when shorter than 1e-6
  SgVec3T<double> scale;  ///< twice the aim distance, the up length, twice the depth distance
  int id = 0;
  int descriptionId = 0;
  int64_t randomInt = 0;
  double randomFloat = 0.0;
  int index = -1;  ///< level-of-detail slot in use (0 high, 1 medium, 2 low), -1 none
  double u = 0.0;
  double v = 0.0;
  int faceId = 0;
  int geomId = 0;

  /// Fills position, up, aim and scale from the first CVs; missing CVs stand at CV 0.
  void setFrame(const SgVec3T<double>* cvs, size_t numCVs);
};

/// The `.pmt` text: a fixed header naming the thirteen fields, then one record of thirteen lines
/// per primitive, each record followed by a blank line. Numbers are fixed-point with 16 digits
/// after the point.
namespace VrPmtText {
/// Sets the stream's number format and writes the header with the blank line after it.
void writeHeader(std::ostream& out);
void writeRecord(std::ostream& out, const VrInstanceRecord& record);
}  // namespace VrPmtText
