#include "primitives/VrPrimitive.h"

#include "base/VrMessage.h"
#include "base/VrModules.h"
#include "base/vrutilCodec.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "geometry/vrutilMath.h"
#include "io/VrImportGeometry.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <sstream>

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double degreesToRadians = pi / 180.0;
constexpr const char* objectWord = "Primitive";

// The lean (a, b) as a direction in (U, V, N) coordinates: h along N.
void leanToDirection(double& a, double& b, double& h) {
  const double m = std::sqrt(a * a + b * b);
  if (m == 0.0) {
    h = 1.0;
  } else if (m > 1.95) {
    const double s = 0.05 * 1.5691819 / m;
    a *= s;
    b *= s;
    h = -0.99691733;
  } else if (m > 1.0) {
    const double mp = 2.0 - m;
    const double s = (mp / m) * std::sin(mp * pi / 2.0) / mp;
    a *= s;
    b *= s;
    h = -std::cos(mp * pi / 2.0);
  } else {
    const double s = std::sin(m * pi / 2.0) / m;
    a *= s;
    b *= s;
    h = std::cos(m * pi / 2.0);
  }
}

}  // namespace

VrPrimitive::VrPrimitive(VrDescription* description)
    : VrPrimitive(description, std::make_unique<VrPrimitiveContext>(description), false) {}

VrPrimitive::VrPrimitive(VrDescription* description, std::unique_ptr<VrPrimitiveContext> context)
    : VrPrimitive(description, std::move(context), true) {}

VrPrimitive::VrPrimitive(VrDescription* description, std::unique_ptr<VrPrimitiveContext> context, bool declare)
    : VrBasePrimitive(description),
      primContext(std::move(context)),
      lengthExpression("length", objectWord, description, "$a=1.0;#0.05,5.0\\n$a", "float"),
      widthExpression("width", objectWord, description, "$a=1.0;#0.05,5.0\\n$a", "float"),
      depthExpression("depth", objectWord, description, "$a=1.0;#0.05,5.0\\n$a", "float"),
      offUExpression("offU", objectWord, description, "$a=0.0;#-2.0,2.0\\n$a", "float"),
      offVExpression("offV", objectWord, description, "$a=0.0;#-2.0,2.0\\n$a", "float"),
      offNExpression("offN", objectWord, description, "$a=0.0;#-180.0,180.0\\n$a", "float"),
      aboutNExpression("aboutN", objectWord, description, "$a=0.0;#-180.0,180.0\\n$a", "float"),
      regionMaskExpression("regionMask", objectWord, description, "0.0", "float"),
      regionExpression("regionExprInternal", objectWord, description, "0", "color"),
      guideColorExpression("guideColorInternal", objectWord, description, "[1,1,1]", "color"),
      colorExpression("CsExpr", objectWord, description, "[1,1,1]", "color") {
  // Shape from attributes unless told otherwise, for the kinds known by name only as well.
  setIMethod(0);
  if (declare) declareAttrs();
}

VrPrimitive::~VrPrimitive() {
  for (VrFXModule* module : stack) delete module;
}

void VrPrimitive::declareAttrs() {
  setAttr("length", "$a=1.0;#0.05,5.0\\n$a", "expr");
  setAttr("width", "$a=1.0;#0.05,5.0\\n$a", "expr");
  setAttr("depth", "$a=1.0;#0.05,5.0\\n$a", "expr");
  setAttr("offU", "$a=0.0;#-2.0,2.0\\n$a", "expr");
  setAttr("offV", "$a=0.0;#-2.0,2.0\\n$a", "expr");
  setAttr("offN", "$a=0.0;#-180.0,180.0\\n$a", "expr");
  setAttr("aboutN", "$a=0.0;#-180.0,180.0\\n$a", "expr");
  setAttr("regionMap", "${DESC}/Region/", "string");
  setAttr("regionMask", "0.0", "expr");
  setAttr("iMethod", "0", "enum", "Attribute:CV");
  setAttr("useCache", "false", "bool");
  setAttr("liveMode", "true", "bool");
  setAttr("_wireNames", "", "float");
  setAttr("cacheFileName", "${DESC}/guides.abc", "string");
}

