// The viewer's camera moves: orbiting keeps the distance to the target and comes back after a
// full turn, stops short of the poles; panning moves eye and target together by a share of the
// picture's height; zooming scales the distance.

#include "renderers/VrGLCamera.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

double distance(const SgVec3T<double>& a, const SgVec3T<double>& b) { return (a - b).length(); }

TEST(VrGLCamera, OrbitPanAndZoomMoveAsAMouseExpects) {
  VrGLCamera camera;
  camera.eye = SgVec3T<double>(3.0, 4.0, 12.0);
  camera.target = SgVec3T<double>(1.0, 1.0, 0.0);
  const SgVec3T<double> eye = camera.eye;
  const double radius = distance(eye, camera.target);  // 2, 3, 12: about 12.53

  camera.orbit(90.0, 0.0);
  EXPECT_NEAR(distance(camera.eye, camera.target), radius, 1e-9);
  EXPECT_NEAR(camera.eye.y, eye.y, 1e-9);  // a turn about +y keeps the height
  camera.orbit(270.0, 0.0);
  EXPECT_NEAR(distance(camera.eye, eye), 0.0, 1e-9);

  camera.orbit(0.0, 500.0);  // stops 1 degree short of straight above
  EXPECT_NEAR(distance(camera.eye, camera.target), radius, 1e-9);
  EXPECT_NEAR(camera.eye.y - camera.target.y, radius * std::sin(89.0 * 3.14159265358979323846 / 180.0), 1e-9);

  // Looking down -z from (0, 0, 10) with a 90 degree angle the picture is 20 high at the target.
  VrGLCamera front;
  front.eye = SgVec3T<double>(0.0, 0.0, 10.0);
  front.fovY = 90.0;
  front.pan(0.5, -0.25);
  EXPECT_NEAR(distance(front.eye, SgVec3T<double>(10.0, -5.0, 10.0)), 0.0, 1e-9);
  EXPECT_NEAR(distance(front.target, SgVec3T<double>(10.0, -5.0, 0.0)), 0.0, 1e-9);

  front.zoom(0.5);
  EXPECT_NEAR(distance(front.eye, SgVec3T<double>(10.0, -5.0, 5.0)), 0.0, 1e-9);
  front.zoom(0.0);  // refused
  EXPECT_NEAR(distance(front.eye, front.target), 5.0, 1e-9);
}

}  // namespace
