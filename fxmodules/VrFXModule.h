#pragma once
// VrFXModule: a module of a primitive's FX stack. It is a document object, so it has attributes,
// a type word and a block in the collection file; its place in the stack is its module index.
// Owned by its primitive; attributes change on the main thread only.
//
// The primitive drives a module through the hooks below: `initDescription` before a pass (which
// sets the module's primitive), `initModule` once the pass's CV counts are known,
// `beginPatchFace`/`endPatchFace` around each face, `computeParallel` on every primitive that is
// still standing, in stack order, and `finishModule` at the end of the pass. A module reshapes
// the context's CVs in place and must keep their count. The defaults change no primitive, so a
// module that only carries attributes is harmless in any stack.
//
// Threads: during a pass the module's fields are read-only; per-worker state lives in the
// module's `VrFXModuleContext`, which the primitive context keeps for each module.

#include "base/VrObject.h"
#include "expressions/VrExpression.h"
#include "geometry/SgRampUIComp.h"

#include <memory>
#include <string>
#include <vector>

class VrPatch;
class VrPrimitive;
class VrPrimitiveContext;

/// Per-worker state of one module, held by the primitive context. A clone copies it.
class VrFXModuleContext {
 public:
  virtual ~VrFXModuleContext() = default;
  /// The module type word this state belongs to.
  virtual std::string type() const { return ""; }
  virtual std::unique_ptr<VrFXModuleContext> clone() const { return std::make_unique<VrFXModuleContext>(*this); }
};

/// A ramp attribute of a module ("rampUI(pos,value,kind:...)"), with its values sampled at the
/// CVs of a primitive. Reading is safe from many threads; `set` is main-thread only.
class VrFXRamp {
 public:
  explicit VrFXRamp(const std::string& text) { ramp.init(text); }
  /// False for a text that does not parse (the keys read so far are kept).
  bool set(const std::string& text) { return ramp.init(text); }
  /// The ramp at x in [0, 1].
  double at(double x) const { return ramp.getValue(static_cast<float>(x)); }
  /// `out` gets one value per CV of an n-CV primitive, CV i at i/(n-1); `out` is reused, so a
  /// caller that keeps it allocates nothing in steady state.
  void sample(unsigned n, std::vector<double>& out) const;
  bool isConstant() const { return ramp.isConstant(); }

 private:
  SgRampUIComp ramp;
};

class VrFXModule : public VrObject {
 public:
  explicit VrFXModule(VrDescription* description);

  int moduleIndex() const { return index; }
  void setModuleIndex(int value) { index = value; }

  /// "active" (initially true) goes through `setActive`, "mask" (initially "1.0") sets the mask
  /// expression. False for other names. A module with behaviour declares both after its name.
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  /// Adds the mask's context under `prefix` + "mask".
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;

  /// An inactive module is skipped by the stack.
  bool isActive() const { return active; }
  virtual void setActive(bool value) { active = value; }

  /// Whether the module works on primitives of that type word; the base accepts every kind.
  virtual bool acceptsPrimitive(const std::string& primitiveType) const;

  /// The primitive whose stack holds the module, set by `initDescription`; null before.
  VrPrimitive* primitive() const { return owner; }

  /// @name Hooks driven by the primitive
  /// @{
  /// Before a pass, on the main thread: remembers `primitive`. A module whose data is unusable
  /// deactivates itself here (see `deactivate`).
  virtual void initDescription(VrPrimitive* primitive) { owner = primitive; }
  /// Before a worker's share of a pass: gives `context` this module's per-worker state.
  virtual void initDescriptionInParallel(VrPrimitiveContext& context);
  virtual void finishDescription() {}
  virtual void finishDescriptionInParallel(VrPrimitiveContext&) {}
  /// Once per pass, after the primitive's CV counts are known; false deactivates the module.
  virtual bool initModule(VrPrimitive*) { return true; }
  /// Switches the writing of the module's bake on or off for the passes that follow (the
  /// host's bake command; not saved). False for a module that has no bake.
  virtual bool setBake(bool) { return false; }
  virtual void finishModule(VrPrimitive*) {}
  virtual void beginPatchFace(VrPrimitiveContext&, const VrPatch*, int) {}
  virtual void endPatchFace(VrPrimitiveContext&, const VrPatch*, int) {}
  /// Declares the module's CV attributes on its primitive; the base has none.
  virtual void declareCVAttrs() {}
  /// Reshapes the primitive built in `context` in place, keeping its CV count; may set the
  /// context's cull flag. False asks for the primitive to be dropped. The base does nothing.
  virtual bool computeParallel(VrPrimitiveContext& context);
  /// The same on the primitive's serial context; false before `initDescription`.
  bool compute();
  /// Whether `computeParallel` may run on many workers at once; a module says so explicitly.
  virtual bool isThreadSafe() const { return false; }
  /// A fresh per-worker state, or null for a module without one.
  virtual std::unique_ptr<VrFXModuleContext> createModuleContext() const { return nullptr; }
  /// @}

  /// Whether the module is written into presets of its description.
  virtual bool includedInPreset() const { return true; }

  /// @name Helpers for module bodies
  /// @{
  /// `mask` at the context's location and face, clamped to [0, 1].
  double maskValue(VrPrimitiveContext& context) const;
  /// The mask below which a module leaves a primitive alone.
  static constexpr double MaskEpsilon = 0.0001;
  /// Reports `reason` + "Deactivating the module. [" + name + "," + description + "," +
  /// collection + "]" (an Error, or a Warning with `warning`) and switches the module off.
  void deactivate(const std::string& reason, bool warning = false);
  /// "[" + name + "," + description + "," + collection + "]": the tail of the module's messages.
  std::string messageTag() const;
  /// Parses a ramp attribute into `ramp`; on failure reports "Syntax Error in parsing " + name +
  /// ": " + text + " " + `messageTag()` and answers false.
  bool rampAttr(const std::string& name, const std::string& text, VrFXRamp& ramp);
  /// @}

 private:
  VrExpression maskExpression;
  VrPrimitive* owner = nullptr;
  int index = -1;
  bool active = true;
};
