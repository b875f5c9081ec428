#include "renderers/VrArchiveFrame.h"

#include "geometry/SgBox3T.h"
#include "primitives/VrArchivePrimitive.h"

namespace {

double sizeOf(const VrArchivePrimitive* archive) {
  return archive && archive->archiveSize() > 0.0 ? archive->archiveSize() : 1.0;
}

}  // namespace

bool VrArchiveFrame::set(const VrArchivePrimitive* archive, const std::vector<SgVec3T<double>>& cvs) {
  if (cvs.size() < 4) return false;
  const double size = sizeOf(archive);
  const SgVec3T<double> mid = (cvs[0] + cvs[1]) * 0.5;
  origin = cvs[0];
  axes[0] = (cvs[2] - mid) * (2.0 / size);
  axes[1] = (cvs[1] - cvs[0]) * (1.0 / size);
  axes[2] = (cvs[3] - mid) * (2.0 / size);
  return true;
}

void VrArchiveFrame::box(const VrArchivePrimitive* archive, const VrPrimitiveContext& context, bool unitCube,
                         SgVec3T<double>& corner, SgVec3T<double> edges[3]) const {
  const double size = sizeOf(archive);
  SgBox3T<double> box;
  if (unitCube || !archive || !archive->archiveBox(context, box) || !box.valid)
    box = SgBox3T<double>(SgVec3T<double>(-0.5 * size, 0.0, -0.5 * size), SgVec3T<double>(size, size, size));
  corner = origin + axes[0] * box.min.x + axes[1] * box.min.y + axes[2] * box.min.z;
  edges[0] = axes[0] * box.size.x;
  edges[1] = axes[1] * box.size.y;
  edges[2] = axes[2] * box.size.z;
}

void VrArchiveFrame::matrix(double out[16]) const {
  for (int row = 0; row < 3; ++row) {
    for (int k = 0; k < 3; ++k) out[4 * row + k] = axes[row][k];
    out[4 * row + 3] = 0.0;
  }
  for (int k = 0; k < 3; ++k) out[12 + k] = origin[k];
  out[15] = 1.0;
}
