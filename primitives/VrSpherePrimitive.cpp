#include "primitives/VrSpherePrimitive.h"

#include "geometry/VrPatch.h"
#include "primitives/VrGuideRepair.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* objectWord = "SpherePrimitive";
constexpr double degreesToRadians = 0.017453292519943295;
constexpr double sizeFloor = vrutil::primitiveSizeFloor;
using vrutil::unitOf;

}  // namespace

VrSpherePrimitive::VrSpherePrimitive(VrDescription* description)
    : VrPrimitive(description, std::make_unique<VrSpherePrimitiveContext>(description)),
      twistExpression("twist", objectWord, description, "$a=0.0;#-180.0,180.0\\n$a", "float") {
  setAttr("twist", "$a=0.0;#-180.0,180.0\\n$a", "expr");
}

VrSpherePrimitive::~VrSpherePrimitive() = default;

bool VrSpherePrimitive::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                const std::string& enumStrings) {
  if (VrPrimitive::setAttr(name, value, type, enumStrings)) return true;
  if (name == "twist") {
    twistExpression.setExpression(value);
    return true;
  }
  return false;
}

void VrSpherePrimitive::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrPrimitive::getExternalContext(pairs, prefix);
  twistExpression.getExternalContext(pairs, prefix + "twist");
}

const VrExpression* VrSpherePrimitive::attrExpression(const std::string& name) const {
  if (name == "twist") return &twistExpression;
  return VrPrimitive::attrExpression(name);
}

std::unique_ptr<VrPrimitiveContext> VrSpherePrimitive::createContext() const {
  return std::make_unique<VrSpherePrimitiveContext>(description());
}

void VrSpherePrimitive::localControlPoints(double L, double W, double D, std::vector<SgVec3T<double>>& cvs) {
  cvs.resize(NumControlPoints);
  cvs[Root] = SgVec3T<double>(0.0, 0.0, 0.0);
  cvs[Tip] = SgVec3T<double>(0.0, L, 0.0);
  cvs[WidthHandle] = SgVec3T<double>(W * 0.5, L * 0.5, 0.0);
  cvs[DepthHandle] = SgVec3T<double>(0.0, L * 0.5, D * 0.5);
}

bool VrSpherePrimitive::straightenControlPoints(std::vector<SgVec3T<double>>& cvs) {
  if (cvs.size() < NumControlPoints) return false;
  double length = 0.0;
  const SgVec3T<double> axis = unitOf(cvs[Tip] - cvs[Root], length);
  const SgVec3T<double> mid = (cvs[Root] + cvs[Tip]) * 0.5;
  SgVec3T<double> width = cvs[WidthHandle] - mid;
  width -= axis * width.dot(axis);
  cvs[WidthHandle] = mid + width;
  const double depthLength = (cvs[DepthHandle] - mid).length();
  SgVec3T<double> depth = axis.cross(width);
  depth.normalize();
  cvs[DepthHandle] = mid + depth * depthLength;
  return true;
}

bool VrSpherePrimitive::prepGuideCGeom(unsigned index) {
  if (index >= numGuides()) return false;
  vrguide::readyGuideCVs(*this, guide(index), "sphere", &straightenControlPoints);
  return VrPrimitive::prepGuideCGeom(index);
}

void VrSpherePrimitive::defaultGuideGeom(VrGuide& guide) const { unitGuideGeom(guide); }

void VrSpherePrimitive::unitGuideGeom(VrGuide& guide) {
  std::vector<SgVec3T<double>> cvs;
  localControlPoints(1.0, 1.0, 1.0, cvs);
  const SgVec3T<double> N = guide.exportedNormal(), U = guide.exportedUTangent(), V = guide.exportedVTangent();
  for (SgVec3T<double>& p : cvs) p = U * p.x + N * p.y + V * p.z;
  guide.setOrigIGeom(cvs);
}

void VrSpherePrimitive::mkGeometryInParallel(VrPrimitiveContext& context, double u, double v) {
  if (iMethod() == 1)
    mkGeometryFromGuides(context, u, v);
  else
    mkGeometryFromAttrs(context, u, v);
}

void VrSpherePrimitive::mkGeometryFromAttrs(VrPrimitiveContext& context, double u, double v) const {
  const int face = context.cFaceId();
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  auto at = [&](const VrExpression& e) { return e.eval(u, v, face, patchName).x; };
  Shape shape;
  shape.length = std::max(at(lengthExpr()), sizeFloor);
  shape.width = std::max(at(widthExpr()), sizeFloor);
  shape.depth = std::max(at(depthExpr()), sizeFloor);
  shape.lean.offU = std::clamp(at(offUExpr()), -1.0, 1.0);
  shape.lean.offV = std::clamp(at(offVExpr()), -1.0, 1.0);
  shape.lean.twist = at(twistExpression);
  shape.lean.offN = at(offNExpr());
  shape.lean.aboutN = at(aboutNExpr());
  placeFromAttrs(context, u, v, shape);
}