bool VrPrimitive::setAttr(const std::string& name, const std::string& value, const std::string& type,
                          const std::string& enumStrings) {
  if (VrBasePrimitive::setAttr(name, value, type, enumStrings)) return true;
  struct Named {
    const char* name;
    VrExpression VrPrimitive::*expr;
  };
  static const Named expressions[] = {
      {"length", &VrPrimitive::lengthExpression}, {"width", &VrPrimitive::widthExpression},
      {"depth", &VrPrimitive::depthExpression},   {"offU", &VrPrimitive::offUExpression},
      {"offV", &VrPrimitive::offVExpression},     {"offN", &VrPrimitive::offNExpression},
      {"aboutN", &VrPrimitive::aboutNExpression}, {"regionMask", &VrPrimitive::regionMaskExpression},
      {"CsExpr", &VrPrimitive::colorExpression}};
  for (const Named& e : expressions) {
    if (name == e.name) {
      (this->*e.expr).setExpression(value);
      return true;
    }
  }
  if (name == "iMethod") {
    int method = 0;
    const bool ok = intAttr(name, value, method);
    if (ok) setIMethod(method);
    return ok;
  }
  if (name == "regionMap") {
    regionMapName = value;
    return true;
  }
  if (name == "cacheFileName") {
    cacheFile = value;
    return true;
  }
  if (name == "useCache") return boolAttr(name, value, useCacheFlag);
  if (name == "liveMode") return boolAttr(name, value, liveModeFlag);
  return false;
}

void VrPrimitive::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrBasePrimitive::getExternalContext(pairs, prefix);
  for (const char* name : {"length", "width", "depth", "offU", "offV", "offN", "aboutN", "regionMask"})
    if (const VrExpression* e = attrExpression(name)) e->getExternalContext(pairs, prefix + name);
}

const VrExpression* VrPrimitive::attrExpression(const std::string& name) const {
  if (name == "length") return &lengthExpression;
  if (name == "width") return &widthExpression;
  if (name == "depth") return &depthExpression;
  if (name == "offU") return &offUExpression;
  if (name == "offV") return &offVExpression;
  if (name == "offN") return &offNExpression;
  if (name == "aboutN") return &aboutNExpression;
  if (name == "regionMask") return &regionMaskExpression;
  if (name == "CsExpr") return &colorExpression;
  return nullptr;
}

bool VrPrimitive::finiteGeometry(VrPrimitiveContext& context) const {
  for (const SgVec3T<double>& p : context.cGeom())
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) return false;
  return std::isfinite(context.cWidth()) && std::isfinite(context.cDepth());
}

std::string VrPrimitive::nonFiniteAttribute(const VrPrimitiveContext& context, double u, double v) const {
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  for (const std::string& name : attrNames()) {
    const VrExpression* e = attrExpression(name);
    if (!e) continue;
    const SgVec3T<double> value = e->eval(u, v, context.cFaceId(), patchName);
    if (!std::isfinite(value.x) || !std::isfinite(value.y) || !std::isfinite(value.z)) return name;
  }
  return "CVs";
}

void VrPrimitive::copyAttrs(const VrPrimitive* other) {
  if (!other || other == this) return;
  VR_DEBUG(2, vrmsg::CatPrimitive, "Copying primitive attributes.");
  std::string value, type;
  for (unsigned i = 0; i < other->numAttrs(); ++i) {
    const std::string name = other->attr(i);
    if (name == "name") continue;
    if (other->getAttr(name, value, type)) setAttr(name, value, type);
  }
}

