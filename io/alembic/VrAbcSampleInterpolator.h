#pragma once
// Reading geometry between samples: which two samples surround a time and how far between them
// it lies, and the linear blend of two sample arrays. Times outside the samples clamp to the
// first or last sample.

#include "io/alembic/VrAbcTimeSampling.h"

#include <cstdint>
#include <vector>

class VrAbcSampleInterpolator {
 public:
  /// The samples before and after `time` among `numSamples` samples of `sampling`, and the
  /// weight of the second (0 when `time` falls on a sample or outside them, where both are the
  /// same sample). False when there are no samples or the sampling has no time for them.
  static bool bracket(const VrAbcTimeSampling& sampling, uint32_t numSamples, double time, uint32_t& first,
                      uint32_t& second, double& weight);

  /// out = a + weight * (b - a), element by element. Arrays of different lengths (topology that
  /// changes between the samples) cannot be blended: `out` is then `a`.
  static void lerp(const std::vector<float>& a, const std::vector<float>& b, double weight, std::vector<float>& out);
};
