#pragma once
// VrRenderer: the base of the output back ends. It owns what all of them share: the walk over one
// face of one patch through every motion sample, the call into the description's generator, the
// per-face begin and end, the in-camera test of a face, the counters, the running bound of what
// was emitted and the statistics lines. A concrete back end decides what emitting one primitive
// means.
//
// Calling order for one description: `initDescription` once on the calling thread; then either
// `render` once per face (serial), or per worker `initDescriptionInParallel`, `renderInParallel`
// per face, `reduceContext`, `accumlateTotalEmitCount` and `finishDescriptionInParallel`
// (`renderPatchInParallel` does all of that for the faces of one patch); `finishDescription`
// once at the end.
//
// Threads: the camera state and the shadow pass flag are written by whoever renders (the render
// API front or a preview) before a description is initialised, and are read-only while
// primitives are generated. The serial path touches `emitCount`, the emitted box and `rendering`
// without locks. On the parallel path everything per worker lives in its primitive context and
// the `VrRendererContext` it points at; the renderer's shared fields change only through
// `totalEmitCount` (atomic add), `maxBound` (compare-and-swap) and what a back end does under
// `reduceMutex`.

#include "base/VrObject.h"
#include "geometry/SgBox3T.h"
#include "geometry/SgXform3T.h"
#include "renderers/VrRendererContext.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class VrPatch;
class VrPrimitiveContext;

class VrRenderer : public VrObject {
 public:
  /// Creates the attributes every renderer has: percent, startPercent, inCameraOnly and
  /// inCameraMargin.
  explicit VrRenderer(VrDescription* description);
  ~VrRenderer() override;

  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;

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