std::unique_ptr<VrPrimitiveContext> VrPrimitive::createContext() const {
  return std::make_unique<VrPrimitiveContext>(description());
}

// ---------------------------------------------------------------------------------------------
// The pipeline

void VrPrimitive::makeGeometryInParallel(VrPrimitiveContext& context, double u, double v, VrFXModule* fxModule) {
  context.cP(u, v, false);  // the frame first; everything else is built on it
  context.setCullPrim(false);
  findGuidesAndWeightsInParallel(context, u, v);
  context.overrideCLength(1.0);
  context.overrideCWidth(1.0);
  context.overrideCDepth(1.0);
  if (context.cullPrim()) return;
  mkGeometryInParallel(context, u, v);
  applyFXModulesInParallel(context, fxModule);
}

void VrPrimitive::mkGeometryInParallel(VrPrimitiveContext&, double, double) {}

void VrPrimitive::completeGivenGeometryInParallel(VrPrimitiveContext& context, double, double, double) const {
  context.dirtyCLength();
}

bool VrPrimitive::applyFXModulesInParallel(VrPrimitiveContext& context, VrFXModule* stopAt) {
  std::vector<SgVec3T<double>>& cvs = context.getGeom();
  for (VrFXModule* module : stack) {
    if (module == stopAt || context.cullPrim()) return true;
    if (!module->isActive()) continue;
    const size_t n = cvs.size();
    if (!module->computeParallel(context)) context.setCullPrim(true);
    if (cvs.size() != n) {
      const VrDescription* desc = description();
      VR_ERROR(module->name() + " from description " + (desc ? desc->name() : std::string()) +
               " has illegally changed the number of CVs." + " All FX modules will be deactivated.");
      cvs.resize(n);
      for (VrFXModule* each : stack) each->setActive(false);
      return false;
    }
    if (!postApplyFxInParallel(context)) return false;
  }
  return true;
}

bool VrPrimitive::postApplyFxInParallel(VrPrimitiveContext&) { return false; }

bool VrPrimitive::canRunInParallel() const {
  for (const VrFXModule* module : stack)
    if (module->isActive() && !module->isThreadSafe()) return false;
  return true;
}

void VrPrimitive::initDescription() {
  setupInterpolation(true);
  setColorCache(iMethod() == 1);
  applyBakedGroomManager();
  for (VrFXModule* module : stack) module->initDescription(this);
  initModules();
  for (VrFXModule* module : stack)
    if (module->isActive()) module->initDescriptionInParallel(*primContext);
}

void VrPrimitive::applyBakedGroomManager() {
  const int position = bakedGroomManagerPosition();
  if (position < 0) return;
  VrFXModule* manager = stack[position];
  std::string value, type;
  bool doBake = true;
  if (manager->getAttr("doBake", value, type)) doBake = !(value == "false" || value == "0");
  if (doBake) return;
  // The groom was baked up to the manager: the modules in front of it have already run, and
  // the primitives come from the baked files.
  for (int i = 0; i < position; ++i) stack[i]->setActive(false);
  VrDescription* desc = description();
  if (!desc) return;
  VrObject* old = desc->activeGenerator();
  if (old && old->typeName() == "FileGenerator") return;
  if (!desc->setActive("FileGenerator")) return;
  VrObject* files = desc->activeGenerator();
  if (old && files && files != old) {
    for (unsigned i = 0; i < old->numAttrs(); ++i) {
      const std::string name = old->attr(i);
      if (name != "name" && old->getAttr(name, value, type)) files->setAttr(name, value, type);
    }
  }
  if (files && manager->getAttr("bakeDir", value, type)) files->setAttr("inputDir", value, "float");
}

void VrPrimitive::initDescriptionInParallel(VrPrimitiveContext& context) {
  for (VrFXModule* module : stack)
    if (module->isActive()) module->initDescriptionInParallel(context);
}

void VrPrimitive::finishDescription() {
  finishModules();
  for (VrFXModule* module : stack) module->finishDescription();
  setColorCache(false);
}

