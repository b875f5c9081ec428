// The clumping module. `computeParallel` follows one primitive P against a copy G of its guide:
//
//   G = guide (cut from the tip)        P = primitive (cut to the same length)
//   copy:   P[i] = lerp(P[i], G[i] - G[0] + P[0], a), a the copy amount weighted by "break"
//   noise:  G[i] += clump noise along the guide's frame
//   per CV: d = P[i] - G[i], shrunk by the clump amount, flattened along B, curled about T;
//           G[i] += offset along B;  P[i] = G[i] + d
//
// The frame (T, A, B) is `VrClumpFrame`'s walk along G; a guide left as grown is walked once per
// worker and twist (`VrClumpFrameCache`). Per-thread scratch lives in the module's context
// (`ClumpState`), so a primitive allocates nothing once the buffers have grown.

#include "fxmodules/VrClumpingFXModule.h"

#include "fxmodules/VrClumpCurves.h"
#include "fxmodules/VrClumpFrame.h"

#include "base/VrExactCast.h"
#include "base/VrMessage.h"
#include "base/vrutilCodec.h"
#include "base/vrutilName.h"
#include "base/vrutilString.h"
#include "document/VrDescription.h"
#include "document/vrutilFiles.h"
#include "expressions/VrMapFunctions.h"
#include "expressions/VrSeExprMath.h"
#include "fxmodules/VrFXExprAttr.h"
#include "fxmodules/VrFXRotation.h"
#include "geometry/SgCurve.h"
#include "geometry/VrPatch.h"
#include "geometry/vrutilMath.h"
#include "io/vpd/VpdFileCachedReader.h"
#include "primitives/VrPrimitiveContext.h"
#include "primitives/VrSplinePrimitive.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>

namespace {

using Vec = SgVec3T<double>;

constexpr double Straight = VrClumpFrame::Straight;

using vrutil::unit;

// Per-worker scratch of one clumping module.
class ClumpState : public VrFXModuleContext {
 public:
  std::string type() const override { return "ClumpingFXModule"; }
  /// A copy reads the region map afresh: the reader holds the texture of its own thread.
  std::unique_ptr<VrFXModuleContext> clone() const override {
    auto copy = std::make_unique<ClumpState>(*this);
    copy->regionMap.reset();
    copy->frames.clear();
    return copy;
  }
  std::vector<Vec> G;
  std::optional<vrexpr::MapReader> regionMap;  // made for the pass `regionPass`
  unsigned regionPass = 0;
  VrClumpFrame reshapedFrame;  // the walk along a guide cut, resampled or noised
  VrClumpFrameCache frames;    // walks along guides as grown, of the pass `framesPass`
  unsigned framesPass = 0;
  std::vector<double> clumpScale, copyScale, offsetScale, flatnessScale, noiseScale;
  unsigned sampledFor = 0;
};

}  // namespace

// One expression attribute, evaluated at a primitive's or a clump guide's location.
struct VrClumpingFXModule::Expr : VrFXExprAttr {
  Expr(const char* attr, const std::string& text, VrDescription* description)
      : VrFXExprAttr(attr, "ClumpingFXModule", description, text) {}
  double at(double u, double v, int face, const std::string* patchName) const {
    return VrFXExprAttr::at(VrFXLocation(u, v, face, patchName));
  }
};

