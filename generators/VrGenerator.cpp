#include "generators/VrGenerator.h"

#include "base/VrMessage.h"
#include "base/vrutilCodec.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "generators/VrGeneratorContext.h"
#include "geometry/VrPatch.h"
#include "io/vpd/VpdReader.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrRenderer.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <mutex>

namespace {

constexpr double degreesToRadians = 0.017453292519943295;
constexpr double halfPi = 1.5707963267948966;
constexpr const char* defaultExpression = "$a=0.0;#-1.0,1.0\\n$a";
// The default width of a primitive, for a primitive without a width attribute.
constexpr const char* defaultWidth = "$a=1.0;#0.05,5.0\\n$a";

// The attributes copyBaseAttrs takes over, in the order of construction.
constexpr const char* baseAttrs[] = {"displacement", "vectorDisplacement", "bump",        "offset",
                                     "cullFlag",     "cullBackface",       "cullFrustrum", "cullAngleBF",
                                     "cullAngleF",   "cullExpr"};

// The custom variables of level of detail; named once so that setting them builds no string.
struct LodVariables {
  const std::string initialWidth = "initialWidth";
  const std::string minDensity = "lodMinDensity";
  const std::string cullFade = "lodCullFade";
  const std::string pixelFadeSize = "lodPixelFadeSize";
  const std::string pixelCullSize = "lodPixelCullSize";
  const std::string maxWidthRatio = "lodMaxWidthRatio";
  const std::string screenSizeFactor = "lodScreenSizeFactor";
  const std::string widthCoefficient = "lodWidthCoefficient";
};

const LodVariables& lodVariables() {
  static const LodVariables names;
  return names;
}

// Level of detail on the parallel path runs one location at a time (see the header).
std::mutex& lodMutex() {
  static std::mutex mutex;
  return mutex;
}

bool isBlank(const std::string& text, size_t begin, size_t end) {
  for (size_t i = begin; i < end; ++i)
    if (!std::isspace(static_cast<unsigned char>(text[i]))) return false;
  return true;
}

}  // namespace

VrGenerator::VrGenerator(VrDescription* description)
    : VrObject(description),
      regionExpression("regionExprInternal", "Generator", description, "0", "color"),
      displacementExpr("displacement", "Generator", description, defaultExpression, "float"),
      bumpExpr("bump", "Generator", description, defaultExpression, "float"),
      offsetExpr("offset", "Generator", description, defaultExpression, "float"),
      cullExpression("cullExpr", "Generator", description, "$a=0.0;#0.0,1.0\\n$a", "float") {
  setAttr("displacement", defaultExpression, "expr");
  setAttr("vectorDisplacement", "false", "bool");
  setAttr("bump", defaultExpression, "expr");
  setAttr("offset", defaultExpression, "expr");
  setAttr("cullFlag", "false", "bool");
  setAttr("cullBackface", "false", "bool");
  setAttr("cullFrustrum", "false", "bool");
  setAttr("cullAngleBF", "0.0", "float");
  setAttr("cullAngleF", "0.0", "float");
  setAttr("cullExpr", "$a=0.0;#0.0,1.0\\n$a", "expr");
}

VrGenerator::~VrGenerator() = default;

bool VrGenerator::setAttr(const std::string& name, const std::string& value, const std::string& type,
                          const std::string& enumStrings) {
  if (VrObject::setAttr(name, value, type, enumStrings)) return true;

  if (name == "displacement") {
    displacementExpr.setExpression(value);
    return true;
  }
  if (name == "vectorDisplacement") return boolAttr(name, value, vectorDisp);
  if (name == "bump") {
    bumpExpr.setExpression(value);
    return true;
  }
  if (name == "offset") {
    offsetExpr.setExpression(value);
    return true;
  }
  if (name == "cullFlag") return boolAttr(name, value, cullFlag);
  if (name == "cullBackface") return boolAttr(name, value, cullBackfaceFlag);
  if (name == "cullFrustrum") return boolAttr(name, value, cullFrustrumFlag);
  if (name == "cullAngleBF" || name == "cullAngleF") {
    double degrees = 0.0;
    const bool ok = floatAttr(name, value, degrees);
    (name == "cullAngleBF" ? cullAngleBFRadians : cullAngleFRadians) = degrees * degreesToRadians;
    return ok;
  }
  if (name == "cullExpr") {
    cullExpression.setExpression(value);
    return true;
  }
  if (name == "skipPatch") {
    // Obsolete: accepted from old files and forgotten.
    remAttr(name);
    return true;
  }
  return false;
}

