#include "renderers/VrParticleRenderer.h"

#include "base/VrMessage.h"
#include "document/vrutilFiles.h"
#include "io/output/VrParticleOutput.h"

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
  VrParticleOutput::addInstanceChannels(set);
}

bool VrParticleRenderer::keeps(double u, double v, int face, const std::string* patchName) {
  return maskExpression.eval(u, v, face, patchName).x >= 0.0001;
}

bool VrParticleRenderer::writeInstance(const VrInstanceRecord& record) {
  VrParticleOutput::addInstance(set, record);
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