namespace {

struct ExprDefault {
  const char* name;
  const char* text;
};
const ExprDefault exprDefaults[] = {
    {"clump", "1.0"},          {"clumpVariance", "0.0"},   {"cut", "1000.0"},   {"copy", "0.0"},
    {"copyVariance", "0.0"},   {"curl", "0.0"},            {"offset", "0.0"},   {"flatness", "0.0"},
    {"noise", "0.0"},          {"noiseFrequency", "1.0"},  {"noiseCorrelation", "0.0"},
    {"radiusVariance", "0.0"}, {"ptMask", "1.0"},          {"controlMask", "1.0"},
    {"twist", "0.0"}};  // `twist` is no attribute of its own: only an older file's value sets it
enum ExprIndex { Clump, ClumpVariance, Cut, Copy, CopyVariance, Curl, Offset, Flatness, Noise, NoiseFrequency,
                 NoiseCorrelation, RadiusVariance, PtMask, ControlMask, Twist };

// The "break" weights of a primitive and its clump guide: in use when the primitive's guides
// carry "break" and it stands in a guide region other than the clump guide's. A value missing
// at a CV counts as 1.
struct BreakWeights {
  const std::vector<float>* primitive = nullptr;
  const std::vector<float>* guide = nullptr;
  bool inUse() const { return primitive || guide; }
  // sqrt(break(guide)[i] x break(primitive)[i]), limited to [0, 1].
  double at(size_t i) const {
    const double p = primitive && i < primitive->size() ? (*primitive)[i] : 1.0;
    const double g = guide && i < guide->size() ? (*guide)[i] : 1.0;
    return std::clamp(std::sqrt(std::max(0.0, p * g)), 0.0, 1.0);
  }
};

BreakWeights breakWeights(const VrPrimitive* owner, const VrPrimitiveContext& context, const VrClumpGuide& guide,
                          double u, double v, int face, const std::string& patchName) {
  BreakWeights weights;
  if (!owner || guide.region < 0) return weights;  // the usual case: no regions
  const auto* spline = vrExactCast<VrSplinePrimitiveContext>(&context);
  if (!spline || !spline->breakActive) return weights;
  const unsigned region = owner->guideRegion(u, v, face, patchName);
  if (region == 0 || static_cast<int>(region) == guide.region) return weights;
  if (spline->dominantGuide >= 0 && static_cast<unsigned>(spline->dominantGuide) < owner->numGuides())
    weights.primitive = owner->guide(static_cast<unsigned>(spline->dominantGuide)).guideCVAttrs().find("break");
  if (!guide.breakValues.empty()) weights.guide = &guide.breakValues;
  return weights;
}

}  // namespace

VrClumpingFXModule::VrClumpingFXModule(VrDescription* description)
    : VrFXModule(description),
      regionExpression("clumpRegionExprInternal", "ClumpingFXModule", description, "0", "color"),
      controlExpression("clumpControlExprInternal", "ClumpingFXModule", description, "1", "color"),
      clumpScale("rampUI(0,0.5,3:1,0.0,3)"),
      copyScale("rampUI(0,0,3)"),
      curlScale("rampUI(0,0.5,3)"),
      offsetScale("rampUI(0,0,3:0.5,1,3:1,0,3)"),
      flatnessScale("rampUI(0,0,3)"),
      noiseScale("rampUI(0,0,3)") {
  for (const ExprDefault& d : exprDefaults) exprs.push_back(new Expr(d.name, d.text, description));
  setAttr("name", "Clumping", "string");
  setAttr("active", "true", "bool");
  setAttr("mask", "1.0", "expr");
  setAttr("pointDir", "${DESC}/${FXMODULE}/Points/", "string");
  setAttr("mapDir", "${DESC}/${FXMODULE}/Maps/", "string");
  setAttr("cvAttr", "false", "bool");
  setAttr("mapInitialized", "false", "bool");
  setAttr("clump", "1.0", "expr");
  setAttr("clumpScale", "rampUI(0,0.5,3:1,0.0,3)", "rampUI");
  setAttr("clumpVolumize", "false", "bool");
  setAttr("clumpVariance", "0.0", "expr");
  setAttr("cut", "1000.0", "expr");
  setAttr("copy", "0.0", "expr");
  setAttr("copyScale", "rampUI(0,0,3)", "rampUI");
  setAttr("copyVariance", "0.0", "expr");
  setAttr("curl", "0.0", "expr");
  setAttr("curlScale", "rampUI(0,0.5,3)", "rampUI");
  setAttr("offset", "0.0", "expr");
  setAttr("offsetScale", "rampUI(0,0,3:0.5,1,3:1,0,3)", "rampUI");
  setAttr("flatness", "0.0", "expr");
  setAttr("flatnessScale", "rampUI(0,0,3)", "rampUI");
  setAttr("noise", "0.0", "expr");
  setAttr("noiseScale", "rampUI(0,0,3)", "rampUI");
  setAttr("noiseFrequency", "1.0", "expr");
  setAttr("noiseCorrelation", "0.0", "expr");
  setAttr("exportCurves", "false", "bool");
  setAttr("exportDir", "curves/", "string");
  setAttr("exportFaces", "", "string");
  setAttr("texelsPerUnit", "10.0", "float");
  setAttr("radiusVariance", "0.0", "expr");
  setAttr("ptDensity", "1.0", "float");
  setAttr("ptMask", "1.0", "expr");
  setAttr("ptLength", "1.0", "float");
  setAttr("colorPreview", "false", "bool");
  setAttr("useControlMaps", "false", "bool");
  setAttr("controlMask", "1.0", "expr");
  setAttr("controlMapDir", "${DESC}/${FXMODULE}/Control/", "string");
}

