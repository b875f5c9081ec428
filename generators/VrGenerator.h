#pragma once
// VrGenerator: the base of the location generators. A generator decides where on a face
// primitives stand; the subclasses only choose locations (u, v) and hand each one to `emitIfOk`,
// which takes it through level of detail, culling before geometry, geometry building for every
// motion sample, culling after geometry and emission to the description's renderer. The base
// owns the attributes every generator shares: displacement, bump, offset, culling and region
// preview.
//
// The render walk calls `generate(face, patches, start, percent)` once per face, with one patch
// per motion sample (sample 0 first), after it has given each sample's primitive context the
// face (`VrPrimitiveContext::setActivePatchFace`). A primitive's identity is the pair (face, id),
// id being the primitive context's counter: `generate` starts it at 0, the subclass advances it
// for each location, and every motion sample gets the same id.
//
// Serial and parallel paths. `generate` and the plain forms run on one thread and count into
// the generator's own fields. Each operation has a twin with the suffix `InParallel` that takes
// a worker's primitive context and touches only that context, its sample contexts and its
// `VrGeneratorContext`, reading the attributes; a subclass tells by `canRunInParallel` whether
// the twins may be used. The plain forms call their twins with a primitive's own context (the
// one `VrPrimitive::context()` returns), which the twins recognise as the serial path: they then
// count into the generator, keep the width factor on the description and call the renderer's
// plain operations. A subclass therefore overrides the twins. The twins that take a sample index
// are given the context of sample 0 and find the sample's own context from it.
//
// Level of detail on the parallel path: its values reach expressions as process-wide custom
// variables, so while a description's `lodFlag` is on, the twin of `emitIfOk` holds one lock
// for the whole location.
//
// Attributes are set on the main thread while nothing generates.

#include "base/VrObject.h"
#include "expressions/VrExpression.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

class VpdReader;
class VrGeneratorContext;
class VrPatch;
class VrPrimitive;
class VrPrimitiveContext;
class VrRenderer;

class VrGenerator : public VrObject {
 public:
  explicit VrGenerator(VrDescription* description);
  ~VrGenerator() override;

  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  /// The base's pairs, then those of displacement, bump, offset and cullExpr under prefix +
  /// their names.
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;

  /// @name Passes over a description
  /// @{
  /// With level of detail on: keeps the offset text and wraps it (`wrapLodOffset`) unless the
  /// primitive is a spline primitive, and prepares the description's screen-size expression.
  virtual void initDescription();
  virtual void initDescriptionInParallel(VrPrimitiveContext& context);
  /// With level of detail on: gives the offset its text back.
  virtual void finishDescription();
  virtual void finishDescriptionInParallel(VrPrimitiveContext& context);
  /// Whether the `InParallel` twins may be used. The base answers false.
  virtual bool canRunInParallel() const { return false; }
  /// A new per-thread record for a worker, owned by the caller.
  virtual std::unique_ptr<VrGeneratorContext> newGeneratorContext() const;
  virtual void initGenerator() {}
  virtual void finishGenerator() {}
  virtual void deactivate() {}
  /// @}

