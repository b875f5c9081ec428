#include "primitives/VrCardPrimitive.h"

#include "base/VrMessage.h"
#include "geometry/VrPatch.h"
#include "primitives/VrGuideRepair.h"
#include "primitives/VrLocalFrame.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* objectWord = "CardPrimitive";
constexpr double degreesToRadians = 0.017453292519943295;
constexpr double sizeFloor = vrutil::primitiveSizeFloor;
using vrutil::unitOf;

}  // namespace

VrCardPrimitive::VrCardPrimitive(VrDescription* description)
    : VrPrimitive(description, std::make_unique<VrCardPrimitiveContext>(description)),
      twistExpression("twist", objectWord, description, "$a=0.0;#-180.0,180.0\\n$a", "float"),
      bendUExpression("bendU", objectWord, description, "$a=0.0;#-2.0,2.0\\n$a", "float"),
      bendVExpression("bendV", objectWord, description, "$a=0.0;#-2.0,2.0\\n$a", "float"),
      bendParamUExpression("bendParamU", objectWord, description, "$a=0.5;#0.0,1.0\\n$a", "float"),
      bendParamVExpression("bendParamV", objectWord, description, "$a=0.5;#0.0,1.0\\n$a", "float") {
  declareAttrs();
}

VrCardPrimitive::~VrCardPrimitive() = default;

void VrCardPrimitive::declareAttrs() {
  setAttr("twist", "$a=0.0;#-180.0,180.0\\n$a", "expr");
  setAttr("bendU", "$a=0.0;#-2.0,2.0\\n$a", "expr");
  setAttr("bendV", "$a=0.0;#-2.0,2.0\\n$a", "expr");
  setAttr("bendParamU", "$a=0.5;#0.0,1.0\\n$a", "expr");
  setAttr("bendParamV", "$a=0.5;#0.0,1.0\\n$a", "expr");
  setAttr("faceCamera", "false", "bool");
}

bool VrCardPrimitive::setAttr(const std::string& name, const std::string& value, const std::string& type,
                              const std::string& enumStrings) {
  if (VrPrimitive::setAttr(name, value, type, enumStrings)) return true;
  if (name == "faceCamera") return boolAttr(name, value, faceCameraFlag);
  for (VrExpression* e :
       {&twistExpression, &bendUExpression, &bendVExpression, &bendParamUExpression, &bendParamVExpression}) {
    if (e->name() == name) {
      e->setExpression(value);
      return true;
    }
  }
  return false;
}

void VrCardPrimitive::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrPrimitive::getExternalContext(pairs, prefix);
  for (const VrExpression* e :
       {&twistExpression, &bendUExpression, &bendVExpression, &bendParamUExpression, &bendParamVExpression})
    e->getExternalContext(pairs, prefix + e->name());
}

const VrExpression* VrCardPrimitive::attrExpression(const std::string& name) const {
  if (name == "twist") return &twistExpression;
  if (name == "bendU") return &bendUExpression;
  if (name == "bendV") return &bendVExpression;
  if (name == "bendParamU") return &bendParamUExpression;
  if (name == "bendParamV") return &bendParamVExpression;
  return VrPrimitive::attrExpression(name);
}

std::unique_ptr<VrPrimitiveContext> VrCardPrimitive::createContext() const {
  return std::make_unique<VrCardPrimitiveContext>(description());
}

void VrCardPrimitive::localControlPoints(double W, double L, double pU, double pV, double bU, double bV,
                                         std::vector<SgVec3T<double>>& cvs) {
  SgVec3T<double> dU = bU > 0.0 ? SgVec3T<double>(1.0 - bU, bU, 0.0) : SgVec3T<double>(bU + 1.0, bU, 0.0);
  SgVec3T<double> dV = bV > 0.0 ? SgVec3T<double>(0.0, bV, 1.0 - bV) : SgVec3T<double>(0.0, bV, bV + 1.0);
  dU.normalize();
  dV.normalize();
  cvs.resize(NumControlPoints);
  cvs[Root] = SgVec3T<double>(0.0, 0.0, 0.0);
  cvs[BendU] = SgVec3T<double>(pU * W * 0.5, 0.0, 0.0);
  cvs[BendV] = SgVec3T<double>(0.0, 0.0, pV * L * 0.5);
  cvs[EdgeU] = cvs[BendU] + dU * ((1.0 - pU) * W * 0.5);
  cvs[EdgeV] = cvs[BendV] + dV * ((1.0 - pV) * L * 0.5);
}

