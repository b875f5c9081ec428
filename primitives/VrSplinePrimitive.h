#pragma once
// VrSplinePrimitive: the hair kind, one polyline of CVs with a width profile. The shape comes
// from attributes (length, lean, bends along the length) or from the guides reaching the
// location, blended by weight. The width narrows along a ramp and a taper; ribbons keep a
// sideways direction (`widthVec`) worked out from their first two segments.
//
// Attributes change on the main thread only; `mkGeometryInParallel` touches only the given
// context, so many workers may build splines at once.

#include "geometry/SgRampUIComp.h"
#include "primitives/VrPrimitive.h"

#include <memory>
#include <string>
#include <vector>

/// The spline's context: the primitive record plus the width profile of this spline.
class VrSplinePrimitiveContext : public VrPrimitiveContext {
 public:
  explicit VrSplinePrimitiveContext(VrDescription* description = nullptr) : VrPrimitiveContext(description) {}

  /// How far the tip narrows and where on the length narrowing begins (in [0, 1]).
  float taper = 0.0f;
  float taperStart = 0.0f;
  /// The sideways direction of a ribbon at the root (unit). `shapeAttrs` keeps only what it is
  /// worked out from, and the first reading works it out: most back ends never read it.
  const SgVec3T<double>& widthVec() const;
  void setWidthVec(const SgVec3T<double>& value) {
    sideways = value;
    sidewaysPending = false;
  }
  /// Defers the sideways direction: from the first two segments T0 and T1 (`fromSegments`) or as
  /// the unit U of `root`, the frame at the root.
  void deferWidthVec(const SgVec3T<double>& T0, const SgVec3T<double>& T1, const Slot& root, bool fromSegments) {
    firstSegment = T0;
    secondSegment = T1;
    rootFrame = root;
    sidewaysFromSegments = fromSegments;
    sidewaysPending = true;
  }
  /// Some guide carries a "break" CV attribute: the dominant guide takes over along the length.
  bool breakActive = false;
  /// The active guide with the greatest weight while `breakActive`; -1 otherwise.
  int dominantGuide = -1;
  /// Working arrays of the attribute shape (bend positions and leans, the chain of segments),
  /// kept between primitives so that building one allocates nothing.
  std::vector<double> bendPositions, bendLeanU, bendLeanV;
  std::vector<SgVec3T<double>> attrChain;

 protected:
  VrBasePrimitiveContext* cloneContextImp() const override { return new VrSplinePrimitiveContext(*this); }

 private:
  mutable SgVec3T<double> sideways;
  mutable bool sidewaysPending = false;
  mutable Slot rootFrame;
  SgVec3T<double> firstSegment, secondSegment;
  bool sidewaysFromSegments = false;
};

class VrSplinePrimitive : public VrPrimitive {
 public:
  explicit VrSplinePrimitive(VrDescription* description);
  ~VrSplinePrimitive() override;

  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  std::string typeName() const override { return "SplinePrimitive"; }
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  const VrExpression* attrExpression(const std::string& name) const override;
  /// The base's test, and the taper that sets the widths along the spline.
  bool finiteGeometry(VrPrimitiveContext& context) const override;

  std::unique_ptr<VrPrimitiveContext> createContext() const override;
  /// The serial context as a spline context.
  VrSplinePrimitiveContext& splineContext() { return static_cast<VrSplinePrimitiveContext&>(context()); }

