#include "base/VrModules.h"

#include "base/VrMessage.h"

#include <map>
#include <memory>

namespace {
// Made on the first registration. Ordered, so that listings are stable.
std::unique_ptr<std::map<std::string, VrModuleCreator>>& registry() {
  static std::unique_ptr<std::map<std::string, VrModuleCreator>> modules;
  return modules;
}
}  // namespace

bool VrRegisterModule(const std::string& name, VrModuleCreator create) {
  if (!create) return false;
  auto& modules = registry();
  if (!modules) modules.reset(new std::map<std::string, VrModuleCreator>);
  return modules->emplace(name, create).second;
}

void* VrCreateObject(const std::string& name, VrDescription* description) {
  const auto& modules = registry();
  if (!modules) {
    VR_ERROR("Trying to use the " + name + " module but no modules are registered.");
    return nullptr;
  }
  auto found = modules->find(name);
  if (found == modules->end()) {
    VR_ERROR("Trying to use the " + name + " module but it is not registered.");
    return nullptr;
  }
  return found->second(description);
}

void VrGetRegisteredModules(std::vector<std::string>& names) {
  const auto& modules = registry();
  if (!modules) return;
  for (const auto& entry : *modules) {
    const std::string& name = entry.first;
    if (name == "SculptPrimitive" || name == "SculptRenderer" || name == "SculptGenerator") continue;
    names.push_back(name);
  }
}
