#include "renderers/VrParticleRenderer.h"

#include "base/VrMessage.h"
#include "document/vrutilFiles.h"

namespace {

struct Channel {
  const char* name;
  VrParticleType type;
  int count;
};

// In creation order; writeInstance fills them by these indices.
constexpr Channel channels[] = {
    {"position", VrParticleType::Vector, 3}, {"aim_VP", VrParticleType::Vector, 3},
    {"up_VP", VrParticleType::Vector, 3},    {"scale", VrParticleType::Vector, 3},
    {"id_VP", VrParticleType::Int, 1},       {"descid_VP", VrParticleType::Int, 1},
    {"ri_VP", VrParticleType::Int, 1},       {"rf_VP", VrParticleType::Float, 1},
    {"index_VP", VrParticleType::Int, 1},    {"u_VS", VrParticleType::Float, 1},
    {"v_VS", VrParticleType::Float, 1},      {"faceid_VS", VrParticleType::Int, 1},
    {"geomid_VS", VrParticleType::Int, 1}};
enum ChannelIndex { Position, Aim, Up, Scale, Id, DescId, RandInt, RandFloat, Index, U, V, FaceId, GeomId };

void setVector(VrParticleSet& set, int channel, size_t particle, const SgVec3T<double>& value) {
  float* out = set.floats(channel, particle);
  out[0] = static_cast<float>(value.x);
  out[1] = static_cast<float>(value.y);
  out[2] = static_cast<float>(value.z);
}

}  // namespace

VrParticleRenderer::VrParticleRenderer(VrDescription* description)
    : VrInstanceRenderer(description, "ParticleRenderer"),
      maskExpression("mask", "ParticleRenderer", description, "0.0", "float") {
  setAttr("mask", "0.0", "expr");
  setAttr("particleFile", "${DESC}/particles.pdb", "string");
}

bool VrParticleRenderer::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                 const std::string& enumStrings) {
  if (VrInstanceRenderer::setAttr(name, value, type, enumStrings)) return true;
  if (name == "mask") {
    maskExpression.setExpression(value);
    return true;
  }
  if (name == "particleFile") {
    fileName = value;
    return true;
  }
  return false;
}

void VrParticleRenderer::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrInstanceRenderer::getExternalContext(pairs, prefix);
  maskExpression.getExternalContext(pairs, prefix + "particleRenderer.mask");
}

void VrParticleRenderer::initDescription() {
  VrInstanceRenderer::initDescription();
  set = VrParticleSet();
  for (const Channel& channel : channels) set.addAttribute(channel.name, channel.type, channel.count);
}

bool VrParticleRenderer::keeps(double u, double v, int face, const std::string* patchName) {
  return maskExpression.eval(u, v, face, patchName).x >= 0.0001;
}

bool VrParticleRenderer::writeInstance(const VrInstanceRecord& record) {
  const size_t p = set.addParticle();
  setVector(set, Position, p, record.position);
  setVector(set, Aim, p, record.aim);
  setVector(set, Up, p, record.up);
  setVector(set, Scale, p, record.scale);
  *set.ints(Id, p) = static_cast<int32_t>(record.id);
  *set.ints(DescId, p) = static_cast<int32_t>(record.descId);
  *set.ints(RandInt, p) = static_cast<int32_t>(record.randInt);
  *set.floats(RandFloat, p) = static_cast<float>(record.randFloat);
  *set.ints(Index, p) = record.archiveIndex;
  *set.floats(U, p) = static_cast<float>(record.u);
  *set.floats(V, p) = static_cast<float>(record.v);
  *set.ints(FaceId, p) = record.faceId;
  *set.ints(GeomId, p) = static_cast<int32_t>(record.geomId);
  return true;
}

void VrParticleRenderer::finishDescription() {
  std::string path = fileName;
  if (!failed() && vrutil::expandOutputFileName(path, "", description(), "", true)) {
    std::string error;
    if (!VrWriteParticles(path, set, &error)) VR_ERROR("Failed to write particle file: " + path + " (" + error + ")");
  }
  set = VrParticleSet();
  VrInstanceRenderer::finishDescription();
}
