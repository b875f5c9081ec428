// The noise module. Per spline of n CVs, with the mask m, the root's rest position R and the
// spread s = 100 (1 - correlation/100)^2:
//
//   X = (R + (0.419276, 0.184247, 0.805721)) s        noise point of the spline
//   e = d g      d: polygon length up to CV i, g = max(frequency, 0.5 / total length)
//   w = m magnitude magnitudeScale(i/(n-1))
//   P[i] += side (noise(X + (e,0,0)) - 0.5) w + across (noise(X + (0,e,0)) - 0.5) w
//         + along (noise(X + (0,0,e)) - 0.5) w
//
// `noise` lies in [0, 1], so each component stays within 0.5 w. The rest position keeps the
// pattern still while the surface moves, across frames and motion samples.
//
// A bake stores the three displacements of each CV as floats, and baked noise applies them in
// the frame of the spline being rendered, so live and baked noise agree to float rounding.

#include "fxmodules/VrNoiseFXModule.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "expressions/VrSeExprMath.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"

#include <algorithm>

namespace {
using Vec = SgVec3T<double>;
constexpr double LengthEpsilon = 0.001;
}  // namespace

VrNoiseFXModule::VrNoiseFXModule(VrDescription* description)
    : VrFXModule(description),
      frequency("frequency", "NoiseFXModule", description, "1.0"),
      magnitude("magnitude", "NoiseFXModule", description, "1.0"),
      correlation("correlation", "NoiseFXModule", description, "0.0"),
      preserveLength("preserveLength", "NoiseFXModule", description, "0.0"),
      magnitudeScale("rampUI(0,0,1:1,1,1)") {
  setAttr("name", "Noise", "string");
  setAttr("active", "true", "bool");
  setAttr("mask", "1.0", "expr");
  setAttr("frequency", "1.0", "expr");
  setAttr("magnitude", "1.0", "expr");
  setAttr("magnitudeScale", "rampUI(0,0,1:1,1,1)", "rampUI");
  setAttr("correlation", "0.0", "expr");
  setAttr("preserveLength", "0.0", "expr");
  setAttr("mode", "0", "enum", "Live Noise:Use Baked Noise");
  setAttr("bakeDir", "${DESC}/${FXMODULE}/", "string");
}

bool VrNoiseFXModule::setAttr(const std::string& name, const std::string& value, const std::string& type,
                              const std::string& enumStrings) {
  if (VrFXModule::setAttr(name, value, type, enumStrings)) return true;
  for (VrFXExprAttr* e : {&frequency, &magnitude, &correlation, &preserveLength})
    if (name == e->name()) {
      e->set(value);
      return true;
    }
  if (name == "magnitudeScale") return rampAttr(name, value, magnitudeScale);
  if (name == "mode") return intAttr(name, value, noiseMode);
  if (name == "bakeDir") {
    bakeDir = value;
    return true;
  }
  return false;
}

void VrNoiseFXModule::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrFXModule::getExternalContext(pairs, prefix);
  for (const VrFXExprAttr* e : {&frequency, &magnitude, &correlation, &preserveLength})
    e->expr.getExternalContext(pairs, prefix + e->name());
}

std::string VrNoiseFXModule::bakeFileName(const VrPatch& patch) const {
  return bakeDir + vrutil::stripNameSpace(patch.name()) + ".vpd";
}

unsigned VrNoiseFXModule::recordCVCount() const {
  // The header holds the count in one byte.
  return std::min(primitive() ? primitive()->maximumCVCount() : 0u, 255u);
}

void VrNoiseFXModule::initDescription(VrPrimitive* owner) {
  VrFXModule::initDescription(owner);
  bakeFiles.close();
  VrDescription* desc = description();
  if (!isActive() || !owner || !desc) return;
  for (const auto& entry : desc->patches()) {
    if (!entry.second) continue;
    if (noiseMode == 1)
      bakeFiles.openForReading(*this, *entry.second, bakeFileName(*entry.second), recordCVCount());
    else if (bakeOn)
      bakeFiles.createForWriting(*this, *entry.second, bakeFileName(*entry.second), recordCVCount());
  }
}

void VrNoiseFXModule::finishDescription() {
  bakeFiles.close();
  VrFXModule::finishDescription();
}

void VrNoiseFXModule::beginPatchFace(VrPrimitiveContext& context, const VrPatch* patch, int face) {
  auto* state = static_cast<VrNoiseFXModuleContext*>(context.fxModuleContext(this));
  if (!state) {
    context.addModuleContext(this, createModuleContext());
    state = static_cast<VrNoiseFXModuleContext*>(context.fxModuleContext(this));
  }
  bakeFiles.beginFace(state->bake, patch, face);
}

void VrNoiseFXModule::endPatchFace(VrPrimitiveContext& context, const VrPatch*, int) {
  if (auto* state = static_cast<VrNoiseFXModuleContext*>(context.fxModuleContext(this))) state->bake.reset();
}

