// The wind module. For a spline C of n CVs with the mask m, `stiffness` k and the region factor
// f (1 without a region):
//
//   g      = f m (1 - k)                              no wind when g <= 0
//   D, c   = `direction` through `_xform` (no translation), normalised; c its length
//   R, L   = C[n-1] - C[0], normalised; L its length
//   X      = root in noise space (`_xform`, or the rest root with `prefNoise`) + `seed`
//   bend   = g (constStrength c + gustStrength W(X))        about R x D (towards D)
//   shear  = g shearStrength W(2^shearFreq X)                 about D
//   a_i    = (C[i] - C[0]).R / L  (a_1 for every CV with `rigidBody`)
//   C[i]   = C[0] + turn(turn(C[i] - C[0], R x D, a_i bend), D, a_i shear)
//
// W is the sum of two bands of signed noise at (clock + x, y, z), each biased and scaled; the
// clock is the collection's time in seconds, so the noise moves one unit per second.

#include "fxmodules/VrWindFXModule.h"

#include "base/VrMessage.h"
#include "base/vrutilCodec.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrClumpingFXModule.h"
#include "fxmodules/VrFXRotation.h"
#include "geometry/SgCurve.h"
#include "geometry/vrutilMath.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"

#include <algorithm>
#include <cmath>

namespace {

using Vec = SgVec3T<double>;
constexpr double WindMaskEpsilon = 1e-5;
constexpr const char* Identity = "matrix(1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1)";

// The expression language takes no semicolon after the last expression; the module's texts
// may carry one.
std::string withoutTrailingSemicolons(std::string text) {
  while (!text.empty() && (text.back() == ';' || text.back() == ' ' || text.back() == '\n')) text.pop_back();
  return text;
}

// Signed noise a in [-1, 1] pushed towards -1 or 1 by `bias` in (0, 1); 0.5 leaves it as is.
double biased(double a, double bias) {
  const double b = 1.0 / std::clamp(bias, 0.001, 0.999) - 2.0;
  return a >= 0.0 ? a / ((1.0 - a) * b + 1.0) : a / ((a + 1.0) * b + 1.0);
}

// What the wind does to one spline: the bend about `axis`, then the shear about `dir`, each in
// radians per unit of reach along `R`.
struct Gust {
  Vec root, R, axis, dir;
  double L = 0.0, bend = 0.0, shear = 0.0;
  bool bendOn = false;
  double reach(const Vec& p) const { return (p - root).dot(R) / L; }
  Vec turn(const Vec& offset, double a) const {
    const Vec bent = bendOn ? vrutil::rotatedAbout(offset, axis, a * bend) : offset;
    return vrutil::rotatedAbout(bent, dir, a * shear);
  }
};

}  // namespace

VrWindFXModule::VrWindFXModule(VrDescription* description)
    : VrFXModule(description),
      stiffness("stiffness", "WindFXModule", description, "0.3"),
      constStrength("constStrength", "WindFXModule", description, "0.5"),
      gustStrength("gustStrength", "WindFXModule", description, "0.5"),
      shearStrength("shearStrength", "WindFXModule", description, "0.1"),
      shearFreq("shearFreq", "WindFXModule", description, "1.0"),
      seed("seed", "WindFXModule", description, "0.0"),
      lowS("lowS", "WindFXModule", description, "1.0"),
      loBias("loBias", "WindFXModule", description, "0.5"),
      hiS("hiS", "WindFXModule", description, "0.1"),
      hiBias("hiBias", "WindFXModule", description, "0.5"),
      hiFreq("hiFreq", "WindFXModule", description, "2.0"),
      direction("direction", "WindFXModule", description, "[1.0,0.0,0.0]", "vector") {
  setAttr("name", "Wind", "string");
  setAttr("active", "true", "bool");
  setAttr("mask", "1.0", "expr");
  setAttr("stiffness", "0.3;", "expr");
  setAttr("constStrength", "0.5;", "expr");
  setAttr("gustStrength", "0.5;", "expr");
  setAttr("shearStrength", "0.1;", "expr");
  setAttr("shearFreq", "1.0;", "expr");
  setAttr("seed", "0.0;", "expr");
  setAttr("direction", "[1.0,0.0,0.0];", "expr");
  setAttr("lowS", "1.0;", "expr");
  setAttr("loBias", "0.5;", "expr");
  setAttr("hiS", "0.1;", "expr");
  setAttr("hiBias", "0.5;", "expr");
  setAttr("hiFreq", "2.0;", "expr");
  setAttr("regionActive", "false", "bool");
  setAttr("regionFalloff", "0.2", "float");
  setAttr("prefNoise", "false", "bool");
  setAttr("noiseLocator", "", "string");
  setAttr("regionLocator", "", "string");
  setAttr("_xform", Identity, "sxform");
  setAttr("_regionXform", Identity, "sxform");
  setAttr("rigidBody", "false", "bool");
  setAttr("loopableNoise", "false", "bool");
  setAttr("loopStartFrame", "1", "float");
  setAttr("loopEndFrame", "100", "float");
  setAttr("loopNoiseSpan", "4.0", "float");
  setAttr("loopNoiseType", "0", "enum", "Periodic:Looping");
  setAttr("clumpType", "0", "uint");
}

