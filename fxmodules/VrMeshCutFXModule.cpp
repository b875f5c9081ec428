// The mesh cut module. A live cut finds the first meeting on the polyline through the spline's
// samples, measures the length along that polyline up to it, takes `offset` off, and cuts the
// spline to that length; the parameter the cut lands on is what a bake keeps, split over three
// floats that add up to the double, so that a baked cut repeats the live one exactly.

#include "fxmodules/VrMeshCutFXModule.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "fxmodules/VrCutFXModule.h"
#include "fxmodules/VrFXCollisionMesh.h"
#include "geometry/SgCurve.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"

#include <algorithm>

namespace {

using Vec = SgVec3T<double>;
constexpr double LengthEpsilon = 0.0001;
constexpr double NoCut = 2.0;
constexpr double CullCut = -1.0;

}  // namespace

VrMeshCutFXModuleContext::VrMeshCutFXModuleContext() = default;
VrMeshCutFXModuleContext::~VrMeshCutFXModuleContext() = default;

std::unique_ptr<VrFXModuleContext> VrMeshCutFXModuleContext::clone() const {
  auto copy = std::make_unique<VrMeshCutFXModuleContext>();
  copy->samples = samples;
  return copy;
}

VrMeshCutFXModule::VrMeshCutFXModule(VrDescription* description)
    : VrFXModule(description), offset("offset", "MeshCutFXModule", description, "0.0") {
  setAttr("name", "MeshCut", "string");
  setAttr("active", "true", "bool");
  setAttr("mask", "1.0", "expr");
  setAttr("meshFile", "${DESC}/${FXMODULE}/mesh.abc", "string");
  setAttr("testsPerPrim", "10", "int");
  setAttr("offset", "0.0", "expr");
  setAttr("cutType", "0", "enum", "Keep Param:Reparam:Cull");
  setAttr("mode", "0", "enum", "Live Cut:Use Baked Cut");
  setAttr("bakeDir", "${DESC}/${FXMODULE}/", "string");
}

bool VrMeshCutFXModule::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                const std::string& enumStrings) {
  if (VrFXModule::setAttr(name, value, type, enumStrings)) return true;
  if (name == "meshFile") {
    meshFile = value;
    return true;
  }
  if (name == "bakeDir") {
    bakeDir = value;
    return true;
  }
  if (name == "offset") {
    offset.set(value);
    return true;
  }
  if (name == "testsPerPrim") return intAttr(name, value, testsPerPrim);
  if (name == "cutType") return intAttr(name, value, cutType);
  if (name == "mode") return intAttr(name, value, mode);
  return false;
}

void VrMeshCutFXModule::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrFXModule::getExternalContext(pairs, prefix);
  offset.expr.getExternalContext(pairs, prefix + "offset");
}

std::unique_ptr<VrFXModuleContext> VrMeshCutFXModule::createModuleContext() const {
  return std::make_unique<VrMeshCutFXModuleContext>();
}

void VrMeshCutFXModule::initDescription(VrPrimitive* owner) {
  VrFXModule::initDescription(owner);
  tree.reset();
  bakeFiles.close();
  VrDescription* desc = description();
  if (!isActive() || !desc) return;
  if (!usesBakedCut()) tree = VrLoadCollisionMesh(*this, meshFile);
  // Without its mesh a live pass cuts nothing, and must not replace a bake with that.
  const bool writing = tree && bakeOn;
  for (const auto& entry : desc->patches()) {
    if (!entry.second) continue;
    const unsigned cvCount = owner ? owner->maximumCVCount() : 0u;
    if (usesBakedCut())
      bakeFiles.openForReading(*this, *entry.second, bakeFile(*entry.second), cvCount);
    else if (writing)
      bakeFiles.createForWriting(*this, *entry.second, bakeFile(*entry.second), cvCount);
  }
}

void VrMeshCutFXModule::finishDescription() {
  tree.reset();
  bakeFiles.close();
}

std::string VrMeshCutFXModule::bakeFile(const VrPatch& patch) const {
  return bakeDir + vrutil::stripNameSpace(patch.name()) + ".vpd";
}

