#include "primitives/VrSplinePrimitive.h"

#include "base/VrExactCast.h"
#include "base/VrMessage.h"
#include "geometry/SgCurve.h"
#include "geometry/VrPatch.h"
#include "geometry/vrutilMath.h"
#include "primitives/VrGuideRepair.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr double degreesToRadians = 3.14159265358979323846 / 180.0;
constexpr const char* objectWord = "SplinePrimitive";
constexpr const char* leanDefault = "$a=0.0;#-2.0,2.0\\n$a";

// Whether W turned about the unit `axis` by acos(cosine) has a negative dot with c, as in
// c.dot(vrutil::rotatedAbout(W, axis, std::acos(cosine))) < 0. Only that sign is wanted, so the turn is first
// made with the cosine and sine themselves; that dot differs from the trigonometric one by a few
// units in the last place of |W|, far inside the margin kept, and a dot within the margin is
// settled by the trigonometric turn, so the answer is the same bit for bit.
bool turnedBehind(const SgVec3T<double>& c, const SgVec3T<double>& W, const SgVec3T<double>& axis,
                  double cosine) {
  const double sine = std::sqrt((1.0 - cosine) * (1.0 + cosine));
  const double dot = c.dot(vrutil::rotatedAbout(W, axis, cosine, sine));
  const double margin = 1e-9 * (std::fabs(W.x) + std::fabs(W.y) + std::fabs(W.z));
  if (std::fabs(dot) > margin) return dot < 0.0;
  return c.dot(vrutil::rotatedAbout(W, axis, std::acos(cosine))) < 0.0;
}

// Working arrays of a plain context, which has none of its own.
struct Scratch {
  std::vector<double> positions, leanU, leanV;
  std::vector<SgVec3T<double>> chain;
};
thread_local Scratch plainScratch;

std::string bendParamDefault(unsigned k, unsigned bendCount) {
  char position[32];
  std::snprintf(position, sizeof(position), "%g", static_cast<double>(k + 1) / (bendCount + 1));
  return std::string("$a=") + position + ";#0.0,1.0\\n$a";
}

// "bendU[3]" -> ("bendU", 3); false for other names.
bool splitBendName(const std::string& name, std::string& base, unsigned& index) {
  const size_t open = name.find('[');
  if (open == std::string::npos || name.back() != ']' || open + 2 > name.size() - 1) return false;
  base = name.substr(0, open);
  if (base != "bendParam" && base != "bendU" && base != "bendV") return false;
  char* end = nullptr;
  const unsigned long value = std::strtoul(name.c_str() + open + 1, &end, 10);
  if (end != name.c_str() + name.size() - 1) return false;
  index = static_cast<unsigned>(value);
  return true;
}

// Whether the polyline through `cvs` changes direction (by more than rounding) or has a segment
// of no length.
bool turnsAnywhere(const std::vector<SgVec3T<double>>& cvs) {
  if (cvs.size() < 2) return false;
  SgVec3T<double> first = cvs[1] - cvs[0];
  if (first.normalize() == 0.0) return true;
  for (size_t i = 2; i < cvs.size(); ++i) {
    SgVec3T<double> next = cvs[i] - cvs[i - 1];
    if (next.normalize() == 0.0 || (next - first).length() > 1e-9) return true;
  }
  return false;
}

// Whether the first `segments` steps between the bend positions `p` are all the same.
bool evenlySpread(const std::vector<double>& p, unsigned segments) {
  for (unsigned i = 1; i < segments; ++i)
    if (p[i + 1] - p[i] != p[1] - p[0]) return false;
  return true;
}

}  // namespace

/// One bend of the attribute shape: where along the length, and the lean there.
struct VrSplinePrimitive::Bend {
  Bend(unsigned k, VrDescription* description)
      : param("bendParam[" + std::to_string(k) + "]", objectWord, description, "0.5", "float"),
        u("bendU[" + std::to_string(k) + "]", objectWord, description, leanDefault, "float"),
        v("bendV[" + std::to_string(k) + "]", objectWord, description, leanDefault, "float") {}
  VrExpression param, u, v;
};

