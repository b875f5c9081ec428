#pragma once
// VrBasePrimitiveContext: the part of the per-primitive record that every kind of primitive
// shares: the face being worked on, the surface frame at a location, the primitive's identity and
// culled flag, its CVs, and the guides reaching it with their weights. Expressions, modules and
// back ends read primitive state from here (through `VrPrimitiveContext`, which adds lengths, CV
// attributes, samples and module records).
//
// The frame is cached in four slots: 0 the reference surface without displacement, 1 the
// animated one without, 2 the reference surface with the active generator's displacement, bump
// and offset, 3 the animated one with them. A slot answers from its cache while u and v stay
// those of its last evaluation; `setActivePatchFace` and `setcPatch` empty every slot. The
// curvature has a cache of its own with two slots (reference, animated).
//
// A context belongs to one thread at a time: the primitive's own serves the serial path, and a
// parallel render gives every worker a clone (`cloneContext`).

#include "geometry/SgVec3T.h"

#include <memory>
#include <string>
#include <vector>

class VrDescription;
class VrPatch;
class VrPrimitive;
class VrRendererContext;

class VrBasePrimitiveContext {
 public:
  explicit VrBasePrimitiveContext(VrDescription* description = nullptr);
  virtual ~VrBasePrimitiveContext();

  /// A copy for another worker: description, patch, face, frames and geometry are copied.
  std::unique_ptr<VrBasePrimitiveContext> cloneContext() const {
    return std::unique_ptr<VrBasePrimitiveContext>(cloneContextImp());
  }

  VrDescription* description() const { return owner; }

  /// @name Face being worked on
  /// @{
  /// Stores both, forgets the cached frames and clears `activeGuides`; called at each face.
  virtual void setActivePatchFace(const VrPatch* patch, int face);
  const VrPatch* cPatch() const { return patch; }
  /// Changes the patch only, forgetting the cached frames.
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
  /// References stay valid until the next evaluation of the same slot.
  /// @{
  /// One cached frame. Point and normal are ready on evaluation; the tangents are made
  /// perpendicular, and the unit ones derived, only when something reads them (`square`): most
  /// primitives grow along the normal and never do.
  struct Slot {
    SgVec3T<double> unitU, unitV, dPdu, dPdv, normal, point;
    bool squared = false;
    /// Finishes the tangents, once.
    void square();
  };
  /// The whole displaced frame, tangents possibly unsquared: a copy can finish them later.
  const Slot& cFrame(double u, double v, bool ref) { return slotAt(ref ? 2 : 3, u, v); }
  /// With the active generator's displacement, bump and offset (slots 2 and 3).
  const SgVec3T<double>& cP(double u, double v, bool ref) { return slotAt(ref ? 2 : 3, u, v).point; }
  const SgVec3T<double>& cN(double u, double v, bool ref) { return slotAt(ref ? 2 : 3, u, v).normal; }
  const SgVec3T<double>& cdPdu(double u, double v, bool ref) { return squaredSlotAt(ref ? 2 : 3, u, v).dPdu; }
  const SgVec3T<double>& cdPdv(double u, double v, bool ref) { return squaredSlotAt(ref ? 2 : 3, u, v).dPdv; }
  /// Unit tangents.
  const SgVec3T<double>& cU(double u, double v, bool ref) { return squaredSlotAt(ref ? 2 : 3, u, v).unitU; }
  const SgVec3T<double>& cV(double u, double v, bool ref) { return squaredSlotAt(ref ? 2 : 3, u, v).unitV; }
  /// The plain surface (slots 0 and 1).
  const SgVec3T<double>& cPg(double u, double v, bool ref) { return slotAt(ref ? 0 : 1, u, v).point; }
  const SgVec3T<double>& cNg(double u, double v, bool ref) { return slotAt(ref ? 0 : 1, u, v).normal; }
  const SgVec3T<double>& cdPdug(double u, double v, bool ref) { return squaredSlotAt(ref ? 0 : 1, u, v).dPdu; }
  const SgVec3T<double>& cdPdvg(double u, double v, bool ref) { return squaredSlotAt(ref ? 0 : 1, u, v).dPdv; }
  const SgVec3T<double>& cUg(double u, double v, bool ref) { return squaredSlotAt(ref ? 0 : 1, u, v).unitU; }
  const SgVec3T<double>& cVg(double u, double v, bool ref) { return squaredSlotAt(ref ? 0 : 1, u, v).unitV; }
  /// Principal curvatures of the plain surface; 0 where the patch has none.
  float cKu(double u, double v, bool ref);
  float cKv(double u, double v, bool ref);
  /// The parameters of the last evaluation of the displaced slot (NaN before any).
  double cu(bool ref) const { return evalU[ref ? 2 : 3]; }
  double cv(bool ref) const { return evalV[ref ? 2 : 3]; }
  /// @}

