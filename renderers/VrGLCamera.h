#pragma once
// VrGLCamera: the perspective camera of a GL preview: where it stands, what it looks at, which
// way is up, its vertical field of view and the picture's aspect ratio. It gives the matrix the
// shaders take and tells the render walk about itself (VrRenderer's camera state), so that
// in-camera culling of faces and primitives uses the view being drawn.

#include "geometry/SgBox3T.h"
#include "geometry/SgVec3T.h"

#include <string>

struct VrGLCamera {
  SgVec3T<double> eye{0.0, 0.0, 5.0};
  SgVec3T<double> target{0.0, 0.0, 0.0};
  SgVec3T<double> up{0.0, 1.0, 0.0};
  double fovY = 30.0;   ///< degrees, the whole vertical angle
  double aspect = 1.0;  ///< width over height

  /// A camera looking at the box's centre from the front (+z) and a little above and to the
  /// side, just far enough back for every corner of the box to fall inside the picture.
  static VrGLCamera framing(const SgBox3T<double>& box, double aspect, double fovY = 30.0);

  /// Reads "ex,ey,ez,tx,ty,tz[,fov]" (eye, target, vertical field of view in degrees); false with
  /// `error` set when the text is not six or seven finite numbers, the eye is on the target or
  /// the angle is outside (0, 180).
  bool parse(const std::string& text, std::string& error);

  /// Projection times view, column by column (as GL takes it); the near and far planes follow
  /// `depthRange` (the box the picture should hold).
  void viewProjection(const SgBox3T<double>& depthRange, float out[16]) const;
  /// The unit direction towards the light: over the camera's shoulder.
  SgVec3T<double> lightDirection() const;
  /// Writes the camera into VrRenderer's process-wide camera state.
  void applyToRenderer() const;

  /// @name Moving the camera, as a viewer's mouse does
  /// @{
  /// Turns the eye around the target: `yaw` degrees about +y, `pitch` degrees up over the
  /// target; the eye stays 1 degree short of straight above or below.
  void orbit(double yaw, double pitch);
  /// Moves eye and target together across the view, by `right` and `up` in units of the
  /// picture's height at the target's distance.
  void pan(double right, double up);
  /// Moves the eye towards the target, to `factor` times its distance (above 0).
  void zoom(double factor);
  /// @}
};
