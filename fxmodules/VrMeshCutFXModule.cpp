// The mesh cut module. A live cut finds the first meeting on the polyline through the spline's
// samples, measures the length along that polyline up to it, takes `offset` off, and cuts the
// spline to that length; the parameter the cut lands on is what a bake keeps, so that a baked
// cut repeats the live one exactly.

#include "fxmodules/VrMeshCutFXModule.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "document/vrutilFiles.h"
#include "fxmodules/VrCutFXModule.h"
#include "fxmodules/VrFXCollisionMesh.h"
#include "geometry/SgCurve.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitiveContext.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

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
  setAttr("writeBake", "false", "bool");
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
  if (name == "writeBake") return boolAttr(name, value, writeBake);
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
  if (!isActive() || usesBakedCut()) return;
  tree = VrLoadCollisionMesh(*this, meshFile);
}

void VrMeshCutFXModule::finishDescription() { tree.reset(); }

std::string VrMeshCutFXModule::bakeFile(const VrPatch* patch, int face) const {
  char tail[32];
  std::snprintf(tail, sizeof tail, "/face%05d.cut", face);
  std::string dir = bakeDir;
  if (!dir.empty() && dir.back() != '/') dir += '/';
  return dir + (patch ? vrutil::stripNameSpace(patch->name()) : std::string()) + tail;
}

void VrMeshCutFXModule::beginPatchFace(VrPrimitiveContext& context, const VrPatch* patch, int face) {
  auto* state = static_cast<VrMeshCutFXModuleContext*>(context.fxModuleContext(this));
  if (!state) return;
  state->bakedCuts.clear();
  if (usesBakedCut()) {
    std::string path;
    if (!vrutil::findFileInVrDataPath(path, bakeFile(patch, face), "", description(), name(), true)) {
      VR_WARNING(2, "No baked cuts found for face " + std::to_string(face) + " of " +
                        (patch ? patch->name() : std::string()) + ". The face is not cut. " + messageTag());
      return;
    }
    std::ifstream in(path);
    unsigned id = 0;
    std::string value;
    while (in >> id >> value) {
      char* end = nullptr;
      const double t = value == "cull" ? CullCut : std::strtod(value.c_str(), &end);
      if (value != "cull" && (!end || *end != '\0')) {
        VR_WARNING(2, "Unreadable cut in " + path + ": " + value);
        continue;
      }
      state->bakedCuts[id] = t;
    }
    return;
  }
  if (writeBake && tree) state->bake.open(*this, bakeFile(patch, face));
}

void VrMeshCutFXModule::endPatchFace(VrPrimitiveContext& context, const VrPatch*, int) {
  auto* state = static_cast<VrMeshCutFXModuleContext*>(context.fxModuleContext(this));
  if (!state) return;
  state->bakedCuts.clear();
  state->bake.commit();
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
  double t = NoCut;
  if (usesBakedCut()) {
    auto found = state->bakedCuts.find(context.id());
    if (found != state->bakedCuts.end()) t = found->second;
  } else {
    t = liveCut(context, *state);
  }
  if (t <= 1.0) applyCut(context, *state, t);
  return true;
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
  if (state.bake.isOpen()) {
    char line[64];
    if (t < 0.0)
      std::snprintf(line, sizeof line, "%u cull\n", context.id());
    else
      std::snprintf(line, sizeof line, "%u %.17g\n", context.id(), t);
    state.bake.out() << line;
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