  /// @name Geometry: the primitive's CVs (capacity is kept from one primitive to the next)
  /// @{
  const std::vector<SgVec3T<double>>& cGeom() const { return geom; }
  const SgVec3T<double>& cGeom(unsigned i) const { return geom[i]; }
  std::vector<SgVec3T<double>>& getGeom() { return geom; }
  /// @}

  /// @name Guides reaching the location and their weights (parallel lists); weightN is the
  /// reciprocal of the weights' sum
  /// @{
  std::vector<int> activeGuides;
  std::vector<double> weight;
  double weightN = 0.0;
  /// @}

  /// @name Values for expressions and back ends
  /// @{
  /// The value of an attribute at the context's location: the patch's custom value of that name.
  /// False when there is none.
  bool getAttrValue(const std::string& name, SgVec3T<double>& value, const VrPrimitive* primitive) const;
  /// Moves CVs given on the animated surface at (u, v) to the reference surface: each CV's offset
  /// from the animated root is re-expressed in the reference frame.
  void toRefGeomSpace(double u, double v, std::vector<SgVec3T<double>>& cvs);
  /// @}

  /// @name Record of the worker's renderer (not owned)
  /// @{
  VrRendererContext* rendererContext() const { return rendererRecord; }
  void setRendererContext(VrRendererContext* record) { rendererRecord = record; }
  /// @}

 protected:
  VrBasePrimitiveContext(const VrBasePrimitiveContext&) = default;
  VrBasePrimitiveContext& operator=(const VrBasePrimitiveContext&) = default;

  /// A new copy of the concrete kind.
  virtual VrBasePrimitiveContext* cloneContextImp() const = 0;
  /// Slots 2 and 3: the frame with displacement into the slot's fields, tangents unsquared;
  /// false on failure. The base evaluates the plain surface.
  virtual bool evalGeomWithDisplacement(int slot, double u, double v);
  /// True when the displaced frame (slots 2 and 3) is the plain one (slots 0 and 1) to the bit,
  /// up to signed zeros added to the point. The base displaces nothing.
  virtual bool displacementMovesNothing() const { return true; }

  Slot& slot(int index) { return slots[index]; }

 private:
  // Evaluates the slot at (u, v) unless it holds them already; a failure marks the primitive
  // culled.
  Slot& slotAt(int index, double u, double v) {
    if (evalU[index] != u || evalV[index] != v) evalPatch(index, u, v);
    return slots[index];
  }
  // As slotAt, with the tangents finished.
  Slot& squaredSlotAt(int index, double u, double v) {
    Slot& s = slotAt(index, u, v);
    s.square();
    return s;
  }
  void evalPatch(int index, double u, double v);
  bool takeFromAnotherSlot(int index, double u, double v);
  void evalCurvatureSlot(int index, double u, double v);
  void forgetFrames();

  VrDescription* owner;
  double evalU[4];
  double evalV[4];
  double curvU[2];
  double curvV[2];
  Slot slots[4];
  const VrPatch* patch = nullptr;
  int faceId = 0;
  bool culled = false;
  unsigned primId = 0;
  std::vector<SgVec3T<double>> geom;
  float curvature[2][2] = {{0.0f, 0.0f}, {0.0f, 0.0f}};
  double lodFactor = 1.0;
  VrRendererContext* rendererRecord = nullptr;
};
