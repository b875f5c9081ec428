#pragma once
// VrPrimitive: the base of the generated primitive kinds. It owns the ordered FX module stack
// that reshapes its primitives, and the primitive context of the serial path. Main thread only,
// except `makeGeometryInParallel` on a worker's own context.

#include "primitives/VrBasePrimitive.h"
#include "primitives/VrPrimitiveContext.h"

#include <iosfwd>
#include <string>
#include <vector>

class VrFXModule;

class VrPrimitive : public VrBasePrimitive {
 public:
  explicit VrPrimitive(VrDescription* description)
      : VrBasePrimitive(description), primContext(description) {}
  ~VrPrimitive() override;

  /// @name Building primitives
  /// @{
  /// The context of the serial path.
  VrPrimitiveContext& context() { return primContext; }
  const VrPrimitiveContext& context() const { return primContext; }
  /// Builds the primitive at (u, v) of the context's face into `context`, stopping before
  /// `fxModule` (null: every module). For now the surface frame only; a failed evaluation
  /// leaves the context's culled flag set.
  void makeGeometryInParallel(VrPrimitiveContext& context, double u, double v, VrFXModule* fxModule);
  /// The same on the serial context.
  void makeGeometry(double u, double v, VrFXModule* fxModule) {
    makeGeometryInParallel(primContext, u, v, fxModule);
  }
  /// @}

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
  VrPrimitiveContext primContext;
};
