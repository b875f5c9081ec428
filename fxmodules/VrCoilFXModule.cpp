// The coil module. With the mask m, c = 0.025 m count and r = m radius, along the CVs:
//
//   angle_i = angle_{i-1} + (0.5 - countScale_i) step_i 200 pi / length
//   P[i] += rotate(across_i r radiusScale_i, about along_i, angle_i c)
//
// 200 pi / length makes a `count` of 1 wind 2.5 turns over the whole length per unit of
// `countScale` away from 0.5, whatever the spline's length.

#include "fxmodules/VrCoilFXModule.h"

#include "fxmodules/VrFXRotation.h"
#include "primitives/VrPrimitiveContext.h"

#include <cmath>

namespace {

using Vec = SgVec3T<double>;
constexpr double TwoHundredPi = 628.3185307179587;

// A worker's buffers for one coil module.
class CoilState : public VrFXModuleContext {
 public:
  std::string type() const override { return "CoilFXModule"; }
  std::unique_ptr<VrFXModuleContext> clone() const override { return std::make_unique<CoilState>(*this); }
  std::vector<double> countScale, radiusScale;
  unsigned sampledFor = 0;
  VrFXCurveFrame frame;
};

}  // namespace

VrCoilFXModule::VrCoilFXModule(VrDescription* description)
    : VrFXModule(description),
      count("count", "CoilFXModule", description, "1.0"),
      radius("radius", "CoilFXModule", description, "1.0"),
      countScale("rampUI(0,0.75,3:1,1,3)"),
      radiusScale("rampUI(0,0,3:0.3,1,3)") {
  setAttr("name", "Coil", "string");
  setAttr("active", "true", "bool");
  setAttr("mask", "1.0", "expr");
  setAttr("count", "1.0", "expr");
  setAttr("countScale", "rampUI(0,0.75,3:1,1,3)", "rampUI");
  setAttr("radius", "1.0", "expr");
  setAttr("radiusScale", "rampUI(0,0,3:0.3,1,3)", "rampUI");
}

bool VrCoilFXModule::setAttr(const std::string& name, const std::string& value, const std::string& type,
                             const std::string& enumStrings) {
  if (VrFXModule::setAttr(name, value, type, enumStrings)) return true;
  if (name == "count") {
    count.set(value);
    return true;
  }
  if (name == "radius") {
    radius.set(value);
    return true;
  }
  if (name == "countScale") return rampAttr(name, value, countScale);
  if (name == "radiusScale") return rampAttr(name, value, radiusScale);
  return false;
}

void VrCoilFXModule::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrFXModule::getExternalContext(pairs, prefix);
  count.expr.getExternalContext(pairs, prefix + "count");
  radius.expr.getExternalContext(pairs, prefix + "radius");
}

std::unique_ptr<VrFXModuleContext> VrCoilFXModule::createModuleContext() const {
  return std::make_unique<CoilState>();
}

bool VrCoilFXModule::computeParallel(VrPrimitiveContext& context) {
  std::vector<Vec>& P = context.getGeom();
  const size_t n = P.size();
  if (n < 2) return true;
  const double m = maskValue(context);
  if (m < MaskEpsilon) return true;
  const VrFXLocation where(context);
  const double c = m * 0.025 * count.at(where);
  const double r = m * radius.at(where);
  if (!(c > 0.0) || !(r > 0.0)) return true;

  auto* state = static_cast<CoilState*>(context.fxModuleContext(this));
  if (!state) {
    context.addModuleContext(this, createModuleContext());
    state = static_cast<CoilState*>(context.fxModuleContext(this));
  }
  if (state->sampledFor != n) {
    countScale.sample(static_cast<unsigned>(n), state->countScale);
    radiusScale.sample(static_cast<unsigned>(n), state->radiusScale);
    state->sampledFor = static_cast<unsigned>(n);
  }
  VrFXCurveFrame& frame = state->frame;
  if (!frame.build(P, context.cN(where.u, where.v, false), context.cU(where.u, where.v, false))) return true;

  const double factor = TwoHundredPi / frame.length;
  double angle = 0.0;
  for (size_t i = 1; i < n; ++i) {
    angle += (0.5 - state->countScale[i]) * frame.steps[i - 1] * factor;
    const Vec offset = frame.across[i] * (r * state->radiusScale[i]);
    P[i] += vrutil::rotatedAbout(offset, frame.along(i), angle * c);
  }
  return true;
}
