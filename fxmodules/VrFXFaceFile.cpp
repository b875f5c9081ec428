#include "fxmodules/VrFXFaceFile.h"

#include "base/VrMessage.h"
#include "document/vrutilFiles.h"
#include "fxmodules/VrFXModule.h"

void VrFXFaceFile::open(VrFXModule& module, const std::string& path) {
  file.reset();
  target = path;
  if (!vrutil::expandOutputFileName(target, "", module.description(), module.name(), true)) {
    VR_ERROR("Failed to open file: " + target);
    return;
  }
  file = std::make_unique<VrAtomicFile>(target);
  if (file->ok()) return;
  VR_ERROR("Failed to open file: " + target);
  file.reset();
}

void VrFXFaceFile::commit() {
  if (file && !file->commit()) VR_ERROR("Failed to open file: " + target);
  file.reset();
}