void VrPrimitive::finishDescriptionInParallel(VrPrimitiveContext& context) {
  for (VrFXModule* module : stack) module->finishDescriptionInParallel(context);
  context.removeAllModuleContext();
  context.removeAllPipeData();
}

void VrPrimitive::beginPatchFaceModules(VrPrimitiveContext& context, const VrPatch* patch, int face) {
  for (VrFXModule* module : stack)
    if (module->isActive()) module->beginPatchFace(context, patch, face);
}

void VrPrimitive::endPatchFaceModules(VrPrimitiveContext& context, const VrPatch* patch, int face) {
  for (VrFXModule* module : stack)
    if (module->isActive()) module->endPatchFace(context, patch, face);
}

unsigned VrPrimitive::maximumCVCount() const {
  size_t most = finalCVCount();
  for (unsigned i = 0; i < numGuides(); ++i) most = std::max(most, guide(i).iGuideGeom().size());
  return static_cast<unsigned>(most);
}

void VrPrimitive::initModules() {
  for (VrFXModule* module : stack) {
    if (module->isActive() && !module->initModule(this)) module->setActive(false);
  }
}

void VrPrimitive::finishModules() {
  for (VrFXModule* module : stack)
    if (module->isActive()) module->finishModule(this);
}

// ---------------------------------------------------------------------------------------------
// Interpolation

void VrPrimitive::setupInterpolation(bool silent) {
  regionsOn = false;
  switch (iMethod()) {
    case 0:
      VR_DEBUG(2, vrmsg::CatPrimitive, "Attribute interpolation");
      return;
    case 1:
      break;
    default:
      VR_ERROR("Invalid interpolation method.");
      return;
  }
  overrideGuidesWithCache();
  if (regionMaskExpression.isConstant() && regionMaskExpression.eval(0.0, 0.0, 0).x < 0.0001) {
    regionsOn = false;
  } else {
    regionsOn = true;
    regionExpression.setExpression("255 * map(\"" + regionMapName + "\")");
  }
  VrBasePrimitive::setupInterpolation(silent);
}

unsigned VrPrimitive::guideRegion(double u, double v, int face, const std::string& patchName) const {
  if (!regionsOn) return 0;
  return vrutil::decodeRGB2Id(regionExpression.eval(u, v, face, &patchName));
}

double VrPrimitive::guideRegionMask(double u, double v, int face, const std::string& patchName) const {
  if (!regionsOn) return 1.0;
  return std::clamp(1.0 - regionMaskExpression.eval(u, v, face, &patchName).x, 0.0, 1.0);
}

std::string VrPrimitive::guideCacheFile() const {
  const std::string expanded = vrutil::expandMacros(cacheFile, "", description());
  if (expanded.empty() || access(expanded.c_str(), F_OK) == 0 || !description()) return expanded;
  std::string found;
  if (vrutil::findFileInVrDataPath(found, cacheFile, "", description(), "", true)) return found;
  return expanded;
}