bool VrWindFXModule::setAttr(const std::string& name, const std::string& value, const std::string& type,
                             const std::string& enumStrings) {
  if (VrFXModule::setAttr(name, value, type, enumStrings)) return true;
  for (VrFXExprAttr* e : {&stiffness, &constStrength, &gustStrength, &shearStrength, &shearFreq, &seed, &lowS,
                          &loBias, &hiS, &hiBias, &hiFreq})
    if (name == e->name()) {
      e->set(withoutTrailingSemicolons(value));
      return true;
    }
  if (name == "direction") {
    direction.setExpression(withoutTrailingSemicolons(value));
    // A direction without variables is worked out once, not per primitive.
    constantDirection = direction.isConstant();
    if (constantDirection) directionValue = direction.eval(0.0, 0.0, 0);
    return true;
  }
  if (name == "_xform" || name == "_regionXform") {
    (name == "_xform" ? xformText : regionXformText) = value;
    SgXform3T<double>& xform = name == "_xform" ? noiseXform : regionXform;
    xform.setIdentity();
    return vrutil::stox(value, xform);
  }
  if (name == "regionActive") return boolAttr(name, value, regionActive);
  if (name == "regionFalloff") return floatAttr(name, value, regionFalloff);
  if (name == "prefNoise") return boolAttr(name, value, prefNoise);
  if (name == "rigidBody") return boolAttr(name, value, rigidBody);
  if (name == "loopableNoise") return boolAttr(name, value, loopable);
  if (name == "loopStartFrame") return floatAttr(name, value, loopStart);
  if (name == "loopEndFrame") return floatAttr(name, value, loopEnd);
  if (name == "loopNoiseSpan") return floatAttr(name, value, loopSpan);
  if (name == "loopNoiseType") return intAttr(name, value, loopType);
  if (name == "clumpType") return uintAttr(name, value, clumpType);
  return false;
}

void VrWindFXModule::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrFXModule::getExternalContext(pairs, prefix);
  for (const VrFXExprAttr* e : {&stiffness, &constStrength, &gustStrength, &shearStrength, &shearFreq, &seed, &lowS,
                                &loBias, &hiS, &hiBias, &hiFreq})
    e->expr.getExternalContext(pairs, prefix + e->name());
  direction.getExternalContext(pairs, prefix + "direction");
}

void VrWindFXModule::initDescription(VrPrimitive* owner) {
  VrFXModule::initDescription(owner);
  const VrDescription* desc = description();
  const VrPalette* palette = desc ? desc->palette() : nullptr;
  const double frame = palette ? palette->frame() : 0.0;
  // The transforms may be frame arrays: read them at this frame.
  noiseXform.setIdentity();
  regionXform.setIdentity();
  vrutil::stox(xformText, noiseXform, static_cast<int>(std::floor(frame)));
  vrutil::stox(regionXformText, regionXform, static_cast<int>(std::floor(frame)));

  if (loopable) {
    // One loop covers `loopNoiseSpan` noise units, and the noise repeats with that period, so
    // the wind of `loopEndFrame` is that of `loopStartFrame`. Periodic noise repeats only with
    // whole periods.
    const double frames = loopEnd - loopStart;
    const double phase = frames > 0.0 ? (frame - loopStart) / frames : 0.0;
    loopPeriod = loopType == 1 ? (loopSpan > 0.0 ? loopSpan : 1.0) : std::max(1.0, std::floor(loopSpan));
    clockValue = phase * loopPeriod;
  } else {
    const double fps = palette && palette->framesPerSecond() > 0.0 ? palette->framesPerSecond() : 24.0;
    clockValue = frame / fps;
  }

  clumps = nullptr;
  if (!isActive() || clumpType == 0 || !owner) return;
  clumps = clumpModule(*owner, clumpType, this);
  if (!clumps || !clumps->isActive()) deactivate("Dependency check fails. ");
}

double VrWindFXModule::noiseAt(double x, double y, double z) const {
  if (!loopable) return vrutil::snoise(x, y, z);
  return loopType == 1 ? vrutil::loopingNoise(x, y, z, loopPeriod) : vrutil::pnoise(x, y, z, loopPeriod);
}

double VrWindFXModule::bandNoise(const Bands& bands, double x, double y, double z) const {
  const double q = clockValue + x;
  const double low = biased(noiseAt(q, y, z), bands.loBias) * bands.lowS;
  const double s = bands.hiScale;
  const double high = biased(noiseAt(s * q, s * y, s * z), bands.hiBias) * bands.hiS;
  return high + low;
}