VrSplinePrimitive::VrSplinePrimitive(VrDescription* description)
    : VrPrimitive(description, std::make_unique<VrSplinePrimitiveContext>(description)),
      taperExpression("taper", objectWord, description, "$a=0.0;#-1.0,1.0\\n$a", "float"),
      taperStartExpression("taperStart", objectWord, description, "$a=0.0;#0.0,1.0\\n$a", "float"),
      guideMaskExpression("guideMask", objectWord, description, "1.0", "float"),
      cutParamExpression("cutParam", objectWord, description, "1.0", "float"),
      widthRamp(SgRampUIComp::RampUIDefault) {
  declareAttrs();
}

VrSplinePrimitive::~VrSplinePrimitive() = default;

void VrSplinePrimitive::declareAttrs() {
  setAttr("taper", "$a=0.0;#-1.0,1.0\\n$a", "expr");
  setAttr("taperStart", "$a=0.0;#0.0,1.0\\n$a", "expr");
  setAttr("displayWidth", "true", "bool");
  setAttr("faceCamera", "true", "bool");
  setAttr("tubeShade", "true", "bool");
  setAttr("tubes", "", "string");
  setAttr("guideSpacing", "1.0", "float");
  setAttr("guideMask", "1.0", "expr");
  setAttr("cutParam", "1.0", "expr");
  setAttr("texelsPerUnit", "10.0", "float");
  setAttr("CVFrequency", "1.0", "float");
  setAttr("width", "$a=0.1;#0.005,0.5\\n$a", "expr");
  setAttr("widthRamp", SgRampUIComp::RampUIDefault, "rampUI");
  setAttr("attrCVCount", "3", "int");
  setAttr("fxCVCount", "5", "int");
  setAttr("uniformCVs", "true", "bool");
}

bool VrSplinePrimitive::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                const std::string& enumStrings) {
  std::string previous;
  const bool hadValue = getAttr(name, previous);
  if (VrPrimitive::setAttr(name, value, type, enumStrings)) return true;

  if (name == "taper") {
    taperExpression.setExpression(value);
    return true;
  }
  if (name == "taperStart") {
    taperStartExpression.setExpression(value);
    return true;
  }
  if (name == "guideMask") {
    guideMaskExpression.setExpression(value);
    return true;
  }
  if (name == "cutParam") {
    cutParamExpression.setExpression(value);
    return true;
  }
  if (name == "displayWidth") return boolAttr(name, value, displayWidthFlag);
  if (name == "faceCamera") return boolAttr(name, value, faceCameraFlag);
  if (name == "tubeShade") return boolAttr(name, value, tubeShadeFlag);
  if (name == "uniformCVs") return boolAttr(name, value, uniform);
  if (name == "guideSpacing") return floatAttr(name, value, guideSpacingValue);
  if (name == "texelsPerUnit") return floatAttr(name, value, texelsPerUnitValue);
  if (name == "CVFrequency") return floatAttr(name, value, cvFrequency);
  if (name == "tubes") return true;
  if (name == "widthRamp") {
    SgRampUIComp parsed;
    if (!parsed.init(value)) {
      VR_ERROR("Syntax Error in parsing widthScale: " + value);
      if (hadValue) VrObject::setAttr(name, previous, type, enumStrings);
      return false;
    }
    widthRamp = parsed;
    return true;
  }
  if (name == "attrCVCount") {
    int n = 0;
    if (!intAttr(name, value, n) || !setAttrCVCount(n)) {
      VrObject::setAttr(name, std::to_string(attrCVs), type, enumStrings);
      return false;
    }
    return true;
  }
  if (name == "fxCVCount") {
    int n = 0;
    if (!intAttr(name, value, n)) return false;
    if (n > static_cast<int>(maxCVCount)) {
      VR_ERROR("Cant set fx cv count to a value greater than " + std::to_string(maxCVCount) + ".");
      VrObject::setAttr(name, std::to_string(fxCVs), type, enumStrings);
      return false;
    }
    fxCVs = static_cast<unsigned>(std::max(n, 0));
    return true;
  }
  if (name == "spacing" || name == "oneLength") {
    // Old names: the spacing moves to its new name, the rest is forgotten.
    remAttr(name);
    if (name == "spacing") setAttr("guideSpacing", value, "float");
    return true;
  }
  std::string base;
  unsigned k = 0;
  if (splitBendName(name, base, k)) {
    // A bend past the count is kept as text and read when the count grows.
    if (k < bends.size()) {
      Bend& b = *bends[k];
      (base == "bendParam" ? b.param : base == "bendU" ? b.u : b.v).setExpression(value);
    }
    return true;
  }
  return false;
}

