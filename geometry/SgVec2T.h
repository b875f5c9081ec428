#pragma once
// Two-component value vector of the math kit (u/v pairs, 2D offsets), in double and float forms.
// A plain value: copy freely, no shared state.

#include <cmath>

template <class T>
class SgVec2T {
 public:
  T x, y;

  SgVec2T() : x(0), y(0) {}
  SgVec2T(T x, T y) : x(x), y(y) {}
  /// Converts between scalar types (float <-> double).
  template <class U>
  explicit SgVec2T(const SgVec2T<U>& o) : x(static_cast<T>(o.x)), y(static_cast<T>(o.y)) {}

  /// Component i (0 = x, 1 = y); any other index is undefined.
  T& operator[](int i) { return i == 0 ? x : y; }
  const T& operator[](int i) const { return i == 0 ? x : y; }

  SgVec2T operator+(const SgVec2T& o) const { return SgVec2T(x + o.x, y + o.y); }
  SgVec2T operator-(const SgVec2T& o) const { return SgVec2T(x - o.x, y - o.y); }
  SgVec2T operator-() const { return SgVec2T(-x, -y); }
  SgVec2T operator*(T s) const { return SgVec2T(x * s, y * s); }
  SgVec2T operator/(T s) const { return SgVec2T(x / s, y / s); }
  SgVec2T& operator+=(const SgVec2T& o) {
    x += o.x;
    y += o.y;
    return *this;
  }
  SgVec2T& operator-=(const SgVec2T& o) {
    x -= o.x;
    y -= o.y;
    return *this;
  }
  SgVec2T& operator*=(T s) {
    x *= s;
    y *= s;
    return *this;
  }
  bool operator==(const SgVec2T& o) const { return x == o.x && y == o.y; }
  bool operator!=(const SgVec2T& o) const { return !(*this == o); }

  T dot(const SgVec2T& o) const { return x * o.x + y * o.y; }
  T length() const { return static_cast<T>(std::sqrt(x * x + y * y)); }

  /// Scales to unit length and returns the old length; below 1e-6 the vector becomes (0,0)
  /// and 0 is returned.
  T normalize() {
    const T len = length();
    if (len < static_cast<T>(1e-6)) {
      x = y = 0;
      return 0;
    }
    const T inv = static_cast<T>(1) / len;
    x *= inv;
    y *= inv;
    return len;
  }
};

template <class T>
inline SgVec2T<T> operator*(T s, const SgVec2T<T>& v) {
  return v * s;
}