void VrSpherePrimitive::placeFromAttrs(VrPrimitiveContext& context, double u, double v, const Shape& shape) {
  const SgVec3T<double> P = context.cP(u, v, false), N = context.cN(u, v, false);
  const SgVec3T<double> U = context.cU(u, v, false), V = context.cV(u, v, false);
  const double f = context.lodAdjustment();
  const double L = shape.length * f, W = shape.width * f, D = shape.depth * f;
  std::vector<SgVec3T<double>>& geom = context.getGeom();
  localControlPoints(L, W, D, geom);
  vrutil::placeLocalPoints(P, N, U, V, shape.lean, geom);
  context.overrideCLength(L);
  context.overrideCWidth(W);
  context.overrideCDepth(D);
}

void VrSpherePrimitive::mkGeometryFromGuides(VrPrimitiveContext& context, double u, double v) const {
  if (context.activeGuides.empty()) {
    context.getGeom().assign(NumControlPoints, context.cP(u, v, false));
    context.setCullPrim(true);
    return;
  }
  const int face = context.cFaceId();
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  auto at = [&](const VrExpression& e) { return e.eval(u, v, face, patchName).x; };
  Shape shape;
  shape.length = std::max(at(lengthExpr()), sizeFloor);
  shape.width = std::max(at(widthExpr()), sizeFloor);
  shape.depth = std::max(at(depthExpr()), sizeFloor);
  shape.lean.twist = at(twistExpression);
  shape.lean.offN = at(offNExpr());
  shape.lean.aboutN = at(aboutNExpr());
  placeFromGuides(*this, context, u, v, shape);
}

void VrSpherePrimitive::placeFromGuides(const VrPrimitive& primitive, VrPrimitiveContext& context, double u,
                                        double v, const Shape& shape) {
  std::vector<SgVec3T<double>>& geom = context.getGeom();
  geom.assign(NumControlPoints, context.cP(u, v, false));
  if (context.activeGuides.empty()) {
    context.setCullPrim(true);
    return;
  }
  const double twist = shape.lean.twist, tilt = shape.lean.offN, about = shape.lean.aboutN;

  double lengthSum = 0.0, widthSum = 0.0, depthSum = 0.0;
  SgVec3T<double> direction, widthDirection;
  for (size_t i = 0; i < context.activeGuides.size(); ++i) {
    const std::vector<SgVec3T<double>>& C =
        primitive.guide(static_cast<unsigned>(context.activeGuides[i])).cGuideGeom();
    if (C.size() < NumControlPoints) continue;
    const double w = context.weight[i];
    const SgVec3T<double> m = C[Root] + (C[Tip] - C[Root]) * 0.5;
    double axisLength = 0.0, widthLength = 0.0, depthLength = 0.0;
    const SgVec3T<double> axis = unitOf(C[Tip] - C[Root], axisLength);
    const SgVec3T<double> across = unitOf(C[WidthHandle] - m, widthLength);
    unitOf(C[DepthHandle] - m, depthLength);
    lengthSum += w * axisLength;
    direction += axis * w;
    widthSum += w * widthLength;
    widthDirection += across * w;
    depthSum += w * depthLength;
  }

  const double f = context.lodAdjustment(), wn = context.weightN;
  const double L = wn * shape.length * f * lengthSum;
  const double W = wn * shape.width * f * widthSum;
  const double D = wn * shape.depth * f * depthSum;
  direction.normalize();
  const SgVec3T<double> root = geom[Root];
  geom[Tip] = root + direction * L;
  const SgVec3T<double> mid = (geom[Root] + geom[Tip]) * 0.5;
  SgVec3T<double> depthAxis = direction.cross(widthDirection);
  depthAxis.normalize();
  SgVec3T<double> widthAxis = depthAxis.cross(direction);
  widthAxis.normalize();
  if (twist != 0.0) {
    widthAxis = vrutil::rotatedAbout(widthAxis, direction, twist * degreesToRadians);
    depthAxis = vrutil::rotatedAbout(depthAxis, direction, twist * degreesToRadians);
  }
  geom[WidthHandle] = mid + widthAxis * W;
  geom[DepthHandle] = mid + depthAxis * D;
  // The handles stand half a size from the axis, as in the attribute form.
  context.overrideCLength(L);
  context.overrideCWidth(2.0 * W);
  context.overrideCDepth(2.0 * D);

  if (tilt == 0.0 && about == 0.0) return;
  SgVec3T<double> U = context.cU(u, v, false), N = context.cN(u, v, false);
  if (U.normalize() < 0.0001 || N.normalize() < 0.0001) return;
  for (int k = Tip; k < NumControlPoints; ++k) {
    SgVec3T<double> d = geom[k] - root;
    if (tilt != 0.0) d = vrutil::rotatedAbout(d, U, tilt * degreesToRadians);
    if (about != 0.0) d = vrutil::rotatedAbout(d, N, about * degreesToRadians);
    geom[k] = root + d;
  }
}
