#pragma once
// Heap allocation counting shared by the benchmarks. The counting `operator new` is defined once
// for the benchmark program (bench_generators.cpp); it adds to `allocations` while
// `countAllocations` is set.

#include <atomic>
#include <cstddef>

namespace vrbench {

extern std::atomic<bool> countAllocations;
extern std::atomic<size_t> allocations;

}  // namespace vrbench