bool VrSplinePrimitive::setAttrCVCount(int n) {
  if (n < 3) {
    VR_ERROR("Cant set cv count to a value less than three.");
    return false;
  }
  if (n > static_cast<int>(maxCVCount)) {
    VR_ERROR("Cant set cv count to a value greater than " + std::to_string(maxCVCount) + ".");
    return false;
  }
  VR_DEBUG(3, vrmsg::CatPrimitive, "Changing the number of attribute CVs: " + std::to_string(n));
  attrCVs = static_cast<unsigned>(n);
  makeBends(attrCVs - 2);
  return true;
}

void VrSplinePrimitive::makeBends(unsigned count) {
  const unsigned before = static_cast<unsigned>(bends.size());
  for (unsigned k = count; k < before; ++k) {
    for (const char* base : {"bendParam[", "bendU[", "bendV["}) remAttr(base + std::to_string(k) + "]");
  }
  bends.resize(std::min(before, count));
  std::string text;
  for (unsigned k = static_cast<unsigned>(bends.size()); k < count; ++k) {
    bends.push_back(std::make_unique<Bend>(k, description()));
    const std::string names[3] = {"bendParam[" + std::to_string(k) + "]", "bendU[" + std::to_string(k) + "]",
                                  "bendV[" + std::to_string(k) + "]"};
    const std::string defaults[3] = {bendParamDefault(k, count), leanDefault, leanDefault};
    for (int i = 0; i < 3; ++i) setAttr(names[i], getAttr(names[i], text) ? text : defaults[i], "expr");
  }
}

void VrSplinePrimitive::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrPrimitive::getExternalContext(pairs, prefix);
  taperExpression.getExternalContext(pairs, prefix + "taper");
  taperStartExpression.getExternalContext(pairs, prefix + "taperStart");
}

bool VrSplinePrimitive::finiteGeometry(VrPrimitiveContext& context) const {
  const auto* spline = vrExactCast<VrSplinePrimitiveContext>(&context);
  return VrPrimitive::finiteGeometry(context) &&
         (!spline || (std::isfinite(spline->taper) && std::isfinite(spline->taperStart)));
}

const VrExpression* VrSplinePrimitive::attrExpression(const std::string& name) const {
  if (name == "taper") return &taperExpression;
  if (name == "taperStart") return &taperStartExpression;
  if (name == "guideMask") return &guideMaskExpression;
  if (name == "cutParam") return &cutParamExpression;
  std::string base;
  unsigned k = 0;
  if (splitBendName(name, base, k) && k < bends.size()) {
    const Bend& b = *bends[k];
    return base == "bendParam" ? &b.param : base == "bendU" ? &b.u : &b.v;
  }
  return VrPrimitive::attrExpression(name);
}

std::unique_ptr<VrPrimitiveContext> VrSplinePrimitive::createContext() const {
  auto fresh = std::make_unique<VrSplinePrimitiveContext>(description());
  fresh->breakActive = breakFlag;
  return fresh;
}

