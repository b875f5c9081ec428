#include "generators/VrVpdGeneratorContext.h"

#include "io/vpd/VpdReader.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "document/vrutilFiles.h"

#include <algorithm>

const VrVpdGeneratorContext::FileKind VrVpdGeneratorContext::pointFiles = {
    ".vuv", Vpd::LocationBlock, "Failed to find the location block in file: ", "Incorrect primitive type in VUV file: ",
    false};
const VrVpdGeneratorContext::FileKind VrVpdGeneratorContext::bakedFiles = {
    ".vpd", Vpd::BakedGroomBlock, "Failed to find the BakedGroom block in file: ",
    "Incorrect primitive type in VPD file: ", true};

void VrVpdGeneratorContext::listFiles(std::vector<std::pair<std::string, std::string>>& pairs,
                                      const std::string& label, const FileKind& kind, const std::string& directory,
                                      VrDescription* description) {
  if (directory.empty() || !description) return;
  for (const auto& entry : description->patches()) {
    const std::string file = directory + vrutil::stripNameSpace(entry.first) + kind.extension;
    std::string found;
    if (!vrutil::findFileInVrDataPath(found, file, entry.first, description, "", true))
      found = vrutil::expandMacros(file, entry.first, description);
    pairs.emplace_back(label, found);
  }
}

VrVpdGeneratorContext::VrVpdGeneratorContext() = default;
VrVpdGeneratorContext::~VrVpdGeneratorContext() { reset(); }

void VrVpdGeneratorContext::setXFile(std::unique_ptr<VpdReader> file) { reader = std::move(file); }

void VrVpdGeneratorContext::reset() {
  if (reader && reader->isOpen() && !reader->close()) VR_ERROR("Failed to close VPD file: " + file);
  reader.reset();
  geometry.clear();
  file.clear();
  block = -1;
  failed = false;
}

bool VrVpdGeneratorContext::openFile(const FileKind& kind, Vpd::PrimType type, const std::string& path) {
  file = path;
  std::unique_ptr<VpdReader> opened = VpdReader::open(path);
  if (!opened) {
    VR_ERROR("Failed to open VPD file: " + path);
    failed = true;
    return false;
  }
  const int index = opened->blockIndex(kind.blockName);
  if (index < 0) {
    VR_ERROR(kind.blockMissing + path);
    failed = true;
    return false;
  }
  if (opened->primType() != type) {
    VR_ERROR(kind.wrongType + path);
    failed = true;
    return false;
  }
  block = index;
  reader = std::move(opened);
  return true;
}

VpdReader* VrVpdGeneratorContext::readerForFace(const FileKind& kind, Vpd::PrimType type,
                                                const std::string& directory, const std::string& name,
                                                VrDescription* description, int face) {
  if (name != geometry) {
    reset();
    geometry = name;
  }
  if (failed) return nullptr;
  if (!reader) {
    std::string found;
    if (!vrutil::findFileInVrDataPath(found, directory + vrutil::stripNameSpace(name) + kind.extension, name,
                                      description, "", true))
      return nullptr;
    if (!openFile(kind, type, found)) return nullptr;
  }
  if (!reader->findFace(face)) {
    const std::vector<int>& listed = reader->faceIds();
    const bool known = std::find(listed.begin(), listed.end(), face) != listed.end();
    if (kind.unknownFaceIsError && !known)
      VR_ERROR("FaceId " + std::to_string(face) + " not found in VPD file: " + file);
    else
      VR_DEBUG(1, vrmsg::CatGenerator, "Face id " + std::to_string(face) + " not found in file " + file);
    return nullptr;
  }
  if (!reader->findBlock(block)) {
    VR_ERROR("Failed to find block in VPD file: " + file);
    if (!reader->error().empty()) {
      VR_ERROR(reader->error());
      failed = true;
    }
    return nullptr;
  }
  return reader.get();
}
