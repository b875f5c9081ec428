#pragma once
// The module registry: module names (generators, primitives, renderers, patches, FX modules)
// mapped to creator functions. Built-in modules register from static initialisers at library
// load; custom modules register from their own start-up code.

#include <string>
#include <vector>

class VrDescription;

using VrModuleCreator = void* (*)(VrDescription*);

/// Registers `create` under `name`. False for a null creator or a name already registered (the
/// first creator stays).
bool VrRegisterModule(const std::string& name, VrModuleCreator create);
/// A new object of the named module, owned by the caller; null with an Error when the name is
/// not registered.
void* VrCreateObject(const std::string& name, VrDescription* description);
/// Appends every registered name except the sculpt modules'.
void VrGetRegisteredModules(std::vector<std::string>& names);