VrClumpingFXModule::~VrClumpingFXModule() {
  for (Expr* e : exprs) delete e;
}

VrClumpingFXModule::Expr* VrClumpingFXModule::findExpr(const std::string& name) {
  for (Expr* e : exprs)
    if (e->name() == name) return e;
  return nullptr;
}

bool VrClumpingFXModule::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                 const std::string& enumStrings) {
  if (VrFXModule::setAttr(name, value, type, enumStrings)) return true;
  if (name == "twist") {  // an older file's twist, in half turns
    exprs[Twist]->set(convertedTwist(value), this->name() + "Id");
    return true;
  }
  if (Expr* e = findExpr(name)) {
    e->set(value, this->name() + "Id");  // the clump guide's id variable
    return true;
  }
  struct Ramp {
    const char* name;
    VrFXRamp VrClumpingFXModule::*ramp;
  };
  static const Ramp ramps[] = {{"clumpScale", &VrClumpingFXModule::clumpScale},
                               {"copyScale", &VrClumpingFXModule::copyScale},
                               {"curlScale", &VrClumpingFXModule::curlScale},
                               {"offsetScale", &VrClumpingFXModule::offsetScale},
                               {"flatnessScale", &VrClumpingFXModule::flatnessScale},
                               {"noiseScale", &VrClumpingFXModule::noiseScale}};
  for (const Ramp& r : ramps)
    if (name == r.name) return rampAttr(name, value, this->*r.ramp);
  if (name == "pointDir") {
    pointDir = value;
    return true;
  }
  if (name == "mapDir") {
    mapDir = value;
    return true;
  }
  if (name == "controlMapDir") {
    controlMapDir = value;
    return true;
  }
  if (name == "ptLength") {
    const bool ok = floatAttr(name, value, guideLength);
    guideLength = std::max(0.0, guideLength);
    return ok;
  }
  if (name == "useControlMaps") return boolAttr(name, value, useControlMaps);
  if (name == "cvAttr") return boolAttr(name, value, cvAttrOn);
  if (name == "exportCurves") return boolAttr(name, value, exportCurves);
  if (name == "clumpVolumize") return boolAttr(name, value, volumize);
  return false;
}

void VrClumpingFXModule::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrFXModule::getExternalContext(pairs, prefix);
  for (const Expr* e : exprs) e->expr.getExternalContext(pairs, prefix + e->name());
}

std::string VrClumpingFXModule::pointDirectory() const {
  std::string text = pointDir;
  vrutil::replaceSubStrs(text, "${FXMODULE}", name());
  return text;
}

std::string VrClumpingFXModule::mapDirectory() const {
  std::string text = mapDir;
  vrutil::replaceSubStrs(text, "${FXMODULE}", name());
  return text;
}

