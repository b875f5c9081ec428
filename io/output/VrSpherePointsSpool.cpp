#include "io/output/VrSpherePointsSpool.h"

#include "geometry/SgVec3T.h"
#include "io/alembic/VrAbcPointsWriter.h"

#include <cmath>

namespace {

using Vec = SgVec3T<double>;
Vec at(const float* p, int i) { return Vec(p[3 * i], p[3 * i + 1], p[3 * i + 2]); }

// The unit quaternion (r, x, y, z) of the rotation whose matrix has the columns X, Y, Z.
void quaternionOf(const Vec& X, const Vec& Y, const Vec& Z, double q[4]) {
  const double trace = X.x + Y.y + Z.z;
  if (trace > 0.0) {
    const double s = 2.0 * std::sqrt(1.0 + trace);
    q[0] = 0.25 * s;
    q[1] = (Y.z - Z.y) / s;
    q[2] = (Z.x - X.z) / s;
    q[3] = (X.y - Y.x) / s;
  } else if (X.x > Y.y && X.x > Z.z) {
    const double s = 2.0 * std::sqrt(1.0 + X.x - Y.y - Z.z);
    q[0] = (Y.z - Z.y) / s;
    q[1] = 0.25 * s;
    q[2] = (Y.x + X.y) / s;
    q[3] = (Z.x + X.z) / s;
  } else if (Y.y > Z.z) {
    const double s = 2.0 * std::sqrt(1.0 + Y.y - X.x - Z.z);
    q[0] = (Z.x - X.z) / s;
    q[1] = (Y.x + X.y) / s;
    q[2] = 0.25 * s;
    q[3] = (Z.y + Y.z) / s;
  } else {
    const double s = 2.0 * std::sqrt(1.0 + Z.z - X.x - Y.y);
    q[0] = (X.y - Y.x) / s;
    q[1] = (Z.x + X.z) / s;
    q[2] = (Z.y + Y.z) / s;
    q[3] = 0.25 * s;
  }
}

}  // namespace

void VrSpherePointsSpool::frame(const float* cp, float centre[3], float orient[4], float radii[3]) {
  const Vec root = at(cp, 0);
  const Vec axis = at(cp, 1) - root;
  const Vec mid = root + axis * 0.5;
  const Vec widthHandle = at(cp, 2) - mid;
  const Vec depthHandle = at(cp, 3) - mid;
  centre[0] = static_cast<float>(mid.x);
  centre[1] = static_cast<float>(mid.y);
  centre[2] = static_cast<float>(mid.z);
  radii[0] = static_cast<float>(widthHandle.length());
  radii[1] = static_cast<float>(0.5 * axis.length());
  radii[2] = static_cast<float>(depthHandle.length());
  // Y along the axis, X the width handle made square to it, Z = X x Y (a right-handed frame).
  double q[4] = {1.0, 0.0, 0.0, 0.0};
  const double axisLength = axis.length();
  if (axisLength > 1e-12) {
    const Vec Y = axis * (1.0 / axisLength);
    const Vec across = widthHandle - Y * widthHandle.dot(Y);
    const double acrossLength = across.length();
    if (acrossLength > 1e-12) {
      const Vec X = across * (1.0 / acrossLength);
      quaternionOf(X, Y, X.cross(Y), q);
    }
  }
  for (int k = 0; k < 4; ++k) orient[k] = static_cast<float>(q[k]);
}

bool VrSpherePointsSpool::openOwn(const std::string& directory, std::string& error) {
  return openAll({&ids, &widths, &orients, &radii}, directory, error);
}

bool VrSpherePointsSpool::add(const VrOutputPrimitive& prim) {
  if (prim.numCVs != 4) return false;
  float orient[4], radius[3];
  for (size_t s = 0; s < samplePoints.size(); ++s) {
    samplePoints[s].resize(3);
    float unusedOrient[4], unusedRadius[3];
    frame(prim.cvs + 12 * s, samplePoints[s].data(), s == 0 ? orient : unusedOrient, s == 0 ? radius : unusedRadius);
    rows[s] = samplePoints[s].data();
  }
  const uint64_t id = (static_cast<uint64_t>(static_cast<uint32_t>(prim.face)) << 32) | static_cast<uint32_t>(prim.id);
  const float width = 2.0f * radius[0];
  return motion.append(rows.data(), 1) && ids.append(&id, sizeof id) && widths.append(&width, sizeof width) &&
         orients.append(orient, sizeof orient) && radii.append(radius, sizeof radius);
}

bool VrSpherePointsSpool::writeInto(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) {
  return writePoints(parent, name, timeSampling, [&](VrAbcPointsWriter::SpooledSample& sample) {
    sample.ids = &ids;
    sample.widths = &widths;
    sample.arbitrary = {{"orient", VrAbcDataType{VrAbcPod::Float32, 4}, "quat", VrAbcScope::Varying, &orients},
                        {"radii", VrAbcDataType{VrAbcPod::Float32, 3}, "vector", VrAbcScope::Varying, &radii}};
  });
}