void VrGenerator::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrObject::getExternalContext(pairs, prefix);
  displacementExpr.getExternalContext(pairs, prefix + "displacement");
  bumpExpr.getExternalContext(pairs, prefix + "bump");
  offsetExpr.getExternalContext(pairs, prefix + "offset");
  cullExpression.getExternalContext(pairs, prefix + "cullExpr");
}

void VrGenerator::copyBaseAttrs(const VrGenerator* other) {
  if (!other || other == this) return;
  std::string value;
  for (const char* name : baseAttrs)
    if (other->getAttr(name, value)) setAttr(name, value);
  regionExpression.setExpression(other->regionExpression.expression());
  regions = other->regions;
}

// ---------------------------------------------------------------------------------------------
// Passes over a description

void VrGenerator::initDescription() {
  VrDescription* desc = description();
  if (!desc || !desc->lodFlag()) return;
  VrPrimitive* active = desc->activePrimitive();
  // Level of detail evaluates the primitive's width; the same text under the same name and
  // object word draws the same random values as the primitive itself.
  std::string widthText = defaultWidth;
  if (active) active->getAttr("width", widthText);
  lodWidth = std::make_unique<VrExpression>("width", active ? active->typeName() : std::string("Primitive"),
                                            desc, widthText, "float");

  savedOffset = offsetExpr.expression();
  // A spline primitive handles its width in its own way.
  if (!active || active->typeName() != "SplinePrimitive") setAttr("offset", wrapLodOffset(savedOffset), "float");
  desc->setLodScreenSizeFactor();
}

void VrGenerator::initDescriptionInParallel(VrPrimitiveContext&) {}

void VrGenerator::finishDescription() {
  VrDescription* desc = description();
  if (!desc || !desc->lodFlag()) return;
  std::string texture;
  getTexture("offset", texture);
  setAttr("offset", savedOffset, "float");
  if (!texture.empty()) setTexture("offset", texture);
}

void VrGenerator::finishDescriptionInParallel(VrPrimitiveContext&) {}

std::unique_ptr<VrGeneratorContext> VrGenerator::newGeneratorContext() const {
  return std::make_unique<VrGeneratorContext>();
}

std::string VrGenerator::wrapLodOffset(const std::string& text) {
  // Lines are separated by the two characters backslash and n, as attribute texts keep them.
  static const std::string separator = "\\n";
  std::vector<size_t> lineStarts(1, 0);
  for (size_t at = text.find(separator); at != std::string::npos; at = text.find(separator, at + separator.size()))
    lineStarts.push_back(at + separator.size());
  for (size_t line = lineStarts.size(); line-- > 0;) {
    const size_t begin = lineStarts[line];
    const size_t end = line + 1 < lineStarts.size() ? lineStarts[line + 1] - separator.size() : text.size();
    if (isBlank(text, begin, end)) continue;
    return text.substr(0, begin) + "$__tmp__lodOffset__=" + text.substr(begin, end - begin) + ";" + separator +
           "$__tmp__lodOffset__-(clamp($lodWidthCoefficient,0,3)-1)*$initialWidth";
  }
  return text;
}

// ---------------------------------------------------------------------------------------------
// Paths

bool VrGenerator::isSerialContext(const VrPrimitiveContext& context) {
  const VrDescription* desc = context.description();
  VrPrimitive* owner = desc ? desc->activePrimitive() : nullptr;
  return owner && &owner->context() == &context;
}