bool VrPrimitive::overrideGuidesWithCache() {
  if (!useCacheFlag) return false;
  std::string where;
  if (VrDescription* desc = description()) {
    where = desc->name();
    if (const VrPalette* palette = desc->palette()) where = palette->name() + "," + where;
  }
  const std::string path = guideCacheFile();
  if (path.empty() || access(path.c_str(), F_OK) != 0) {
    VR_ERROR("File does not exist: " + path + " [" + where + "]");
    return false;
  }
  const CacheUtilHandle handle(path);
  auto* reader = dynamic_cast<AlembicUtil*>(handle.getCacheUtil());
  if (!reader) {
    VR_ERROR("Unable to read guide cache " + path + ": only Alembic files are read. [" + where + "]");
    return false;
  }
  double time = 0.0;
  if (description() && description()->palette()) {
    const VrPalette& palette = *description()->palette();
    time = palette.frame() / (palette.framesPerSecond() > 0.0 ? palette.framesPerSecond() : 24.0);
  }

  // The reader writes guide by guide; what it wrote is undone when it fails part way.
  struct Kept {
    std::vector<SgVec3T<double>> cvs;
    VrDict<std::vector<float>> cvAttrs;
  };
  std::vector<Kept> kept(numGuides());
  for (unsigned i = 0; i < numGuides(); ++i) kept[i] = {guide(i).iOrigGuideGeom(), guide(i).guideCVAttrs()};
  if (!reader->overrideGuides(*this, time, where)) {
    for (unsigned i = 0; i < numGuides(); ++i) {
      guide(i).setOrigIGeom(std::move(kept[i].cvs));
      guide(i).guideCVAttrs() = std::move(kept[i].cvAttrs);
    }
    VR_ERROR("Failed to override guides from cache " + path + ". The guides are kept as they were. [" +
             where + "]");
    return false;
  }
  // A guide with new CVs is interpolated and placed from them afresh.
  for (unsigned i = 0; i < numGuides(); ++i) {
    VrGuide& g = guide(i);
    if (g.iOrigGuideGeom() == kept[i].cvs) continue;
    g.setIGeom(g.iOrigGuideGeom());
    g.setTransformedToSurface(false);
  }
  VR_DEBUG(2, vrmsg::CatPrimitive, "Guides overridden from cache: " + path);
  return true;
}

// ---------------------------------------------------------------------------------------------
// Per-CV attributes and colour

std::vector<SgVec3T<double>>* VrPrimitive::addCVAttr(const std::string& name, const std::string& type,
                                                     VrPrimitiveContext* context) {
  cvAttrTypeNames[name] = type;
  VrPrimitiveContext& target = context ? *context : *primContext;
  std::vector<SgVec3T<double>>& values = target.getCVAttrs()[name];
  values.resize(target.cGeom().size());
  return &values;
}

std::vector<SgVec3T<double>>* VrPrimitive::getCVAttr(const std::string& name, const std::string& type,
                                                     VrPrimitiveContext* context) {
  const std::string* known = cvAttrTypeNames.find(name);
  if (!known || *known != type) return nullptr;
  return (context ? *context : *primContext).cvAttr(name);
}

SgVec3T<double> VrPrimitive::evalColorInParallel(VrPrimitiveContext& context, double u, double v, int face,
                                                 const std::string* patchName) const {
  if (iMethod() == 1) return evalInterpGuideColor(context);
  return colorExpression.eval(u, v, face, patchName);
}

bool VrPrimitive::getAttrValueInParallel(const VrPrimitiveContext& context, const std::string& name,
                                         SgVec3T<double>& value) const {
  SgVec3T<double> sum;
  const size_t n = std::min(context.activeGuides.size(), context.weight.size());
  for (size_t i = 0; i < n; ++i) {
    const unsigned index = static_cast<unsigned>(context.activeGuides[i]);
    if (index >= numGuides()) return false;
    const SgVec3T<double>* attr = guide(index).guideCustomAttrs().find(name);
    if (!attr) return false;
    sum += *attr * context.weight[i];
  }
  if (n == 0) return false;
  value = sum * context.weightN;
  return true;
}

SgVec3T<double> VrPrimitive::evalInterpGuideColor(const VrPrimitiveContext& context) const {
  SgVec3T<double> sum;
  for (size_t i = 0; i < context.activeGuides.size() && i < context.weight.size(); ++i) {
    const unsigned index = static_cast<unsigned>(context.activeGuides[i]);
    if (index < guideColors.size()) {
      sum += guideColors[index] * context.weight[i];
      continue;
    }
    const VrGuide& g = guide(index);
    const std::string* patchName = g.patch() ? &g.patch()->name() : nullptr;
    sum += guideColorExpression.eval(g.patchU(), g.patchV(), g.faceId(), patchName) * context.weight[i];
  }
  return sum * context.weightN;
}

