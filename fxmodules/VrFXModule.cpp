#include "fxmodules/VrFXModule.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"

#include <algorithm>

void VrFXRamp::sample(unsigned n, std::vector<double>& out) const {
  out.resize(n);
  if (n == 1) out[0] = at(0.0);
  if (n < 2) return;
  const double step = 1.0 / static_cast<double>(n - 1);
  for (unsigned i = 0; i < n; ++i) out[i] = at(i * step);
}

VrFXModule::VrFXModule(VrDescription* description)
    : VrObject(description), maskExpression("mask", "FXModule", description, "1.0", "float") {}

bool VrFXModule::setAttr(const std::string& name, const std::string& value, const std::string& type,
                         const std::string& enumStrings) {
  if (VrObject::setAttr(name, value, type, enumStrings)) return true;
  if (name == "active") {
    bool on = true;
    if (!boolAttr(name, value, on)) return false;
    setActive(on);
    return true;
  }
  if (name == "mask") {
    maskExpression.setExpression(value);
    return true;
  }
  return false;
}

void VrFXModule::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrObject::getExternalContext(pairs, prefix);
  maskExpression.getExternalContext(pairs, prefix + "mask");
}

bool VrFXModule::acceptsPrimitive(const std::string&) const { return true; }

void VrFXModule::initDescriptionInParallel(VrPrimitiveContext& context) {
  if (std::unique_ptr<VrFXModuleContext> state = createModuleContext())
    context.addModuleContext(this, std::move(state));
}

bool VrFXModule::computeParallel(VrPrimitiveContext&) { return true; }

bool VrFXModule::compute() { return owner ? computeParallel(owner->context()) : false; }

double VrFXModule::maskValue(VrPrimitiveContext& context) const {
  const VrPatch* patch = context.cPatch();
  const std::string* patchName = patch ? &patch->name() : nullptr;
  const double m = maskExpression.eval(context.cu(false), context.cv(false), context.cFaceId(), patchName)[0];
  return std::clamp(m, 0.0, 1.0);
}

std::string VrFXModule::messageTag() const {
  const VrDescription* desc = description();
  const VrPalette* collection = desc ? desc->palette() : nullptr;
  return "[" + name() + "," + (desc ? desc->name() : std::string()) + "," +
         (collection ? collection->name() : std::string()) + "]";
}

void VrFXModule::deactivate(const std::string& reason, bool warning) {
  const std::string text = reason + "Deactivating the module. " + messageTag();
  if (warning)
    VR_WARNING(1, text);
  else
    VR_ERROR(text);
  setActive(false);
}

bool VrFXModule::rampAttr(const std::string& name, const std::string& text, VrFXRamp& ramp) {
  if (ramp.set(text)) return true;
  VR_ERROR("Syntax Error in parsing " + name + ": " + text + " " + messageTag());
  return false;
}