VrDescription* VrGenerator::sampleDescription(int sample) const {
  VrDescription* desc = description();
  if (!desc || sample < 0) return nullptr;
  return sample == 0 ? desc : desc->sample(static_cast<unsigned>(sample - 1));
}

VrPrimitiveContext* VrGenerator::sampleContext(VrPrimitiveContext& context, int sample) const {
  if (sample == 0) return &context;
  if (sample < 0) return nullptr;
  if (isSerialContext(context)) {
    VrDescription* desc = sampleDescription(sample);
    VrPrimitive* owner = desc ? desc->activePrimitive() : nullptr;
    return owner ? &owner->context() : nullptr;
  }
  return context.sample(static_cast<unsigned>(sample - 1));
}

VrRenderer* VrGenerator::targetRenderer(const VrPrimitiveContext& context) const {
  if (isSerialContext(context)) {
    if (renderer) return renderer;
  } else if (const VrGeneratorContext* record = context.generatorContext()) {
    if (record->renderer()) return record->renderer();
  }
  VrDescription* desc = description();
  return desc ? dynamic_cast<VrRenderer*>(desc->activeRenderer(true)) : nullptr;
}

void VrGenerator::countCulled(VrPrimitiveContext& context) {
  if (isSerialContext(context))
    ++culledCount;
  else if (VrGeneratorContext* record = context.generatorContext())
    record->addNumCulled(1);
}

unsigned VrGenerator::culledOnFace(const VrPrimitiveContext& context) const {
  if (isSerialContext(context)) return culledCount;
  const VrGeneratorContext* record = context.generatorContext();
  return record ? record->numCulled() : 0;
}

bool VrGenerator::handleCulled(VrPrimitiveContext& context, int sample, unsigned code, int face, unsigned id,
                               VrPatch* patch) {
  VrRenderer* target = targetRenderer(context);
  if (!target) return false;
  if (isSerialContext(context)) return target->handleCulledPrimitive(code, face, id, patch);
  VrPrimitiveContext* own = sampleContext(context, sample);
  return target->handleCulledPrimitiveInParallel(own ? *own : context, code, face, id, patch);
}

// Gives every sample's context the face unless the render walk did.
void VrGenerator::faceStarts(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches) const {
  for (size_t s = 0; s < patches.size(); ++s) {
    VrPrimitiveContext* own = sampleContext(context, static_cast<int>(s));
    if (own && patches[s] && (own->cPatch() != patches[s] || own->cFaceId() != face))
      own->setActivePatchFace(patches[s], face);
  }
}

// ---------------------------------------------------------------------------------------------
// Generation of one face

void VrGenerator::generate(int face, const std::vector<VrPatch*>& patches, double start, double percent) {
  culledCount = 0;
  VrDescription* desc = description();
  primitive = desc ? desc->activePrimitive() : nullptr;
  renderer = desc ? dynamic_cast<VrRenderer*>(desc->activeRenderer(true)) : nullptr;
  if (primitive) {
    faceStarts(primitive->context(), face, patches);
    primitive->context().resetId();
  }
  genPrimitives(face, patches, start, percent);
}

void VrGenerator::generateInParallel(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches,
                                     double start, double percent) {
  if (VrGeneratorContext* record = context.generatorContext()) {
    record->resetNumCulled();
    record->resetNumEmitted();
    VrDescription* desc = description();
    record->setRenderer(desc ? dynamic_cast<VrRenderer*>(desc->activeRenderer(true)) : nullptr);
  }
  faceStarts(context, face, patches);
  context.resetId();
  genPrimitivesInParallel(context, face, patches, start, percent);
}

void VrGenerator::genPrimitivesInParallel(VrPrimitiveContext&, int, const std::vector<VrPatch*>&, double,
                                          double) {}

// ---------------------------------------------------------------------------------------------
// The path of one location

bool VrGenerator::emitIfOk(double u, double v, int face, const std::vector<VrPatch*>& patches) {
  VrPrimitive* active = description() ? description()->activePrimitive() : nullptr;
  if (!active) {
    VR_ERROR("Null pointer to active primitive.  Motion sample??");
    return false;
  }
  return emitIfOkInParallel(active->context(), u, v, face, patches);
}

