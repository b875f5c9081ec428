#include "io/alembic/VrAbcTimeSampling.h"

#include <cfloat>
#include <cmath>

namespace {

// Sample times within this of each other are the same time.
constexpr double timeEpsilon = 1e-5;

bool nearlyEqual(double a, double b) { return std::fabs(a - b) <= timeEpsilon; }

// A non-negative double as an index, with NaN and overflow going to `limit`.
int64_t toIndex(double value, int64_t limit) {
  if (!(value >= 0.0)) return 0;
  if (value >= static_cast<double>(limit)) return limit;
  return static_cast<int64_t>(value);
}

}  // namespace

// The format marks an acyclic sampling by this exact time per cycle; readers compare with ==.
double VrAbcTimeSampling::acyclicTimePerCycle() { return DBL_MAX / 32.0; }

VrAbcTimeSampling::VrAbcTimeSampling() = default;

VrAbcTimeSampling::VrAbcTimeSampling(uint32_t samplesPerCycle, double timePerCycle,
                                     std::vector<double> storedTimes)
    : spc(samplesPerCycle), tpc(timePerCycle), times(std::move(storedTimes)) {}

VrAbcTimeSampling VrAbcTimeSampling::uniform(double timePerCycle, double start) {
  return VrAbcTimeSampling(1, timePerCycle, {start});
}

VrAbcTimeSampling VrAbcTimeSampling::cyclic(double timePerCycle, const std::vector<double>& t) {
  return VrAbcTimeSampling(static_cast<uint32_t>(t.size()), timePerCycle, t);
}

VrAbcTimeSampling VrAbcTimeSampling::acyclic(const std::vector<double>& t) {
  return VrAbcTimeSampling(acyclicSamplesPerCycle, acyclicTimePerCycle(), t);
}

bool VrAbcTimeSampling::fromStored(double timePerCycle, const std::vector<double>& t,
                                   VrAbcTimeSampling& out, std::string& error) {
  const bool isAcyclic = timePerCycle == acyclicTimePerCycle();
  if (!isAcyclic) {
    if (!(timePerCycle > 0.0 && timePerCycle < acyclicTimePerCycle())) {
      error = "a time sampling has an invalid time per cycle";
      return false;
    }
    if (t.empty() || t.size() >= acyclicSamplesPerCycle) {
      error = "a time sampling has no sample times";
      return false;
    }
  }
  for (size_t i = 1; i < t.size(); ++i) {
    if (!(t[i - 1] < t[i])) {
      error = "the times of a time sampling do not increase";
      return false;
    }
  }
  if (!isAcyclic && t.size() > 1 && !(t.back() - t.front() <= timePerCycle)) {
    error = "the times of a cyclic time sampling span more than one cycle";
    return false;
  }
  out = isAcyclic ? acyclic(t) : VrAbcTimeSampling(static_cast<uint32_t>(t.size()), timePerCycle, t);
  return true;
}

VrAbcTimeSampling::Type VrAbcTimeSampling::type() const {
  if (spc == 1) return Type::Uniform;
  if (spc == acyclicSamplesPerCycle) return Type::Acyclic;
  return Type::Cyclic;
}

bool VrAbcTimeSampling::sampleTime(int64_t index, double& time) const {
  if (index < 0) index = 0;
  switch (type()) {
    case Type::Uniform:
      time = times[0] + tpc * static_cast<double>(index);
      return true;
    case Type::Acyclic:
      if (static_cast<uint64_t>(index) >= times.size()) return false;
      time = times[static_cast<size_t>(index)];
      return true;
    case Type::Cyclic: {
      const int64_t n = static_cast<int64_t>(spc);
      time = times[static_cast<size_t>(index % n)] + tpc * static_cast<double>(index / n);
      return true;
    }
  }
  return false;
}

bool VrAbcTimeSampling::floorIndex(double t, int64_t numSamples,
                                   std::pair<int64_t, double>& out) const {
  if (numSamples < 1) {
    out = {0, 0.0};
    return true;
  }
  double minTime = 0.0, maxTime = 0.0;
  if (!sampleTime(0, minTime)) return false;
  if (t <= minTime) {
    out = {0, minTime};
    return true;
  }
  if (!sampleTime(numSamples - 1, maxTime)) return false;
  if (t >= maxTime) {
    out = {numSamples - 1, maxTime};
    return true;
  }

  const Type kind = type();
  if (kind == Type::Acyclic) {
    int64_t lo = 0;
    int64_t hi = static_cast<int64_t>(times.size()) - 1;
    int64_t idx = hi / 2;
    while (lo < idx && idx < hi) {
      const double here = times[static_cast<size_t>(idx)];
      if (t == here) {
        out = {idx, here};
        return true;
      }
      if (t < here) {
        hi = idx;
      } else {
        lo = idx;
      }
      idx = (hi + lo) / 2;
    }
    const double hiTime = times[static_cast<size_t>(hi)];
    if (nearlyEqual(t, hiTime)) {
      out = {hi, hiTime};
    } else {
      out = {lo, times[static_cast<size_t>(lo)]};
    }
    return true;
  }

  if (kind == Type::Uniform) {
    int64_t idx = toIndex((t - minTime) / tpc, numSamples - 1);
    double sampTime = minTime + tpc * static_cast<double>(idx);
    const double hiTime = minTime + tpc * static_cast<double>(idx + 1);
    if (sampTime > t && idx > 0 && !nearlyEqual(t, sampTime)) {
      --idx;
      sampTime = minTime + tpc * static_cast<double>(idx);
    } else if (idx < numSamples - 1 && nearlyEqual(t, hiTime)) {
      ++idx;
      sampTime = hiTime;
    }
    out = {idx, sampTime};
    return true;
  }

  // Cyclic.
  const int64_t n = static_cast<int64_t>(spc);
  double whole = 0.0;
  const double fraction = std::modf((t - minTime) / tpc, &whole);
  if (nearlyEqual(fraction, 1.0)) whole += 1.0;
  const int64_t cycles = toIndex(whole, numSamples / n + 1);
  const double blockTime = static_cast<double>(cycles) * tpc;
  const double rest = t - blockTime;
  int64_t idx = 0;
  while (idx < n && times[static_cast<size_t>(idx)] < rest) ++idx;
  if (idx == n) --idx;
  double sampTime = blockTime + times[static_cast<size_t>(idx)];
  if (!nearlyEqual(t, sampTime) && idx > 0 && t < sampTime) {
    --idx;
    sampTime = blockTime + times[static_cast<size_t>(idx)];
  }
  int64_t index = cycles * n + idx;
  if (index > numSamples - 1) index = numSamples - 1;
  out = {index, sampTime};
  return true;
}

bool VrAbcTimeSampling::ceilIndex(double t, int64_t numSamples,
                                  std::pair<int64_t, double>& out) const {
  if (numSamples < 1) {
    out = {0, 0.0};
    return true;
  }
  const int64_t maxIndex = numSamples - 1;
  double minTime = 0.0, maxTime = 0.0;
  if (!sampleTime(0, minTime)) return false;
  if (t <= minTime) {
    out = {0, minTime};
    return true;
  }
  if (!sampleTime(maxIndex, maxTime)) return false;
  if (t >= maxTime) {
    out = {maxIndex, maxTime};
    return true;
  }
  std::pair<int64_t, double> floor;
  if (!floorIndex(t, numSamples, floor)) return false;
  if (floor.first == maxIndex || nearlyEqual(t, floor.second)) {
    out = floor;
    return true;
  }
  double next = 0.0;
  if (!sampleTime(floor.first + 1, next)) return false;
  out = {floor.first + 1, next};
  return true;
}
