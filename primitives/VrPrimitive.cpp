#include "primitives/VrPrimitive.h"

#include "document/VrMessage.h"
#include "document/VrModules.h"
#include "fxmodules/VrFXModule.h"

#include <algorithm>
#include <ostream>

VrPrimitive::~VrPrimitive() {
  for (VrFXModule* module : stack) delete module;
}

VrFXModule* VrPrimitive::addFXModule(const std::string& type) {
  if (type.find("FXModule") == std::string::npos) {
    VR_ERROR("Trying to use the " + type + " module but it is not registered.");
    return nullptr;
  }
  auto* module = static_cast<VrFXModule*>(VrCreateObject(type, description()));
  if (!module) return nullptr;
  stack.push_back(module);
  renumberModules();
  VR_DEBUG(1, vrmsg::CatFXModule, type + " added.");
  return module;
}

bool VrPrimitive::removeFXModule(const std::string& name) {
  return removeFXModule(findFXModule(name));
}

bool VrPrimitive::removeFXModule(const VrFXModule* module) {
  auto found = std::find(stack.begin(), stack.end(), module);
  if (!module || found == stack.end()) return false;
  stack.erase(found);
  delete module;
  renumberModules();
  return true;
}

VrFXModule* VrPrimitive::findFXModule(const std::string& name, int* index) const {
  for (size_t i = 0; i < stack.size(); ++i) {
    if (stack[i]->name() == name) {
      if (index) *index = static_cast<int>(i);
      return stack[i];
    }
  }
  return nullptr;
}

bool VrPrimitive::moveFXModule(const std::string& name, int position) {
  int from = 0;
  VrFXModule* module = findFXModule(name, &from);
  if (!module) return false;
  const int to = std::clamp(position, 0, static_cast<int>(stack.size()) - 1);
  stack.erase(stack.begin() + from);
  stack.insert(stack.begin() + to, module);
  renumberModules();
  return true;
}

bool VrPrimitive::exportFXModules(std::ostream& out) const {
  bool ok = true;
  for (const VrFXModule* module : stack) ok = module->exportObj(out) && ok;
  return ok;
}

void VrPrimitive::getFXTextures(std::vector<std::string>& lines) const {
  for (const VrFXModule* module : stack) module->getTexMap(lines);
}

bool VrPrimitive::setFXTexture(const std::string& module, const std::string& attr,
                               const std::string& text) {
  VrFXModule* found = findFXModule(module);
  return found && found->setTexture(attr, text);
}

void VrPrimitive::makeGeometryInParallel(VrPrimitiveContext& context, double u, double v, VrFXModule*) {
  context.setCullPrim(false);
  context.cP(u, v, false);  // the frame first; everything else is built on it
}

void VrPrimitive::renumberModules() {
  for (size_t i = 0; i < stack.size(); ++i) stack[i]->setModuleIndex(static_cast<int>(i));
}