const VrExpression* VrClumpingFXModule::ptMaskExpr() const { return &exprs[PtMask]->expr; }

const VrExpression* VrClumpingFXModule::radiusVarianceExpr() const { return &exprs[RadiusVariance]->expr; }

std::string VrClumpingFXModule::convertedTwist(const std::string& text) {
  // The last statement begins after the last ';' or block that closes outside comments and
  // strings; assignments before it stay as they are.
  size_t start = 0;
  int depth = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '#') {
      i = text.find('\n', i);
      if (i == std::string::npos) break;
    } else if (c == '"') {
      while (++i < text.size() && text[i] != '"')
        if (text[i] == '\\') ++i;
    } else if (c == '{') {
      ++depth;
    } else if (c == '}' || (c == ';' && depth == 0)) {
      if (c == '}' && depth > 0) --depth;
      if (depth == 0) start = i + 1;
    }
  }
  return text.substr(0, start) + "(" + text.substr(start) + "\n)*180.0 # auto converted";
}

double VrClumpingFXModule::controlAt(double u, double v, int face, const std::string* patchName) const {
  const double mask = std::clamp(exprs[ControlMask]->at(u, v, face, patchName), 0.0, 1.0);
  if (mask <= 0.0) return 0.0;
  return mask * std::clamp(controlExpression.eval(u, v, face, patchName)[0], 0.0, 1.0);
}

std::unique_ptr<VrFXModuleContext> VrClumpingFXModule::createModuleContext() const {
  return std::make_unique<ClumpState>();
}

void VrClumpingFXModule::declareCVAttrs() {
  if (!cvAttrOn || !primitive()) return;
  primitive()->addCVAttr(amountAttrName(), "float");
  primitive()->addCVAttr(guideAttrName(), "point");
}

void VrClumpingFXModule::initDescription(VrPrimitive* owner) {
  VrFXModule::initDescription(owner);
  clearGuides();
  if (!isActive() || !owner) return;
  idVariable = VrExpression::ThreadVariable(name() + "Id");
  amountName = amountAttrName();
  guideName = guideAttrName();
  regionMapName = mapDirectory();
  regionExpression.setExpression("255 * map(\"" + regionMapName + "\") + 0.5");
  // The region map is read straight from its file unless its name needs the expression's own
  // handling (quotes or escapes in the text, a name resolved anew at every read).
  ++regionPass;
  directRegionMap = regionExpression.isValid() && regionMapName.find_first_of("\"\\") == std::string::npos &&
                    vrexpr::MapReader(regionMapName).keepsItsFile();
  controlOn = useControlMaps;
  if (controlOn) {
    std::string controlDir = controlMapDir;
    vrutil::replaceSubStrs(controlDir, "${FXMODULE}", name());
    controlExpression.setExpression("map(\"" + controlDir + "\")");
  }
  setGuideLengthScale(guideLength);
  declareCVAttrs();
  VrDescription* desc = description();
  if (!desc) return;
  const auto start = std::chrono::steady_clock::now();
  for (const auto& entry : desc->patches()) readPatch(owner, entry.second);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  VR_STATS(1, " took " + vrutil::ftoa(seconds) + " to initialize " + std::to_string(numClumpGuides()) +
                  " clump guides.");
  if (exportCurves) VrExportClumpCurves(*this, clumpGuides());
}

