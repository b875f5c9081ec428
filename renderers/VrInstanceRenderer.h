#pragma once
// VrInstanceRenderer: what the two back ends that export archive primitives as instances share
// (`VrParticleRenderer`, a particle file; `VrPromoteRenderer`, a ".pmt" text). For each
// primitive of sample 0 that the subclass keeps, it grows the emitted box by the primitive's CVs,
// counts it and dispatches on the primitive's `typeName`: an "ArchivePrimitive" becomes a
// `VrInstanceRecord` handed to the subclass and is then culled by hand in its patch
// (`VrPatch::cullPrim`), so that the description no longer draws what was exported. Cards,
// spheres and splines are refused with "<Kind> primitive not yet supported by <typeName>.",
// any other kind with "Unsupported primitive type: <type>"; both set the failed flag.
//
// Serial only (the marking writes the patch); main thread. After a failure every emit returns at
// once until the next `initDescription`.

#include "expressions/VrExpression.h"
#include "io/output/VrInstanceRecord.h"
#include "renderers/VrRenderer.h"

#include <memory>
#include <string>
#include <vector>

class VrInstanceRenderer : public VrRenderer {
 public:
  /// True for sample 0 only: an instance is exported once however many motion samples exist.
  bool okToEmit(int sample, double u, double v) override;
  bool firstSampleOnly() const override { return true; }
  /// Clears the failed flag, then initialises as every renderer does.
  void initDescription() override;
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override;

  bool failed() const { return failedFlag; }

 protected:
  /// `objectWord` seeds the internal expressions (`randIntInternal`, `randFloatInternal`).
  VrInstanceRenderer(VrDescription* description, const std::string& objectWord);

  /// Whether the primitive at the location is exported; the base keeps every one.
  virtual bool keeps(double u, double v, int face, const std::string* patchName);
  /// Writes one instance; false after a write failure, which the subclass has reported.
  virtual bool writeInstance(const VrInstanceRecord& record) = 0;
  void setFailed() { failedFlag = true; }

 private:
  bool makeRecord(VrPrimitiveContext& context, double u, double v, int face, const VrPatch& patch,
                  VrInstanceRecord& record) const;

  std::unique_ptr<VrExpression> randInt;
  std::unique_ptr<VrExpression> randFloat;
  bool failedFlag = false;
};