void VrSplinePrimitive::defaultGuideGeom(VrGuide& guide) const {
  const SgVec3T<double> n = guide.exportedNormal();
  guide.setOrigIGeom({SgVec3T<double>(0.0, 0.0, 0.0), n * (1.0 / 3.0), n * (2.0 / 3.0), n});
}

bool VrSplinePrimitive::prepGuideCGeom(unsigned index) {
  if (index >= numGuides()) return false;
  VrGuide& g = guide(index);
  vrguide::readyGuideCVs(*this, g, "spline");
  const size_t count = index == 0 ? g.iGuideGeom().size() : guide(0).iGuideGeom().size();
  if (count >= minGuideCVCount() && g.iGuideGeom().size() != count) {
    std::vector<SgVec3T<double>> cvs = g.iGuideGeom();
    SgCurve::rebuild(cvs, static_cast<int>(count), true, nullptr);
    g.setIGeom(std::move(cvs));
  }
  return VrPrimitive::prepGuideCGeom(index);
}

void VrSplinePrimitive::packAttrs(const VrPrimitiveContext& context, std::vector<float>& floats) const {
  VrPrimitive::packAttrs(context, floats);
  const auto* spline = vrExactCast<VrSplinePrimitiveContext>(&context);
  const SgVec3T<double> w = spline ? spline->widthVec() : SgVec3T<double>();
  floats.insert(floats.end(), {spline ? spline->taper : 0.0f, spline ? spline->taperStart : 0.0f,
                               static_cast<float>(w.x), static_cast<float>(w.y), static_cast<float>(w.z)});
}

bool VrSplinePrimitive::unpackAttrs(VrPrimitiveContext& context, const std::vector<float>& floats,
                                    size_t& offset) const {
  if (offset > floats.size() || floats.size() - offset < packedAttrCount()) {
    VR_WARNING(1, "Packed primitive attributes of " + typeName() + " are cut short; not unpacked.");
    return false;
  }
  VrPrimitive::unpackAttrs(context, floats, offset);
  if (auto* spline = vrExactCast<VrSplinePrimitiveContext>(&context)) {
    spline->taper = floats[offset];
    spline->taperStart = floats[offset + 1];
    spline->setWidthVec(SgVec3T<double>(floats[offset + 2], floats[offset + 3], floats[offset + 4]));
  }
  offset += 5;
  return true;
}

bool VrSplinePrimitive::overrideGuidesWithCache() {
  breakFlag = false;
  splineContext().breakActive = false;
  const bool overridden = VrPrimitive::overrideGuidesWithCache();
  if (!useCache()) return false;
  for (unsigned i = 0; i < numGuides() && !breakFlag; ++i) breakFlag = guide(i).guideCVAttrs().contains("break");
  splineContext().breakActive = breakFlag;
  return overridden;
}

// ---------------------------------------------------------------------------------------------
// Geometry

void VrSplinePrimitive::mkGeometryInParallel(VrPrimitiveContext& context, double u, double v) {
  if (iMethod() != 0) {
    mkGeometryFromGuides(context, u, v);
  } else {
    mkGeometryFromAttrs(context, u, v);
  }
  if (context.cullPrim()) return;
  shapeAttrs(context, u, v, context.lodAdjustment());
}

void VrSplinePrimitive::completeGivenGeometryInParallel(VrPrimitiveContext& context, double u, double v,
                                                        double widthFactor) const {
  VrPrimitive::completeGivenGeometryInParallel(context, u, v, widthFactor);
  shapeAttrs(context, u, v, widthFactor);
}

