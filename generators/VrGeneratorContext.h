#pragma once
// VrGeneratorContext: the per-thread record of a generator on the parallel path. A worker's
// primitive context points at it; the generator counts into it instead of into its own fields,
// and keeps there what it looked up once per face. A generator with per-thread state derives
// from it (`VrGenerator::newGeneratorContext`). Only its own thread touches it.

class VrRenderer;

class VrGeneratorContext {
 public:
  virtual ~VrGeneratorContext() = default;

  /// Locations culled on the current face.
  unsigned numCulled() const { return culled; }
  void addNumCulled(unsigned n) { culled += n; }
  void resetNumCulled() { culled = 0; }

  /// Primitives emitted on the current face.
  unsigned numEmitted() const { return emitted; }
  void addNumEmitted(unsigned n) { emitted += n; }
  void resetNumEmitted() { emitted = 0; }

  /// The renderer the current face emits to, found when the face starts (not owned).
  VrRenderer* renderer() const { return target; }
  void setRenderer(VrRenderer* renderer) { target = renderer; }

 private:
  unsigned culled = 0;
  unsigned emitted = 0;
  VrRenderer* target = nullptr;
};
