#pragma once
// vrutil::stableSortUnlessSorted: std::stable_sort for ranges that usually arrive in order
// already, such as a face's primitives or runs. The check costs one pass; the sort it saves takes
// a buffer and merges even when nothing moves. The result is stable_sort's either way.

#include <algorithm>

namespace vrutil {

template <typename Iterator, typename Less>
void stableSortUnlessSorted(Iterator first, Iterator last, Less less) {
  if (!std::is_sorted(first, last, less)) std::stable_sort(first, last, less);
}

}  // namespace vrutil