bool VrGenerator::emitIfOkInParallel(VrPrimitiveContext& context, double u, double v, int face,
                                     const std::vector<VrPatch*>& patches) {
  const VrDescription* desc = description();
  if (desc && desc->lodFlag() && !isSerialContext(context)) {
    std::lock_guard<std::mutex> lock(lodMutex());
    return emitLocation(context, u, v, face, patches);
  }
  return emitLocation(context, u, v, face, patches);
}

bool VrGenerator::emitLocation(VrPrimitiveContext& context, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) {
  VrDescription* desc = description();
  VrRenderer* target = targetRenderer(context);
  if (!desc || !target) return false;
  const bool serial = isSerialContext(context);
  const std::string* patchName = !patches.empty() && patches[0] ? &patches[0]->name() : nullptr;

  // 1. Level of detail: the width factor of this location.
  double widthFactor = 1.0;
  if (desc->lodFlag()) {
    const LodVariables& names = lodVariables();
    const double width =
        initialWidth > 0.0 ? initialWidth : (lodWidth ? lodWidth->eval(u, v, face, patchName).x : 1.0);
    VrExpression::setCustomVariable(names.initialWidth, width);
    VrExpression::setCustomVariable(names.minDensity, desc->lodMinDensity());
    VrExpression::setCustomVariable(names.cullFade, desc->lodFadeOutRange());
    VrExpression::setCustomVariable(names.pixelFadeSize,
                                    std::max(desc->lodPixelCullSize() + 0.0001, desc->lodPixelFadeSize()));
    VrExpression::setCustomVariable(names.pixelCullSize, desc->lodPixelCullSize());
    VrExpression::setCustomVariable(names.maxWidthRatio, desc->lodMaxWidthRatio());
    VrExpression::setCustomVariable(names.screenSizeFactor, desc->lodScreenSizeFactor().eval(u, v, face, patchName).x);
    widthFactor = desc->lodWidthCoefficient().eval(u, v, face, patchName).x;
    VrExpression::setCustomVariable(names.widthCoefficient, widthFactor);
  }
  context.setLodAdjustment(widthFactor);
  if (serial) desc->setLodAdjustment(widthFactor);

  // 2. Culling before any geometry is made, sample by sample until one stays.
  // The renderer's samples, as far as there are patches for them.
  const int n = std::min(target->numSamples(), static_cast<int>(patches.size()));
  bool allCulled = true;
  for (int s = 0; s < n; ++s) {
    VrDescription* sampleDesc = sampleDescription(s);
    VrPrimitiveContext* own = sampleContext(context, s);
    if (s > 0 && own) {
      own->setLodAdjustment(widthFactor);
      own->setId(context.id());
      if (serial && sampleDesc) sampleDesc->setLodAdjustment(widthFactor);
    }
    if (allCulled) {
      VrPrimitive* samplePrimitive = sampleDesc && own ? sampleDesc->activePrimitive() : nullptr;
      allCulled = cullPreGeometryInParallel(context, s, u, v, face, samplePrimitive, patches[static_cast<size_t>(s)]);
    }
  }
  // 3. One sample that stays makes every sample be built.
  if (allCulled) {
    VR_DEBUG(2, vrmsg::CatGenerator,
             "Primitive " + std::to_string(context.id()) + " on face " + std::to_string(face) +
                 "is culled before geometry is made.");
    return false;
  }

  // 4. Geometry for every sample, then culling on what was built.
  bool emit = true;
  bool postCulled = false;
  bool spared = false;
  for (int s = 0; s < n; ++s) {
    const bool ok = target->okToEmit(s, u, v);
    if (s == 0) {
      emit = ok;
    } else if (ok != emit) {
      VR_WARNING(1, "Emission mismatch between sample " + std::to_string(s) + "and 0");
      emit = false;
    }
    if (!ok) continue;
    if (target->needsGeometry() && !fillGeometryInParallel(context, s, u, v, face)) {
      countCulled(context);
      return false;
    }
    if (cullFlag && !spared) {
      if (cullPostGeometryInParallel(context, s, u, v, face, patches[static_cast<size_t>(s)])) {
        postCulled = true;
      } else {
        spared = true;
        postCulled = false;
      }
    }
  }
  // Every sample tested after geometry was culled.
  if (postCulled) {
    VR_DEBUG(2, vrmsg::CatGenerator,
             "Primitive " + std::to_string(context.id()) + " on face " + std::to_string(face) +
                 "is post-geometry culled.");
    return false;
  }
  if (!emit) return false;
  if (target->needsGeometry() && !finiteOrCulled(context, n, u, v, face)) return false;

  // Emission, sample by sample.
  for (int s = 0; s < n; ++s) {
    if (serial)
      target->emitPrimitive(s, u, v, face, patches);
    else
      target->emitPrimitiveInParallel(context, s, u, v, face, patches);
  }
  VrGeneratorContext* record = serial ? nullptr : context.generatorContext();
  if (record) record->addNumEmitted(1);
  return true;
}