void VrCardPrimitive::scaleCard(SgVec3T<double>* first, double factor) {
  const SgVec3T<double> root = first[Root];
  for (int i = BendU; i < NumControlPoints; ++i) first[i] = (first[i] - root) * factor + root;
}

bool VrCardPrimitive::straightenControlPoints(std::vector<SgVec3T<double>>& cvs) {
  if (cvs.size() < NumControlPoints) return false;
  double length = 0.0, width = 0.0;
  const SgVec3T<double> lengthAxis = vrutil::unitOf(cvs[BendV] - cvs[Root], length);
  SgVec3T<double> across = cvs[BendU] - cvs[Root];
  across -= lengthAxis * across.dot(lengthAxis);
  cvs[BendU] = cvs[Root] + across;
  const SgVec3T<double> widthAxis = vrutil::unitOf(across, width);
  // Each edge bends only in the plane of its own axis and the card's normal.
  SgVec3T<double> bendU = cvs[EdgeU] - cvs[BendU];
  cvs[EdgeU] = cvs[BendU] + bendU - lengthAxis * bendU.dot(lengthAxis);
  SgVec3T<double> bendV = cvs[EdgeV] - cvs[BendV];
  cvs[EdgeV] = cvs[BendV] + bendV - widthAxis * bendV.dot(widthAxis);
  return true;
}

bool VrCardPrimitive::prepGuideCGeom(unsigned index) {
  if (index >= numGuides()) return false;
  vrguide::readyGuideCVs(*this, guide(index), "card", &straightenControlPoints);
  return VrPrimitive::prepGuideCGeom(index);
}

void VrCardPrimitive::defaultGuideGeom(VrGuide& guide) const {
  std::vector<SgVec3T<double>> cvs;
  localControlPoints(1.0, 1.0, 0.5, 0.5, 0.0, 0.0, cvs);
  const SgVec3T<double> N = guide.exportedNormal(), U = guide.exportedUTangent(), V = guide.exportedVTangent();
  for (SgVec3T<double>& p : cvs) p = U * p.x + N * p.y + V * p.z;
  guide.setOrigIGeom(cvs);
}

void VrCardPrimitive::mkGeometryInParallel(VrPrimitiveContext& context, double u, double v) {
  if (iMethod() == 1)
    mkGeometryFromGuides(context, u, v);
  else
    mkGeometryFromAttrs(context, u, v);
}

void VrCardPrimitive::mkGeometryFromAttrs(VrPrimitiveContext& context, double u, double v) const {
  const SgVec3T<double> P = context.cP(u, v, false), N = context.cN(u, v, false);
  const SgVec3T<double> U = context.cU(u, v, false), V = context.cV(u, v, false);
  const int face = context.cFaceId();
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  auto at = [&](const VrExpression& e) { return e.eval(u, v, face, patchName).x; };

  const double length = std::max(at(lengthExpr()), sizeFloor);
  const double width = std::max(at(widthExpr()), sizeFloor);
  vrutil::Lean lean;
  lean.offU = std::clamp(at(offUExpr()), -1.0, 1.0);
  lean.offV = std::clamp(at(offVExpr()), -1.0, 1.0);
  lean.twist = at(twistExpression);
  lean.offN = at(offNExpr());
  lean.aboutN = at(aboutNExpr());
  const double bU = std::clamp(at(bendUExpression), -1.0, 1.0);
  const double bV = std::clamp(at(bendVExpression), -1.0, 1.0);
  const double pU = std::clamp(at(bendParamUExpression), 0.0, 1.0);
  const double pV = std::clamp(at(bendParamVExpression), 0.0, 1.0);

  // The level-of-detail factor scales the whole card, not just its width.
  const double f = context.lodAdjustment();
  const double L = length * f, W = width * f;
  std::vector<SgVec3T<double>>& geom = context.getGeom();
  localControlPoints(W, L, pU, pV, bU, bV, geom);
  vrutil::placeLocalPoints(P, N, U, V, lean, geom);
  context.overrideCLength(L);
  context.overrideCWidth(W);
}