void VrSplinePrimitive::shapeAttrs(VrPrimitiveContext& context, double u, double v, double widthFactor) const {
  auto* spline = vrExactCast<VrSplinePrimitiveContext>(&context);
  const int face = context.cFaceId();
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  const double width = widthExpr().eval(u, v, face, patchName).x * widthFactor;
  const float taper = static_cast<float>(taperExpression.eval(u, v, face, patchName).x);
  const float taperStart =
      static_cast<float>(std::clamp(taperStartExpression.eval(u, v, face, patchName).x, 0.0, 1.0));
  context.overrideCWidth(width);
  if (spline) {
    spline->taper = taper;
    spline->taperStart = taperStart;
    const std::vector<SgVec3T<double>>& P = context.cGeom();
    const bool fromSegments = P.size() >= 3;
    const SgVec3T<double> none;
    spline->deferWidthVec(fromSegments ? P[1] - P[0] : none, fromSegments ? P[2] - P[1] : none,
                          context.cFrame(u, v, false), fromSegments);
  }
  if (isShorterThan(context, 0.0001) || context.cWidth() < 0.0001) context.setCullPrim(true);
}

bool VrSplinePrimitive::isShorterThan(VrPrimitiveContext& context, double limit) {
  // The spline passes through its end CVs, so it is at least as long as the chord between them
  // (the margin covers the rounding of the stepped length): a length left dirty by the FX
  // modules is worked out only when the chord cannot settle it.
  if (context.isLengthDirty()) {
    const std::vector<SgVec3T<double>>& P = context.cGeom();
    if (P.size() >= 2 && (P.back() - P.front()).length() >= limit * (1.0 + 1e-9)) return false;
  }
  return context.cLength() < limit;
}

void VrSplinePrimitive::mkGeometryFromAttrs(VrPrimitiveContext& context, double u, double v) {
  auto* spline = vrExactCast<VrSplinePrimitiveContext>(&context);
  const int face = context.cFaceId();
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  const double length = std::max(lengthExpr().eval(u, v, face, patchName).x, 1e-6);
  context.overrideCLength(length);
  const double tu = std::clamp(offUExpr().eval(u, v, face, patchName).x, -1.0, 1.0);
  const double tv = std::clamp(offVExpr().eval(u, v, face, patchName).x, -1.0, 1.0);
  const double tilt = offNExpr().eval(u, v, face, patchName).x;
  const double about = aboutNExpr().eval(u, v, face, patchName).x;

  // Bend positions p[0..n+1] with p[0] = 0 and p[n+1] = 1, each bend at least 0.01 past the
  // one before and leaving room for those after.
  const size_t n = bends.size();
  std::vector<double>& p = spline ? spline->bendPositions : plainScratch.positions;
  std::vector<double>& bu = spline ? spline->bendLeanU : plainScratch.leanU;
  std::vector<double>& bv = spline ? spline->bendLeanV : plainScratch.leanV;
  p.resize(n + 2);
  bu.resize(n);
  bv.resize(n);
  p[0] = 0.0;
  for (size_t k = 0; k < n; ++k) {
    const Bend& b = *bends[k];
    bu[k] = std::clamp(b.u.eval(u, v, face, patchName).x, -2.0, 2.0);
    bv[k] = std::clamp(b.v.eval(u, v, face, patchName).x, -2.0, 2.0);
    double x = b.param.eval(u, v, face, patchName).x;
    x = std::max(x, p[k] + 0.01);
    x = std::min(x, 1.0 - static_cast<double>(n - k) * 0.01);
    p[k + 1] = x;
  }
  p[n + 1] = 1.0;

  // Each segment leans relative to the frame the segment before it leaves, so the tail built
  // from the tip back and turned by each earlier segment equals the chain walked from the root
  // with the frame carried along; the chain is walked here.
  std::vector<SgVec3T<double>>& chain = spline ? spline->attrChain : plainScratch.chain;
  chain.clear();
  chain.push_back(context.cP(u, v, false));
  SgVec3T<double> N = context.cN(u, v, false);
  const unsigned segments = attrCVs - 1;
  // A segment that does not lean grows along the normal that it is handed and hands its own
  // direction on as the next normal; the tangents only turn along. From the first segment of the
  // tail that leans nowhere, they are read no more: the surface's tangents are not even asked for
  // when the whole chain is plain (the usual hair).
  const auto leans = [&](unsigned i) {
    return i == 0 ? tu != 0.0 || tv != 0.0 || tilt != 0.0 || about != 0.0 : bu[i - 1] != 0.0 || bv[i - 1] != 0.0;
  };
  unsigned plainTail = segments;
  while (plainTail > 0 && !leans(plainTail - 1)) --plainTail;
  SgVec3T<double> U, V;
  if (plainTail > 0) {
    U = context.cU(u, v, false);
    V = context.cV(u, v, false);
  }
  for (unsigned i = 0; i < segments; ++i) {
    const double share = (p[i + 1] - p[i]) * length;
    const SgVec3T<double> root = chain.back();
    if (i >= plainTail) {
      growAlongNormal(root, N, share, chain);
    } else if (i == 0) {
      orient(root, N, U, V, tu, tv, tilt, about, share, chain, true);
    } else {
      orient(root, N, U, V, bu[i - 1], bv[i - 1], 0.0, 0.0, share, chain, false);
    }
  }
  // A chain that never turns is a straight line, and so is its spline: it already has the
  // length asked for, and measuring it would only confirm that; evenly spaced on its line (the
  // usual hair, shaped by its modules afterwards), it resamples in closed form.
  if (turnsAnywhere(chain)) {
    SgCurve::setLength(chain, length, -1.0);
  } else if (segments > 0 && evenlySpread(p, segments)) {
    SgCurve::rebuildLine(context.getGeom(), chain.front(), chain.back(), static_cast<int>(fxCVs));
    return;
  }
  // Resampled into the geometry, which mostly keeps its size from the primitive before: the
  // chain is built apart so that the geometry need not shrink to it and grow back.
  SgCurve::rebuild(context.getGeom(), chain, static_cast<int>(fxCVs), uniform, nullptr);
}

