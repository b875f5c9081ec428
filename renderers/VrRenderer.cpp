#include "renderers/VrRenderer.h"

#include "base/VrMessage.h"
#include "base/VrProfiler.h"
#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "generators/VrGenerator.h"
#include "generators/VrGeneratorContext.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace {

struct Camera {
  double fov[2] = {0.0, 0.0};
  double ratio = 1.0;
  SgVec3T<double> dir;
  SgVec3T<double> realDir;
  bool ortho = false;
  bool realOrtho = false;
  SgXform3T<double> worldToCamera;
  SgVec3T<double> position;
  bool shadow = false;
  bool motionBlurShadows = true;
};

Camera& camera() {
  static Camera state;
  return state;
}

// The point that `xform` takes to the origin: p * M + t = 0 with M the upper 3x3, so
// p = -t * inverse(M). The origin when M is singular.
SgVec3T<double> pointToOrigin(const SgXform3T<double>& xform) {
  const double (&m)[4][4] = xform.m;
  const double c00 = m[1][1] * m[2][2] - m[1][2] * m[2][1];
  const double c01 = m[1][2] * m[2][0] - m[1][0] * m[2][2];
  const double c02 = m[1][0] * m[2][1] - m[1][1] * m[2][0];
  const double det = m[0][0] * c00 + m[0][1] * c01 + m[0][2] * c02;
  if (std::fabs(det) < 1e-300) return SgVec3T<double>();
  // inverse(M)[i][j] = cofactor(j, i) / det
  double inv[3][3];
  inv[0][0] = c00 / det;
  inv[1][0] = c01 / det;
  inv[2][0] = c02 / det;
  inv[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) / det;
  inv[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) / det;
  inv[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) / det;
  inv[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) / det;
  inv[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) / det;
  inv[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) / det;
  const double t[3] = {-m[3][0], -m[3][1], -m[3][2]};
  double p[3];
  for (int j = 0; j < 3; ++j) p[j] = t[0] * inv[0][j] + t[1] * inv[1][j] + t[2] * inv[2][j];
  return SgVec3T<double>(p[0], p[1], p[2]);
}

// Percent attributes: the value over 100, clamped to [0, 1].
double percentFraction(double value) { return std::min(1.0, std::max(0.0, value / 100.0)); }

// Half away from zero, to two decimals.
double roundHundredths(double value) {
  const double scaled = value * 100.0;
  const double rounded = scaled > 0.0 ? std::floor(scaled + 0.5) : -std::floor(0.5 - scaled);
  return rounded / 100.0;
}

// Normalised copy; shorter than 1e-6 gives the zero vector.
SgVec3T<double> unit(SgVec3T<double> v) {
  const double len = v.length();
  return len < 1e-6 ? SgVec3T<double>() : v / len;
}

// Side normals of a body of eight corners: four in a loop, then the four opposite ones.
void sideNormals(const std::vector<SgVec3T<double>>& corners, SgVec3T<double> normals[4]) {
  for (int i = 0; i < 4; ++i) {
    const SgVec3T<double>& a = corners[static_cast<size_t>(i)];
    const SgVec3T<double>& b = corners[static_cast<size_t>((i + 1) % 4)];
    const SgVec3T<double>& far = corners[static_cast<size_t>(i + 4)];
    normals[i] = (b - a).cross(far - a);
  }
}

// True when one of the side planes of `body` has every corner of `other` outside.
bool separatedBy(const std::vector<SgVec3T<double>>& body, const SgVec3T<double> normals[4],
                 const std::vector<SgVec3T<double>>& other) {
  for (int i = 0; i < 4; ++i) {
    const SgVec3T<double> n = unit(normals[i]);
    const SgVec3T<double>& from = body[static_cast<size_t>(i)];
    bool inside = false;
    for (size_t c = 0; c < 8 && c < other.size(); ++c) {
      if (unit(other[c] - from).dot(n) > 0.0) {
        inside = true;
        break;
      }
    }
    if (!inside) return true;
  }
  return false;
}