bool VrWindFXModule::computeParallel(VrPrimitiveContext& context) {
  std::vector<Vec>& P = context.getGeom();
  const size_t n = P.size();
  if (n < 2) return true;
  const double m = maskValue(context);
  if (m < WindMaskEpsilon) return true;
  const VrFXLocation where(context);

  if (!clumps) {
    std::vector<std::vector<Vec>*> attrs;
    if (primitive() && !primitive()->cvAttrTypes().empty()) attrs = primitive()->animatableCVAttrs(context);
    bend(where, P, attrs, context.cPg(where.u, where.v, true), m);
    return true;
  }

  // Clump-guided: the wind bends a copy of the guide, and the spline rides on it.
  const VrClumpGuide* guide = getClumpGuides(*clumps, context);
  if (!guide) {
    VR_DEBUG(4, vrmsg::CatFXModule, "No clump guide for primitive " + std::to_string(context.id()) + ". Skip.");
    return true;
  }
  const VrDescription* desc = description();
  if (desc && !desc->patches().count(guide->patchName)) {
    VR_WARNING(3, "Patch " + guide->patchName + " that the clump guide is bound to  is not bound to description. " +
                      "Skip primitive " + std::to_string(context.id()));
    return true;
  }
  auto* state = static_cast<VrWindFXModuleContext*>(context.fxModuleContext(this));
  if (!state) {
    context.addModuleContext(this, createModuleContext());
    state = static_cast<VrWindFXModuleContext*>(context.fxModuleContext(this));
  }
  std::vector<Vec>& G = state->guide;
  G.assign(guide->cvs.begin(), guide->cvs.end());
  if (G.size() != n) SgCurve::rebuild(G, static_cast<int>(n), true);
  if (G.size() != n || !buildFrameVectors(G, guide->T, guide->A, state->before)) return true;
  std::vector<std::vector<Vec>*>& riders = state->riders;
  riders.assign(1, &P);
  if (primitive() && !primitive()->cvAttrTypes().empty())
    for (std::vector<Vec>* attr : primitive()->animatableCVAttrs(context))
      if (attr->size() == n) riders.push_back(attr);
  std::vector<Vec>& bound = state->bound;
  bound.clear();
  for (const std::vector<Vec>* rider : riders)
    for (size_t i = 0; i < n; ++i) bound.push_back(bindCV((*rider)[i], G, state->before, i));
  if (!bend(where, G, {}, G[0], m)) return true;
  if (!buildFrameVectors(G, guide->T, guide->A, state->after)) return true;
  for (size_t r = 0; r < riders.size(); ++r)
    for (size_t i = 1; i < n; ++i) (*riders[r])[i] = computeGoalPt(bound[r * n + i], G, state->after, i);
  return true;
}

bool VrWindFXModule::bend(const VrFXLocation& where, std::vector<Vec>& cvs,
                          const std::vector<std::vector<Vec>*>& attrs, const Vec& restRoot, double m) const {
  const size_t n = cvs.size();
  Gust gust;
  gust.root = cvs[0];
  double region = 1.0;
  if (regionActive) {
    const double r = regionXform.transformed(gust.root).length();
    region = r >= 1.0 ? 0.0 : (1.0 - r < regionFalloff ? (1.0 - r) / regionFalloff : 1.0);
  }
  const double k = std::max(stiffness.at(where), 0.0);
  const double g = region * m * (1.0 - k);
  if (!(g > 0.0)) return false;

  gust.dir = noiseXform.transformed(
      constantDirection ? directionValue : direction.eval(where.u, where.v, where.face, where.patchName), true);
  const double constant = gust.dir.normalize();
  if (constant == 0.0) return false;
  gust.R = cvs[n - 1] - gust.root;
  gust.L = gust.R.normalize();
  if (gust.L == 0.0) return false;
  gust.axis = gust.R.cross(gust.dir);
  gust.bendOn = gust.axis.normalize() > 0.0;

  Bands bands;
  bands.lowS = lowS.at(where);
  bands.loBias = loBias.at(where);
  bands.hiS = hiS.at(where);
  bands.hiBias = hiBias.at(where);
  bands.hiScale = std::pow(2.0, hiFreq.at(where));
  const double offset = seed.at(where);
  const Vec X = (prefNoise ? restRoot : noiseXform.transformed(gust.root)) + Vec(offset, offset, offset);
  gust.bend = g * (constStrength.at(where) * constant + gustStrength.at(where) * bandNoise(bands, X.x, X.y, X.z));
  const double scale = std::pow(2.0, shearFreq.at(where));
  gust.shear = bandNoise(bands, X.x * scale, X.y * scale, X.z * scale) * shearStrength.at(where) * g;

  if (!attrs.empty()) VR_DEBUG(5, vrmsg::CatFXModule, "Animating cv attributes.");
  const double a1 = gust.reach(cvs[1]);
  for (size_t i = 1; i < n; ++i) {
    const double a = rigidBody ? a1 : gust.reach(cvs[i]);
    cvs[i] = gust.root + gust.turn(cvs[i] - gust.root, a);
    for (std::vector<Vec>* attr : attrs)
      if (i < attr->size()) (*attr)[i] = gust.root + gust.turn((*attr)[i] - gust.root, a);
  }
  return true;
}