void VrSplinePrimitive::mkGeometryFromGuides(VrPrimitiveContext& context, double u, double v) {
  auto* spline = vrExactCast<VrSplinePrimitiveContext>(&context);
  const bool breakActive = spline && spline->breakActive;
  std::vector<SgVec3T<double>>& geom = context.getGeom();
  if (numGuides() == 0 || context.activeGuides.empty() || context.weightN <= 0.0) {
    VR_DEBUG(3, vrmsg::CatPrimitive, "No guides to shape the spline from; primitive culled.");
    geom.clear();
    context.setCullPrim(true);
    return;
  }
  const size_t count = guide(0).cGuideGeom().size();
  geom.resize(count);
  if (count == 0) {
    context.setCullPrim(true);
    return;
  }
  geom[0] = context.cP(u, v, false);

  const std::vector<float>* breakValues = nullptr;
  int dominant = -1;
  if (breakActive) {
    double best = -1.0;
    for (size_t i = 0; i < context.activeGuides.size(); ++i) {
      if (context.weight[i] > best) {  // the earlier guide keeps a tie
        best = context.weight[i];
        dominant = context.activeGuides[i];
      }
    }
    breakValues = guide(static_cast<unsigned>(dominant)).guideCVAttrs().find("break");
  }
  if (spline) spline->dominantGuide = dominant;

  for (size_t k = 1; k < count; ++k) {
    double W = 1.0 / context.weightN;
    SgVec3T<double> sum;
    const double b = breakValues && k < breakValues->size() ? (*breakValues)[k] : 1.0;
    for (size_t i = 0; i < context.activeGuides.size(); ++i) {
      const int g = context.activeGuides[i];
      const std::vector<SgVec3T<double>>& cvs = guide(static_cast<unsigned>(g)).cGuideGeom();
      if (k >= cvs.size()) continue;
      const double w = context.weight[i];
      double w2 = w;
      if (breakActive && g != dominant) {
        w2 = w * b;
        W += w2 - w;
      }
      sum += (cvs[k] - cvs[0]) * w2;
    }
    geom[k] = (W != 0.0 ? sum / W : SgVec3T<double>()) + geom[0];
  }
  context.dirtyCLength();

  const int face = context.cFaceId();
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  const float tilt = static_cast<float>(offNExpr().eval(u, v, face, patchName).x);
  const float about = static_cast<float>(aboutNExpr().eval(u, v, face, patchName).x);
  if (tilt == 0.0f && about == 0.0f) return;
  SgVec3T<double> N = context.cN(u, v, false);
  N.normalize();
  SgVec3T<double> axis = count > 1 ? N.cross(geom[1] - geom[0]) : SgVec3T<double>();
  axis.normalize();
  for (size_t k = 1; k < count; ++k) {
    SgVec3T<double> d = geom[k] - geom[0];
    if (tilt != 0.0f && axis.lengthSquared() > 0.0) d = vrutil::rotatedAbout(d, axis, tilt * degreesToRadians);
    if (about != 0.0f) d = vrutil::rotatedAbout(d, N, about * degreesToRadians);
    geom[k] = geom[0] + d;
  }
}

