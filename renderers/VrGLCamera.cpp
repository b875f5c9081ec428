#include "renderers/VrGLCamera.h"

#include "geometry/SgXform3T.h"
#include "renderers/VrRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace {

constexpr double degrees = 3.14159265358979323846 / 180.0;

// The camera's axes: right, true up, backwards (the camera looks along -back).
void axes(const VrGLCamera& camera, SgVec3T<double>& right, SgVec3T<double>& up, SgVec3T<double>& back) {
  back = camera.eye - camera.target;
  back.normalize();
  right = camera.up.cross(back);
  if (right.normalize() == 0.0) {
    // Looking straight along the up vector: any square axis serves.
    right = SgVec3T<double>(1.0, 0.0, 0.0).cross(back);
    if (right.normalize() == 0.0) right = SgVec3T<double>(0.0, 0.0, 1.0);
  }
  up = back.cross(right);
}

}  // namespace

VrGLCamera VrGLCamera::framing(const SgBox3T<double>& box, double aspect, double fovY) {
  VrGLCamera camera;
  camera.aspect = aspect;
  camera.fovY = fovY;
  const SgVec3T<double> centre = box.valid ? box.center() : SgVec3T<double>();
  SgVec3T<double> direction(0.35, 0.25, 1.0);
  direction.normalize();
  camera.target = centre;
  camera.eye = centre + direction;
  SgVec3T<double> right, up, back;
  axes(camera, right, up, back);
  // Back far enough for every corner of the box to fall inside 95% of the picture.
  const double tanY = std::tan(fovY * 0.5 * degrees) * 0.95, tanX = tanY * aspect;
  double distance = 1e-3;
  const SgVec3T<double> size = box.valid ? box.size : SgVec3T<double>(1.0, 1.0, 1.0);
  for (int corner = 0; corner < 8; ++corner) {
    const SgVec3T<double> d((corner & 1 ? 0.5 : -0.5) * size.x, (corner & 2 ? 0.5 : -0.5) * size.y,
                            (corner & 4 ? 0.5 : -0.5) * size.z);
    const double towards = d.dot(back);
    distance = std::max({distance, towards + std::fabs(d.dot(right)) / tanX, towards + std::fabs(d.dot(up)) / tanY});
  }
  camera.eye = centre + back * distance;
  return camera;
}

bool VrGLCamera::parse(const std::string& text, std::string& error) {
  std::vector<double> values;
  std::stringstream in(text);
  for (std::string item; std::getline(in, item, ',');) {
    char* end = nullptr;
    const double value = std::strtod(item.c_str(), &end);
    if (item.empty() || !end || *end || !std::isfinite(value)) {
      error = "--camera takes \"ex,ey,ez,tx,ty,tz[,fov]\", numbers separated by commas: " + text;
      return false;
    }
    values.push_back(value);
  }
  if (values.size() != 6 && values.size() != 7) {
    error = "--camera takes six or seven numbers (eye, target, field of view in degrees): " + text;
    return false;
  }
  eye = SgVec3T<double>(values[0], values[1], values[2]);
  target = SgVec3T<double>(values[3], values[4], values[5]);
  if (values.size() == 7) fovY = values[6];
  if ((eye - target).length() < 1e-9) {
    error = "--camera: the eye and the target are the same point";
    return false;
  }
  if (!(fovY > 0.0 && fovY < 180.0)) {
    error = "--camera: the field of view must be above 0 and below 180 degrees";
    return false;
  }
  return true;
}

void VrGLCamera::viewProjection(const SgBox3T<double>& depthRange, float out[16]) const {
  SgVec3T<double> right, trueUp, back;
  axes(*this, right, trueUp, back);
  // Near and far planes around what is to be seen, the near one kept off zero.
  const SgVec3T<double> centre = depthRange.valid ? depthRange.center() : target;
  const double radius = std::max(depthRange.valid ? depthRange.size.length() * 0.5 : 1.0, 1e-3);
  const double distance = (centre - eye).dot(back * -1.0);
  const double farPlane = std::max(distance + radius * 1.1, 1e-2);
  const double nearPlane = std::max(distance - radius * 1.1, farPlane * 1e-4);
  const double f = 1.0 / std::tan(fovY * 0.5 * degrees);
  // Rows of the view matrix (world to camera) and of the projection.
  const double view[3][4] = {{right.x, right.y, right.z, -right.dot(eye)},
                             {trueUp.x, trueUp.y, trueUp.z, -trueUp.dot(eye)},
                             {back.x, back.y, back.z, -back.dot(eye)}};
  double m[4][4] = {};
  for (int j = 0; j < 4; ++j) {
    m[0][j] = f / aspect * view[0][j];
    m[1][j] = f * view[1][j];
    const double a = (farPlane + nearPlane) / (nearPlane - farPlane);
    const double b = 2.0 * farPlane * nearPlane / (nearPlane - farPlane);
    m[2][j] = a * view[2][j] + (j == 3 ? b : 0.0);
    m[3][j] = -view[2][j];
  }
  for (int col = 0; col < 4; ++col)
    for (int row = 0; row < 4; ++row) out[col * 4 + row] = static_cast<float>(m[row][col]);
}

SgVec3T<double> VrGLCamera::lightDirection() const {
  SgVec3T<double> right, trueUp, back;
  axes(*this, right, trueUp, back);
  SgVec3T<double> light = back + trueUp * 0.6 - right * 0.4;
  light.normalize();
  return light;
}

void VrGLCamera::applyToRenderer() const {
  SgVec3T<double> right, trueUp, back;
  axes(*this, right, trueUp, back);
  // Camera to world for row vectors: the rows are the camera's axes, then its position.
  SgXform3T<double> toWorld;
  const SgVec3T<double> rows[4] = {right, trueUp, back, eye};
  for (int i = 0; i < 4; ++i) {
    toWorld[i][0] = rows[i].x;
    toWorld[i][1] = rows[i].y;
    toWorld[i][2] = rows[i].z;
    toWorld[i][3] = i == 3 ? 1.0 : 0.0;
  }
  VrRenderer::setCamInverseXform(toWorld.rigidInverse());
  const double halfY = fovY * 0.5 * degrees;
  VrRenderer::setCamFOV(std::atan(std::tan(halfY) * aspect), halfY);
  VrRenderer::setCamRatio(aspect);
  VrRenderer::setCamDir(back * -1.0);
  VrRenderer::setRealCamDir(back * -1.0);
  VrRenderer::setCamIsOrtho(false);
}

void VrGLCamera::orbit(double yaw, double pitch) {
  const SgVec3T<double> offset = eye - target;
  const double radius = offset.length();
  if (!(radius > 0.0)) return;
  const double heading = std::atan2(offset.x, offset.z) + yaw * degrees;
  const double limit = 89.0 * degrees;
  const double elevation = std::clamp(std::asin(std::clamp(offset.y / radius, -1.0, 1.0)) + pitch * degrees, -limit, limit);
  eye = target + SgVec3T<double>(std::sin(heading) * std::cos(elevation), std::sin(elevation),
                                 std::cos(heading) * std::cos(elevation)) * radius;
}

void VrGLCamera::pan(double right, double up) {
  SgVec3T<double> x, y, back;
  axes(*this, x, y, back);
  const double height = 2.0 * (eye - target).length() * std::tan(fovY * 0.5 * degrees);
  const SgVec3T<double> shift = (x * right + y * up) * height;
  eye = eye + shift;
  target = target + shift;
}

void VrGLCamera::zoom(double factor) {
  if (!(factor > 0.0) || !std::isfinite(factor)) return;
  eye = target + (eye - target) * std::max(factor, 1e-6);
}
