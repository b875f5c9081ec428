#pragma once
// VrPrimitive: the base of the generated primitive kinds. It owns the ordered FX module stack
// that reshapes its primitives. Main thread only.

#include "primitives/VrBasePrimitive.h"

#include <iosfwd>
#include <string>
#include <vector>

class VrFXModule;

class VrPrimitive : public VrBasePrimitive {
 public:
  explicit VrPrimitive(VrDescription* description) : VrBasePrimitive(description) {}
  ~VrPrimitive() override;

  /// @name FX module stack (owned, in stack order)
  /// @{
  const std::vector<VrFXModule*>& modules() const { return stack; }
  /// Creates a module of `type` through the module registry and appends it; null on failure.
  VrFXModule* addFXModule(const std::string& type);
  /// Deletes the first module of that name; false when there is none.
  bool removeFXModule(const std::string& name);
  /// Deletes this module of the stack; false when it is not in the stack.
  bool removeFXModule(const VrFXModule* module);
  /// The first module of that name (and its stack index), or null.
  VrFXModule* findFXModule(const std::string& name, int* index = nullptr) const;
  /// Moves the first module of that name to `position`, clamped to the stack; false when there
  /// is none.
  bool moveFXModule(const std::string& name, int position);
  /// Writes one object block per module, in stack order.
  bool exportFXModules(std::ostream& out) const;
  /// Appends the texture lines of every module.
  void getFXTextures(std::vector<std::string>& lines) const;
  /// Links a texture to an attribute of the named module; false when no module has it.
  bool setFXTexture(const std::string& module, const std::string& attr, const std::string& text);
  /// @}

 private:
  void renumberModules();

  std::vector<VrFXModule*> stack;
};
