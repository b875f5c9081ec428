#pragma once
// VrFXModule: a module of a primitive's FX stack. It is a document object, so it has attributes,
// a type word and a block in the collection file; its place in the stack is its module index.
// Owned by its primitive; attributes change on the main thread only.
//
// The primitive drives a module through the hooks below: `initModule` once the pass's CV counts
// are known, `beginPatchFace`/`endPatchFace` around each face, `apply` on every primitive that
// is still standing, in stack order, and `finishModule` at the end of the pass. The defaults do
// nothing, so a module that only carries attributes changes no primitive.

#include "document/VrObject.h"

#include <memory>

class VrPatch;
class VrPrimitive;
class VrPrimitiveContext;

/// Per-worker state of one module, held by the primitive context. A clone copies it.
class VrFXModuleContext {
 public:
  virtual ~VrFXModuleContext() = default;
  virtual std::unique_ptr<VrFXModuleContext> clone() const { return std::make_unique<VrFXModuleContext>(*this); }
};

class VrFXModule : public VrObject {
 public:
  explicit VrFXModule(VrDescription* description) : VrObject(description) {}

  int moduleIndex() const { return index; }
  void setModuleIndex(int value) { index = value; }

  /// The "active" attribute sets the flag as well.
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override {
    if (VrObject::setAttr(name, value, type, enumStrings)) return true;
    if (name == "active") return boolAttr(name, value, active);
    return false;
  }

  /// An inactive module is skipped by the stack.
  bool isActive() const { return active; }
  void setActive(bool value) { active = value; }

  /// @name Hooks driven by the primitive
  /// @{
  /// Once per pass, after the primitive's CV counts are known; false deactivates the module.
  virtual bool initModule(VrPrimitive*) { return true; }
  virtual void finishModule(VrPrimitive*) {}
  virtual void beginPatchFace(VrPrimitiveContext&, const VrPatch*, int) {}
  virtual void endPatchFace(VrPrimitiveContext&, const VrPatch*, int) {}
  /// Reshapes the primitive in `context` at (u, v); may set the context's culled flag.
  virtual void apply(VrPrimitive*, VrPrimitiveContext&, double, double) {}
  /// False forces the serial path for the whole render.
  virtual bool canRunInParallel() const { return true; }
  /// @}

  /// Whether the module is written into presets of its description.
  virtual bool includedInPreset() const { return true; }

 private:
  int index = -1;
  bool active = true;
};
