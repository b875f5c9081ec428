#pragma once
// Axis-aligned box of the math kit: minimum corner, non-negative size and a valid flag. A default
// box is invalid (empty); every other producer sets the flag. A plain value: copy freely.

#include <algorithm>

#include "geometry/SgVec3T.h"

template <class T>
class SgBox3T {
 public:
  SgVec3T<T> min;   ///< minimum corner
  SgVec3T<T> size;  ///< extent along each axis, every component >= 0 on a valid box
  bool valid;

  /// An invalid, empty box; it takes the shape of the first point or box added to it.
  SgBox3T() : valid(false) {}
  /// From the minimum corner and the size; negative size components become 0.
  SgBox3T(const SgVec3T<T>& minCorner, const SgVec3T<T>& extent)
      : min(minCorner), size(clampSize(extent)), valid(true) {}

  /// From the two corners; a size component where max < min is clamped to 0.
  static SgBox3T fromCorners(const SgVec3T<T>& minCorner, const SgVec3T<T>& maxCorner) {
    return SgBox3T(minCorner, maxCorner - minCorner);
  }

  SgVec3T<T> maxCorner() const { return min + size; }
  SgVec3T<T> center() const { return min + size * static_cast<T>(0.5); }

  /// Grows the box to hold p; an invalid box becomes the point box at p.
  void extend(const SgVec3T<T>& p) {
    if (!valid) {
      *this = SgBox3T(p, SgVec3T<T>());
      return;
    }
    const SgVec3T<T> hi = maxCorner();
    *this = fromCorners(SgVec3T<T>(std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z)),
                        SgVec3T<T>(std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z)));
  }

  /// Grows the box to hold o; invalid boxes take no part.
  void unite(const SgBox3T& o) {
    if (!o.valid) return;
    if (!valid) {
      *this = o;
      return;
    }
    extend(o.min);
    extend(o.maxCorner());
  }

  /// The smallest box holding both; invalid when both are.
  static SgBox3T unionOf(const SgBox3T& a, const SgBox3T& b) {
    SgBox3T r = a;
    r.unite(b);
    return r;
  }

  /// True when p lies inside or on the boundary; an invalid box contains nothing.
  bool contains(const SgVec3T<T>& p) const {
    if (!valid) return false;
    const SgVec3T<T> hi = maxCorner();
    return p.x >= min.x && p.y >= min.y && p.z >= min.z && p.x <= hi.x && p.y <= hi.y && p.z <= hi.z;
  }

  /// True when o lies wholly inside (boundaries included); false if either box is invalid.
  bool contains(const SgBox3T& o) const { return o.valid && contains(o.min) && contains(o.maxCorner()); }

  bool operator==(const SgBox3T& o) const {
    return valid == o.valid && (!valid || (min == o.min && size == o.size));
  }
  bool operator!=(const SgBox3T& o) const { return !(*this == o); }

 private:
  static SgVec3T<T> clampSize(const SgVec3T<T>& s) {
    return SgVec3T<T>(std::max(s.x, T(0)), std::max(s.y, T(0)), std::max(s.z, T(0)));
  }
};
