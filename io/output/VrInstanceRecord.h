#pragma once
// VrInstanceRecord: what an export of instances writes for one primitive (the ".pmt" text and
// the particles of the promote and particle back ends, and the instance outputs of a render). The instance
// frame comes from the primitive's first four CVs: P0 the base point, P1 the end of the up
// vector, P2 the end of the aim vector measured from the middle of P0-P1, CV 3 the end of the
// third axis measured from the same middle. Free functions, safe from any thread.

#include "geometry/SgVec3T.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

class VrObject;

struct VrInstanceRecord {
  SgVec3T<double> position;  ///< P0
  SgVec3T<double> up;        ///< unit P1 - P0, zero below 1e-6
  SgVec3T<double> aim;       ///< unit P2 - (P1 - P0) / 2 - P0, zero below 1e-6
  SgVec3T<double> scale;     ///< twice the aim length, |P1 - P0|, twice the length of the third axis
  unsigned id = 0;           ///< the primitive's id on its face
  unsigned descId = 0;       ///< the description's id
  std::int64_t randInt = 0;  ///< `randIntInternal` at the location
  double randFloat = 0.0;    ///< `randFloatInternal` at the location
  int archiveIndex = -1;     ///< `VrArchiveSlotInUse`
  double u = 0.0;
  double v = 0.0;            ///< 1 - v on a NURBS patch
  int faceId = 0;
  unsigned geomId = 0;       ///< the patch's number among its description's patches
};

/// Fills position, up, aim and scale from the CVs; false, the record untouched, with fewer than
/// four CVs.
bool VrInstanceFrame(const std::vector<SgVec3T<double>>& cvs, VrInstanceRecord& record);

/// Fills position, up, aim and scale from a placement: the position and the axes an instance's
/// own x (aim), y (up) and z map to; the scale is the three axes' lengths.
void VrInstancePlacement(const SgVec3T<double>& position, const SgVec3T<double>& xAxis,
                         const SgVec3T<double>& yAxis, const SgVec3T<double>& zAxis, VrInstanceRecord& record);

/// The level-of-detail slot an archive primitive places: 2 when its `hiIndex` is in use, else 1
/// for `medIndex`, else 0 for `loIndex`, else -1. A slot is in use when its attribute's text,
/// stripped, is neither empty nor begins with '#'.
int VrArchiveSlotInUse(const VrObject& primitive);

/// The ".pmt" header: thirteen comment lines naming the record's lines, then one empty line.
void VrWriteInstanceHeader(std::ostream& out);
/// The text of one ".pmt" record, appended to `out`; the C locale's numbers whatever the process's.
void VrAppendInstanceRecord(std::string& out, const VrInstanceRecord& record);
/// One ".pmt" record: thirteen lines in the header's order (vectors as three numbers separated by
/// one blank), then one empty line. Real numbers are fixed with 16 decimals; the stream's format
/// is restored afterwards.
void VrWriteInstanceRecord(std::ostream& out, const VrInstanceRecord& record);