  /// @name Passes over a description
  /// @{
  /// Counts the samples, numbers the description and its patches within the collection, passes
  /// the start on to every sample's generator, resets `maxBound` and `totalEmitCount` and takes
  /// the camera direction into the collection's space.
  virtual void initDescription();
  /// A worker's start: every sample's generator gets its context; the renderer context's bound
  /// and total are reset.
  virtual void initDescriptionInParallel(VrPrimitiveContext& context);
  virtual void finishDescription();
  virtual void finishDescriptionInParallel(VrPrimitiveContext& context);
  /// Called before a face is generated, with one patch per sample. False skips the generation
  /// (the end of the face still runs). The base gives every sample's primitive context the face
  /// and resets the face's count and box.
  virtual bool beginPatchFace(const std::vector<VrPatch*>& patches, int face);
  virtual bool beginPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                        int face);
  /// Called after a face: raises `maxBound` by what was emitted, writes the statistics line and
  /// counts the face's primitives into the total.
  virtual void endPatchFace(const std::vector<VrPatch*>& patches, int face);
  virtual void endPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                      int face);
  /// @}

  /// @name Previews and what only some back ends need; the base does nothing
  /// @{
  virtual bool canRefresh() const { return false; }
  virtual void refresh(bool, bool) {}
  virtual void cleanRefresh() {}
  virtual void overrideColor(const std::string&) {}
  virtual void restoreColor() {}
  /// Whether the back end's own code may run on worker threads. The base answers false.
  virtual bool canRunInParallel() const { return false; }
  /// A new per-thread record for a worker, owned by the caller; the base's is zeroed.
  virtual std::unique_ptr<VrRendererContext> newRendererContext() const;
  /// Merges a worker's results; called by `reduceContext`. The base does nothing.
  virtual void reduceResult(VrRendererContext& context, const std::string& patchName, bool last);
  /// Whether the count of a face goes into `totalEmitCount` when the face ends. The base
  /// answers true.
  virtual bool incTotalCountAfterPatchEnd() const { return true; }
  /// Whether the generator builds a primitive's geometry before emitting it; back ends that
  /// record only locations answer false, and the primitive then holds no CVs of its own. The
  /// base answers true.
  virtual bool needsGeometry() const { return true; }
  /// @}

  /// @name Rendering
  /// @{
  /// Renders one face of the named patch through every motion sample.
  void render(int face, const std::string& patchName);
  /// The same on a worker: everything per thread lives in `context`.
  void renderInParallel(VrPrimitiveContext& context, int face, const std::string& patchName);
  /// `reduceResult`, then raises `maxBound` to the context's.
  void reduceContext(VrRendererContext& context, const std::string& patchName, bool last);
  /// Adds to `totalEmitCount` when `incTotalCountAfterPatchEnd` says so.
  void accumlateTotalEmitCount(unsigned count);
  /// Every face of the named patch on a task arena of `VrTaskManager::threadCount()` threads,
  /// between `initDescription` and `finishDescription`. Each chunk of faces gets its own
  /// primitive context per sample, generator context and renderer context. Faces go one by one
  /// through `render` when the active generator cannot run in parallel. False when the patch is
  /// missing.
  bool renderPatchInParallel(const std::string& patchName);
  /// @}

  /// @name The camera test of a face
  /// @{
  /// Whether any part of the face's box (of `patch`, animated) can be seen.
  bool faceInCam(int face, const VrPatch* patch) const;
  bool faceInCam(const SgBox3T<double>& box, const VrPatch* patch) const;
  /// Whether the world point lies inside the view, widened by `inCameraMargin`.
  bool pointInCam(const SgVec3T<double>& p) const;
  /// The camera's frustum as twelve vectors: four near corners (at z = +0.01), four far ones (at
  /// z = -1e7) and the four unnormalised inward normals of the side planes.
  static void createCameraInfo(std::vector<SgVec3T<double>>& points);
  /// Separating-plane test of two bodies given as eight corners (four in a loop, then the four
  /// opposite ones), `b` possibly followed by its side normals. True when no side plane of
  /// either separates them.
  static bool viewIntersect(const std::vector<SgVec3T<double>>& a, const std::vector<SgVec3T<double>>& b);
  /// @}

  /// @name State
  /// @{
  double percent() const { return percentValue; }
  double startPercent() const { return startValue; }
  bool inCameraOnly() const { return inCamOnly; }
  void setInCameraOnly(bool on) { inCamOnly = on; }
  /// In radians.
  double inCameraMargin() const { return inCamMargin; }
  /// Motion samples this render walks: the description plus its motion descriptions, or the
  /// description alone for a back end that writes each primitive once (`firstSampleOnly`).
  int numSamples() const { return samples; }
  /// Whether the back end takes each primitive at sample 0 only (files, instance lists): the
  /// walk then leaves the motion samples out, so that they are neither built nor compared.
  virtual bool firstSampleOnly() const { return false; }
  void setNumSamples(int n) { samples = n; }
  /// Primitives emitted for the current face (serial path).
  int emitCount() const { return faceEmits; }
  unsigned totalEmitCount() const { return totalEmits.load(); }
  double maxBound() const { return bound.load(); }
  bool dirty() const { return dirtyFlag; }
  void setDirty(bool on) { dirtyFlag = on; }
  bool isRendering() const { return renderingFlag; }
  void setRendering(bool on) { renderingFlag = on; }
  const SgVec3T<double>& localCamDir() const { return camDirLocal; }
  void setLocalCamDir(const SgVec3T<double>& dir) { camDirLocal = dir; }
  /// Taken by back ends that merge worker results.
  std::recursive_mutex& reduceMutex() { return reduceLock; }
  /// @}

  /// @name Camera state shared by the whole process
  /// @{
  /// Horizontal and vertical half-angles of the view, in radians.
  static const double* camFOV();
  static void setCamFOV(double both);
  static void setCamFOV(double horizontal, double vertical);
  static double camRatio();
  static void setCamRatio(double ratio);
  /// The direction the camera looks, in world space.
  static const SgVec3T<double>& camDir();
  static void setCamDir(const SgVec3T<double>& dir);
  /// The direction of the real camera during a shadow pass (camDir is then the light's).
  static const SgVec3T<double>& realCamDir();
  static void setRealCamDir(const SgVec3T<double>& dir);
  static bool camIsOrtho();
  static void setCamIsOrtho(bool on);
  static bool realCamIsOrtho();
  static void setRealCamIsOrtho(bool on);
  /// World to camera; the camera looks along its negative z axis.
  static const SgXform3T<double>& camInverseXform();
  /// Stores the transform and the camera position, the point it takes to the origin.
  static void setCamInverseXform(const SgXform3T<double>& worldToCamera);
  /// The camera position in world space.
  static const SgVec3T<double>& camPosition();
  static bool shadowPass();
  /// Also tells the expression system, whose functions may ask.
  static void setShadowPass(bool on);
  /// Whether motion samples take part in a shadow pass; true at start.
  static bool motionBlurShadows();
  static void setMotionBlurShadows(bool on);
  /// @}

 protected:
  /// @name For back ends on the serial path
  /// @{
  void incrEmitCount() { ++faceEmits; }
  /// Grows the emitted box of the current face.
  void mergeEmittedBox(const SgBox3T<double>& box);
  SgBox3T<double> emittedBox() const;
  /// @}
  /// The new bound after a face: the larger of `old` and the overshoots of `emitted` over
  /// `face`, rounded to two decimals and at least 0.01. `old` when nothing was emitted.
  static double raisedBound(double old, const SgBox3T<double>& emitted, const SgBox3T<double>& face);

 private:
  // The description of sample i (0: the own one); null past the end.
  VrDescription* sampleDescription(int i) const;
  // Collects one patch per sample for the face; false (with a message where one is due) when
  // the face is not to be rendered.
  bool collectPatches(int face, const std::string& patchName, std::vector<VrPatch*>& patches,
                      const VrPrimitiveContext* context) const;
  void generateFace(VrPrimitiveContext* context, int face, const std::vector<VrPatch*>& patches);
  void raiseMaxBound(double value);
  std::string faceText(const std::vector<VrPatch*>& patches, int face) const;

  // Set by every worker that renders a face of the same patch.
  std::atomic<bool> dirtyFlag{true};
  int samples = 1;
  double percentValue = 1.0;
  double startValue = 0.0;
  SgVec3T<double> camDirLocal;
  int faceEmits = 0;
  std::atomic<unsigned> totalEmits{0};
  long long timing = 0;
  std::atomic<double> bound{0.01};
  SgVec3T<double> emittedOrigin;
  SgVec3T<double> emittedSize;
  bool emittedValid = false;
  bool renderingFlag = false;
  bool inCamOnly = false;
  double inCamMargin = 0.0;
  std::recursive_mutex reduceLock;
};
