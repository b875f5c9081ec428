#include "primitives/VrPrimitiveContext.h"

#include "document/VrDescription.h"
#include "document/VrMessage.h"
#include "generators/VrGenerator.h"
#include "geometry/VrPatch.h"

#include <limits>

namespace {
constexpr double unset = std::numeric_limits<double>::quiet_NaN();
}  // namespace

VrPrimitiveContext::VrPrimitiveContext(VrDescription* description) : owner(description) { forgetFrames(); }

VrPrimitiveContext::~VrPrimitiveContext() = default;

void VrPrimitiveContext::forgetFrames() {
  // NaN never equals a parameter, so every slot evaluates again.
  for (int slot = 0; slot < 4; ++slot) evalU[slot] = evalV[slot] = unset;
}

void VrPrimitiveContext::setActivePatchFace(const VrPatch* value, int face) {
  patch = value;
  faceId = face;
  forgetFrames();
}

void VrPrimitiveContext::setcPatch(const VrPatch* value) {
  patch = value;
  forgetFrames();
}

void VrPrimitiveContext::evalPatch(int slot, double u, double v) {
  if (!patch || (evalU[slot] == u && evalV[slot] == v)) return;
  const bool ref = slot == 0 || slot == 2;
  bool ok = false;
  if (slot < 2) {
    ok = patch->evalGeom(u, v, faceId, point[slot], normal[slot], dPdu[slot], dPdv[slot], ref);
  } else {
    // The displaced surface: the active generator says how the surface is moved.
    const auto* generator = owner ? dynamic_cast<const VrGenerator*>(owner->activeGenerator()) : nullptr;
    ok = generator ? patch->evalGeom(u, v, faceId, &generator->displacement(), generator->vectorDisplacement(),
                                     &generator->bump(), &generator->offset(), point[slot], normal[slot],
                                     dPdu[slot], dPdv[slot], ref)
                   : patch->evalGeom(u, v, faceId, nullptr, false, nullptr, nullptr, point[slot], normal[slot],
                                     dPdu[slot], dPdv[slot], ref);
  }
  if (!ok) {
    VR_ERROR("Failed to evaluate patch " + patch->name() + " of " + (owner ? owner->name() : std::string()) +
             " [" + std::to_string(faceId) + "]");
    culled = true;
    evalU[slot] = evalV[slot] = unset;
    return;
  }
  evalU[slot] = u;
  evalV[slot] = v;
}

const SgVec3T<double>& VrPrimitiveContext::cP(double u, double v, bool ref) {
  const int slot = ref ? 2 : 3;
  evalPatch(slot, u, v);
  return point[slot];
}

const SgVec3T<double>& VrPrimitiveContext::cN(double u, double v, bool ref) {
  const int slot = ref ? 2 : 3;
  evalPatch(slot, u, v);
  return normal[slot];
}

const SgVec3T<double>& VrPrimitiveContext::cPg(double u, double v, bool ref) {
  const int slot = ref ? 0 : 1;
  evalPatch(slot, u, v);
  return point[slot];
}

const SgVec3T<double>& VrPrimitiveContext::cNg(double u, double v, bool ref) {
  const int slot = ref ? 0 : 1;
  evalPatch(slot, u, v);
  return normal[slot];
}