void VrCardPrimitive::mkGeometryFromGuides(VrPrimitiveContext& context, double u, double v) const {
  std::vector<SgVec3T<double>>& geom = context.getGeom();
  geom.assign(NumControlPoints, context.cP(u, v, false));
  if (context.activeGuides.empty() || context.weightN == 0.0) {
    context.setCullPrim(true);
    return;
  }
  const int face = context.cFaceId();
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  auto at = [&](const VrExpression& e) { return e.eval(u, v, face, patchName).x; };
  const double lengthScale = std::max(at(lengthExpr()), sizeFloor);
  const double widthScale = std::max(at(widthExpr()), sizeFloor);
  const double twist = at(twistExpression);
  const double tilt = at(offNExpr());
  const double about = at(aboutNExpr());

  double l1 = 0.0, l2 = 0.0, bendU1 = 0.0, bendUN = 0.0, bendV2 = 0.0, bendVN = 0.0;
  SgVec3T<double> e1Sum, e2Sum;
  for (size_t i = 0; i < context.activeGuides.size(); ++i) {
    const std::vector<SgVec3T<double>>& C = guide(static_cast<unsigned>(context.activeGuides[i])).cGuideGeom();
    if (C.size() < NumControlPoints) continue;
    const double w = context.weight[i];
    double len1 = 0.0, len2 = 0.0;
    const SgVec3T<double> e1 = unitOf(C[BendU] - C[Root], len1);
    const SgVec3T<double> e2 = unitOf(C[BendV] - C[Root], len2);
    SgVec3T<double> n = e1.cross(e2);
    n.normalize();
    l1 += w * len1;
    l2 += w * len2;
    e1Sum += e1 * w;
    e2Sum += e2 * w;
    bendU1 += w * (C[EdgeU] - C[BendU]).dot(e1);
    bendUN += w * (C[EdgeU] - C[BendU]).dot(n);
    bendV2 += w * (C[EdgeV] - C[BendV]).dot(e2);
    bendVN += w * (C[EdgeV] - C[BendV]).dot(n);
  }

  const double f = context.lodAdjustment(), wn = context.weightN;
  const double first = l1 * widthScale * wn * f;
  const double second = l2 * lengthScale * wn * f;
  SgVec3T<double> along = e2Sum;
  along.normalize();
  SgVec3T<double> normal = e1Sum.cross(e2Sum);
  SgVec3T<double> across;
  if (normal.normalize() > 0.0) {
    // Across the card, square to its length, in the plane of the blended directions.
    across = along.cross(normal);
    across.normalize();
  } else {
    across = e1Sum;
    across.normalize();
  }
  if (twist != 0.0 && normal.lengthSquared() > 0.0) {
    across = vrutil::rotatedAbout(across, normal, twist * degreesToRadians);
    along = vrutil::rotatedAbout(along, normal, twist * degreesToRadians);
  }
  const SgVec3T<double> root = geom[Root];
  geom[BendU] = root + across * first;
  geom[BendV] = root + along * second;
  geom[EdgeU] = geom[BendU] + across * (bendU1 * wn) + normal * (bendUN * wn);
  geom[EdgeV] = geom[BendV] + along * (bendV2 * wn) + normal * (bendVN * wn);
  context.overrideCLength(second);
  context.overrideCWidth(2.0 * first);

  if (tilt == 0.0 && about == 0.0) return;
  SgVec3T<double> U = context.cU(u, v, false), N = context.cN(u, v, false);
  if (U.normalize() < 0.0001 || N.normalize() < 0.0001) return;
  for (int k = BendU; k < NumControlPoints; ++k) {
    SgVec3T<double> d = geom[k] - root;
    if (tilt != 0.0) d = vrutil::rotatedAbout(d, U, tilt * degreesToRadians);
    if (about != 0.0) d = vrutil::rotatedAbout(d, N, about * degreesToRadians);
    geom[k] = root + d;
  }
}
