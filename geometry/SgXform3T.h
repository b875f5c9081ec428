#pragma once
// 4x4 transform of the math kit: row-major, applied to row vectors,
// x' = x*m00 + y*m10 + z*m20 + m30 (likewise y', z'); the last column is not used.
// A value type with virtual `apply` so that hosts can supply their own transforms; const use is
// safe from many threads.

#include "geometry/SgVec3T.h"

template <class T>
class SgXform3T {
 public:
  T m[4][4];

  /// The identity.
  SgXform3T() { setIdentity(); }
  /// From 16 values, row by row.
  explicit SgXform3T(const T* values) {
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c) m[r][c] = values[r * 4 + c];
  }
  virtual ~SgXform3T() = default;

  void setIdentity() {
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c) m[r][c] = (r == c) ? T(1) : T(0);
  }

  T* operator[](int row) { return m[row]; }
  const T* operator[](int row) const { return m[row]; }

  /// The translation row (m30, m31, m32).
  SgVec3T<T> translation() const { return SgVec3T<T>(m[3][0], m[3][1], m[3][2]); }
  void setTranslation(const SgVec3T<T>& t) {
    m[3][0] = t.x;
    m[3][1] = t.y;
    m[3][2] = t.z;
  }

  /// Composition for row vectors: applying `*this * o` equals applying *this, then o.
  SgXform3T operator*(const SgXform3T& o) const {
    SgXform3T r;
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) {
        T sum = 0;
        for (int k = 0; k < 4; ++k) sum += m[i][k] * o.m[k][j];
        r.m[i][j] = sum;
      }
    return r;
  }

  /// The inverse of a rigid transform (rotation and translation only): transposed upper 3x3,
  /// translation -t * R^T; the last column becomes (0,0,0,1). Meaningless for scaled or sheared
  /// matrices.
  SgXform3T rigidInverse() const {
    SgXform3T r;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) r.m[i][j] = m[j][i];
    SgVec3T<T> t = -translation();
    r.apply(t, true);
    r.setTranslation(t);
    return r;
  }

  /// The transformed copy of p; see apply().
  SgVec3T<T> transformed(const SgVec3T<T>& p, bool direction = false, bool inverse = false) const {
    SgVec3T<T> q = p;
    apply(q, direction, inverse);
    return q;
  }

  bool operator==(const SgXform3T& o) const {
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c)
        if (m[r][c] != o.m[r][c]) return false;
    return true;
  }
  bool operator!=(const SgXform3T& o) const { return !(*this == o); }

  /// Transforms p in place. `direction`: p is a direction, no translation takes part.
  /// `inverse`: undoes a rigid transform (translation subtracted for points, then multiplied by
  /// the transpose of the upper 3x3); for a non-rigid matrix the result is not an inverse.
  virtual void apply(SgVec3T<T>& p, bool direction = false, bool inverse = false) const {
    if (!inverse) {
      SgVec3T<T> q(p.x * m[0][0] + p.y * m[1][0] + p.z * m[2][0],
                   p.x * m[0][1] + p.y * m[1][1] + p.z * m[2][1],
                   p.x * m[0][2] + p.y * m[1][2] + p.z * m[2][2]);
      if (!direction) {
        q.x += m[3][0];
        q.y += m[3][1];
        q.z += m[3][2];
      }
      p = q;
      return;
    }
    SgVec3T<T> d = p;
    if (!direction) {
      d.x -= m[3][0];
      d.y -= m[3][1];
      d.z -= m[3][2];
    }
    p = SgVec3T<T>(d.x * m[0][0] + d.y * m[0][1] + d.z * m[0][2],
                   d.x * m[1][0] + d.y * m[1][1] + d.z * m[1][2],
                   d.x * m[2][0] + d.y * m[2][1] + d.z * m[2][2]);
  }
};