bool VrGenerator::finiteOrCulled(VrPrimitiveContext& context, int samples, double u, double v, int face) {
  for (int s = 0; s < samples; ++s) {
    VrDescription* desc = sampleDescription(s);
    VrPrimitive* samplePrimitive = desc ? desc->activePrimitive() : nullptr;
    VrPrimitiveContext* own = sampleContext(context, s);
    if (!samplePrimitive || !own || samplePrimitive->finiteGeometry(*own)) continue;
    countCulled(context);
    if (!warnedNonFinite.exchange(true))
      VR_WARNING(1, (description() ? description()->name() : std::string()) +
                        ": primitives whose attribute \"" + samplePrimitive->nonFiniteAttribute(*own, u, v) +
                        "\" is not a finite number are culled (the first: id " + std::to_string(own->id()) +
                        " on face " + std::to_string(face) + ")");
    return false;
  }
  return true;
}

bool VrGenerator::fillGeometry(int sample, double u, double v, int face) {
  VrPrimitive* active = description() ? description()->activePrimitive() : nullptr;
  return active && fillGeometryInParallel(active->context(), sample, u, v, face);
}

bool VrGenerator::fillGeometryInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face) {
  (void)face;  // the context holds the face
  VrDescription* desc = sampleDescription(sample);
  VrPrimitive* samplePrimitive = desc ? desc->activePrimitive() : nullptr;
  VrPrimitiveContext* own = sampleContext(context, sample);
  if (!samplePrimitive || !own) return false;
  samplePrimitive->makeGeometryInParallel(*own, u, v, nullptr);
  return !own->cullPrim();
}

bool VrGenerator::cullPreGeometry(double u, double v, int face, VrPrimitive* primitive, VrPatch* patch) {
  if (!primitive) {
    VR_ERROR("Null pointer to active primitive.  Motion sample??");
    return false;
  }
  return cullPreGeometryInParallel(primitive->context(), 0, u, v, face, primitive, patch);
}

