#pragma once
// VrFXModule: a module of a primitive's FX stack. It is a document object, so it has attributes,
// a type word and a block in the collection file; its place in the stack is its module index.
// Owned by its primitive; main thread only.

#include "document/VrObject.h"

class VrFXModule : public VrObject {
 public:
  explicit VrFXModule(VrDescription* description) : VrObject(description) {}

  int moduleIndex() const { return index; }
  void setModuleIndex(int value) { index = value; }

 private:
  int index = -1;
};
