#include "fxmodules/VrClumpFrame.h"

#include "fxmodules/VrClumpGuides.h"
#include "geometry/vrutilMath.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

using Vec = SgVec3T<double>;
using vrutil::unit;

constexpr double DegreesToRadians = 0.017453292519943295;
// Enough for the guides of a few neighbouring faces, which is what consecutive primitives use.
constexpr size_t CacheSlots = 64;

}  // namespace

void VrClumpFrame::walk(const std::vector<Vec>& G, const Vec& T0, const Vec& A0, const Vec& B0,
                        double twistDegrees) {
  const size_t n = G.size();
  T.resize(n);
  A.resize(n);
  B.resize(n);
  before.resize(n);
  angle.assign(n, std::numeric_limits<double>::quiet_NaN());  // equal to no angle
  cosine.resize(n);
  sine.resize(n);
  Vec t = T0, a = A0, b = B0;
  const Vec D0 = unit(G[1] - G[0]);
  if (t.dot(D0) < Straight) VrFXTurn(unit(t.cross(D0)), vrFXAngleBetween(t, D0)).frame(t, a, b);
  if (twistDegrees != 0.0) {
    const VrFXTurn twist(t, twistDegrees * DegreesToRadians);
    a = twist(a);
    b = twist(b);
  }
  Vec Dprev = D0;
  VrFXTurn pending;  // the second half of the last bend
  bool bendPending = false;
  for (size_t i = 1; i < n; ++i) {
    const Vec D = i + 1 < n ? unit(G[i + 1] - G[i]) : Dprev;
    if (bendPending) {
      pending.frame(t, a, b);
      bendPending = false;
    }
    if (std::fabs(D.dot(Dprev)) < Straight) {
      pending = VrFXTurn(unit(Dprev.cross(D)), 0.5 * vrFXAngleBetween(Dprev, D));
      pending.frame(t, a, b);
      bendPending = true;
    }
    t = unit(t);
    a = unit(a);
    b = unit(b);
    T[i] = t;
    A[i] = a;
    B[i] = b;
    before[i] = Dprev;
    Dprev = D;
  }
}

VrFXTurn VrClumpFrame::turnAboutT(size_t i, double radians) {
  if (!(angle[i] == radians)) {
    const VrFXTurn turn(T[i], radians);
    angle[i] = radians;
    cosine[i] = turn.c;
    sine[i] = turn.s;
    return turn;
  }
  return VrFXTurn(T[i], cosine[i], sine[i]);
}

VrClumpFrame& VrClumpFrameCache::walk(size_t index, const VrClumpGuide& guide, double twistDegrees) {
  if (slots.empty()) slots.resize(CacheSlots);
  Slot& slot = slots[index % CacheSlots];
  // Equal twists turn alike (0 and -0 both not at all); a NaN twist is walked every time.
  if (slot.index != index || !(slot.twist == twistDegrees)) {
    slot.frame.walk(guide.cvs, guide.T, guide.A, guide.B, twistDegrees);
    slot.index = index;
    slot.twist = twistDegrees;
  }
  return slot.frame;
}