bool VrGenerator::cullPreGeometryInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                                            VrPrimitive* primitive, VrPatch* patch) {
  VrPrimitiveContext* own = primitive ? sampleContext(context, sample) : nullptr;
  if (!own) {
    VR_ERROR("Null pointer to active primitive.  Motion sample??");
    return false;
  }
  const unsigned id = own->id();
  VrDescription* desc = description();

  // Level of detail: too thin to be seen.
  if (desc && desc->lodFlag()) {
    const VrDescription* primitiveDesc = primitive->description();
    const double widthFactor = isSerialContext(context) ? (primitiveDesc ? primitiveDesc->lodAdjustment() : 1.0)
                                                        : own->lodAdjustment();
    if (desc->lodCullWidthRatio() > widthFactor) {
      countCulled(context);
      return true;
    }
  }

  // Culled by hand, unless the renderer wants it all the same.
  if (patch && patch->isCulled(face, id)) {
    countCulled(context);
    if (!handleCulled(context, sample, 2, face, id, patch)) return true;
  }

  // By the camera.
  if (!cullFlag || (!cullBackfaceFlag && !cullFrustrumFlag)) return false;
  if (VrRenderer::shadowPass()) return false;
  static const SgXform3T<double> identity;
  const SgXform3T<double>& world = desc && desc->palette() ? desc->palette()->world() : identity;
  const SgVec3T<double> P = world.transformed(own->cP(u, v, false));

  if (cullBackfaceFlag) {
    SgVec3T<double> N = world.transformed(own->cN(u, v, false), true);
    N.normalize();
    SgVec3T<double> toPoint = P - VrRenderer::camPosition();
    toPoint.normalize();
    const double x = N.dot(toPoint);
    if (x > 0.0 && halfPi - std::acos(std::min(1.0, x)) > cullAngleBFRadians) {
      countCulled(context);
      return !handleCulled(context, sample, 4, face, id, patch);
    }
  }
  if (cullFrustrumFlag) {
    const SgVec3T<double> C = VrRenderer::camInverseXform().transformed(P);
    const double* fov = VrRenderer::camFOV();
    const double ax = std::fabs(C.x), ay = std::fabs(C.y);
    if ((ax > 0.0001 && halfPi - std::atan(-C.z / ax) > fov[0] + cullAngleFRadians) ||
        (ay > 0.0001 && halfPi - std::atan(-C.z / ay) > fov[1] + cullAngleFRadians)) {
      countCulled(context);
      return !handleCulled(context, sample, 4, face, id, patch);
    }
  }
  return false;
}

bool VrGenerator::cullPostGeometry(double u, double v, int face, VrPrimitive* primitive, VrPatch* patch) {
  return primitive && cullPostGeometryInParallel(primitive->context(), 0, u, v, face, patch);
}

bool VrGenerator::cullPostGeometryInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                                             VrPatch* patch) {
  if (cullExpression.eval(u, v, face, patch ? &patch->name() : nullptr).x == 0.0) return false;
  countCulled(context);
  const VrPrimitiveContext* own = sampleContext(context, sample);
  return !handleCulled(context, sample, 8, face, own ? own->id() : context.id(), patch);
}

bool VrGenerator::offerLocation(VrPrimitiveContext& context, double& acc, double percent, double u, double v,
                                int face, const std::vector<VrPatch*>& patches) {
  if (!takeShare(acc, percent) || culledForRegion(context, u, v, face, patches[0]->name())) return false;
  return isSerialContext(context) ? emitIfOk(u, v, face, patches) : emitIfOkInParallel(context, u, v, face, patches);
}

bool VrGenerator::culledForRegion(const VrPrimitiveContext& context, double u, double v, int face,
                                  const std::string& patchName) const {
  if (!renderRegionCheck() || validRenderRegion(u, v, face, patchName)) return false;
  const VrDescription* desc = description();
  VR_DEBUG(5, vrmsg::CatGenerator,
           (desc ? desc->name() : std::string()) + "|" + patchName + " Primitive " + std::to_string(context.id()) +
               " on face " + std::to_string(face) + "is culled for region preview.");
  return true;
}

unsigned VrGenerator::offerRecordLocations(VrPrimitiveContext& context, VpdReader& reader, bool fileIds, double acc,
                                           double percent, int face, const std::vector<VrPatch*>& patches) {
  unsigned emitted = 0;
  std::uint32_t id = 0;
  std::vector<float> values;
  while (reader.readPrim(id, values)) {
    if (values.size() < 2) break;
    if (fileIds)
      context.setId(id);
    else
      context.incrId();
    if (offerLocation(context, acc, percent, values[0], values[1], face, patches)) ++emitted;
  }
  return emitted;
}

// ---------------------------------------------------------------------------------------------
// Region preview

bool VrGenerator::validRenderRegion(double u, double v, int face, const std::string& patchName) const {
  if (regions.empty()) return false;
  const unsigned id = vrutil::decodeRGB2Id(regionExpression.eval(u, v, face, &patchName));
  return std::find(regions.begin(), regions.end(), id) != regions.end();
}