void VrClumpingFXModule::readPatch(VrPrimitive* owner, const VrPatch* patch) {
  if (!patch) return;
  const std::string file = pointDirectory() + vrutil::stripNameSpace(patch->name()) + ".vuv";
  std::string path;
  if (!vrutil::findFileInVrDataPath(path, file, patch->name(), description(), name(), true)) {
    VR_WARNING(2, "Skipping " + patch->name() + " since no " + "vuv file found for it.");
    return;
  }
  std::unique_ptr<VpdFileCachedReader> reader = VpdFileCachedReader::open(path);
  if (!reader) {
    VR_ERROR("Failed to open VPD file: " + path);
    return;
  }
  if (reader->primType() != Vpd::PointPrimitive) {
    VR_ERROR("Incorrect primitive type in VUV file: " + path);
    return;
  }
  if (owner->canRunInParallel() && isThreadSafe()) {
    VR_DEBUG(2, vrmsg::CatFXModule, "Generate clump guides in parallel for modifier " + name());
    if (readClumpGuidesInParallel(owner, this, description(), *reader, patch, &curlScale, path)) return;
    VR_DEBUG(2, vrmsg::CatFXModule,
             "Cannot generate clump guides in parallel for modifier " + name() + ". Fallback to single thread mode.");
  }
  readClumpGuides(owner, this, description(), *reader, patch, &curlScale, path);
}

void VrClumpingFXModule::finishDescription() { clearGuides(); }

unsigned VrClumpingFXModule::regionIdAt(double u, double v, int face, const std::string* patchName) const {
  return vrutil::decodeRGB2Id(regionExpression.eval(u, v, face, patchName));
}

