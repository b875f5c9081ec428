#pragma once
// VrPrimitiveContext: the record of the primitive being made at one location. Generators,
// primitives, renderers and expressions read primitive state from here. Each primitive owns one
// context for the serial path (`VrPrimitive::context()`); a parallel render gives every worker a
// copy of its own, so that nothing per location is shared between threads.
//
// This first form holds what the generators need: the face being worked on and its patch, the
// primitive id, the culled flag, the level-of-detail width factor, the surface frame at a
// location, the motion sample contexts and the generator and renderer records of the worker.
// The guides and weights, the primitive's geometry, its per-CV attributes and the module
// contexts come with the primitive pipeline.
//
// The frame is cached in four slots: 0 the reference surface without displacement, 1 the
// animated one without, 2 the reference surface with the active generator's displacement, bump
// and offset, 3 the animated one with them. A slot answers from its cache while u and v stay
// those of its last evaluation; `setActivePatchFace` empties every slot.

#include "geometry/SgVec3T.h"

#include <vector>

class VrDescription;
class VrGeneratorContext;
class VrPatch;
class VrRendererContext;

class VrPrimitiveContext {
 public:
  explicit VrPrimitiveContext(VrDescription* description = nullptr);
  virtual ~VrPrimitiveContext();
  /// A copy is a worker's clone: it shares the description, patch, sample contexts and records.
  VrPrimitiveContext(const VrPrimitiveContext&) = default;
  VrPrimitiveContext& operator=(const VrPrimitiveContext&) = default;

  VrDescription* description() const { return owner; }

  /// @name Face being worked on
  /// @{
  /// Stores both and forgets the cached frames; called by the renderer at each face.
  virtual void setActivePatchFace(const VrPatch* patch, int face);
  const VrPatch* cPatch() const { return patch; }
  void setcPatch(const VrPatch* value);
  int cFaceId() const { return faceId; }
  /// @}

  /// @name Identity: the place in the face's sequence of locations
  /// @{
  unsigned id() const { return primId; }
  void setId(unsigned value) { primId = value; }
  void incrId() { ++primId; }
  void resetId() { primId = 0; }
  /// @}

  /// @name Refusal and level of detail
  /// @{
  /// Set by any stage that refuses the primitive; later stages are skipped.
  bool cullPrim() const { return culled; }
  void setCullPrim(bool value) { culled = value; }
  /// The level-of-detail width factor of the parallel path (the serial path keeps it on the
  /// description).
  double lodAdjustment() const { return lodFactor; }
  void setLodAdjustment(double value) { lodFactor = value; }
  /// @}

  /// @name Surface frame at (u, v) of the active face; `ref` selects the reference surface
  /// @{
  /// Point and normal with the active generator's displacement, bump and offset.
  const SgVec3T<double>& cP(double u, double v, bool ref);
  const SgVec3T<double>& cN(double u, double v, bool ref);
  /// Point and normal of the plain surface.
  const SgVec3T<double>& cPg(double u, double v, bool ref);
  const SgVec3T<double>& cNg(double u, double v, bool ref);
  /// @}

  /// @name Motion samples: the contexts of the other samples, sample 1 first
  /// @{
  void addSample(VrPrimitiveContext* context) { samples.push_back(context); }
  void clearSamples() { samples.clear(); }
  /// Null past the end.
  VrPrimitiveContext* sample(unsigned i) const { return i < samples.size() ? samples[i] : nullptr; }
  unsigned numSamples() const { return static_cast<unsigned>(samples.size()); }
  /// @}

  /// @name Guides reaching the location and their weights (parallel lists); weightN is the
  /// reciprocal of the weights' sum
  /// @{
  std::vector<int> activeGuides;
  std::vector<double> weight;
  double weightN = 0.0;
  /// @}

  /// @name Records of the worker (not owned)
  /// @{
  VrGeneratorContext* generatorContext() const { return generatorRecord; }
  void setGeneratorContext(VrGeneratorContext* record) { generatorRecord = record; }
  VrRendererContext* rendererContext() const { return rendererRecord; }
  void setRendererContext(VrRendererContext* record) { rendererRecord = record; }
  /// @}

 private:
  // Evaluates the slot at (u, v) unless it holds them already; a failure marks the primitive
  // culled.
  void evalPatch(int slot, double u, double v);
  void forgetFrames();

  VrDescription* owner;
  double evalU[4];
  double evalV[4];
  SgVec3T<double> dPdu[4], dPdv[4], normal[4], point[4];
  const VrPatch* patch = nullptr;
  int faceId = 0;
  bool culled = false;
  unsigned primId = 0;
  double lodFactor = 1.0;
  std::vector<VrPrimitiveContext*> samples;
  VrGeneratorContext* generatorRecord = nullptr;
  VrRendererContext* rendererRecord = nullptr;
};
