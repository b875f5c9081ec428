#pragma once
// VrCardPrimitive: a flat sheet that may bend once across and once along. Five control points
// tell it: the root (the card's centre on the surface), the bend centres along U and along V,
// and the two edges past the bends. Built in the card's own frame (root at the origin, x
// across, y along the lean direction, z along the card) and placed on the surface through
// `orient`; from guides, their control points are blended by weight.
//
// Attributes change on the main thread only; `mkGeometryInParallel` touches only the given
// context.

#include "primitives/VrPrimitive.h"

#include <memory>
#include <string>
#include <vector>

/// The card's context: the primitive record; the card keeps its shape in the control points.
class VrCardPrimitiveContext : public VrPrimitiveContext {
 public:
  explicit VrCardPrimitiveContext(VrDescription* description = nullptr) : VrPrimitiveContext(description) {}

 protected:
  VrBasePrimitiveContext* cloneContextImp() const override { return new VrCardPrimitiveContext(*this); }
};

class VrCardPrimitive : public VrPrimitive {
 public:
  /// Control points: root, bend centre along U, bend centre along V, edge along U, edge along V.
  enum ControlPoint { Root = 0, BendU = 1, BendV = 2, EdgeU = 3, EdgeV = 4, NumControlPoints = 5 };

  explicit VrCardPrimitive(VrDescription* description);
  ~VrCardPrimitive() override;

  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  std::string typeName() const override { return "CardPrimitive"; }
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  const VrExpression* attrExpression(const std::string& name) const override;
  std::unique_ptr<VrPrimitiveContext> createContext() const override;

  /// @name Geometry
  /// @{
  /// From guides with CV interpolation, otherwise from attributes.
  void mkGeometryInParallel(VrPrimitiveContext& context, double u, double v) override;
  unsigned finalCVCount() const override { return NumControlPoints; }
  unsigned minGuideCVCount() const override { return NumControlPoints; }
  /// The control points of the card with all attributes at their defaults (unit sizes, bends at
  /// the middle, flat), in the guide's exported frame.
  void defaultGuideGeom(VrGuide& guide) const override;
  /// The card's control points in its own frame for width W, length L, bend parameters (pU, pV)
  /// and bends (bU, bV); see the class comment.
  static void localControlPoints(double W, double L, double pU, double pV, double bU, double bV,
                                 std::vector<SgVec3T<double>>& cvs);
  /// Makes the control points a legal card again: CV 1 square to the length axis (CV 0 to
  /// CV 2), CV 3 in the plane of CV 1's axis and the normal, CV 4 in the plane of the length
  /// axis and the normal. False for fewer than five control points.
  static bool straightenControlPoints(std::vector<SgVec3T<double>>& cvs);
  /// The working CVs of the guide, straightened, then placed on the surface.
  bool prepGuideCGeom(unsigned index) override;
  /// Moves CVs 1 to 4 from `first` on towards (factor < 1) or away from CV 0 of `cvs`.
  static void scaleCard(SgVec3T<double>* first, double factor);
  /// @}

  bool faceCamera() const { return faceCameraFlag; }

 protected:
  void mkGeometryFromAttrs(VrPrimitiveContext& context, double u, double v) const;
  void mkGeometryFromGuides(VrPrimitiveContext& context, double u, double v) const;

 private:
  void declareAttrs();

  VrExpression twistExpression;
  VrExpression bendUExpression;
  VrExpression bendVExpression;
  VrExpression bendParamUExpression;
  VrExpression bendParamVExpression;
  bool faceCameraFlag = false;
};
