#pragma once
// VrDataObject: a document object of a registered module whose behaviour this build does not
// provide. It keeps every attribute as text, so a file that uses the module reads and writes
// back unchanged.

#include "document/VrObject.h"

class VrDataObject : public VrObject {
 public:
  VrDataObject(const std::string& moduleName, VrDescription* description)
      : VrObject(description), moduleName(moduleName) {}
  std::string typeName() const override { return moduleName; }

 private:
  std::string moduleName;
};