bool VrClumpingFXModule::computeParallel(VrPrimitiveContext& context) {
  const VrPatch* patch = context.cPatch();
  std::vector<Vec>& P = context.getGeom();
  if (!patch || P.empty()) return true;
  auto* state = static_cast<ClumpState*>(context.fxModuleContext(this));
  if (!state) {
    context.addModuleContext(this, createModuleContext());
    state = static_cast<ClumpState*>(context.fxModuleContext(this));
  }
  const double u = context.cu(false), v = context.cv(false);
  const int face = context.cFaceId();
  const std::string* patchName = &patch->name();
  std::vector<Vec>* amount = nullptr;
  std::vector<Vec>* guideCopy = nullptr;
  if (cvAttrOn && primitive()) {
    amount = &context.getCVAttrs()[amountName];
    guideCopy = &context.getCVAttrs()[guideName];
    amount->assign(P.size(), Vec(0, 0, 0));
  }

  // 1-3: the guide named by the region map: the value of the region expression read from the
  // worker's reader, as 255 * map + 0.5.
  unsigned id = 0;
  if (directRegionMap) {
    if (!state->regionMap || state->regionPass != regionPass) {
      state->regionMap.emplace(regionMapName);
      state->regionPass = regionPass;
    }
    const Vec rgb = state->regionMap->at(description(), patchName, face, u, v);
    id = vrutil::decodeRGB2Id(255.0 * rgb.x + 0.5, 255.0 * rgb.y + 0.5, 255.0 * rgb.z + 0.5);
  } else {
    id = regionIdAt(u, v, face, patchName);
  }
  if (id == 0) return true;
  const unsigned g = id - 1;
  // Per thread: workers place different primitives at once.
  VrExpression::setThreadVariable(idVariable, static_cast<double>(g));
  if (g >= numClumpGuides()) {
    VR_ERROR("Clumping guide ID larger than number in vuv file (" + name() + ", " + std::to_string(g) +
             "(guide ID) " + std::to_string(numClumpGuides()) + "(vuv file size) " + messageTag());
    return true;
  }
  const VrClumpGuide& guide = clumpGuides()[g];
  if (!guide.valid) {
    VR_DEBUG(4, vrmsg::CatFXModule, "Clump guide #" + std::to_string(g) + " is invalid (culled or 0-length). Skip.");
    return true;
  }

  // 4: "break" between guide regions.
  const BreakWeights breaks = breakWeights(primitive(), context, guide, u, v, face, *patchName);

  // 5: cut the guide copy, and the primitive with it.
  const double m = maskValue(context);
  std::vector<Vec>& G = state->G;
  G.assign(guide.cvs.begin(), guide.cvs.end());
  const std::string* guidePatch = &guide.patchName;
  const double c = exprs[Cut]->at(guide.u, guide.v, guide.face, guidePatch);
  double clumpLength = guide.length;
  bool asGrown = true;  // G holds the guide's own CVs
  if (c * m < guide.length) {
    SgCurve::cutFromTip(G, guide.length - c * m, true);
    if (m >= MaskEpsilon) SgCurve::cutToLength(P, c * m, true);
    clumpLength = c * m;
    asGrown = false;
  }
  VrExpression::setThreadVariable(vrFXClumpLengthVariable(), clumpLength);
  const size_t n = P.size();
  if (G.size() != n) {
    SgCurve::rebuild(G, static_cast<int>(n), true);
    asGrown = false;
  }
  if (n < 2 || G.size() != n) return true;
  if (state->sampledFor != n) {
    clumpScale.sample(static_cast<unsigned>(n), state->clumpScale);
    copyScale.sample(static_cast<unsigned>(n), state->copyScale);
    offsetScale.sample(static_cast<unsigned>(n), state->offsetScale);
    flatnessScale.sample(static_cast<unsigned>(n), state->flatnessScale);
    noiseScale.sample(static_cast<unsigned>(n), state->noiseScale);
    state->sampledFor = static_cast<unsigned>(n);
  }
  const double h = 1.0 / static_cast<double>(n - 1);

  // 6: copy of the guide's shape.
  const Expr& copyE = *exprs[Copy];
  const Expr& copyVarE = *exprs[CopyVariance];
  double copy = copyE.usesT ? 0.0 : copyE.at(guide.u, guide.v, guide.face, guidePatch);
  double copyVar = copyVarE.usesT ? 0.0 : copyVarE.at(u, v, face, patchName);
  if (copy != 0.0 || copyE.usesT || breaks.inUse()) {
    for (size_t i = 1; i < n; ++i) {
      if (copyE.usesT || copyVarE.usesT) {
        VrExpression::setThreadVariable(vrFXTVariable(), static_cast<double>(i) * h);
        if (copyE.usesT) copy = copyE.at(guide.u, guide.v, guide.face, guidePatch);
        if (copyVarE.usesT) copyVar = copyVarE.at(u, v, face, patchName);
      }
      const double factor = 1.0 - std::clamp(-copyVar, -1.0, 1.0);
      double a = std::clamp(copy * state->copyScale[i] * factor * m, 0.0, 1.0);
      if (breaks.inUse()) {
        const double w = breaks.at(i);
        a = w * a + (1.0 - w);
      }
      P[i] = P[i] * (1.0 - a) + ((G[i] - G[0]) + P[0]) * a;
    }
    VrExpression::removeThreadVariable(vrFXTVariable());
  }
  if (m < MaskEpsilon) return true;

  // 9: clump noise on the guide copy.
  const double noise = std::max(0.0, exprs[Noise]->at(u, v, face, patchName));
  if (noise >= 1e-5) {
    asGrown = false;
    const double frequency = std::max(0.0, exprs[NoiseFrequency]->at(u, v, face, patchName));
    const double correlation = std::clamp(exprs[NoiseCorrelation]->at(u, v, face, patchName) / 100.0, 0.0, 1.0);
    const double spread = (1.0 - correlation) * (1.0 - correlation) * 100.0;
    for (size_t i = 1; i < n; ++i) {
      const double t = static_cast<double>(i) * h;
      const double a[3] = {P[0].x * spread + frequency * t, P[0].y * spread, P[0].z * spread};
      const double b[3] = {a[0] + 17.3, a[1] - 5.1, a[2] + 11.7};
      const double s = noise * state->noiseScale[i];
      G[i] += guide.A * (vrSeSnoise(a) * s) + guide.B * (vrSeSnoise(b) * s);
    }
  }

  // 10-11: base values and the frame along G.
  const Expr& clumpE = *exprs[Clump];
  const Expr& varE = *exprs[ClumpVariance];
  const Expr& curlE = *exprs[Curl];
  const Expr& offsetE = *exprs[Offset];
  const Expr& flatE = *exprs[Flatness];
  const bool anyT = clumpE.usesT || varE.usesT || curlE.usesT || offsetE.usesT || flatE.usesT;
  // A per-CV text is evaluated only once "t" is set, in the loop below.
  auto atRoot = [&](const Expr& e) { return e.usesT ? 0.0 : e.at(u, v, face, patchName); };
  double clump = atRoot(clumpE);
  double variance = atRoot(varE);
  double curl = atRoot(curlE) * 0.025;
  double offset = atRoot(offsetE);
  double flatness = atRoot(flatE);
  // The control maps scale the clump amount of the whole primitive.
  const double control = controlOn ? controlAt(u, v, face, patchName) : 1.0;

  const double twist = exprs[Twist]->at(guide.u, guide.v, guide.face, guidePatch);
  if (state->framesPass != regionPass) {
    state->frames.clear();
    state->framesPass = regionPass;
  }
  VrClumpFrame& frame = asGrown ? state->frames.walk(g, guide, twist) : state->reshapedFrame;
  if (!asGrown) frame.walk(G, guide.T, guide.A, guide.B, twist);

  // 12-13: along the guide.
  bool shiftedBefore = false;  // the offset moved G[i - 1]
  for (size_t i = 1; i < n; ++i) {
    if (anyT) {
      VrExpression::setThreadVariable(vrFXTVariable(), static_cast<double>(i) * h);
      if (clumpE.usesT) clump = clumpE.at(u, v, face, patchName);
      if (varE.usesT) variance = varE.at(u, v, face, patchName);
      if (curlE.usesT) curl = curlE.at(u, v, face, patchName) * 0.025;
      if (offsetE.usesT) offset = offsetE.at(u, v, face, patchName);
      if (flatE.usesT) flatness = flatE.at(u, v, face, patchName);
    }
    const double varianceFactor = 1.0 - std::clamp(-variance, -1.0, 1.0);
    const double c = clump * state->clumpScale[i] * varianceFactor * m * control;
    const double q = i < guide.curlAngles.size() ? curl * guide.curlAngles[i] * m : 0.0;
    const double o = offset * state->offsetScale[i] * m;
    const double f = std::clamp(flatness * state->flatnessScale[i] * m, 0.0, 1.0);
    if (amount) (*amount)[i] = Vec(c, c, c);
    Vec d = P[i] - G[i];
    if (volumize) {
      const double s = vrutil::linearstep(c, 0.0, 1.0);
      const Vec around = unit(G[i].cross(d).cross(G[i]));
      d = around * (s * d.length()) + d * (1.0 - s);
    }
    d = d * (1.0 - c);
    const Vec &T = frame.T[i], &A = frame.A[i], &B = frame.B[i], &Dprev = frame.before[i];
    Vec r = T * d.dot(T) + A * d.dot(A) + B * ((1.0 - f) * d.dot(B));
    const bool shifted = o != 0.0;
    if (q != 0.0) {
      const VrFXTurn curlTurn = frame.turnAboutT(i, q);
      r = curlTurn(r);
      if (shifted) G[i] += curlTurn(B * o);
    } else if (shifted) {
      G[i] += B * o;
    }
    // The step to G[i] can only have turned from Dprev where an offset moved G[i] or G[i - 1].
    if (shifted || shiftedBefore) {
      const Vec step = unit(G[i] - G[i - 1]);
      if (std::fabs(step.dot(Dprev)) < Straight) {
        const Vec axis = unit(Dprev.cross(step));
        if (axis.length() > 0.0) r = vrutil::rotatedAbout(r, axis, vrFXAngleBetween(Dprev, step));
      }
    }
    shiftedBefore = shifted;
    P[i] = G[i] + r;
  }
  if (anyT) VrExpression::removeThreadVariable(vrFXTVariable());
  if (guideCopy) guideCopy->assign(G.begin(), G.end());
  return true;
}
