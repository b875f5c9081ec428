#include "renderers/VrRenderer.h"

#include "expressions/VrExpression.h"

#include <cmath>

namespace {

struct Camera {
  double fov[2] = {0.0, 0.0};
  SgXform3T<double> worldToCamera;
  SgVec3T<double> position;
  bool shadow = false;
};

Camera& camera() {
  static Camera state;
  return state;
}

// The point that `xform` takes to the origin: p * M + t = 0 with M the upper 3x3, so
// p = -t * inverse(M). The origin when M is singular.
SgVec3T<double> pointToOrigin(const SgXform3T<double>& xform) {
  const double (&m)[4][4] = xform.m;
  const double c00 = m[1][1] * m[2][2] - m[1][2] * m[2][1];
  const double c01 = m[1][2] * m[2][0] - m[1][0] * m[2][2];
  const double c02 = m[1][0] * m[2][1] - m[1][1] * m[2][0];
  const double det = m[0][0] * c00 + m[0][1] * c01 + m[0][2] * c02;
  if (std::fabs(det) < 1e-300) return SgVec3T<double>();
  // inverse(M)[i][j] = cofactor(j, i) / det
  double inv[3][3];
  inv[0][0] = c00 / det;
  inv[1][0] = c01 / det;
  inv[2][0] = c02 / det;
  inv[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) / det;
  inv[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) / det;
  inv[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) / det;
  inv[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) / det;
  inv[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) / det;
  inv[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) / det;
  const double t[3] = {-m[3][0], -m[3][1], -m[3][2]};
  double p[3];
  for (int j = 0; j < 3; ++j) p[j] = t[0] * inv[0][j] + t[1] * inv[1][j] + t[2] * inv[2][j];
  return SgVec3T<double>(p[0], p[1], p[2]);
}

}  // namespace

bool VrRenderer::okToEmit(int, double, double) { return true; }

bool VrRenderer::handleCulledPrimitive(unsigned, int, unsigned, VrPatch*) { return false; }

bool VrRenderer::handleCulledPrimitiveInParallel(VrPrimitiveContext&, unsigned, int, unsigned, VrPatch*) {
  return false;
}

void VrRenderer::emitPrimitiveInParallel(VrPrimitiveContext&, int, double, double, int,
                                         const std::vector<VrPatch*>&) {}

const double* VrRenderer::camFOV() { return camera().fov; }

void VrRenderer::setCamFOV(double both) { setCamFOV(both, both); }

void VrRenderer::setCamFOV(double horizontal, double vertical) {
  camera().fov[0] = horizontal;
  camera().fov[1] = vertical;
}

const SgXform3T<double>& VrRenderer::camInverseXform() { return camera().worldToCamera; }

void VrRenderer::setCamInverseXform(const SgXform3T<double>& worldToCamera) {
  camera().worldToCamera = worldToCamera;
  camera().position = pointToOrigin(worldToCamera);
}

const SgVec3T<double>& VrRenderer::camPosition() { return camera().position; }

bool VrRenderer::shadowPass() { return camera().shadow; }

void VrRenderer::setShadowPass(bool on) {
  camera().shadow = on;
  VrExpression::setShadowPass(on);
}
