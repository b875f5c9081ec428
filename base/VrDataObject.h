#pragma once
// VrDataModule: an object of a registered module whose behaviour this build does not provide.
// It takes its type word from the registration and keeps every attribute as text, so a file
// that uses the module reads and writes back unchanged. `Base` is the module's family class
// (document object, primitive, FX module or patch).

#include "base/VrObject.h"

#include <string>

class VrDescription;

template <class Base>
class VrDataModule : public Base {
 public:
  VrDataModule(const std::string& moduleName, VrDescription* description)
      : Base(description), moduleName(moduleName) {}
  std::string typeName() const override { return moduleName; }

 private:
  std::string moduleName;
};

using VrDataObject = VrDataModule<VrObject>;