void VrPrimitive::setColorCache(bool on) {
  colorCacheFlag = on;
  guideColors.clear();
  if (!on) return;
  guideColors.reserve(numGuides());
  for (unsigned i = 0; i < numGuides(); ++i) {
    const VrGuide& g = guide(i);
    const std::string* patchName = g.patch() ? &g.patch()->name() : nullptr;
    guideColors.push_back(guideColorExpression.eval(g.patchU(), g.patchV(), g.faceId(), patchName));
  }
}

std::vector<std::string> VrPrimitive::animatableCVAttrs() const {
  std::vector<std::string> names;
  for (auto it = cvAttrTypeNames.begin(); it != cvAttrTypeNames.end(); ++it)
    if (it.value() == "point") names.push_back(it.key());
  return names;
}

std::vector<std::vector<SgVec3T<double>>*> VrPrimitive::animatableCVAttrs(VrPrimitiveContext& context) const {
  std::vector<std::vector<SgVec3T<double>>*> values;
  for (const std::string& name : animatableCVAttrs())
    if (std::vector<SgVec3T<double>>* found = context.cvAttr(name)) values.push_back(found);
  return values;
}

void VrPrimitive::packAttrs(const VrPrimitiveContext& context, std::vector<float>& floats) const {
  floats.push_back(static_cast<float>(context.cWidth()));
  floats.push_back(static_cast<float>(context.cDepth()));
}

bool VrPrimitive::unpackAttrs(VrPrimitiveContext& context, const std::vector<float>& floats,
                              size_t& offset) const {
  if (offset > floats.size() || floats.size() - offset < packedAttrCount()) {
    VR_WARNING(1, "Packed primitive attributes of " + typeName() + " are cut short; not unpacked.");
    return false;
  }
  context.overrideCWidth(floats[offset]);
  context.overrideCDepth(floats[offset + 1]);
  offset += 2;
  return true;
}

// ---------------------------------------------------------------------------------------------
// Wires

bool VrPrimitive::wireNames(std::string& names) const {
  std::string value;
  if (!getAttr("_wireNames", value) || value.empty()) return false;
  names = value;
  return true;
}

std::vector<std::string> VrPrimitive::wireNameList() const {
  std::vector<std::string> names;
  std::string text;
  if (!wireNames(text)) return names;
  std::istringstream in(text);
  std::string name;
  while (std::getline(in, name, ':'))
    if (!name.empty()) names.push_back(name);
  return names;
}

void VrPrimitive::setWireNames() {
  std::vector<std::string> names;
  for (unsigned i = 0; i < numGuides(); ++i)
    if (guide(i).enabledInExporting()) names.push_back(guide(i).id());
  setWireNames(names);
}

void VrPrimitive::setWireNames(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ":") + name;
  setAttr("_wireNames", text, "float");
}

// ---------------------------------------------------------------------------------------------
// Lean and direction