  /// @name The path of one location
  /// Every test answers true when the location is culled. `primitive` and `patch` are those of
  /// the motion sample being tested.
  /// @{
  /// Level of detail, culling by hand, then by the camera (back faces and the view frustum).
  virtual bool cullPreGeometry(double u, double v, int face, VrPrimitive* primitive, VrPatch* patch);
  virtual bool cullPreGeometryInParallel(VrPrimitiveContext& context, int sample, double u, double v,
                                         int face, VrPrimitive* primitive, VrPatch* patch);
  /// The cull expression, on the primitive as built.
  virtual bool cullPostGeometry(double u, double v, int face, VrPrimitive* primitive, VrPatch* patch);
  virtual bool cullPostGeometryInParallel(VrPrimitiveContext& context, int sample, double u, double v,
                                          int face, VrPatch* patch);
  /// Takes the location to the renderer; true when the primitive was emitted. The caller has
  /// advanced the id already.
  virtual bool emitIfOk(double u, double v, int face, const std::vector<VrPatch*>& patches);
  virtual bool emitIfOkInParallel(VrPrimitiveContext& context, double u, double v, int face,
                                  const std::vector<VrPatch*>& patches);
  /// Chooses the locations of one face: the subclass's part.
  virtual void genPrimitives(int face, const std::vector<VrPatch*>& patches, double start,
                             double percent) = 0;
  /// The base does nothing.
  virtual void genPrimitivesInParallel(VrPrimitiveContext& context, int face,
                                       const std::vector<VrPatch*>& patches, double start, double percent);
  /// Builds motion sample `sample` of the primitive at (u, v); false when it was refused.
  virtual bool fillGeometry(int sample, double u, double v, int face);
  virtual bool fillGeometryInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face);
  /// @}

  /// @name Generation of one face
  /// `start` and `percent` (both in [0, 1]) choose the window of the face's sequence to emit.
  /// @{
  void generate(int face, const std::vector<VrPatch*>& patches, double start, double percent);
  void generateInParallel(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches,
                          double start, double percent);
  /// @}

  /// @name Attributes
  /// @{
  const VrExpression& displacement() const { return displacementExpr; }
  bool vectorDisplacement() const { return vectorDisp; }
  const VrExpression& bump() const { return bumpExpr; }
  const VrExpression& offset() const { return offsetExpr; }
  const VrExpression& cullExpr() const { return cullExpression; }
  bool cullPrims() const { return cullFlag; }
  bool cullBackface() const { return cullBackfaceFlag; }
  bool cullFrustrum() const { return cullFrustrumFlag; }
  /// In radians.
  double cullAngleBF() const { return cullAngleBFRadians; }
  double cullAngleF() const { return cullAngleFRadians; }
  /// Locations culled during the last serial `generate`.
  unsigned numCulled() const { return culledCount; }
  /// Copies displacement, bump, offset, culling and region preview from another generator, so
  /// that a generator of another type takes them over when the active one is switched.
  void copyBaseAttrs(const VrGenerator* other);
  /// @}

  /// @name Region preview
  /// Only locations whose region colour decodes to one of the ids are generated; an empty list
  /// turns the preview off.
  /// @{
  VrExpression& regionExpr() { return regionExpression; }
  const VrExpression& regionExpr() const { return regionExpression; }
  const std::vector<unsigned>& regionIds() const { return regions; }
  void setRegionIds(std::vector<unsigned> ids) { regions = std::move(ids); }
  void clearRegions() { regions.clear(); }
  bool renderRegionCheck() const { return !regions.empty(); }
  /// Whether the region colour at the location decodes to a listed id; false with no ids.
  bool validRenderRegion(double u, double v, int face, const std::string& patchName) const;
  /// @}

  /// The offset text that makes a primitive sink into the surface by what level of detail
  /// widens it: the last non-blank line L of `text` (lines separated by the two characters
  /// backslash and n) becomes "$__tmp__lodOffset__=L;\n$__tmp__lodOffset__-(clamp(
  /// $lodWidthCoefficient,0,3)-1)*$initialWidth", the lines before it kept. An empty text stays
  /// empty, as does one without a non-blank line.
  static std::string wrapLodOffset(const std::string& text);

 protected:
  /// True when `context` is the serial one: its primitive's own context.
  static bool isSerialContext(const VrPrimitiveContext& context);
  /// The description of motion sample `sample`: this generator's for 0, its motion sample
  /// sample - 1 otherwise; null past the end.
  VrDescription* sampleDescription(int sample) const;
  /// The context of motion sample `sample`, given that of sample 0; null when there is none.
  VrPrimitiveContext* sampleContext(VrPrimitiveContext& context, int sample) const;
  /// The renderer the context's path emits to; null when the active renderer is not one.
  VrRenderer* targetRenderer(const VrPrimitiveContext& context) const;
  /// The share rule of the generators that walk their candidates in order. The caller has
  /// given the candidate its id. `percent` is added to `acc`; below 1 the candidate is dropped,
  /// otherwise `acc` loses 1 and the candidate goes on, through the region preview, to
  /// `emitIfOk` (or its twin). So `percent` keeps an evenly spread share of the candidates and
  /// ids do not depend on it. True when the candidate was emitted.
  bool offerLocation(VrPrimitiveContext& context, double& acc, double percent, double u, double v, int face,
                     const std::vector<VrPatch*>& patches);
  /// The first step of the share rule: whether the candidate is taken.
  static bool takeShare(double& acc, double percent) {
    acc += percent;
    if (acc < 1.0) return false;
    acc -= 1.0;
    return true;
  }
  /// Whether the region preview leaves the location out (said at debug level 5).
  bool culledForRegion(const VrPrimitiveContext& context, double u, double v, int face,
                       const std::string& patchName) const;
  /// Offers the location (u, v) of every record left in the reader's block, in order, starting
  /// the share at `acc`. Ids come from the records with `fileIds`, otherwise they count on.
  /// Answers how many were emitted; a damaged block stops the walk with the reader's error set.
  unsigned offerRecordLocations(VrPrimitiveContext& context, VpdReader& reader, bool fileIds, double acc,
                                double percent, int face, const std::vector<VrPatch*>& patches);
  /// Counts a culled location on the context's path.
  void countCulled(VrPrimitiveContext& context);
  /// The culled count of the face on the context's path.
  unsigned culledOnFace(const VrPrimitiveContext& context) const;

  /// Cached by `generate` for the serial path.
  VrPrimitive* primitive = nullptr;
  VrRenderer* renderer = nullptr;

 private:
  bool handleCulled(VrPrimitiveContext& context, int sample, unsigned code, int face, unsigned id,
                    VrPatch* patch);
  bool emitLocation(VrPrimitiveContext& context, double u, double v, int face,
                    const std::vector<VrPatch*>& patches);
  /// Whether the primitive built for every sample is finite; otherwise it is culled, with one
  /// Warning per render naming the attribute.
  bool finiteOrCulled(VrPrimitiveContext& context, int samples, double u, double v, int face);

  std::atomic<bool> warnedNonFinite{false};
  void faceStarts(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches) const;

  VrExpression regionExpression;
  std::vector<unsigned> regions;
  VrExpression displacementExpr;
  bool vectorDisp = false;
  VrExpression bumpExpr;
  VrExpression offsetExpr;
  std::string savedOffset;
  double initialWidth = 0.0;
  bool cullFlag = false;
  VrExpression cullExpression;
  bool cullBackfaceFlag = false;
  bool cullFrustrumFlag = false;
  double cullAngleBFRadians = 0.0;
  double cullAngleFRadians = 0.0;
  unsigned culledCount = 0;
  // The primitive's width expression for level of detail: its text and seed, taken when a pass
  // over the description starts.
  std::unique_ptr<VrExpression> lodWidth;
};
