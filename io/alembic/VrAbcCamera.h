#pragma once
// Reads the camera schema (AbcGeom_Camera_v1): sixteen lens and film values per sample and an
// optional stack of film-back operations.

#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcSchema.h"

#include <cstdint>
#include <string>
#include <vector>

class VrAbcCamera {
 public:
  /// The sixteen stored values, in their stored order.
  enum Value {
    FocalLength, HorizontalAperture, HorizontalFilmOffset, VerticalAperture, VerticalFilmOffset,
    LensSqueezeRatio, OverscanLeft, OverscanRight, OverscanTop, OverscanBottom, FStop,
    FocusDistance, ShutterOpen, ShutterClose, NearClippingPlane, FarClippingPlane, ValueCount
  };

  struct Sample {
    double values[ValueCount] = {};
    /// The film-back operations in effect ("t...", "s...", "m..."); empty without channels.
    std::vector<std::string> filmBackOps;

    /// Horizontal field of view in degrees (apertures are in centimetres, focal length in mm).
    double fieldOfView() const;
  };

  bool open(const VrAbcObject& object);

  uint32_t numSamples() const { return core.numSamples(); }
  const VrAbcTimeSampling& timeSampling() const { return core.timeSampling(); }

  bool read(uint32_t index, Sample& out) const;

 private:
  VrAbcCompoundProperty schema;
  VrAbcScalarProperty core;
  std::vector<std::string> ops;
  bool hasChannels = false;
};
