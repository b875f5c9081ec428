#include "io/alembic/VrAbcMotionSpools.h"

#include <cfloat>
#include <cstring>
#include <limits>

std::vector<double> VrAbcMotionSpools::sampleTimes(double frame, double framesPerSecond,
                                                   const std::vector<double>& offsets) {
  const double step = 1.0 / framesPerSecond;
  if (offsets.empty()) return {frame * step};
  std::vector<double> out;
  for (double offset : offsets) out.push_back((frame + offset) * step);
  return out;
}

VrAbcTimeSampling VrAbcMotionSpools::timeSampling(const std::vector<double>& times, double framesPerSecond) {
  if (times.size() > 1) return VrAbcTimeSampling::acyclic(times);
  return VrAbcTimeSampling::uniform(1.0 / framesPerSecond, times.empty() ? 0.0 : times[0]);
}

bool VrAbcMotionSpools::open(const std::vector<double>& sampleTimes, const std::string& directory,
                             std::string& error) {
  release();
  times = sampleTimes;
  if (times.empty()) times.push_back(0.0);
  const size_t samples = times.size();
  boxes.assign(samples, {DBL_MAX, DBL_MAX, DBL_MAX, -DBL_MAX, -DBL_MAX, -DBL_MAX});
  for (size_t s = 0; s < samples; ++s) positionSpools.push_back(std::make_unique<VrAbcSpool>());
  for (size_t s = 0; samples > 1 && s < samples; ++s) velocitySpools.push_back(std::make_unique<VrAbcSpool>());
  for (auto* list : {&positionSpools, &velocitySpools})
    for (auto& spool : *list)
      if (!spool->open(directory, error)) {
        release();
        return false;
      }
  return true;
}

void VrAbcMotionSpools::sendSampleZeroTo(std::function<bool(const void*, uint64_t)> sink) {
  sampleZeroSink = std::move(sink);
}

namespace {

// Grows `box` (lows, then highs) by `count` points. The points are taken four at a time as
// three vectors of four floats, so that lane j of vector k holds axis (4 k + j) % 3. A float
// orders as its double does, so the box is the one compared in doubles, and a NaN moves no bound
// either way: `v < lo ? v : lo` keeps lo for a NaN, as a vector minimum does.
void growBox(const float* p, uint64_t count, std::array<double, 6>& box) {
  typedef float Four __attribute__((vector_size(16)));
  constexpr float inf = std::numeric_limits<float>::infinity();
  Four lo[3], hi[3];
  for (int k = 0; k < 3; ++k) {
    lo[k] = Four{inf, inf, inf, inf};
    hi[k] = -lo[k];
  }
  const uint64_t values = 3 * count;
  const uint64_t whole = values - values % 12;
  for (uint64_t i = 0; i < whole; i += 12)
    for (int k = 0; k < 3; ++k) {
      Four v;
      std::memcpy(&v, p + i + 4 * static_cast<uint64_t>(k), sizeof v);
      lo[k] = v < lo[k] ? v : lo[k];
      hi[k] = v > hi[k] ? v : hi[k];
    }
  float low[12], high[12];
  std::memcpy(low, lo, sizeof low);
  std::memcpy(high, hi, sizeof high);
  for (uint64_t i = whole; i < values; ++i) {
    const int j = static_cast<int>(i - whole);
    const float v = p[i];
    low[j] = v < low[j] ? v : low[j];
    high[j] = v > high[j] ? v : high[j];
  }
  for (int j = 0; j < 12; ++j) {
    const int axis = j % 3;
    if (low[j] < box[axis]) box[axis] = low[j];
    if (high[j] > box[3 + axis]) box[3 + axis] = high[j];
  }
}

}  // namespace

bool VrAbcMotionSpools::append(const float* const* samplePoints, uint64_t numPoints) {
  if (numPoints == 0) return true;
  const unsigned samples = numSamples();
  for (unsigned s = 0; s < samples; ++s) {
    const float* p = samplePoints[s];
    growBox(p, numPoints, boxes[s]);
    const uint64_t bytes = numPoints * 3 * sizeof(float);
    if (!(s == 0 && sampleZeroSink ? sampleZeroSink(p, bytes) : positionSpools[s]->append(p, bytes))) return false;
  }
  for (unsigned s = 0; s < velocitySpools.size(); ++s) {
    // Forward steps; the last sample takes the step that ends at it.
    const unsigned from = s + 1 < samples ? s : s - 1;
    const float* a = samplePoints[from];
    const float* b = samplePoints[from + 1];
    const double rate = 1.0 / (times[from + 1] - times[from]);
    velocityRow.resize(numPoints * 3);
    for (uint64_t i = 0; i < numPoints * 3; ++i)
      velocityRow[i] = static_cast<float>((static_cast<double>(b[i]) - a[i]) * rate);
    if (!velocitySpools[s]->append(velocityRow.data(), velocityRow.size() * sizeof(float))) return false;
  }
  points += numPoints;
  return true;
}

void VrAbcMotionSpools::release() {
  positionSpools.clear();
  velocitySpools.clear();
  boxes.clear();
  velocityRow = std::vector<float>();
  sampleZeroSink = nullptr;
  times.clear();
  points = 0;
}