  /// @name Geometry
  /// @{
  /// The spline at (u, v). A `VrSplinePrimitiveContext` (from `createContext` or a clone) also
  /// receives taper, taper start and width vector; a plain context receives the CVs, length and
  /// width only.
  void mkGeometryInParallel(VrPrimitiveContext& context, double u, double v) override;
  /// Width, taper and width vector from the attributes, the length from the CVs.
  void completeGivenGeometryInParallel(VrPrimitiveContext& context, double u, double v,
                                       double widthFactor) const override;
  /// The shape from attributes: a chain of segments through `orient`, scaled to the exact length
  /// and resampled to `fxCVCount` CVs into the context's geometry.
  void mkGeometryFromAttrs(VrPrimitiveContext& context, double u, double v);
  /// The shape from the active guides: their offsets from the roots blended by weight; with
  /// "break" (a spline context's `breakActive`) the dominant guide takes over.
  void mkGeometryFromGuides(VrPrimitiveContext& context, double u, double v);
  /// Marks the length dirty (modules may have changed it); answers true.
  bool postApplyFxInParallel(VrPrimitiveContext& context) override;
  /// Sideways direction from the first two segments T0, T1, the normal N and the surface
  /// direction W; see the class comment.
  static void calcWidthVec(const SgVec3T<double>& T0, const SgVec3T<double>& T1, const SgVec3T<double>& N,
                           const SgVec3T<double>& W, SgVec3T<double>& out);
  /// Width of each of `n` = widths.size() CVs (one per CV of the context when empty): with
  /// s = i/(n−1), f = 1 − ((s − taperStart)/(1 − taperStart))·taper past taperStart, else 1;
  /// width_i = f · cWidth · ramp(s).
  void calcCVWidths(const VrSplinePrimitiveContext& context, std::vector<float>& widths) const;
  /// The same into the `n` floats at `widths`.
  void calcCVWidths(const VrSplinePrimitiveContext& context, float* widths, size_t n) const;
  /// @}

  /// @name Attributes
  /// @{
  const SgRampUIComp& getRampUI() const { return widthRamp; }
  bool faceCamera() const { return faceCameraFlag; }
  bool displayWidth() const { return displayWidthFlag; }
  bool tubeShade() const { return tubeShadeFlag; }
  unsigned attrCVCount() const { return attrCVs; }
  /// The most CVs `attrCVCount` and `fxCVCount` take: far more than any hair needs, few enough
  /// that a slip of the keyboard cannot exhaust the memory of a render.
  static constexpr unsigned maxCVCount = 1000;
  /// Remakes the bend attributes for `n` CVs, keeping values whose index still exists; false
  /// with an Error below three or above `maxCVCount`.
  bool setAttrCVCount(int n);
  /// `fxCVCount`.
  unsigned finalCVCount() const override { return fxCVs; }
  bool uniformCVs() const { return uniform; }
  unsigned minGuideCVCount() const override { return 3; }
  /// Four CVs along the guide's normal, one unit long.
  void defaultGuideGeom(VrGuide& guide) const override;
  /// Places a guide on its surface after making its interpolated CVs fit a spline: a guide with
  /// fewer than `minGuideCVCount` CVs takes the default shape (with a warning), and every guide
  /// after the first is resampled, evenly along its length, to the CV count of guide 0, since a
  /// spline blends its guides CV by CV.
  bool prepGuideCGeom(unsigned index) override;
  /// @}

  /// @name Per-primitive values in packed form
  /// The spline's layout appends taper, taper start and the width vector (x, y, z) to the base
  /// (width, depth): 7 floats. A plain context packs zeros for the spline's values and ignores
  /// them when unpacking.
  /// @{
  void packAttrs(const VrPrimitiveContext& context, std::vector<float>& floats) const override;
  bool unpackAttrs(VrPrimitiveContext& context, const std::vector<float>& floats,
                   size_t& offset) const override;
  unsigned packedAttrCount() const override { return 7; }
  /// @}

  /// Clears `breakActive`, runs the base; with `useCache` on, `breakActive` follows the guides'
  /// "break" CV attributes.
  bool overrideGuidesWithCache() override;
  /// True when some guide carries a "break" CV attribute.
  bool breakActive() const { return breakFlag; }

 private:
  /// Width (times `widthFactor`), taper and width vector at (u, v) of the CVs in `context`;
  /// culls a primitive too short or too thin to see.
  void shapeAttrs(VrPrimitiveContext& context, double u, double v, double widthFactor) const;
  /// Whether the spline in `context` is shorter than `limit`.
  static bool isShorterThan(VrPrimitiveContext& context, double limit);
  struct Bend;
  void declareAttrs();
  void makeBends(unsigned count);

  VrExpression taperExpression;
  VrExpression taperStartExpression;
  VrExpression guideMaskExpression;
  VrExpression cutParamExpression;
  std::vector<std::unique_ptr<Bend>> bends;
  SgRampUIComp widthRamp;
  bool displayWidthFlag = true;
  bool faceCameraFlag = true;
  bool tubeShadeFlag = true;
  bool uniform = true;
  bool breakFlag = false;
  double guideSpacingValue = 1.0;
  double texelsPerUnitValue = 10.0;
  double cvFrequency = 1.0;
  unsigned attrCVs = 3;
  unsigned fxCVs = 5;
};
