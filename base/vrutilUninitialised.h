#pragma once
// vrutil::UninitialisedAllocator: an allocator whose value-initialising `construct` leaves the
// new element default-initialised, so that a vector of numbers grown by `resize` is not zeroed
// first. For buffers that are sized and then written in full.

#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace vrutil {

template <typename T, typename Base = std::allocator<T>>
class UninitialisedAllocator : public Base {
  using Traits = std::allocator_traits<Base>;

 public:
  template <typename U>
  struct rebind {
    using other = UninitialisedAllocator<U, typename Traits::template rebind_alloc<U>>;
  };

  using Base::Base;

  template <typename U>
  void construct(U* where) noexcept(std::is_nothrow_default_constructible<U>::value) {
    ::new (static_cast<void*>(where)) U;
  }
  template <typename U, typename... Args>
  void construct(U* where, Args&&... args) {
    Traits::construct(static_cast<Base&>(*this), where, std::forward<Args>(args)...);
  }
};

/// Floats that `resize` leaves as they come.
using UninitialisedFloats = std::vector<float, UninitialisedAllocator<float>>;

}  // namespace vrutil