const SgXform3T<double>& identity() {
  static const SgXform3T<double> xform;
  return xform;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Attributes

VrRenderer::VrRenderer(VrDescription* description) : VrObject(description) {
  setAttr("percent", "100.0", "int");
  setAttr("startPercent", "0.0", "int");
  setAttr("inCameraOnly", "false", "bool");
  setAttr("inCameraMargin", "0.0", "float");
}

VrRenderer::~VrRenderer() = default;

bool VrRenderer::setAttr(const std::string& name, const std::string& value, const std::string& type,
                         const std::string& enumStrings) {
  if (VrObject::setAttr(name, value, type, enumStrings)) return true;

  if (name == "percent" || name == "startPercent") {
    double parsed = 0.0;
    const bool ok = floatAttr(name, value, parsed);
    (name == "percent" ? percentValue : startValue) = percentFraction(parsed);
    return ok;
  }
  if (name == "inCameraOnly") return boolAttr(name, value, inCamOnly);
  if (name == "inCameraMargin") {
    double degrees = 0.0;
    const bool ok = floatAttr(name, value, degrees);
    inCamMargin = degrees * 0.017453292519943295;
    return ok;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// Emission

bool VrRenderer::okToEmit(int, double, double) { return true; }

bool VrRenderer::handleCulledPrimitive(unsigned, int, unsigned, VrPatch*) { return false; }

bool VrRenderer::handleCulledPrimitiveInParallel(VrPrimitiveContext&, unsigned, int, unsigned, VrPatch*) {
  return false;
}

void VrRenderer::emitPrimitiveInParallel(VrPrimitiveContext&, int, double, double, int,
                                         const std::vector<VrPatch*>&) {}

std::unique_ptr<VrRendererContext> VrRenderer::newRendererContext() const {
  return std::make_unique<VrRendererContext>();
}

void VrRenderer::reduceResult(VrRendererContext&, const std::string&, bool) {}

// ---------------------------------------------------------------------------------------------
// Passes over a description

VrDescription* VrRenderer::sampleDescription(int i) const {
  VrDescription* desc = description();
  if (!desc || i < 0) return nullptr;
  return i == 0 ? desc : desc->sample(static_cast<unsigned>(i - 1));
}

void VrRenderer::initDescription() {
  VrDescription* desc = description();
  VR_DEBUG(1, vrmsg::CatRender,
           "Initialize " + (desc ? desc->name() : std::string()) + " description " +
               (shadowPass() ? "shadow pass" : ""));
  samples = desc ? static_cast<int>(desc->numSamples()) + 1 : 1;
  if ((shadowPass() && !motionBlurShadows()) || firstSampleOnly()) samples = 1;
  restoreColor();

  // Number the description and its motion samples within the collection, and their patches in
  // map order, so that a patch of one name has one number in every sample.
  VrPalette* palette = desc ? desc->palette() : nullptr;
  if (palette) {
    for (unsigned i = 0; i < palette->numDescriptions(); ++i) {
      if (palette->description(i) != desc) continue;
      for (int s = 0; s < static_cast<int>(desc->numSamples()) + 1; ++s) {
        VrDescription* sampleDesc = sampleDescription(s);
        if (!sampleDesc) continue;
        sampleDesc->setIndex(i);
        unsigned number = 0;
        for (const auto& entry : sampleDesc->patches())
          if (entry.second) entry.second->setIndex(number++);
      }
      break;
    }
  }

  for (int s = 0; s < samples; ++s) {
    VrDescription* sampleDesc = sampleDescription(s);
    if (!sampleDesc) continue;
    sampleDesc->setLodAdjustment(1.0);
    // Stochastic level of detail cannot thin primitives that guides shape CV by CV. (No primitive
    // is called "SplinePimitive": the test lets every kind through.)
    const VrPrimitive* primitive = sampleDesc->activePrimitive();
    std::string method;
    const bool fromGuides = primitive && primitive->getAttr("iMethod", method) && method == "1";
    if (s == 0 && primitive && primitive->typeName() != "SplinePimitive" && fromGuides &&
        primitive->numGuides() > 0 && sampleDesc->lodFlag())
      VR_ERROR("Stochastic LOD not supported for " + primitive->typeName() + " when using guide interpolation. " +
               "[" + (palette ? palette->name() : std::string()) + "," + sampleDesc->name() + "]");
    if (VrPrimitive* own = sampleDesc->activePrimitive()) own->initDescription();
    if (auto* generator = dynamic_cast<VrGenerator*>(sampleDesc->activeGenerator())) generator->initDescription();
  }

  bound.store(0.01);
  totalEmits.store(0);
  camDirLocal = (palette ? palette->world() : identity()).transformed(camDir(), true);
}

void VrRenderer::initDescriptionInParallel(VrPrimitiveContext& context) {
  for (int s = 0; s < samples; ++s) {
    VrDescription* sampleDesc = sampleDescription(s);
    VrPrimitiveContext* own = s == 0 ? &context : context.sample(static_cast<unsigned>(s - 1));
    if (!sampleDesc || !own) continue;
    if (VrPrimitive* primitive = sampleDesc->activePrimitive()) primitive->initDescriptionInParallel(*own);
    if (auto* generator = dynamic_cast<VrGenerator*>(sampleDesc->activeGenerator()))
      generator->initDescriptionInParallel(*own);
  }
  if (VrRendererContext* record = context.rendererContext()) {
    record->setMaxBound(0.01);
    record->setTotalCount(0);
  }
}

void VrRenderer::finishDescription() {
  for (int s = 0; s < samples; ++s) {
    VrDescription* sampleDesc = sampleDescription(s);
    if (!sampleDesc) continue;
    if (auto* generator = dynamic_cast<VrGenerator*>(sampleDesc->activeGenerator())) generator->finishDescription();
    if (VrPrimitive* primitive = sampleDesc->activePrimitive()) primitive->finishDescription();
  }
}

void VrRenderer::finishDescriptionInParallel(VrPrimitiveContext& context) {
  for (int s = 0; s < samples; ++s) {
    VrDescription* sampleDesc = sampleDescription(s);
    VrPrimitiveContext* own = s == 0 ? &context : context.sample(static_cast<unsigned>(s - 1));
    if (!sampleDesc || !own) continue;
    if (auto* generator = dynamic_cast<VrGenerator*>(sampleDesc->activeGenerator()))
      generator->finishDescriptionInParallel(*own);
    if (VrPrimitive* primitive = sampleDesc->activePrimitive()) primitive->finishDescriptionInParallel(*own);
  }
}

// ---------------------------------------------------------------------------------------------
// One face

std::string VrRenderer::faceText(const std::vector<VrPatch*>& patches, int face) const {
  const std::string patch = !patches.empty() && patches[0] ? patches[0]->name() : std::string();
  return (description() ? description()->name() : std::string()) + " | " + patch + "[" + std::to_string(face) +
         "] patch.";
}

bool VrRenderer::beginPatchFace(const std::vector<VrPatch*>& patches, int face) {
  VR_DEBUG(3, vrmsg::CatRender, "Begin " + faceText(patches, face));
  vrutil::beginTiming(timing);
  for (size_t s = 0; s < patches.size(); ++s) {
    VrDescription* sampleDesc = sampleDescription(static_cast<int>(s));
    VrPrimitive* primitive = sampleDesc ? sampleDesc->activePrimitive() : nullptr;
    if (!primitive) continue;
    primitive->context().setActivePatchFace(patches[s], face);
    primitive->beginPatchFaceModules(primitive->context(), patches[s], face);
  }
  faceEmits = 0;
  emittedValid = false;
  return true;
}

bool VrRenderer::beginPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                          int face) {
  VR_DEBUG(3, vrmsg::CatRender, "Begin " + faceText(patches, face));
  VrRendererContext* record = context.rendererContext();
  if (record) vrutil::beginTiming(record->timingMark());
  for (size_t s = 0; s < patches.size(); ++s) {
    VrPrimitiveContext* own = s == 0 ? &context : context.sample(static_cast<unsigned>(s - 1));
    if (!own) continue;
    own->setActivePatchFace(patches[s], face);
    VrDescription* sampleDesc = sampleDescription(static_cast<int>(s));
    if (VrPrimitive* primitive = sampleDesc ? sampleDesc->activePrimitive() : nullptr)
      primitive->beginPatchFaceModules(*own, patches[s], face);
  }
  if (record) {
    record->resetEmitCount();
    record->setEmittedValid(false);
  }
  return true;
}

double VrRenderer::raisedBound(double old, const SgBox3T<double>& emitted, const SgBox3T<double>& face) {
  // A box of no extent at all holds nothing that was emitted.
  if (emitted.size.x == 0.0 && emitted.size.y == 0.0 && emitted.size.z == 0.0) return old;
  double value = old;
  for (int axis = 0; axis < 3; ++axis) {
    const double above = (emitted.min[axis] + emitted.size[axis]) - (face.min[axis] + face.size[axis]);
    const double below = face.min[axis] - emitted.min[axis];
    value = std::max(value, std::max(above, below));
  }
  value = roundHundredths(value);
  return value > 0.01 ? value : 0.01;
}

void VrRenderer::raiseMaxBound(double value) {
  double current = bound.load();
  while (value > current && !bound.compare_exchange_weak(current, value)) {
  }
}

void VrRenderer::endPatchFace(const std::vector<VrPatch*>& patches, int face) {
  VR_DEBUG(3, vrmsg::CatRender, "End " + faceText(patches, face));
  for (size_t s = 0; s < patches.size(); ++s) {
    VrDescription* sampleDesc = sampleDescription(static_cast<int>(s));
    if (VrPrimitive* primitive = sampleDesc ? sampleDesc->activePrimitive() : nullptr)
      primitive->endPatchFaceModules(primitive->context(), patches[s], face);
  }
  if (emittedValid && !patches.empty() && patches[0]) {
    const double old = bound.load();
    const double raised = raisedBound(old, emittedBox(), patches[0]->boundingBox(face, false));
    if (raised != old) bound.store(raised);
  }
  if (VRStatsLevel >= 3) {
    // Formatted only when it is printed: a face of a dense mesh holds only a few primitives.
    std::string timeText;
    vrutil::endTiming(timing, timeText);
    const auto* generator = description() ? dynamic_cast<VrGenerator*>(description()->activeGenerator()) : nullptr;
    const std::string patch = !patches.empty() && patches[0] ? patches[0]->name() : std::string();
    VR_STATS(3, description()->name() + "|" + patch + "[" + std::to_string(face) + "] " +
                    std::to_string(faceEmits) + " prims (" + std::to_string(generator ? generator->numCulled() : 0) +
                    " culled) | " + timeText);
  }
  if (incTotalCountAfterPatchEnd()) totalEmits.fetch_add(static_cast<unsigned>(faceEmits));
}

void VrRenderer::endPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                        int face) {
  VR_DEBUG(3, vrmsg::CatRender, "End " + faceText(patches, face));
  for (size_t s = 0; s < patches.size(); ++s) {
    VrPrimitiveContext* own = s == 0 ? &context : context.sample(static_cast<unsigned>(s - 1));
    VrDescription* sampleDesc = sampleDescription(static_cast<int>(s));
    if (VrPrimitive* primitive = own && sampleDesc ? sampleDesc->activePrimitive() : nullptr)
      primitive->endPatchFaceModules(*own, patches[s], face);
  }
  VrRendererContext* record = context.rendererContext();
  if (!record) return;
  if (record->emittedValid() && !patches.empty() && patches[0])
    record->setMaxBound(
        raisedBound(record->maxBound(), record->emittedBox(), patches[0]->boundingBox(face, false)));
  if (VRStatsLevel >= 3) {
    std::string timeText;
    vrutil::endTiming(record->timingMark(), timeText);
    const VrGeneratorContext* generatorRecord = context.generatorContext();
    const std::string patch = !patches.empty() && patches[0] ? patches[0]->name() : std::string();
    VR_STATS(3, description()->name() + "|" + patch + "[" + std::to_string(face) + "] " +
                    std::to_string(record->emitCount()) + " prims (" +
                    std::to_string(generatorRecord ? generatorRecord->numCulled() : 0) + " culled) | " + timeText);
  }
  if (incTotalCountAfterPatchEnd()) record->addTotalCount(record->emitCount());
}

void VrRenderer::mergeEmittedBox(const SgBox3T<double>& box) {
  if (!box.valid) return;
  SgBox3T<double> merged = emittedBox();
  merged.unite(box);
  emittedOrigin = merged.min;
  emittedSize = merged.size;
  emittedValid = true;
}

SgBox3T<double> VrRenderer::emittedBox() const {
  return emittedValid ? SgBox3T<double>(emittedOrigin, emittedSize) : SgBox3T<double>();
}

// ---------------------------------------------------------------------------------------------
// The render walk

bool VrRenderer::collectPatches(int face, const std::string& patchName, std::vector<VrPatch*>& patches,
                                const VrPrimitiveContext* context) const {
  patches.clear();
  patches.reserve(static_cast<size_t>(samples));
  bool visible = false;
  for (int i = 0; i < samples; ++i) {
    VrDescription* sampleDesc = sampleDescription(i);
    if (!sampleDesc) {
      VR_ERROR("No description for motion sample " + std::to_string(i));
      return false;
    }
    if (context && i > 0 && !context->sample(static_cast<unsigned>(i - 1))) {
      VR_ERROR("No primitive context for motion sample " + std::to_string(i));
      return false;
    }
    VrPatch* patch = sampleDesc->patch(patchName);
    if (!patch) {
      VR_ERROR("No patch " + patchName + " for motion sample " + std::to_string(i));
      return false;
    }
    if (!patch->isBound() || !patch->hasFaceId(face)) return false;
    if (!inCamOnly || faceInCam(face, patch)) visible = true;
    patches.push_back(patch);
  }
  if (!visible) {
    VR_DEBUG(3, vrmsg::CatRender,
             (description() ? description()->name() : std::string()) + "[" + std::to_string(face) +
                 "] is not visible.  Skipping.");
    return false;
  }
  return true;
}

void VrRenderer::render(int face, const std::string& patchName) {
  vrutil::VrProfileScope scope("VrRenderer::render");
  std::vector<VrPatch*> patches;
  if (!collectPatches(face, patchName, patches, nullptr)) return;
  renderingFlag = true;
  generateFace(nullptr, face, patches);
  renderingFlag = false;
}

void VrRenderer::renderInParallel(VrPrimitiveContext& context, int face, const std::string& patchName) {
  vrutil::VrProfileScope scope("VrRenderer::renderInParallel");
  std::vector<VrPatch*> patches;
  if (!collectPatches(face, patchName, patches, &context)) return;
  generateFace(&context, face, patches);
}

void VrRenderer::generateFace(VrPrimitiveContext* context, int face, const std::vector<VrPatch*>& patches) {
  double start = startValue;
  double width = percentValue;
  if (start + width > 1.0) width = 1.0 - start;
  auto* generator = dynamic_cast<VrGenerator*>(description()->activeGenerator());
  if (context) {
    if (beginPatchFaceInParallel(*context, patches, face)) {
      if (generator) generator->generateInParallel(*context, face, patches, start, width);
      dirtyFlag = true;
    }
    endPatchFaceInParallel(*context, patches, face);
  } else {
    if (beginPatchFace(patches, face)) {
      if (generator) generator->generate(face, patches, start, width);
      dirtyFlag = true;
    }
    endPatchFace(patches, face);
  }
}

void VrRenderer::reduceContext(VrRendererContext& context, const std::string& patchName, bool last) {
  reduceResult(context, patchName, last);
  raiseMaxBound(context.maxBound());
}

void VrRenderer::accumlateTotalEmitCount(unsigned count) {
  if (incTotalCountAfterPatchEnd()) totalEmits.fetch_add(count);
}

bool VrRenderer::renderPatchInParallel(const std::string& patchName) {
  VrDescription* desc = description();
  VrPatch* patch = desc ? desc->patch(patchName) : nullptr;
  if (!patch) {
    VR_ERROR("No patch " + patchName + " for motion sample 0");
    return false;
  }
  const std::vector<int> faces = patch->faceIds();
  auto* generator = dynamic_cast<VrGenerator*>(desc->activeGenerator());
  VrPrimitive* primitive = desc->activePrimitive();
  if (!generator || !primitive || !generator->canRunInParallel() || !primitive->canRunInParallel()) {
    for (int face : faces) render(face, patchName);
    return true;
  }

  VrTaskManager::parallelChunks(faces.size(), [&](size_t begin, size_t end) {
    // One primitive context per sample, each a clone of the sample primitive's own.
    std::unique_ptr<VrPrimitiveContext> worker = primitive->cloneContext(primitive->context());
    VrPrimitiveContext& context = *worker;
    context.clearSamples();
    std::vector<std::unique_ptr<VrPrimitiveContext>> motion;
    for (int s = 1; s < samples; ++s) {
      VrDescription* sampleDesc = sampleDescription(s);
      VrPrimitive* samplePrimitive = sampleDesc ? sampleDesc->activePrimitive() : nullptr;
      if (!samplePrimitive) break;
      motion.push_back(samplePrimitive->cloneContext(samplePrimitive->context()));
      motion.back()->clearSamples();
      context.addSample(motion.back().get());
    }
    VrExpression::initTLS(&context);
    std::unique_ptr<VrGeneratorContext> generatorRecord = generator->newGeneratorContext();
    std::unique_ptr<VrRendererContext> record = newRendererContext();
    context.setGeneratorContext(generatorRecord.get());
    context.setRendererContext(record.get());
    for (auto& own : motion) {
      own->setGeneratorContext(generatorRecord.get());
      own->setRendererContext(record.get());
    }
    initDescriptionInParallel(context);
    for (size_t i = begin; i != end; ++i) renderInParallel(context, faces[i], patchName);
    reduceContext(*record, patchName, true);
    accumlateTotalEmitCount(static_cast<unsigned>(record->totalCount()));
    finishDescriptionInParallel(context);
    VrExpression::clearTLS();
  });
  return true;
}

// ---------------------------------------------------------------------------------------------
// The camera test

bool VrRenderer::faceInCam(int face, const VrPatch* patch) const {
  return patch && faceInCam(patch->boundingBox(face, false), patch);
}

bool VrRenderer::faceInCam(const SgBox3T<double>& box, const VrPatch* patch) const {
  (void)patch;
  const SgVec3T<double> lo = box.min;
  const SgVec3T<double> hi = box.min + box.size + SgVec3T<double>(0.001, 0.001, 0.001);
  const SgVec3T<double> corners[8] = {
      {lo.x, lo.y, hi.z}, {hi.x, lo.y, hi.z}, {hi.x, hi.y, hi.z}, {lo.x, hi.y, hi.z},
      {lo.x, lo.y, lo.z}, {hi.x, lo.y, lo.z}, {hi.x, hi.y, lo.z}, {lo.x, hi.y, lo.z}};
  const VrPalette* palette = description() ? description()->palette() : nullptr;
  const SgXform3T<double>& world = palette ? palette->world() : identity();
  std::vector<SgVec3T<double>> inCamera;
  inCamera.reserve(8);
  for (const SgVec3T<double>& corner : corners) {
    const SgVec3T<double> p = world.transformed(corner);
    if (pointInCam(p)) return true;
    inCamera.push_back(camInverseXform().transformed(p));
  }
  std::vector<SgVec3T<double>> frustum;
  createCameraInfo(frustum);
  return viewIntersect(inCamera, frustum);
}

bool VrRenderer::pointInCam(const SgVec3T<double>& p) const {
  const SgVec3T<double> c = camInverseXform().transformed(p);
  const double halfPi = 1.5707963267948966;
  const double* fov = camFOV();
  const double ax = std::fabs(c.x);
  if (ax > 0.0001 && halfPi - std::atan(-c.z / ax) > fov[0] + inCamMargin) return false;
  const double ay = std::fabs(c.y);
  if (!(ay > 0.0001)) return true;
  return !(halfPi - std::atan(-c.z / ay) > fov[1] + inCamMargin);
}

void VrRenderer::createCameraInfo(std::vector<SgVec3T<double>>& points) {
  points.assign(12, SgVec3T<double>());
  const double tx = std::tan(camFOV()[0]);
  const double ty = std::tan(camFOV()[1]);
  const double signs[4][2] = {{-1.0, -1.0}, {1.0, -1.0}, {1.0, 1.0}, {-1.0, 1.0}};
  for (int i = 0; i < 4; ++i) {
    points[static_cast<size_t>(i)] = SgVec3T<double>(signs[i][0] * tx * 0.01, signs[i][1] * ty * 0.01, 0.01);
    points[static_cast<size_t>(i + 4)] = SgVec3T<double>(signs[i][0] * tx * 1e7, signs[i][1] * ty * 1e7, -1e7);
  }
  SgVec3T<double> normals[4];
  sideNormals(points, normals);
  for (int i = 0; i < 4; ++i) points[static_cast<size_t>(i + 8)] = normals[i];
}

bool VrRenderer::viewIntersect(const std::vector<SgVec3T<double>>& a, const std::vector<SgVec3T<double>>& b) {
  if (a.size() < 8 || b.size() < 8) return false;
  SgVec3T<double> normals[4];
  if (b.size() >= 12)
    for (int i = 0; i < 4; ++i) normals[i] = b[static_cast<size_t>(i + 8)];
  else
    sideNormals(b, normals);
  if (separatedBy(b, normals, a)) return false;
  sideNormals(a, normals);
  return !separatedBy(a, normals, b);
}

// ---------------------------------------------------------------------------------------------
// Camera state

const double* VrRenderer::camFOV() { return camera().fov; }

void VrRenderer::setCamFOV(double both) { setCamFOV(both, both); }

void VrRenderer::setCamFOV(double horizontal, double vertical) {
  camera().fov[0] = horizontal;
  camera().fov[1] = vertical;
}

double VrRenderer::camRatio() { return camera().ratio; }
void VrRenderer::setCamRatio(double ratio) { camera().ratio = ratio; }
const SgVec3T<double>& VrRenderer::camDir() { return camera().dir; }
void VrRenderer::setCamDir(const SgVec3T<double>& dir) { camera().dir = dir; }
const SgVec3T<double>& VrRenderer::realCamDir() { return camera().realDir; }
void VrRenderer::setRealCamDir(const SgVec3T<double>& dir) { camera().realDir = dir; }
bool VrRenderer::camIsOrtho() { return camera().ortho; }
void VrRenderer::setCamIsOrtho(bool on) { camera().ortho = on; }
bool VrRenderer::realCamIsOrtho() { return camera().realOrtho; }
void VrRenderer::setRealCamIsOrtho(bool on) { camera().realOrtho = on; }

const SgXform3T<double>& VrRenderer::camInverseXform() { return camera().worldToCamera; }

void VrRenderer::setCamInverseXform(const SgXform3T<double>& worldToCamera) {
  camera().worldToCamera = worldToCamera;
  camera().position = pointToOrigin(worldToCamera);
}

const SgVec3T<double>& VrRenderer::camPosition() { return camera().position; }

bool VrRenderer::shadowPass() { return camera().shadow; }

void VrRenderer::setShadowPass(bool on) {
  camera().shadow = on;
  VrExpression::setShadowPass(on);
}

bool VrRenderer::motionBlurShadows() { return camera().motionBlurShadows; }
void VrRenderer::setMotionBlurShadows(bool on) { camera().motionBlurShadows = on; }
