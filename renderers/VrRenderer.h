#pragma once
// VrRenderer: the base of the output back ends. A concrete back end decides what emitting one
// primitive means.
//
// This first form holds only what the generators call while they place primitives: the
// emission test, the report of a culled primitive and the emission itself (each with its twin
// for worker threads), the number of motion samples a render walks, and the camera state that
// the whole process shares. The walk over faces (`render`), the per-face begin and end, the
// in-camera face test, the counters, the bounds and the statistics lines come with the render
// walk and are not here yet.
//
// Threads: the camera state and the shadow pass flag are written by whoever renders (the render
// API front or a preview) before a description is initialised, and are read-only while
// primitives are generated. On the parallel path `okToEmit` is called from several threads at
// once and must not change the renderer; everything per thread goes through the twins, which
// receive the worker's primitive context.

#include "document/VrObject.h"
#include "geometry/SgXform3T.h"

#include <vector>

class VrPatch;
class VrPrimitiveContext;

/// The per-thread result record of the parallel path. Back ends with more per-thread state
/// derive from it.
class VrRendererContext {
 public:
  virtual ~VrRendererContext() = default;

  /// Primitives emitted for the current face.
  int emitCount() const { return emits; }
  void incrEmitCount() { ++emits; }
  void resetEmitCount() { emits = 0; }

 private:
  int emits = 0;
};

class VrRenderer : public VrObject {
 public:
  explicit VrRenderer(VrDescription* description) : VrObject(description) {}

  /// @name Emission, called by the generator for each location it keeps
  /// @{
  /// Whether motion sample `sample` emits at (u, v). The base answers true.
  virtual bool okToEmit(int sample, double u, double v);
  /// Told that primitive `id` of `face` was culled; `code` says why: 2 by hand, 4 by the camera,
  /// 8 by the cull expression. True means the renderer wants the primitive all the same (for
  /// instance to draw culled primitives in another colour). The base answers false.
  virtual bool handleCulledPrimitive(unsigned code, int face, unsigned id, VrPatch* patch);
  /// The same on a worker thread; `context` is the culled sample's primitive context.
  virtual bool handleCulledPrimitiveInParallel(VrPrimitiveContext& context, unsigned code, int face,
                                               unsigned id, VrPatch* patch);
  /// Emits motion sample `sample` of the primitive built at (u, v) of `face`; `patches` holds
  /// one patch per sample, sample 0 first. The primitive itself is in the sample's primitive
  /// context.
  virtual void emitPrimitive(int sample, double u, double v, int face,
                             const std::vector<VrPatch*>& patches) = 0;
  /// The same on a worker thread; `context` is the worker's context of sample 0, whose motion
  /// samples are `context.sample(sample - 1)`. The base does nothing.
  virtual void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v,
                                       int face, const std::vector<VrPatch*>& patches);
  /// @}

  /// Motion samples this render walks: the description plus its motion descriptions. 1 until
  /// the render walk sets it when a description is initialised.
  int numSamples() const { return samples; }
  void setNumSamples(int n) { samples = n; }

  /// @name Camera state shared by the whole process
  /// @{
  /// Horizontal and vertical half-angles of the view, in radians.
  static const double* camFOV();
  static void setCamFOV(double both);
  static void setCamFOV(double horizontal, double vertical);
  /// World to camera; the camera looks along its negative z axis.
  static const SgXform3T<double>& camInverseXform();
  /// Stores the transform and the camera position, the point it takes to the origin.
  static void setCamInverseXform(const SgXform3T<double>& worldToCamera);
  /// The camera position in world space.
  static const SgVec3T<double>& camPosition();
  static bool shadowPass();
  /// Also tells the expression system, whose functions may ask.
  static void setShadowPass(bool on);
  /// @}

 private:
  int samples = 1;
};