void VrPrimitive::orient(const SgVec3T<double>& root, SgVec3T<double>& N, SgVec3T<double>& U, SgVec3T<double>& V,
                         double tiltU, double tiltV, double tiltN, double aboutN, double length,
                         std::vector<SgVec3T<double>>& cvs, bool isFirst, double twist) {
  double a = tiltU, b = tiltV, h = 1.0;
  // No lean (the usual hair) keeps a and b as they are and h at 1: nothing to take roots of.
  if (a != 0.0 || b != 0.0) {
    if (isFirst) {
      const double a0 = a, b0 = b;
      a = a0 * std::sqrt(std::max(0.0, 1.0 - b0 * b0 / 2.0));
      b = b0 * std::sqrt(std::max(0.0, 1.0 - a0 * a0 / 2.0));
    }
    leanToDirection(a, b, h);
  }
  if (aboutN != 0.0) {
    U = vrutil::rotatedAbout(U, N, aboutN * degreesToRadians);
    V = vrutil::rotatedAbout(V, N, aboutN * degreesToRadians);
  }
  // Without lean the direction is N itself (h is 1): the zero lean terms could only change the
  // sign of a zero, and leaving them out lets growAlongNormal do without the tangents.
  SgVec3T<double> dir = a == 0.0 && b == 0.0 ? N : U * a + V * b + N * h;
  dir.normalize();

  // Without lean dir is N scaled, so N × dir is rounding, far below 1e-5 for any N shorter than
  // 1e10: no root to take to know that.
  const bool alongN = a == 0.0 && b == 0.0 && N.lengthSquared() < 1e18;
  SgVec3T<double> axis = alongN ? SgVec3T<double>() : N.cross(dir);
  SgVec3T<double> newU;
  if (!alongN && axis.length() > 1e-5) {
    axis.normalize();
    newU = vrutil::rotatedAbout(U, axis, std::acos(std::clamp(dir.dot(N), -1.0, 1.0)));
  } else {
    // Along or against N: U stays in the plane across dir.
    newU = dir.cross(U).cross(dir);
  }
  newU.normalize();
  if (twist != 0.0) newU = vrutil::rotatedAbout(newU, dir, twist * degreesToRadians);
  SgVec3T<double> third = dir.cross(newU);
  if (tiltN != 0.0) {
    // dir and U turn towards each other about the third axis.
    dir = vrutil::rotatedAbout(dir, third, tiltN * degreesToRadians);
    newU = vrutil::rotatedAbout(newU, third, tiltN * degreesToRadians);
  }
  cvs.push_back(root + dir * length);
  N = dir;
  U = newU;
  V = third;
}

bool VrPrimitive::findOrient(const std::vector<SgVec3T<double>>& cvs, const SgVec3T<double>& N,
                             const SgVec3T<double>& U, const SgVec3T<double>& V, double& tiltU, double& tiltV,
                             bool isFirst) {
  if (cvs.size() < 2) return false;
  SgVec3T<double> dir = cvs[1] - cvs[0];
  if (dir.normalize() == 0.0) return false;
  const double a0 = dir.dot(U), b0 = dir.dot(V), h = dir.dot(N);
  const double s = std::sqrt(a0 * a0 + b0 * b0);
  double a = 0.0, b = 0.0;
  if (s > 0.0) {
    // The angle from N, as a share of the half turn, is the lean's size.
    const double m = 2.0 * std::atan2(s, h) / pi;
    a = a0 * m / s;
    b = b0 * m / s;
  }
  if (isFirst) {
    // Inverse of a' = a·sqrt(1 − b²/2), b' = b·sqrt(1 − a²/2), on squares: A − B = A' − B'.
    const double A1 = a * a, B1 = b * b, c = A1 - B1;
    const double p = 1.0 - c / 2.0;
    const double B = std::max(0.0, p - std::sqrt(std::max(0.0, p * p - 2.0 * B1)));
    const double A = std::max(0.0, B + c);
    a = std::copysign(std::sqrt(A), a);
    b = std::copysign(std::sqrt(B), b);
  }
  tiltU = a;
  tiltV = b;
  return true;
}

// ---------------------------------------------------------------------------------------------
// The FX module stack

VrFXModule* VrPrimitive::addFXModule(const std::string& type) {
  if (type.find("FXModule") == std::string::npos) {
    VR_ERROR("Trying to use the " + type + " module but it is not registered.");
    return nullptr;
  }
  auto* module = static_cast<VrFXModule*>(VrCreateObject(type, description()));
  if (!module) return nullptr;
  if (!module->acceptsPrimitive(typeName())) {
    VR_ERROR(module->name() + " ignored since it doesnt work " + "on active primitive " + typeName());
    delete module;
    return nullptr;
  }
  stack.push_back(module);
  renumberModules();
  VR_DEBUG(1, vrmsg::CatFXModule, type + " added.");
  return module;
}

