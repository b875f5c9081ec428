#include "io/alembic/VrAbcSampleInterpolator.h"

bool VrAbcSampleInterpolator::bracket(const VrAbcTimeSampling& sampling, uint32_t numSamples, double time,
                                      uint32_t& first, uint32_t& second, double& weight) {
  first = second = 0;
  weight = 0.0;
  if (numSamples == 0) return false;
  std::pair<int64_t, double> floor, ceil;
  if (!sampling.floorIndex(time, numSamples, floor) || !sampling.ceilIndex(time, numSamples, ceil)) return false;
  first = static_cast<uint32_t>(floor.first);
  second = static_cast<uint32_t>(ceil.first);
  if (second > first && ceil.second > floor.second) {
    weight = (time - floor.second) / (ceil.second - floor.second);
    if (weight < 0.0) weight = 0.0;
    if (weight > 1.0) weight = 1.0;
  } else {
    second = first;
  }
  return true;
}

void VrAbcSampleInterpolator::lerp(const std::vector<float>& a, const std::vector<float>& b, double weight,
                                   std::vector<float>& out) {
  if (a.size() != b.size() || weight == 0.0) {
    out = a;
    return;
  }
  out.resize(a.size());
  const float w = static_cast<float>(weight);
  for (size_t i = 0; i < a.size(); ++i) out[i] = a[i] + w * (b[i] - a[i]);
}
