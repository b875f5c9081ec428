#include "fxmodules/VrAnimWiresFXModule.h"

#include "base/VrMessage.h"
#include "fxmodules/VrClumpingFXModule.h"
#include "fxmodules/VrCollisionFXModule.h"
#include "geometry/SgCurve.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"

VrAnimWiresFXModule::VrAnimWiresFXModule(VrDescription* description) : VrFXModule(description) {
  setAttr("name", "AnimWires", "string");
  setAttr("active", "true", "bool");
  setAttr("mask", "1.0", "expr");
  setAttr("affectCollision", "true", "bool");
  setAttr("wireSource", "0", "enum", "interpolationGuide:clumpGuide");
  setAttr("clumpType", "1", "uint");
}

bool VrAnimWiresFXModule::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                  const std::string& enumStrings) {
  if (VrFXModule::setAttr(name, value, type, enumStrings)) return true;
  if (name == "affectCollision") return boolAttr(name, value, affectCollision);
  if (name == "wireSource") return intAttr(name, value, source);
  if (name == "clumpType") return uintAttr(name, value, clumpType);
  return false;
}

void VrAnimWiresFXModule::initDescription(VrPrimitive* owner) {
  VrFXModule::initDescription(owner);
  clumps = nullptr;
  if (!isActive() || source != ClumpGuide || !owner) return;
  clumps = clumpModule(*owner, clumpType, this);
  if (!clumps || !clumps->isActive()) deactivate("Dependency check fails. ");
}

bool VrAnimWiresFXModule::wireAt(const VrPrimitiveContext& context, size_t count,
                                 std::vector<SgVec3T<double>>& wire) const {
  wire.clear();
  const std::vector<SgVec3T<double>>* cvs = nullptr;
  if (source == ClumpGuide) {
    const VrClumpGuide* guide = clumps ? getClumpGuides(*clumps, context) : nullptr;
    if (guide) cvs = &guide->cvs;
  } else if (const VrPrimitive* owner = primitive()) {
    int dominant = -1;
    double best = -1.0;
    for (size_t i = 0; i < context.activeGuides.size() && i < context.weight.size(); ++i)
      if (context.weight[i] > best) {  // the earlier guide keeps a tie
        best = context.weight[i];
        dominant = context.activeGuides[i];
      }
    if (dominant >= 0 && static_cast<unsigned>(dominant) < owner->numGuides())
      cvs = &owner->guide(static_cast<unsigned>(dominant)).cGuideGeom();
  }
  if (!cvs || cvs->size() < 2) return false;
  if (cvs->size() == count)
    wire = *cvs;
  else
    SgCurve::rebuild(wire, *cvs, static_cast<int>(count), true);
  if (wire.size() == count) return true;
  wire.clear();
  return false;
}

bool VrAnimWiresFXModule::computeParallel(VrPrimitiveContext& context) {
  const char* pipeName = VrCollisionFXModule::wirePipeName();
  context.removePipeData(pipeName);
  if (!affectCollision) return true;
  const size_t count = context.cGeom().size();
  if (count < 2 || maskValue(context) < MaskEpsilon) return true;
  std::vector<SgVec3T<double>> wire;
  if (wireAt(context, count, wire))
    context.setPipeData(pipeName, wire);
  else
    VR_DEBUG(4, vrmsg::CatFXModule, "No wire for primitive " + std::to_string(context.id()) + ".");
  return true;
}