bool VrPrimitive::removeFXModule(const std::string& name) { return removeFXModule(findFXModule(name)); }

bool VrPrimitive::removeFXModule(const VrFXModule* module) {
  auto found = std::find(stack.begin(), stack.end(), module);
  if (!module || found == stack.end()) return false;
  stack.erase(found);
  delete module;
  renumberModules();
  return true;
}

VrFXModule* VrPrimitive::findFXModule(const std::string& name, int* index) const {
  for (size_t i = 0; i < stack.size(); ++i) {
    if (stack[i]->name() == name) {
      if (index) *index = static_cast<int>(i);
      return stack[i];
    }
  }
  return nullptr;
}

bool VrPrimitive::moveFXModule(const std::string& name, int position) {
  int from = 0;
  VrFXModule* module = findFXModule(name, &from);
  if (!module) return false;
  const int to = std::clamp(position, 0, static_cast<int>(stack.size()) - 1);
  stack.erase(stack.begin() + from);
  stack.insert(stack.begin() + to, module);
  renumberModules();
  return true;
}

bool VrPrimitive::exportFXModules(std::ostream& out) const {
  bool ok = true;
  for (const VrFXModule* module : stack) ok = module->exportObj(out) && ok;
  return ok;
}

bool VrPrimitive::exportFXModulesAsPreset(std::ostream& out, bool withModules) const {
  if (!withModules) return true;
  for (const VrFXModule* module : stack)
    if (module->includedInPreset() && !module->exportObjAsPreset(out)) return false;
  return true;
}

std::vector<VrFXModule*> VrPrimitive::findFXModules(const std::string& type,
                                                    std::vector<int>* indices) const {
  std::vector<VrFXModule*> found;
  if (indices) indices->clear();
  for (size_t i = 0; i < stack.size(); ++i) {
    if (stack[i]->typeName() != type) continue;
    found.push_back(stack[i]);
    if (indices) indices->push_back(static_cast<int>(i));
  }
  return found;
}

std::string VrPrimitive::uniqueFXName(const std::string& name, const VrFXModule* except) const {
  auto taken = [&](const std::string& candidate) {
    for (const VrFXModule* module : stack)
      if (module != except && module->name() == candidate) return true;
    return false;
  };
  if (!taken(name)) return name;
  for (unsigned n = 1;; ++n) {
    const std::string candidate = name + std::to_string(n);
    if (!taken(candidate)) return candidate;
  }
}

void VrPrimitive::deactivateFXModules(unsigned start, std::vector<bool>& previous) {
  previous.clear();
  for (size_t i = start; i < stack.size(); ++i) {
    previous.push_back(stack[i]->isActive());
    stack[i]->setActive(false);
  }
}

bool VrPrimitive::setFXModulesStatus(unsigned start, const std::vector<bool>& status) {
  for (size_t i = 0; i < status.size(); ++i) {
    if (start + i >= stack.size()) return false;
    stack[start + i]->setActive(status[i]);
  }
  return true;
}

int VrPrimitive::bakedGroomManagerPosition() const {
  for (size_t i = 0; i < stack.size(); ++i)
    if (stack[i]->isActive() && stack[i]->typeName() == "BakedGroomManagerFXModule")
      return static_cast<int>(i);
  return -1;
}

void VrPrimitive::getFXTextures(std::vector<std::string>& lines) const {
  for (const VrFXModule* module : stack) module->getTexMap(lines);
}

bool VrPrimitive::setFXTexture(const std::string& module, const std::string& attr, const std::string& text) {
  VrFXModule* found = findFXModule(module);
  return found && found->setTexture(attr, text);
}

void VrPrimitive::renumberModules() {
  for (size_t i = 0; i < stack.size(); ++i) stack[i]->setModuleIndex(static_cast<int>(i));
}
