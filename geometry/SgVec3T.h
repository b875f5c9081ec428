#pragma once
// Three-component value vector of the math kit (points, directions, colours), in double and float
// forms. A plain value: copy freely, no shared state.

#include <cmath>

template <class T>
class SgVec3T {
 public:
  T x, y, z;

  SgVec3T() : x(0), y(0), z(0) {}
  SgVec3T(T x, T y, T z) : x(x), y(y), z(z) {}
  /// Converts between scalar types (float <-> double).
  template <class U>
  explicit SgVec3T(const SgVec3T<U>& o)
      : x(static_cast<T>(o.x)), y(static_cast<T>(o.y)), z(static_cast<T>(o.z)) {}

  /// Component i (0 = x, 1 = y, 2 = z); any other index is undefined.
  T& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
  const T& operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }

  SgVec3T operator+(const SgVec3T& o) const { return SgVec3T(x + o.x, y + o.y, z + o.z); }
  SgVec3T operator-(const SgVec3T& o) const { return SgVec3T(x - o.x, y - o.y, z - o.z); }
  SgVec3T operator-() const { return SgVec3T(-x, -y, -z); }
  SgVec3T operator*(T s) const { return SgVec3T(x * s, y * s, z * s); }
  SgVec3T operator/(T s) const { return SgVec3T(x / s, y / s, z / s); }
  /// Component-wise product.
  SgVec3T mul(const SgVec3T& o) const { return SgVec3T(x * o.x, y * o.y, z * o.z); }
  SgVec3T& operator+=(const SgVec3T& o) {
    x += o.x;
    y += o.y;
    z += o.z;
    return *this;
  }
  SgVec3T& operator-=(const SgVec3T& o) {
    x -= o.x;
    y -= o.y;
    z -= o.z;
    return *this;
  }
  SgVec3T& operator*=(T s) {
    x *= s;
    y *= s;
    z *= s;
    return *this;
  }
  bool operator==(const SgVec3T& o) const { return x == o.x && y == o.y && z == o.z; }
  bool operator!=(const SgVec3T& o) const { return !(*this == o); }

  T dot(const SgVec3T& o) const { return x * o.x + y * o.y + z * o.z; }
  SgVec3T cross(const SgVec3T& o) const {
    return SgVec3T(y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x);
  }
  T length() const { return static_cast<T>(std::sqrt(x * x + y * y + z * z)); }
  T lengthSquared() const { return x * x + y * y + z * z; }

  /// Scales to unit length and returns the old length; below 1e-6 the vector becomes (0,0,0)
  /// and 0 is returned.
  T normalize() {
    const T len = length();
    if (len < static_cast<T>(1e-6)) {
      x = y = z = 0;
      return 0;
    }
    const T inv = static_cast<T>(1) / len;
    x *= inv;
    y *= inv;
    z *= inv;
    return len;
  }
};

template <class T>
inline SgVec3T<T> operator*(T s, const SgVec3T<T>& v) {
  return v * s;
}
