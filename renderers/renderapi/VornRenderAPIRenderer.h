#pragma once
// VornRenderAPI::Renderer: the back end behind the render API (file token "RendermanRenderer").
// It packs emitted primitives into batches of typed arrays and hands each batch to the caller's
// `ProceduralCallbacks::flush` as a `PrimitiveCache`. `Renderer2` adds the parallel path: every
// worker fills the batch of its own `Renderer2::Context` and flushes it itself.
//
// Threads: the serial path (the renderer's own batch) runs under the render API's lock, one call
// at a time. On the parallel path nothing is shared between workers but the callbacks object,
// whose `flush` must be thread-safe.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "renderers/VrRenderer.h"
#include "renderers/renderapi/VornRenderAPI.h"
#include "renderers/renderapi/VornRenderAPIBatch.h"

class VrExpression;
class VrArchivePrimitive;
class VrPrimitive;

namespace VornRenderAPI {

class Renderer : public VrRenderer {
 public:
  explicit Renderer(VrDescription* description);
  ~Renderer() override;

  std::string typeName() const override { return "RendermanRenderer"; }
  /// Besides the attributes, accepts the pseudo attributes `addLength` ... `addDPdvrefg`, which
  /// set the flag of their channel, and `setCreateRibFile`, `setRibFilename`, `reUseDRAs`.
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;

  /// @name Passes
  /// @{
  void initDescription() override;
  void finishDescription() override;
  bool beginPatchFace(const std::vector<VrPatch*>& patches, int face) override;
  void endPatchFace(const std::vector<VrPatch*>& patches, int face) override;
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override;
  /// @}

  /// @name Render API state
  /// @{
  /// The callbacks that receive the batches (not owned); null drops them.
  void setCallbacks(ProceduralCallbacks* callbacks) { callbackObject = callbacks; }
  ProceduralCallbacks* callbacks() const { return callbackObject; }
  /// Shutter times of the render, for the check against the motion samples.
  void setShutter(std::vector<float> times) { shutterTimes = std::move(times); }
  const std::vector<float>& shutter() const { return shutterTimes; }
  /// Frame offsets of the geometry of each motion sample (`-motionSamplesPlacement`); replaced as
  /// a whole when a collection is read.
  void setMotionSamples(std::vector<double> placements) { placementOffsets = std::move(placements); }
  const std::vector<double>& motionSamples() const { return placementOffsets; }
  /// 1: DRA, 2: DSO, 0: neither.
  int renderMethod() const { return method; }
  void setRenderMethod(int value) { method = value; }
  void setFileName(const std::string& name) { ribFile = name; }
  const std::string& fileName() const { return ribFile; }
  double primitiveBound() const { return primBound; }
  /// Primitives per batch before an early flush; 0 flushes once per face.
  unsigned batchLimit() const { return limit; }
  void setBatchLimit(unsigned value) { limit = value; }
  /// Whether channel `flag` (an `EBoolAttribute`, 0 to 36) is on.
  bool flag(PrimitiveCache::EBoolAttribute key) const { return state.flags[static_cast<int>(key)]; }
  void setFlag(PrimitiveCache::EBoolAttribute key, bool on) {
    state.flags[static_cast<int>(key)] = on;
    const uint64_t bit = uint64_t(1) << static_cast<int>(key);
    flagBits = on ? flagBits | bit : flagBits & ~bit;
  }
  /// What the batch view reads besides the arrays.
  const BatchState& batchState() const { return state; }
  /// Rows of the custom tables: declared custom attributes, then per-CV attributes.
  size_t customChannelCount() const { return customChannels.size(); }
  /// @}

 protected:
  /// Packs sample `sample` of the primitive in `context` into `batch`; true on the last sample
  /// (the primitive is complete).
  bool emitInto(Batch& batch, VrPrimitiveContext& context, VrPrimitiveContext& first, int sample, double u,
                double v, int face, const std::vector<VrPatch*>& patches);
  /// Hands `batch` to `callbacks` under the patch name after its last ":", then empties it.
  void flushBatch(Batch& batch, ProceduralCallbacks* callbacks, const std::string& patchName) const;

  BatchState state;
  uint64_t flagBits = 0;  // the flags again, one bit each: a group of channels is tested at once
  static_assert(sizeof(BatchState::flags) <= 64, "one bit a flag");

 private:
  /// The level-of-detail factor expressions of one motion sample, parsed once per description
  /// setup; null where the text is empty.
  struct HammerSet {
    bool on = false;
    std::unique_ptr<VrExpression> length, width, depth, taper;
  };
  /// One declared custom channel: a uniform custom attribute of the primitive (evaluated per
  /// primitive) or a per-CV attribute of the primitive context (copied per CV). Its row in the
  /// custom float (or int) table is its place in `customChannels`.
  struct CustomChannel {
    std::string name;
    std::shared_ptr<VrExpression> expression;  ///< null for a per-CV attribute
    bool isInt = false;
    bool perCV = false;
    unsigned components = 1;  ///< floats per primitive (uniform) or per CV
  };

  bool setChannelFlag(const std::string& name, const std::string& value);
  void prepareHammers();
  /// The pixel ranges of an archive's slots in use, for the batch views; none for other kinds.
  void describeLodRanges(const VrArchivePrimitive* archive);
  /// The files, frame, group and box of one archive (first sample only).
  void emitArchiveChannels(Batch& batch, const VrArchivePrimitive& archive, const VrPrimitiveContext& context) const;
  void declareCustomChannels(VrPrimitive* primitive);
  void emitCustomChannels(Batch& batch, VrPrimitiveContext& context, double u, double v, int face,
                          const std::string* patchName, size_t cvCount) const;

  ProceduralCallbacks* callbackObject = nullptr;
  Batch serialBatch;
  std::string serialPatch;
  std::vector<float> shutterTimes;
  std::vector<double> placementOffsets;
  std::vector<HammerSet> hammerSets;  ///< by motion sample
  std::vector<CustomChannel> customChannels;
  int method = 0;
  std::string ribFile;
  double primBound = 0.0;
  unsigned limit = 2000;
  std::unique_ptr<VrExpression> randInt;
  std::unique_ptr<VrExpression> randFloat;
};

/// The parallel form: batches live in the worker's context.
class Renderer2 : public Renderer {
 public:
  /// The per-worker record: its batch, the callbacks and the user data of the worker's faces.
  class Context : public VrRendererContext {
   public:
    Batch batch;
    Renderer* renderer = nullptr;
    ProceduralCallbacks* callbacks = nullptr;
    void* userData = nullptr;
    std::string patchName;
  };

  explicit Renderer2(VrDescription* description) : Renderer(description) {}

  bool canRunInParallel() const override { return true; }
  std::unique_ptr<VrRendererContext> newRendererContext() const override;
  bool beginPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                int face) override;
  void endPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                              int face) override;
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override;
};

}  // namespace VornRenderAPI
