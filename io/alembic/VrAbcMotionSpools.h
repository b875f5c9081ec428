#pragma once
// VrAbcMotionSpools: the points of a streamed object at every motion sample, each sample in its
// own spool with its running box, and, with several samples, the points' velocities (units per
// second): the step to the next sample over its time, the last sample repeating the step from
// the one before. Shared by the streamed curves, meshes and points.
//
// One thread at a time; the spools are unlinked temporary files (see VrAbcSpool).

#include "io/alembic/VrAbcSpool.h"
#include "io/alembic/VrAbcTimeSampling.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class VrAbcMotionSpools {
 public:
  /// The times, in seconds, of samples at (frame + offset) / framesPerSecond; one sample at
  /// frame / framesPerSecond for no offsets.
  static std::vector<double> sampleTimes(double frame, double framesPerSecond, const std::vector<double>& offsets);
  /// The time sampling of samples at `times`: uniform with a step of 1 / framesPerSecond for
  /// one sample, acyclic for several.
  static VrAbcTimeSampling timeSampling(const std::vector<double>& times, double framesPerSecond);

  /// Makes the spools for samples at `times` (at least one) in `directory` (TMPDIR or /tmp when
  /// empty); false with the reason in `error`.
  bool open(const std::vector<double>& times, const std::string& directory, std::string& error);
  /// Sends the points of sample 0 to `sink` instead of its spool from now on (before any
  /// point); `positions(0)` is then not to be used.
  void sendSampleZeroTo(std::function<bool(const void*, uint64_t)> sink);
  /// Adds `numPoints` points to every sample: `samplePoints[s]` holds x, y, z per point of
  /// sample s. False when a spool could not be written.
  bool append(const float* const* samplePoints, uint64_t numPoints);
  /// Drops the spools.
  void release();

  unsigned numSamples() const { return static_cast<unsigned>(positionSpools.size()); }
  uint64_t numPoints() const { return points; }
  const VrAbcSpool& positions(unsigned sample) const { return *positionSpools[sample]; }
  /// Null with one sample.
  const VrAbcSpool* velocities(unsigned sample) const {
    return sample < velocitySpools.size() ? velocitySpools[sample].get() : nullptr;
  }
  /// Lower corner, then upper corner; inverted (empty) while there are no points.
  const double* bounds(unsigned sample) const { return boxes[sample].data(); }

 private:
  std::vector<double> times;
  std::vector<std::unique_ptr<VrAbcSpool>> positionSpools;
  std::vector<std::unique_ptr<VrAbcSpool>> velocitySpools;
  std::vector<std::array<double, 6>> boxes;
  std::vector<float> velocityRow;  // scratch for one batch
  std::function<bool(const void*, uint64_t)> sampleZeroSink;
  uint64_t points = 0;
};