bool VrSplinePrimitive::postApplyFxInParallel(VrPrimitiveContext& context) {
  context.dirtyCLength();
  return true;
}

const SgVec3T<double>& VrSplinePrimitiveContext::widthVec() const {
  if (sidewaysPending) {
    rootFrame.square();
    if (sidewaysFromSegments) {
      VrSplinePrimitive::calcWidthVec(firstSegment, secondSegment, rootFrame.normal, rootFrame.unitU, sideways);
    } else {
      sideways = rootFrame.unitU;
    }
    sidewaysPending = false;
  }
  return sideways;
}

void VrSplinePrimitive::calcWidthVec(const SgVec3T<double>& T0, const SgVec3T<double>& T1,
                                     const SgVec3T<double>& N, const SgVec3T<double>& W, SgVec3T<double>& out) {
  SgVec3T<double> t0 = T0;
  t0.normalize();
  SgVec3T<double> axis = N.cross(t0);
  const bool turns = axis.normalize() > 0.0;
  const double cosine = std::clamp(N.dot(t0), -1.0, 1.0);
  SgVec3T<double> c = T1.cross(T0);
  if (c.normalize() > 0.0) {
    out = (turns ? turnedBehind(c, W, axis, cosine) : c.dot(W) < 0.0) ? -c : c;
  } else {
    out = turns ? vrutil::rotatedAbout(W, axis, std::acos(cosine)) : W;
  }
  out.normalize();
}

void VrSplinePrimitive::calcCVWidths(const VrSplinePrimitiveContext& context, std::vector<float>& widths) const {
  if (widths.empty()) widths.resize(context.cGeom().size());
  calcCVWidths(context, widths.data(), widths.size());
}

void VrSplinePrimitive::calcCVWidths(const VrSplinePrimitiveContext& context, float* widths, size_t n) const {
  const double taper = context.taper, start = context.taperStart;
  // A flat ramp (the default) needs no look-up per CV.
  float flatValue = 0.0f;
  const bool flat = widthRamp.isFlat(flatValue);
  const double width = context.cWidth();
  // Without taper every factor f below is exactly 1, so a flat ramp gives one width for all CVs.
  if (taper == 0.0 && flat) {
    std::fill_n(widths, n, static_cast<float>(width * flatValue));
    return;
  }
  for (size_t i = 0; i < n; ++i) {
    const double s = n > 1 ? static_cast<double>(i) / static_cast<double>(n - 1) : 0.0;
    double f = 1.0;
    if (s > start) f = 1.0 - ((s - start) / (1.0 - start)) * taper;
    const float ramp = flat ? flatValue : widthRamp.getValue(static_cast<float>(s));
    widths[i] = static_cast<float>(f * width * ramp);
  }
}
