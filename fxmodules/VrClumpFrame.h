#pragma once
// VrClumpFrame: the frame a clumping module carries along the copy G of a clump guide. Per CV i
// from 1 on: the unit frame (T, A, B) the primitive's offset from G[i] is measured in, and
// `before[i]`, the direction of G before CV i. The walk starts from the guide's root frame
// turned onto G's first segment, A and B turned about T by the twist, and spreads each bend of G
// over two steps. It depends on G, the root frame and the twist alone, so a worker keeps the
// walks of the guides it used last (`VrClumpFrameCache`) for the primitives that clump to a
// guide as it was grown.

#include "fxmodules/VrFXRotation.h"
#include "geometry/SgVec3T.h"

#include <cstddef>
#include <vector>

struct VrClumpGuide;

struct VrClumpFrame {
  using Vec = SgVec3T<double>;
  /// Two directions whose dot product reaches this are taken as one.
  static constexpr double Straight = 0.99999;

  /// Walks G (two CVs or more) from the root frame (T0, A0, B0), twisted by `twistDegrees`.
  void walk(const std::vector<Vec>& G, const Vec& T0, const Vec& A0, const Vec& B0, double twistDegrees);
  /// The turn by `radians` (not 0) about T[i]. The cosine and sine of the last angle asked for
  /// at each CV are kept: primitives of one guide and curl often ask for the same.
  VrFXTurn turnAboutT(size_t i, double radians);

  std::vector<Vec> T, A, B, before;  // entry 0 unused

 private:
  std::vector<double> angle, cosine, sine;  // per CV, the last turn worked out
};

/// The walks along the guides a worker clumped to last, each guide as grown (G its own CVs).
class VrClumpFrameCache {
 public:
  /// The walk along `guide`, number `index` of its module, with `twistDegrees`: the one kept
  /// when the same guide was walked with the same twist since `clear`, else a new walk kept in
  /// its place.
  VrClumpFrame& walk(size_t index, const VrClumpGuide& guide, double twistDegrees);
  /// Forgets every walk (the guides were read again).
  void clear() { slots.clear(); }

 private:
  struct Slot {
    size_t index = static_cast<size_t>(-1);
    double twist = 0.0;
    VrClumpFrame frame;
  };
  std::vector<Slot> slots;  // by index modulo their count; made at the first walk
};
