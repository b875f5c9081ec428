#include "primitives/VrBasePrimitiveContext.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "geometry/VrPatch.h"

#include <limits>

namespace {
// NaN never equals a parameter, so a slot holding it evaluates at the next call.
constexpr double unset = std::numeric_limits<double>::quiet_NaN();
}  // namespace

VrBasePrimitiveContext::VrBasePrimitiveContext(VrDescription* description) : owner(description) {
  forgetFrames();
}

VrBasePrimitiveContext::~VrBasePrimitiveContext() = default;

void VrBasePrimitiveContext::forgetFrames() {
  for (int s = 0; s < 4; ++s) evalU[s] = evalV[s] = unset;
  for (int s = 0; s < 2; ++s) curvU[s] = curvV[s] = unset;
}

void VrBasePrimitiveContext::setActivePatchFace(const VrPatch* value, int face) {
  patch = value;
  faceId = face;
  activeGuides.clear();
  forgetFrames();
}

void VrBasePrimitiveContext::setcPatch(const VrPatch* value) {
  patch = value;
  forgetFrames();
}

bool VrBasePrimitiveContext::evalGeomWithDisplacement(int index, double u, double v) {
  Slot& s = slots[index];
  return patch->evalGeom(u, v, faceId, s.point, s.normal, s.dPdu, s.dPdv, index == 2, false);
}

void VrBasePrimitiveContext::Slot::square() {
  if (squared) return;
  VrPatch::squareTangents(normal, dPdu, dPdv);
  unitU = dPdu;
  unitU.normalize();
  unitV = dPdv;
  unitV.normalize();
  squared = true;
}

// Slots 0 and 2 read the reference surface, 1 and 3 the animated one; 0 and 1 hold the plain
// frame, 2 and 3 the displaced one. Another slot already at (u, v) answers for this one when both
// read the same surface (the same side, or a patch whose reference surface is its animated one)
// and, across plain and displaced, the displacement moves nothing: the displaced point is then the
// plain one plus signed zeros, which are the same bits wherever no coordinate is zero.
bool VrBasePrimitiveContext::takeFromAnotherSlot(int index, double u, double v) {
  // Most calls come at a new location, where no slot can answer.
  if (evalU[0] != u && evalU[1] != u && evalU[2] != u && evalU[3] != u) return false;
  for (int other = 0; other < 4; ++other) {
    if (other == index || evalU[other] != u || evalV[other] != v) continue;
    if ((other & 1) != (index & 1) && patch->isReferenced()) continue;
    if ((other >> 1) != (index >> 1)) {
      const SgVec3T<double>& p = slots[other].point;
      if (p.x == 0.0 || p.y == 0.0 || p.z == 0.0 || !displacementMovesNothing()) continue;
    }
    slots[index] = slots[other];
    evalU[index] = u;
    evalV[index] = v;
    return true;
  }
  return false;
}

void VrBasePrimitiveContext::evalPatch(int index, double u, double v) {
  if (!patch) return;
  if (takeFromAnotherSlot(index, u, v)) return;
  Slot& s = slots[index];
  s.squared = false;
  const bool ok = index < 2 ? patch->evalGeom(u, v, faceId, s.point, s.normal, s.dPdu, s.dPdv, index == 0, false)
                            : evalGeomWithDisplacement(index, u, v);
  if (!ok) {
    VR_ERROR("Failed to evaluate patch " + patch->name() + " of " + (owner ? owner->name() : std::string()) +
             " [" + std::to_string(faceId) + "]");
    culled = true;
    evalU[index] = evalV[index] = unset;
    return;
  }
  evalU[index] = u;
  evalV[index] = v;
}

void VrBasePrimitiveContext::evalCurvatureSlot(int index, double u, double v) {
  if (curvU[index] == u && curvV[index] == v) return;
  double k1 = 0.0, k2 = 0.0;
  if (!patch || !patch->evalCurvature(u, v, faceId, k1, k2, index == 0)) k1 = k2 = 0.0;
  curvature[index][0] = static_cast<float>(k1);
  curvature[index][1] = static_cast<float>(k2);
  curvU[index] = u;
  curvV[index] = v;
}

float VrBasePrimitiveContext::cKu(double u, double v, bool ref) {
  const int index = ref ? 0 : 1;
  evalCurvatureSlot(index, u, v);
  return curvature[index][0];
}

float VrBasePrimitiveContext::cKv(double u, double v, bool ref) {
  const int index = ref ? 0 : 1;
  evalCurvatureSlot(index, u, v);
  return curvature[index][1];
}

bool VrBasePrimitiveContext::getAttrValue(const std::string& name, SgVec3T<double>& value,
                                          const VrPrimitive*) const {
  return patch && patch->getAttrValue(name, value);
}

void VrBasePrimitiveContext::toRefGeomSpace(double u, double v, std::vector<SgVec3T<double>>& cvs) {
  if (cvs.empty() || !patch) return;
  // Copies: the two slots are read together.
  const Slot animated = squaredSlotAt(3, u, v);
  const Slot reference = squaredSlotAt(2, u, v);
  const SgVec3T<double> root = cvs[0];
  for (SgVec3T<double>& cv : cvs) {
    const SgVec3T<double> d = cv - root;
    const double a = d.dot(animated.unitU), b = d.dot(animated.unitV), h = d.dot(animated.normal);
    cv = reference.point + reference.unitU * a + reference.unitV * b + reference.normal * h;
  }
}