bool VrNoiseFXModule::readDisplacements(VrNoiseFXModuleContext& state, unsigned id, size_t n) const {
  const VrFXBakeFiles::Read result = bakeFiles.read(state.bake, id, state.record);
  if (result == VrFXBakeFiles::Read::Missing) {
    const VrDescription* desc = description();
    VR_DEBUG(3, vrmsg::CatFXModule,
             "Primitive " + std::to_string(id) + " on face " + std::to_string(state.bake.face) +
                 " is not in VPD file " + state.bake.readerPath +
                 ". Must be previously culled. Ignored in bake mode for previewing. [" +
                 (desc ? desc->name() : std::string()) + "," + name() + "]");
  }
  if (result != VrFXBakeFiles::Read::Found) return false;
  if (state.record.size() != 3 * (n - 1) + 1 || state.record[0] != static_cast<float>(n)) {
    VrFXBakeFiles::reportUnreadable(state.bake);
    return false;
  }
  return true;
}

bool VrNoiseFXModule::computeParallel(VrPrimitiveContext& context) {
  std::vector<Vec>& P = context.getGeom();
  const size_t n = P.size();
  if (n < 2) return true;
  const double m = maskValue(context);
  if (m < MaskEpsilon) return true;
  auto* state = static_cast<VrNoiseFXModuleContext*>(context.fxModuleContext(this));
  if (!state) {
    context.addModuleContext(this, createModuleContext());
    state = static_cast<VrNoiseFXModuleContext*>(context.fxModuleContext(this));
  }
  if (state->sampledFor != n) {
    magnitudeScale.sample(static_cast<unsigned>(n), state->magnitudeScale);
    state->sampledFor = static_cast<unsigned>(n);
  }

  const VrFXLocation where(context);
  const double f = std::max(frequency.at(where), 0.0);
  double a = magnitude.usesT ? 0.0 : std::max(magnitude.at(where), 0.0);
  const double q = std::clamp(correlation.at(where) / 100.0, 0.0, 1.0);
  const double s = (1.0 - q) * (1.0 - q) * 100.0;
  const double k = std::clamp(std::max(preserveLength.at(where), 0.0) / 100.0, 0.0, 1.0);
  const double target = k > LengthEpsilon ? context.cLength() : 0.0;

  VrFXCurveFrame& frame = state->frame;
  if (!frame.build(P, context.cN(where.u, where.v, false), context.cU(where.u, where.v, false))) return true;
  const Vec root = context.cPg(where.u, where.v, true);
  const double X = (root.x + 0.419276) * s, Y = (root.y + 0.184247) * s, Z = (root.z + 0.805721) * s;
  const double g = std::max(f, 0.5 / frame.length);
  const double h = 1.0 / static_cast<double>(n - 1);

  // A spline of a face being rendered takes the bake's displacements; any other (a clump
  // guide, say) gets live noise.
  const bool onFace = state->bake.face == context.cFaceId() && state->bake.patch == context.cPatch();
  if (noiseMode == 1 && onFace) {
    if (!readDisplacements(*state, context.id(), n)) return true;
    for (size_t i = 1; i < n; ++i) {
      const float* d = &state->record[1 + 3 * (i - 1)];
      P[i] += frame.side[i] * static_cast<double>(d[0]) + frame.across[i] * static_cast<double>(d[1]) +
              frame.along(i) * static_cast<double>(d[2]);
    }
  } else {
    const bool writing = onFace && state->bake.writing();
    if (writing) {
      state->record.assign(1, static_cast<float>(n));
      state->record.reserve(3 * (n - 1) + 1);
    }
    double d = 0.0;
    for (size_t i = 1; i < n; ++i) {
      d += frame.steps[i - 1];
      if (magnitude.usesT) {
        VrExpression::setThreadVariable(vrFXTVariable(), static_cast<double>(i) * h);  // no lock per CV
        a = std::max(magnitude.at(where), 0.0);
      }
      const double w = m * state->magnitudeScale[i] * a;
      const double e = d * g;
      const double d1 = (vrSeNoise3(X, Y, Z + e) - 0.5) * w;
      const double d2 = (vrSeNoise3(X, Y + e, Z) - 0.5) * w;
      const double d3 = (vrSeNoise3(X + e, Y, Z) - 0.5) * w;
      if (writing) state->record.insert(state->record.end(), {static_cast<float>(d3), static_cast<float>(d2),
                                                              static_cast<float>(d1)});
      P[i] += frame.side[i] * d3 + frame.across[i] * d2 + frame.along(i) * d1;
    }
    if (magnitude.usesT) VrExpression::removeThreadVariable(vrFXTVariable());
    if (writing) bakeFiles.write(state->bake, context.id(), state->record);
  }

  if (k > LengthEpsilon) {
    const double current = SgCurve::length(P);
    SgCurve::setLength(P, target * k + current * (1.0 - k), current);
  }
  return true;
}
