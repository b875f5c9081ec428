#pragma once
// VrSpherePrimitive: an ellipsoid standing on the surface. Four control points tell it: the
// root, the tip (the length axis), a width handle and a depth handle, both from the midpoint of
// root and tip. Built in its own frame (root at the origin, x across, y along the lean
// direction, z the third axis) and placed through `orient`; from guides, the guides' axes and
// handle lengths are blended by weight.
//
// Attributes change on the main thread only; `mkGeometryInParallel` touches only the given
// context.

#include "primitives/VrLocalFrame.h"
#include "primitives/VrPrimitive.h"

#include <memory>
#include <string>
#include <vector>

/// The sphere's context: the primitive record; the shape lives in the control points.
class VrSpherePrimitiveContext : public VrPrimitiveContext {
 public:
  explicit VrSpherePrimitiveContext(VrDescription* description = nullptr) : VrPrimitiveContext(description) {}

 protected:
  VrBasePrimitiveContext* cloneContextImp() const override { return new VrSpherePrimitiveContext(*this); }
};

class VrSpherePrimitive : public VrPrimitive {
 public:
  /// Control points: root, tip, width handle, depth handle.
  enum ControlPoint { Root = 0, Tip = 1, WidthHandle = 2, DepthHandle = 3, NumControlPoints = 4 };

  explicit VrSpherePrimitive(VrDescription* description);
  ~VrSpherePrimitive() override;

  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  std::string typeName() const override { return "SpherePrimitive"; }
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  const VrExpression* attrExpression(const std::string& name) const override;
  std::unique_ptr<VrPrimitiveContext> createContext() const override;

  /// @name Geometry
  /// @{
  /// From guides with CV interpolation, otherwise from attributes.
  void mkGeometryInParallel(VrPrimitiveContext& context, double u, double v) override;
  unsigned finalCVCount() const override { return NumControlPoints; }
  unsigned minGuideCVCount() const override { return NumControlPoints; }
  /// The unit sphere's control points in the guide's exported frame.
  void defaultGuideGeom(VrGuide& guide) const override;
  /// The control points in the sphere's own frame for length L, width W and depth D.
  static void localControlPoints(double L, double W, double D, std::vector<SgVec3T<double>>& cvs);
  /// Makes the handles of `cvs` a legal frame again: the width handle square to the axis through
  /// the midpoint, the depth handle square to both with its old length. False for fewer than
  /// four control points.
  static bool straightenControlPoints(std::vector<SgVec3T<double>>& cvs);
  /// The working CVs of the guide, straightened, then placed on the surface.
  bool prepGuideCGeom(unsigned index) override;
  /// @}

  /// @name The sphere's frame, shared with the kinds that stand on one (archives)
  /// @{
  /// What was evaluated at a location: the three sizes (scale factors in the guide form, each
  /// floored to 1e-06) and the turns.
  struct Shape {
    double length = 1.0, width = 1.0, depth = 1.0;
    vrutil::Lean lean;
  };
  /// The attribute form: the sizes times the width factor, the control points placed with the
  /// lean; the context's length, width and depth take the sizes.
  static void placeFromAttrs(VrPrimitiveContext& context, double u, double v, const Shape& shape);
  /// The guide form: the guides' axes and handle lengths of `primitive` blended by weight, the
  /// sizes scaling them; culled without active guides.
  static void placeFromGuides(const VrPrimitive& primitive, VrPrimitiveContext& context, double u, double v,
                              const Shape& shape);
  /// The unit sphere's control points in the guide's exported frame.
  static void unitGuideGeom(VrGuide& guide);
  /// @}

 protected:
  void mkGeometryFromAttrs(VrPrimitiveContext& context, double u, double v) const;
  void mkGeometryFromGuides(VrPrimitiveContext& context, double u, double v) const;

 private:
  VrExpression twistExpression;
};
