#include "renderers/VrPromoteRenderer.h"

#include "base/VrMessage.h"
#include "base/vrutilPath.h"
#include "document/VrDescription.h"

VrPromoteRenderer::VrPromoteRenderer(VrDescription* description)
    : VrInstanceRenderer(description, "PromoteRenderer") {}

VrPromoteRenderer::~VrPromoteRenderer() = default;

void VrPromoteRenderer::initDescription() {
  VrInstanceRenderer::initDescription();
  if (out.is_open()) out.close();
  const std::string dir = vrutil::tempDir();
  if (!vrutil::createDir(dir, false)) {
    setFailed();
    return;
  }
  path = dir + (description() ? description()->name() : std::string()) + ".pmt";
  out.clear();
  out.open(path, std::ios::out | std::ios::trunc);
  if (!out) {
    VR_ERROR("Failed to open promote file: " + path);
    setFailed();
    return;
  }
  VrWriteInstanceHeader(out);
}

bool VrPromoteRenderer::beginPatchFace(const std::vector<VrPatch*>& patches, int face) {
  VrInstanceRenderer::beginPatchFace(patches, face);
  return !failed();
}

bool VrPromoteRenderer::writeInstance(const VrInstanceRecord& record) {
  VrWriteInstanceRecord(out, record);
  if (out) return true;
  VR_ERROR("Failed to write promote file: " + path);
  return false;
}

void VrPromoteRenderer::finishDescription() {
  if (out.is_open()) {
    out.flush();
    out.close();
  }
  VrInstanceRenderer::finishDescription();
}