void VrMeshCutFXModule::beginPatchFace(VrPrimitiveContext& context, const VrPatch* patch, int face) {
  auto* state = static_cast<VrMeshCutFXModuleContext*>(context.fxModuleContext(this));
  if (!state) {
    context.addModuleContext(this, createModuleContext());
    state = static_cast<VrMeshCutFXModuleContext*>(context.fxModuleContext(this));
  }
  bakeFiles.beginFace(state->bake, patch, face);
}

void VrMeshCutFXModule::endPatchFace(VrPrimitiveContext& context, const VrPatch*, int) {
  if (auto* state = static_cast<VrMeshCutFXModuleContext*>(context.fxModuleContext(this))) state->bake.reset();
}

bool VrMeshCutFXModule::computeParallel(VrPrimitiveContext& context) {
  std::vector<Vec>& P = context.getGeom();
  if (P.size() < 2) return true;
  if (!usesBakedCut() && !tree) return true;
  if (maskValue(context) < MaskEpsilon) return true;
  auto* state = static_cast<VrMeshCutFXModuleContext*>(context.fxModuleContext(this));
  if (!state) {
    context.addModuleContext(this, createModuleContext());
    state = static_cast<VrMeshCutFXModuleContext*>(context.fxModuleContext(this));
  }
  const double t = usesBakedCut() ? bakedCut(context, *state) : liveCut(context, *state);
  if (t <= 1.0) applyCut(context, *state, t);
  return true;
}

double VrMeshCutFXModule::bakedCut(VrPrimitiveContext& context, VrMeshCutFXModuleContext& state) const {
  // Splines of other faces (clump guides, say) and splines the bake does not hold stay whole.
  if (state.bake.face != context.cFaceId() || state.bake.patch != context.cPatch()) return NoCut;
  if (bakeFiles.read(state.bake, context.id(), state.record) != VrFXBakeFiles::Read::Found) return NoCut;
  if (state.record.size() != 3) {
    VrFXBakeFiles::reportUnreadable(state.bake);
    return NoCut;
  }
  if (state.record[0] < 0.0f) return CullCut;
  return static_cast<double>(state.record[0]) + static_cast<double>(state.record[1]) +
         static_cast<double>(state.record[2]);
}

double VrMeshCutFXModule::liveCut(VrPrimitiveContext& context, VrMeshCutFXModuleContext& state) const {
  const std::vector<Vec>& P = context.getGeom();
  const int tests = std::max(testsPerPrim, 1);
  std::vector<Vec>& samples = state.samples;
  samples.resize(static_cast<size_t>(tests) + 1);
  for (int k = 0; k <= tests; ++k) SgCurve::eval(P, static_cast<double>(k) / tests, samples[static_cast<size_t>(k)]);
  TzFirstSegmentIntersection hit;
  if (!TzSegmentMeshIntersector(*tree).first(samples, hit)) return NoCut;
  if (cutType == Cull) return CullCut;
  double reach = 0.0;
  for (int k = 0; k < hit.segment; ++k) reach += (samples[static_cast<size_t>(k) + 1] - samples[static_cast<size_t>(k)]).length();
  reach += hit.t * (samples[static_cast<size_t>(hit.segment) + 1] - samples[static_cast<size_t>(hit.segment)]).length();
  const double keep = reach - offset.at(VrFXLocation(context));
  if (keep < LengthEpsilon) return CullCut;
  state.probe = P;  // only the parameter is wanted here; `applyCut` cuts
  return std::min(SgCurve::cutToLength(state.probe, keep, false), 1.0);
}

void VrMeshCutFXModule::applyCut(VrPrimitiveContext& context, VrMeshCutFXModuleContext& state, double t) const {
  if (state.bake.writing() && state.bake.face == context.cFaceId() && state.bake.patch == context.cPatch()) {
    // Three floats carry the 53 bits of the double: each takes what the ones before left over.
    const double cut = t < 0.0 ? CullCut : t;
    const float high = static_cast<float>(cut);
    const double rest = cut - static_cast<double>(high);
    const float middle = static_cast<float>(rest);
    state.record.assign({high, middle, static_cast<float>(rest - static_cast<double>(middle))});
    bakeFiles.write(state.bake, context.id(), state.record);
  }
  if (t < 0.0) {
    context.setCullPrim(true);
    return;
  }
  const bool resample = cutType == Reparam;
  SgCurve::cut(context.getGeom(), t, resample);
  VrCutFXModule::cutPointAttrs(primitive(), context, t, resample);
  context.dirtyCLength();
}
