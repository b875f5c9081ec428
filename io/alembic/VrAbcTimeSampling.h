#pragma once
// When the samples of a property were taken. Uniform: one stored time and a step. Cyclic: N
// stored times repeated every `timePerCycle`. Acyclic: every time stored. Archives keep a table
// of these; properties refer to an entry by index, entry 0 being uniform, start 0, step 1.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class VrAbcTimeSampling {
 public:
  enum class Type { Uniform, Cyclic, Acyclic };

  /// The stored marks of an acyclic sampling.
  static constexpr uint32_t acyclicSamplesPerCycle = 0xffffffffu;
  static double acyclicTimePerCycle();

  /// Uniform, start 0, step 1: entry 0 of every archive.
  VrAbcTimeSampling();
  static VrAbcTimeSampling uniform(double timePerCycle, double start);
  /// `times` strictly increasing and spanning at most `timePerCycle`.
  static VrAbcTimeSampling cyclic(double timePerCycle, const std::vector<double>& times);
  /// `times` strictly increasing; one per sample.
  static VrAbcTimeSampling acyclic(const std::vector<double>& times);

  /// Builds a sampling from its stored form (a step, or the acyclic mark, and the times) with
  /// the checks the format's reader makes; false and a reason when it is not a valid sampling.
  static bool fromStored(double timePerCycle, const std::vector<double>& times,
                         VrAbcTimeSampling& out, std::string& error);

  Type type() const;
  uint32_t samplesPerCycle() const { return spc; }
  double timePerCycle() const { return tpc; }
  const std::vector<double>& storedTimes() const { return times; }

  /// The time of sample `index` (>= 0); false for an acyclic index past the stored times.
  bool sampleTime(int64_t index, double& time) const;
  /// The last sample at or before `time`, among `numSamples` samples; (0, 0) without samples.
  /// False only where an acyclic sampling has fewer times than samples.
  bool floorIndex(double time, int64_t numSamples, std::pair<int64_t, double>& out) const;
  /// The first sample at or after `time`.
  bool ceilIndex(double time, int64_t numSamples, std::pair<int64_t, double>& out) const;

  bool operator==(const VrAbcTimeSampling& o) const {
    return spc == o.spc && tpc == o.tpc && times == o.times;
  }
  bool operator!=(const VrAbcTimeSampling& o) const { return !(*this == o); }

 private:
  VrAbcTimeSampling(uint32_t samplesPerCycle, double timePerCycle, std::vector<double> times);

  uint32_t spc = 1;
  double tpc = 1.0;
  std::vector<double> times{0.0};
};
