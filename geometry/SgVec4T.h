#pragma once
// Four-component value vector of the math kit (colours with alpha, homogeneous points); used in
// its float form. A plain value: copy freely, no shared state.

#include <cmath>

template <class T>
class SgVec4T {
 public:
  T x, y, z, w;

  SgVec4T() : x(0), y(0), z(0), w(0) {}
  SgVec4T(T x, T y, T z, T w) : x(x), y(y), z(z), w(w) {}
  /// Converts between scalar types (float <-> double).
  template <class U>
  explicit SgVec4T(const SgVec4T<U>& o)
      : x(static_cast<T>(o.x)), y(static_cast<T>(o.y)), z(static_cast<T>(o.z)), w(static_cast<T>(o.w)) {}

  /// Component i (0 = x, 1 = y, 2 = z, 3 = w); any other index is undefined.
  T& operator[](int i) { return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w)); }
  const T& operator[](int i) const { return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w)); }

  SgVec4T operator+(const SgVec4T& o) const { return SgVec4T(x + o.x, y + o.y, z + o.z, w + o.w); }
  SgVec4T operator-(const SgVec4T& o) const { return SgVec4T(x - o.x, y - o.y, z - o.z, w - o.w); }
  SgVec4T operator-() const { return SgVec4T(-x, -y, -z, -w); }
  SgVec4T operator*(T s) const { return SgVec4T(x * s, y * s, z * s, w * s); }
  SgVec4T& operator+=(const SgVec4T& o) {
    x += o.x;
    y += o.y;
    z += o.z;
    w += o.w;
    return *this;
  }
  SgVec4T& operator*=(T s) {
    x *= s;
    y *= s;
    z *= s;
    w *= s;
    return *this;
  }
  bool operator==(const SgVec4T& o) const { return x == o.x && y == o.y && z == o.z && w == o.w; }
  bool operator!=(const SgVec4T& o) const { return !(*this == o); }

  T dot(const SgVec4T& o) const { return x * o.x + y * o.y + z * o.z + w * o.w; }
  T length() const { return static_cast<T>(std::sqrt(dot(*this))); }
};

template <class T>
inline SgVec4T<T> operator*(T s, const SgVec4T<T>& v) {
  return v * s;
}
