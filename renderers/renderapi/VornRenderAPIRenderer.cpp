// The render back end. Ownership: a renderer owns its serial batch, its internal expressions and
// the level-of-detail factor expressions parsed in `initDescription`; its custom channels share
// the primitive's custom expressions. Each `Renderer2::Context` owns the batch of one worker.
// Lifetime: a batch lives from the start of a face to its flush; the `BatchView` given to `flush`
// lives only during that call.
// Threading: the serial path runs under the render API's lock; a worker touches only its own
// context and reads the renderer's state, which is written in `initDescription` before any
// worker starts. Emitting a primitive allocates nothing once the batch arrays have grown: they
// keep their capacity from flush to flush, and per-CV work space lives in the batch.

#include "renderers/renderapi/VornRenderAPIRenderer.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "base/VrExactCast.h"
#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "expressions/VrExpression.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"
#include "primitives/VrArchivePrimitive.h"
#include "primitives/VrCardPrimitive.h"
#include "primitives/VrSpherePrimitive.h"
#include "primitives/VrSplinePrimitive.h"

namespace VornRenderAPI {

namespace {

using Flag = PrimitiveCache::EBoolAttribute;

// A channel: its attribute, its pseudo attribute (empty: none) and its flag.
struct Channel {
  const char* attr;
  const char* pseudo;
  Flag flag;
};

const Channel channels[] = {
    {"length_VP", "addLength", Flag::Length},
    {"width_VP", "addWidth", Flag::Width},
    {"T_VP", "addT", Flag::T},
    {"stray_VP", "addStray", Flag::Stray},
    {"id_VP", "addPrimitiveId", Flag::PrimitiveId},
    {"descid_VP", "", Flag::DescriptionId},
    {"ri_VP", "addRandomInt", Flag::RandomInt},
    {"rf_VP", "addRandomFloat", Flag::RandomFloat},
    {"u_VS", "addU", Flag::U},
    {"v_VS", "addV", Flag::V},
    {"faceid_VS", "addFaceId", Flag::FaceId},
    {"geomid_VS", "", Flag::GeomId},
    {"geomName_VS", "addGeomName", Flag::GeomName},
    {"P_VS", "addP", Flag::P},
    {"Pref_VS", "addPref", Flag::Pref},
    {"Pg_VS", "addPg", Flag::Pg},
    {"Prefg_VS", "addPrefg", Flag::Prefg},
    {"N_VS", "addN", Flag::N},
    {"Nref_VS", "addNref", Flag::Nref},
    {"Ng_VS", "addNg", Flag::Ng},
    {"Nrefg_VS", "addNrefg", Flag::Nrefg},
    {"dPdu_VS", "addDPdu", Flag::DPdu},
    {"dPduref_VS", "addDPduref", Flag::DPduref},
    {"dPdug_VS", "addDPdug", Flag::DPdug},
    {"dPdurefg_VS", "addDPdurefg", Flag::DPdurefg},
    {"dPdv_VS", "addDPdv", Flag::DPdv},
    {"dPdvref_VS", "addDPdvref", Flag::DPdvref},
    {"dPdvg_VS", "addDPdvg", Flag::DPdvg},
    {"dPdvrefg_VS", "addDPdvrefg", Flag::DPdvrefg},
};

using V3 = PrimitiveCache::EVec3ArrayAttribute;
using F1 = PrimitiveCache::EFloatArrayAttribute;
using I1 = PrimitiveCache::EIntArrayAttribute;
using S1 = PrimitiveCache::EStringArrayAttribute;

template <typename Floats>
void push(Floats& out, const SgVec3T<double>& p) {
  out.push_back(static_cast<float>(p.x));
  out.push_back(static_cast<float>(p.y));
  out.push_back(static_cast<float>(p.z));
}

// Appends `count` entries to the row and answers the first of them.
float* grow(Batch::Row& row, size_t count) {
  const size_t at = row.size();
  row.resize(at + count);
  return row.data() + at;
}

// Writes p as three floats at `out` and answers the place after them.
float* put(float* out, const SgVec3T<double>& p) {
  out[0] = static_cast<float>(p.x);
  out[1] = static_cast<float>(p.y);
  out[2] = static_cast<float>(p.z);
  return out + 3;
}

std::vector<float>& vec3(Batch& batch, V3 key) { return batch.vec3s[static_cast<int>(key)]; }
std::vector<float>& floats(Batch& batch, F1 key) { return batch.floats[static_cast<int>(key)]; }
std::vector<int>& ints(Batch& batch, I1 key) { return batch.ints[static_cast<int>(key)]; }

std::string number(double value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

VrDescription* descriptionOfSample(VrDescription* description, int sample) {
  if (!description || sample < 0) return nullptr;
  return sample == 0 ? description : description->sample(static_cast<unsigned>(sample - 1));
}

// The level-of-detail factors (width, length, depth, taper) of the description: its hammer
// expressions when it uses them, 1 otherwise.
struct Hammer {
  double width = 1.0, length = 1.0, depth = 1.0, taper = 1.0;
};

// A card's or a sphere's control points into the sample's point row, one width per control
// point (the primitive's width) and, on the first sample, their count: the same layout as a
// spline's CVs. The hammer factors scale each size about the root: a card's across side by the
// width factor and its along side by the length factor; a sphere's axis by the length factor
// and its handles, about the new midpoint, by the width and depth factors.
void pushControlPoints(Batch& batch, const VrPrimitiveContext& context, int sample, const Hammer& hammer) {
  const std::vector<SgVec3T<double>>& cvs = context.cGeom();
  Batch::Row& points = batch.points[static_cast<size_t>(sample)];
  const SgVec3T<double> root = cvs.empty() ? SgVec3T<double>() : cvs[0];
  if (cvs.size() == VrCardPrimitive::NumControlPoints) {
    const double factors[] = {1.0, hammer.width, hammer.length, hammer.width, hammer.length};
    for (size_t i = 0; i < cvs.size(); ++i) push(points, root + (cvs[i] - root) * factors[i]);
  } else if (cvs.size() == VrSpherePrimitive::NumControlPoints) {
    const SgVec3T<double> mid = (cvs[0] + cvs[1]) * 0.5;
    const SgVec3T<double> tip = root + (cvs[1] - root) * hammer.length;
    const SgVec3T<double> newMid = (root + tip) * 0.5;
    push(points, root);
    push(points, tip);
    push(points, newMid + (cvs[2] - mid) * hammer.width);
    push(points, newMid + (cvs[3] - mid) * hammer.depth);
  } else {
    for (const SgVec3T<double>& cv : cvs) push(points, cv);
  }
  Batch::Row& widths = batch.widths[static_cast<size_t>(sample)];
  widths.insert(widths.end(), cvs.size(), static_cast<float>(context.cWidth() * hammer.width));
  if (sample == 0) ints(batch, I1::CVCount).push_back(static_cast<int>(cvs.size()));
}

// The files under an archive key, full paths joined by ';'; "" for none.
std::string archiveFilesOfKey(const VrArchivePrimitive& archive, int key) {
  const unsigned n = archive.archiveFiles().count(key);
  if (n == 1) return archive.fileNameOfLod(key, 0, true);
  std::string joined;
  for (unsigned i = 0; i < n; ++i) joined += (i ? ";" : "") + archive.fileNameOfLod(key, i, true);
  return joined;
}

// An archive's placement: its position, then the axes its own x, y and z map to (width,
// length and depth over the archive's size), from the four control points of its frame.
void pushArchiveFrame(Batch& batch, const VrPrimitiveContext& context, int sample, const Hammer& hammer,
                      double archiveSize) {
  const std::vector<SgVec3T<double>>& cvs = context.cGeom();
  Batch::Row& points = batch.points[static_cast<size_t>(sample)];
  if (cvs.size() < VrSpherePrimitive::NumControlPoints) {
    for (int k = 0; k < 4; ++k) push(points, SgVec3T<double>());
    return;
  }
  const double scale = archiveSize > 0.0 ? 1.0 / archiveSize : 1.0;
  const SgVec3T<double> mid = (cvs[0] + cvs[1]) * 0.5;
  push(points, cvs[0]);
  push(points, (cvs[2] - mid) * (2.0 * hammer.width * scale));
  push(points, (cvs[1] - cvs[0]) * (hammer.length * scale));
  push(points, (cvs[3] - mid) * (2.0 * hammer.depth * scale));
}

double evalHammer(const std::unique_ptr<VrExpression>& expression, double u, double v, int face,
                  const std::string* patch) {
  return expression ? expression->eval(u, v, face, patch).x : 1.0;
}

// The factor expression of one hammer text, parsed now so that a bad text is reported once, at
// set-up; null for an empty text.
std::unique_ptr<VrExpression> makeHammer(const std::string& text, VrDescription* description) {
  if (text.empty()) return nullptr;
  auto expression = std::make_unique<VrExpression>("hammer", "RendermanRenderer", description, text, "float");
  std::string error;
  expression->isValid(&error);
  return expression;
}

// Floats per value of a custom type word: three for the vector kinds, one otherwise.
unsigned componentsOf(const std::string& type) {
  return type == "vector" || type == "color" || type == "point" || type == "normal" ? 3u : 1u;
}

}  // namespace

Renderer::Renderer(VrDescription* description)
    : VrRenderer(description),
      randInt(new VrExpression("randIntInternal", "RendermanRenderer", description, "rand(0,65535)->ceil()",
                               "float")),
      randFloat(new VrExpression("randFloatInternal", "RendermanRenderer", description, "rand()", "float")) {
  for (const Channel& channel : channels)
    setAttr(channel.attr, channel.flag == Flag::Length ? "true" : "false", "bool");
  setAttr("renderer", "None", "string");
  setAttr("renderMethod", "0", "enum", "RIB:DRA:DSO");
  setAttr("draMode", "0", "enum", "No sharing:Use Color for Shadow:One Color, One Shadow");
  setAttr("primitiveBound", "0.0", "float");
  if (const char* size = std::getenv("VORN_PRIM_CACHE_SIZE")) {
    const int value = std::atoi(size);
    limit = value > 0 ? static_cast<unsigned>(value) : 0u;
  }
}

Renderer::~Renderer() = default;

bool Renderer::setChannelFlag(const std::string& name, const std::string& value) {
  for (const Channel& channel : channels) {
    if (name == channel.attr) {
      bool on = false;
      const bool ok = boolAttr(name, value, on);
      setFlag(channel.flag, on);
      return ok;
    }
  }
  return false;
}

bool Renderer::setAttr(const std::string& name, const std::string& value, const std::string& type,
                       const std::string& enumStrings) {
  // The pseudo attributes set a flag and are not kept as attributes.
  for (const Channel& channel : channels) {
    if (*channel.pseudo && name == channel.pseudo) {
      bool on = false;
      if (!boolAttr(name, value, on)) return false;
      setFlag(channel.flag, on);
      return true;
    }
  }
  if (name == "setCreateRibFile" || name == "reUseDRAs") {
    bool on = false;
    if (!boolAttr(name, value, on)) return false;
    setFlag(name == "reUseDRAs" ? Flag::ReUseDRAs : Flag::CreateRibFile, on);
    return true;
  }
  if (name == "setRibFilename") {
    ribFile = value;
    return true;
  }

  if (VrRenderer::setAttr(name, value, type, enumStrings)) return true;
  if (setChannelFlag(name, value)) return true;
  if (name == "primitiveBound") return floatAttr(name, value, primBound);
  if (name == "renderMethod") {
    if (value == "DRA")
      method = 1;
    else if (value == "DSO")
      method = 2;
    else if (value == "RIB")
      method = 0;
    else
      return intAttr(name, value, method);
    return true;
  }
  return false;
}

void Renderer::initDescription() {
  VrDescription* desc = description();
  VR_DEBUG(2, vrmsg::CatRender, "Renderman Renderer invoked on " + (desc ? desc->name() : std::string()));
  VrRenderer::initDescription();
  const int samples = numSamples();
  if (samples > 1 && static_cast<int>(shutterTimes.size()) != samples)
    VR_ERROR("Shutter times (" + std::to_string(shutterTimes.size()) +
             ") not in agreement with number of samples (" + std::to_string(samples) + ").");
  serialBatch.sizeSamples(static_cast<unsigned>(samples));

  VrPrimitive* primitive = desc ? desc->activePrimitive() : nullptr;
  state.typeName = primitive ? primitive->typeName() : std::string();
  const bool spline = state.typeName == "SplinePrimitive";
  using Kind = BatchState::Kind;
  state.kind = spline                                  ? Kind::Spline
               : state.typeName == "ArchivePrimitive"  ? Kind::Archive
               : state.typeName == "CardPrimitive" || state.typeName == "SpherePrimitive" ? Kind::CardOrSphere
                                                      : Kind::Other;
  setFlag(Flag::IsSpline, spline);
  setFlag(Flag::IsArchive, state.kind == Kind::Archive);
  VR_DEBUG(4, vrmsg::CatRender, "Active primitive is " + state.typeName);
  setFlag(Flag::FaceCamera, false);
  setFlag(Flag::ConstantWidth, false);
  setFlag(Flag::ConstantLength, false);
  if (spline && primitive) {
    auto* splinePrimitive = dynamic_cast<VrSplinePrimitive*>(primitive);
    if (splinePrimitive) setFlag(Flag::FaceCamera, splinePrimitive->faceCamera());
    setFlag(Flag::ConstantWidth, primitive->widthExpr().isConstant());
    setFlag(Flag::ConstantLength, primitive->lengthExpr().isConstant());
    if (flag(Flag::ConstantWidth))
      state.constantWidth = static_cast<float>(primitive->widthExpr().eval(0, 0, 0).x);
  } else if (auto* card = dynamic_cast<VrCardPrimitive*>(primitive)) {
    // How a card turns to the camera is the renderer's to decide; it learns that it should.
    setFlag(Flag::FaceCamera, card->faceCamera());
  }
  describeLodRanges(dynamic_cast<VrArchivePrimitive*>(primitive));

  declareCustomChannels(primitive);
  prepareHammers();
  serialBatch.sizeCustoms(customChannels.size());

  setFlag(Flag::BatchMode, std::getenv("MI_ORLO_BATCH") != nullptr);
  state.primitiveBound = primBound;
  state.batchLimit = limit;
  state.sampleCount = static_cast<unsigned>(samples);
  state.maxBound = maxBound();
}

void Renderer::describeLodRanges(const VrArchivePrimitive* archive) {
  state.numLodRanges = 0;
  for (auto& range : state.lodRanges) range[0] = range[1] = range[2] = 0.0;
  if (!archive) return;
  using Slot = VrArchivePrimitive::Slot;
  for (Slot slot : {Slot::Low, Slot::Medium, Slot::High}) {
    if (!archive->slotEnabled(slot)) continue;
    double* range = state.lodRanges[state.numLodRanges++];
    range[0] = archive->pixelRange(slot).lower;
    range[1] = archive->pixelRange(slot).upper;
    range[2] = slot;
  }
}

void Renderer::emitArchiveChannels(Batch& batch, const VrArchivePrimitive& archive,
                                   const VrPrimitiveContext& context) const {
  using Slot = VrArchivePrimitive::Slot;
  auto& files = batch.strings[static_cast<int>(S1::ArchiveFile)];
  for (int r = 0; r < state.numLodRanges; ++r)
    files.push_back(archiveFilesOfKey(archive, VrArchivePrimitive::slotKey(Slot(int(state.lodRanges[r][2])), context)));
  batch.strings[static_cast<int>(S1::ArchiveProxy)].push_back(
      archiveFilesOfKey(archive, VrArchivePrimitive::slotKey(Slot::Proxy, context)));
  const auto* record = dynamic_cast<const VrArchivePrimitiveContext*>(&context);
  floats(batch, F1::ArchiveFrame).push_back(record ? static_cast<float>(record->archiveFrame) : 0.0f);
  ints(batch, I1::ArchiveGroup).push_back(record ? static_cast<int>(record->group) : 0);
  SgBox3T<double> box;
  const bool hasBox = archive.archiveBox(context, box);
  const SgVec3T<double> low = box.min, high = box.maxCorner();
  const double values[6] = {low.x, high.x, low.y, high.y, low.z, high.z};
  batch.archiveBoxes.insert(batch.archiveBoxes.end(), values, values + 6);
  batch.archiveHasBox.push_back(hasBox ? 1 : 0);
}

void Renderer::prepareHammers() {
  hammerSets.clear();
  hammerSets.resize(static_cast<size_t>(std::max(numSamples(), 1)));
  for (size_t s = 0; s < hammerSets.size(); ++s) {
    VrDescription* desc = descriptionOfSample(description(), static_cast<int>(s));
    if (!desc || !desc->useHammer()) continue;
    HammerSet& set = hammerSets[s];
    set.on = true;
    set.length = makeHammer(desc->lengthHammer(), desc);
    set.width = makeHammer(desc->widthHammer(), desc);
    set.depth = makeHammer(desc->depthHammer(), desc);
    set.taper = makeHammer(desc->taperHammer(), desc);
  }
}

void Renderer::declareCustomChannels(VrPrimitive* primitive) {
  customChannels.clear();
  state.customNames.clear();
  state.customTypes.clear();
  state.customDeclarations.clear();
  auto declare = [&](CustomChannel channel, const std::string& type, const char* rate) {
    state.customNames.push_back(channel.name);
    state.customTypes.push_back(type);
    state.customDeclarations.push_back(rate + type);
    customChannels.push_back(std::move(channel));
  };

  VR_DEBUG(3, vrmsg::CatRender, "Declaring custom parameters.");
  const unsigned customCount = primitive ? static_cast<unsigned>(primitive->customAttrs().size()) : 0u;
  VR_DEBUG(3, vrmsg::CatRender, "Number of custom attributes are " + std::to_string(customCount));
  if (!primitive) return;
  const auto& customs = primitive->customAttrs();
  for (auto it = customs.begin(); it != customs.end(); ++it) {
    VR_DEBUG(3, vrmsg::CatRender, "Checking attribute " + it.key());
    if (!primitive->enabledCustomAttr(it.key())) {
      VR_DEBUG(3, vrmsg::CatRender, "Custom attribute " + it.key() + " is disabled.");
      continue;
    }
    if (!it.value()) continue;
    const std::string type = it.value()->type();
    CustomChannel channel;
    channel.name = it.key();
    channel.expression = it.value();
    channel.isInt = type == "int";
    channel.components = channel.isInt ? 1u : componentsOf(type);
    declare(std::move(channel), type, "uniform ");
  }
  // Per-CV attributes registered on the primitive come after, one float row each.
  const auto& perCV = primitive->cvAttrTypes();
  for (auto it = perCV.begin(); it != perCV.end(); ++it) {
    CustomChannel channel;
    channel.name = it.key();
    channel.perCV = true;
    channel.components = componentsOf(it.value());
    declare(std::move(channel), it.value(), "varying ");
  }
}

void Renderer::emitCustomChannels(Batch& batch, VrPrimitiveContext& context, double u, double v, int face,
                                  const std::string* patchName, size_t cvCount) const {
  batch.sizeCustoms(customChannels.size());
  for (size_t row = 0; row < customChannels.size(); ++row) {
    const CustomChannel& channel = customChannels[row];
    Batch::Row& floatsOut = batch.customFloats[row];
    if (!channel.perCV) {
      const SgVec3T<double> value = channel.expression->eval(u, v, face, patchName);
      if (channel.isInt) {
        batch.customInts[row].push_back(static_cast<int>(value.x));
      } else {
        floatsOut.push_back(static_cast<float>(value.x));
        if (channel.components == 3) {
          floatsOut.push_back(static_cast<float>(value.y));
          floatsOut.push_back(static_cast<float>(value.z));
        }
      }
      continue;
    }
    const std::vector<SgVec3T<double>>* values = context.cvAttr(channel.name);
    if (!values || values->size() != cvCount) {
      // The row keeps one entry per CV: zeros stand in for the skipped values.
      VR_ERROR("CV attribute length doesnt match " + std::string("number of cvs in primitive [") +
               channel.name + ", " + std::to_string(context.id()) + "]");
      floatsOut.insert(floatsOut.end(), cvCount * channel.components, 0.0f);
      continue;
    }
    for (const SgVec3T<double>& value : *values) {
      floatsOut.push_back(static_cast<float>(value.x));
      if (channel.components == 3) {
        floatsOut.push_back(static_cast<float>(value.y));
        floatsOut.push_back(static_cast<float>(value.z));
      }
    }
  }
}

void Renderer::finishDescription() {
  VrDescription* desc = description();
  VR_DEBUG(2, vrmsg::CatRender, "Renderman Renderer finished " + (desc ? desc->name() : std::string()));
  if (method == 1) VR_WARNING(1, "DRA mode Disabled for now.");
  VrRenderer::finishDescription();
}

bool Renderer::beginPatchFace(const std::vector<VrPatch*>& patches, int face) {
  const bool go = VrRenderer::beginPatchFace(patches, face);
  serialBatch.count = 0;
  serialPatch = patches.empty() || !patches[0] ? std::string() : patches[0]->name();
  return go;
}

void Renderer::endPatchFace(const std::vector<VrPatch*>& patches, int face) {
  if (serialBatch.count > 0) flushBatch(serialBatch, callbackObject, serialPatch);
  VrRenderer::endPatchFace(patches, face);
}

void Renderer::emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) {
  VrDescription* desc = descriptionOfSample(description(), sample);
  VrPrimitive* primitive = desc ? desc->activePrimitive() : nullptr;
  VrPrimitive* first = description() ? description()->activePrimitive() : nullptr;
  if (!primitive || !first) return;
  if (!emitInto(serialBatch, primitive->context(), first->context(), sample, u, v, face, patches)) return;
  incrEmitCount();
  if (limit != 0 && serialBatch.count >= limit) {
    VR_DEBUG(5, vrmsg::CatRender, "Cache limit exceeded. Emitted " + std::to_string(serialBatch.count));
    flushBatch(serialBatch, callbackObject, serialPatch);
  }
}

bool Renderer::emitInto(Batch& batch, VrPrimitiveContext& context, VrPrimitiveContext& first, int sample,
                        double u, double v, int face, const std::vector<VrPatch*>& patches) {
  VR_DEBUG(5, vrmsg::CatRender,
           "Emitting primitive: " + std::to_string(first.id()) + " for sample: " + std::to_string(sample));
  VrDescription* desc = descriptionOfSample(description(), sample);
  VrPrimitive* primitive = desc ? desc->activePrimitive() : nullptr;
  if (!primitive) return false;
  const VrPatch* patch =
      static_cast<size_t>(sample) < patches.size() ? patches[static_cast<size_t>(sample)] : nullptr;
  const std::string* patchName = patch ? &patch->name() : nullptr;

  Hammer hammer;
  if (static_cast<size_t>(sample) < hammerSets.size() && hammerSets[static_cast<size_t>(sample)].on) {
    const HammerSet& set = hammerSets[static_cast<size_t>(sample)];
    hammer.length = evalHammer(set.length, u, v, face, patchName);
    hammer.width = evalHammer(set.width, u, v, face, patchName);
    hammer.depth = evalHammer(set.depth, u, v, face, patchName);
    hammer.taper = evalHammer(set.taper, u, v, face, patchName);
  }
  VR_DEBUG(5, vrmsg::CatRender,
           "Hammer Values: width " + number(hammer.width) + " length " + number(hammer.length) + " depth " +
               number(hammer.depth) + " taper " + number(hammer.taper));

  batch.sizeSamples(static_cast<unsigned>(sample + 1));
  Batch::Row& points = batch.points[static_cast<size_t>(sample)];
  const std::vector<SgVec3T<double>>& cvs = context.cGeom();
  if (state.kind == BatchState::Kind::Spline) {
    const SgVec3T<double> root = cvs.empty() ? SgVec3T<double>() : cvs[0];
    // Rows grow by a whole primitive at a time and are written through a pointer.
    float* point = grow(points, 3 * cvs.size());
    for (const SgVec3T<double>& cv : cvs) point = put(point, root + (cv - root) * hammer.length);
    // The widths are worked out in the row itself, then scaled there by a width hammer if any.
    float* width = grow(batch.widths[static_cast<size_t>(sample)], cvs.size());
    auto* spline = vrExactCast<VrSplinePrimitive>(primitive);
    auto* splineContext = vrExactCast<VrSplinePrimitiveContext>(&context);
    if (spline && splineContext) {
      spline->calcCVWidths(*splineContext, width, cvs.size());
    } else {
      std::fill_n(width, cvs.size(), static_cast<float>(context.cWidth()));
    }
    if (hammer.width != 1.0)
      for (size_t i = 0; i < cvs.size(); ++i) width[i] = static_cast<float>(width[i] * hammer.width);
    if (splineContext && !flag(Flag::FaceCamera)) {
      // Ribbons: the normal of each CV is square to its segment and to the sideways direction.
      const SgVec3T<double>& sideways = splineContext->widthVec();
      float* normal = grow(batch.normals[static_cast<size_t>(sample)], 3 * cvs.size());
      for (size_t i = 0; i < cvs.size(); ++i) {
        const SgVec3T<double> t =
            i + 1 < cvs.size() ? cvs[i + 1] - cvs[i] : (i > 0 ? cvs[i] - cvs[i - 1] : SgVec3T<double>());
        SgVec3T<double> n = t.cross(sideways);
        n.normalize();
        normal = put(normal, n);
      }
    }
    if (sample == 0) ints(batch, I1::CVCount).push_back(static_cast<int>(cvs.size()));
  } else if (state.kind == BatchState::Kind::CardOrSphere) {
    pushControlPoints(batch, context, sample, hammer);
  } else if (state.kind == BatchState::Kind::Archive) {
    const auto* archive = dynamic_cast<const VrArchivePrimitive*>(primitive);
    pushArchiveFrame(batch, context, sample, hammer, archive ? archive->archiveSize() : 1.0);
    if (sample == 0 && archive) emitArchiveChannels(batch, *archive, context);
  }

  if (flag(Flag::ConstantWidth))
    VR_DEBUG(5, vrmsg::CatRender, "Pushing constantwidth: " + number(state.constantWidth * hammer.width));

  if (sample == 0) {
    struct Surface {
      Flag flag;
      V3 key;
      const SgVec3T<double>& (VrBasePrimitiveContext::*get)(double, double, bool);
      bool ref;
    };
    static constexpr Surface surfaces[] = {
        {Flag::P, V3::P, &VrBasePrimitiveContext::cP, false},
        {Flag::Pref, V3::Pref, &VrBasePrimitiveContext::cP, true},
        {Flag::Pg, V3::Pg, &VrBasePrimitiveContext::cPg, false},
        {Flag::Prefg, V3::Prefg, &VrBasePrimitiveContext::cPg, true},
        {Flag::N, V3::N, &VrBasePrimitiveContext::cN, false},
        {Flag::Nref, V3::Nref, &VrBasePrimitiveContext::cN, true},
        {Flag::Ng, V3::Ng, &VrBasePrimitiveContext::cNg, false},
        {Flag::Nrefg, V3::Nrefg, &VrBasePrimitiveContext::cNg, true},
        {Flag::DPdu, V3::DPdu, &VrBasePrimitiveContext::cdPdu, false},
        {Flag::DPduref, V3::DPduref, &VrBasePrimitiveContext::cdPdu, true},
        {Flag::DPdug, V3::DPdug, &VrBasePrimitiveContext::cdPdug, false},
        {Flag::DPdurefg, V3::DPdurefg, &VrBasePrimitiveContext::cdPdug, true},
        {Flag::DPdv, V3::DPdv, &VrBasePrimitiveContext::cdPdv, false},
        {Flag::DPdvref, V3::DPdvref, &VrBasePrimitiveContext::cdPdv, true},
        {Flag::DPdvg, V3::DPdvg, &VrBasePrimitiveContext::cdPdvg, false},
        {Flag::DPdvrefg, V3::DPdvrefg, &VrBasePrimitiveContext::cdPdvg, true},
    };
    // Most renders ask for none of them: one test for all.
    static constexpr uint64_t anySurface = [] {
      uint64_t bits = 0;
      for (const Surface& s : surfaces) bits |= uint64_t(1) << static_cast<int>(s.flag);
      return bits;
    }();
    if (flagBits & anySurface)
      for (const Surface& s : surfaces)
        if (flag(s.flag)) push(vec3(batch, s.key), (context.*s.get)(u, v, s.ref));
    if (flag(Flag::PrimitiveId)) ints(batch, I1::PrimitiveId).push_back(static_cast<int>(context.id()));
    if (flag(Flag::DescriptionId))
      ints(batch, I1::DescriptionId).push_back(static_cast<int>(desc->descriptionId()));
    if (flag(Flag::RandomInt))
      ints(batch, I1::RandomInt).push_back(static_cast<int>(randInt->eval(u, v, face, patchName).x));
    if (flag(Flag::RandomFloat))
      floats(batch, F1::RandomFloat).push_back(static_cast<float>(randFloat->eval(u, v, face, patchName).x));
    if (flag(Flag::U)) floats(batch, F1::U).push_back(static_cast<float>(u));
    if (flag(Flag::V)) floats(batch, F1::V).push_back(static_cast<float>(v));
    if (flag(Flag::FaceId)) ints(batch, I1::FaceId).push_back(face);
    if (flag(Flag::GeomId)) ints(batch, I1::GeomId).push_back(patch ? static_cast<int>(patch->index()) : 0);
    if (flag(Flag::GeomName))
      batch.strings[static_cast<int>(S1::GeomName)].push_back(patch ? patch->name() : std::string());
    if (flag(Flag::T)) {
      SgVec3T<double> t = cvs.size() > 1 ? cvs[1] - cvs[0] : context.cN(u, v, false);
      t.normalize();
      push(vec3(batch, V3::T), t);
    }
    if (flag(Flag::Stray))
      floats(batch, F1::Stray)
          .push_back(static_cast<float>(desc->strayInternal().eval(u, v, face, patchName).x));
    if (flag(Flag::Length))
      floats(batch, F1::Length).push_back(static_cast<float>(context.cLength() * hammer.length));
    if (flag(Flag::Width))
      floats(batch, F1::Width).push_back(static_cast<float>(context.cWidth() * hammer.width));
    if (flag(Flag::ConstantWidth))
      floats(batch, F1::ConstantWidth).push_back(static_cast<float>(state.constantWidth * hammer.width));
    if (!customChannels.empty()) emitCustomChannels(batch, context, u, v, face, patchName, cvs.size());
  }

  if (sample != numSamples() - 1) return false;
  ++batch.count;
  return true;
}

void Renderer::flushBatch(Batch& batch, ProceduralCallbacks* callbacks, const std::string& patchName) const {
  const size_t colon = patchName.rfind(':');
  const std::string name = colon == std::string::npos ? patchName : patchName.substr(colon + 1);
  if (callbacks) {
    BatchView cache(batch, state, maxBound());
    callbacks->flush(name.c_str(), &cache);
  }
  batch.clear();
}

// ---------------------------------------------------------------------------------------------
// Renderer2

std::unique_ptr<VrRendererContext> Renderer2::newRendererContext() const {
  auto context = std::make_unique<Context>();
  context->renderer = const_cast<Renderer2*>(this);
  context->callbacks = callbacks();
  context->batch.sizeSamples(static_cast<unsigned>(numSamples()));
  context->batch.sizeCustoms(customChannelCount());
  return context;
}

bool Renderer2::beginPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                         int face) {
  const bool go = VrRenderer::beginPatchFaceInParallel(context, patches, face);
  if (auto* record = vrExactCast<Context>(context.rendererContext())) {
    record->batch.count = 0;
    record->patchName = patches.empty() || !patches[0] ? std::string() : patches[0]->name();
  }
  return go;
}

void Renderer2::endPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                       int face) {
  if (auto* record = vrExactCast<Context>(context.rendererContext()))
    if (record->batch.count > 0) flushBatch(record->batch, record->callbacks, record->patchName);
  VrRenderer::endPatchFaceInParallel(context, patches, face);
}

void Renderer2::emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                                        const std::vector<VrPatch*>& patches) {
  auto* record = vrExactCast<Context>(context.rendererContext());
  if (!record) return;
  VrPrimitiveContext* own = sample == 0 ? &context : context.sample(static_cast<unsigned>(sample - 1));
  if (!own) return;
  if (!emitInto(record->batch, *own, context, sample, u, v, face, patches)) return;
  record->incrEmitCount();
  if (batchLimit() != 0 && record->batch.count >= batchLimit()) {
    VR_DEBUG(5, vrmsg::CatRender, "Cache limit exceeded. Emitted " + std::to_string(record->batch.count));
    flushBatch(record->batch, record->callbacks, record->patchName);
  }
}

}  // namespace VornRenderAPI
