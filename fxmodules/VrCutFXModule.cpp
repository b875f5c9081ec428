#include "fxmodules/VrCutFXModule.h"

#include "geometry/SgCurve.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"

#include <cmath>

namespace {
using Vec = SgVec3T<double>;
// Shorter than this after the cut, a spline is culled.
constexpr double RemainingEpsilon = 0.0001;
}  // namespace

VrCutFXModule::VrCutFXModule(VrDescription* description)
    : VrFXModule(description), amount("amount", "CutFXModule", description, "rand(0.0,0.2)") {
  setAttr("name", "Cut", "string");
  setAttr("active", "true", "bool");
  setAttr("mask", "1.0", "expr");
  setAttr("amount", "rand(0.0,0.2)", "expr");
  setAttr("rebuildType", "0", "enum", "Keep Param:Reparam");
}

bool VrCutFXModule::setAttr(const std::string& name, const std::string& value, const std::string& type,
                            const std::string& enumStrings) {
  if (VrFXModule::setAttr(name, value, type, enumStrings)) return true;
  if (name == "amount") {
    amount.set(value);
    return true;
  }
  if (name == "rebuildType") return intAttr(name, value, rebuildType);
  return false;
}

void VrCutFXModule::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrFXModule::getExternalContext(pairs, prefix);
  amount.expr.getExternalContext(pairs, prefix + "amount");
}

bool VrCutFXModule::computeParallel(VrPrimitiveContext& context) {
  std::vector<Vec>& P = context.getGeom();
  if (P.size() < 2) return true;
  // The mask is rounded: a clamped mask below 0.5 rounds to 0.
  if (std::trunc(maskValue(context) + 0.5) < MaskEpsilon) return true;
  const double a = amount.at(VrFXLocation(context));
  if (!(a > 0.0)) return true;
  if (context.cLength() - a < RemainingEpsilon) {
    context.setCullPrim(true);
    return true;
  }
  const bool resample = reparameterizes();
  const double t = SgCurve::cutFromTip(P, a, resample);
  if (t <= 0.0) {
    context.setCullPrim(true);
    return true;
  }
  cutPointAttrs(primitive(), context, t, resample);
  return true;
}

void VrCutFXModule::cutPointAttrs(const VrPrimitive* owner, VrPrimitiveContext& context, double t, bool resample) {
  if (!owner) return;
  const size_t n = context.getGeom().size();
  const VrDict<std::string>& kinds = owner->cvAttrTypes();
  for (auto it = kinds.begin(); it != kinds.end(); ++it) {
    if (it.value() != "point") continue;
    std::vector<Vec>* values = context.cvAttr(it.key());
    if (values && values->size() == n) SgCurve::cut(*values, t, resample);
  }
}
