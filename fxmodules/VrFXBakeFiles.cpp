#include "fxmodules/VrFXBakeFiles.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"

#include <algorithm>
#include <filesystem>

void VrFXBakeCursor::reset() {
  face = -1;
  patch = nullptr;
  reader = nullptr;
  positioned = false;
  writer = nullptr;
  readPosition.reset();
  writePosition.reset();
}

void VrFXBakeFiles::openForReading(const VrFXModule& module, const VrPatch& patch, const std::string& fileName,
                                   unsigned cvCount) {
  VrDescription* description = module.description();
  // Where a bake of this process would have written it comes first: the data path search
  // remembers its answers for the whole process, and a bake made since must not be missed.
  std::string path = fileName;
  std::error_code ec;
  if (!vrutil::expandOutputFileName(path, patch.name(), description, module.name()) ||
      !std::filesystem::is_regular_file(path, ec))
    if (!vrutil::findFileInVrDataPath(path, fileName, patch.name(), description, module.name(), true))
      path = vrutil::resolveFileInVrDataPath(fileName, patch.name(), description, module.name());
  std::unique_ptr<VpdFileCachedReader> reader = VpdFileCachedReader::open(path);
  if (!reader) {
    VR_ERROR("Failed to open VPD file: " + path);
    return;
  }
  const int block = reader->blockIndex(blockName);
  if (block < 0) {
    VR_ERROR("Failed to find the " + blockName + " block in file: " + path);
    return;
  }
  if (reader->coordSpace() != Vpd::ObjectSpace) {
    VR_ERROR("Incorrect coordSpace in VPD file: " + path);
    return;
  }
  if (reader->primType() != Vpd::SplinePrimitive) {
    VR_ERROR("Incorrect primitive type in VPD file: " + path);
    return;
  }
  if (checkCVCount && reader->cvCount() != cvCount) {
    VR_ERROR("Incorrect CV count in VPD file: " + path);
    return;
  }
  readers[patch.name()] = Opened{std::move(reader), block, path};
}

void VrFXBakeFiles::createForWriting(const VrFXModule& module, const VrPatch& patch, const std::string& fileName,
                                     unsigned cvCount) {
  VrDescription* description = module.description();
  std::string path = fileName;
  if (!vrutil::expandOutputFileName(path, patch.name(), description, module.name(), true)) {
    VR_ERROR("Failed to open VPD file: " + path);
    return;
  }
  const VrPalette* palette = description->palette();
  std::string why;
  std::unique_ptr<VpdFileCachedWriter> writer = VpdFileCachedWriter::openWrite(
      path, patch.faceIds(), Vpd::SplinePrimitive, static_cast<unsigned char>(std::min(cvCount, 255u)),
      Vpd::ObjectSpace, {blockName}, palette ? static_cast<float>(palette->frame()) : 0.0f, 0, {}, &why);
  if (!writer) {
    VR_ERROR("Failed to open VPD file: " + path + (why.empty() ? std::string() : " (" + why + ")"));
    return;
  }
  writers[patch.name()] = std::move(writer);
}

void VrFXBakeFiles::close() {
  for (auto& entry : writers)
    if (!entry.second->commitAndClose())
      VR_ERROR("Failed to close VPD file: " + entry.second->path() + " (" + entry.second->error() + ")");
  writers.clear();
  readers.clear();
}

void VrFXBakeFiles::beginFace(VrFXBakeCursor& cursor, const VrPatch* patch, int face) const {
  cursor.reset();
  cursor.face = face;
  cursor.patch = patch;
  if (!patch) return;
  if (const auto found = readers.find(patch->name()); found != readers.end()) {
    cursor.reader = found->second.reader.get();
    cursor.readerPath = found->second.path;
    if (!cursor.reader->findFace(cursor.readPosition, face)) {
      // A face the file lists without records had everything culled, or nothing cut, when baked.
      const std::vector<int>& listed = cursor.reader->faceIds();
      if (std::find(listed.begin(), listed.end(), face) == listed.end())
        VR_ERROR("FaceId " + std::to_string(face) + " not found in VPD file: " + cursor.readerPath);
      return;
    }
    cursor.positioned = cursor.reader->findBlock(cursor.readPosition, found->second.block);
    if (!cursor.positioned) VR_ERROR("Failed to find block in VPD file: " + cursor.readerPath);
    return;
  }
  if (const auto found = writers.find(patch->name()); found != writers.end()) {
    VpdFileCachedWriter& writer = *found->second;
    if (writer.startFace(cursor.writePosition, face) && writer.startBlock(cursor.writePosition, 0))
      cursor.writer = &writer;
  }
}

VrFXBakeFiles::Read VrFXBakeFiles::read(VrFXBakeCursor& cursor, unsigned id, std::vector<float>& record) const {
  if (!cursor.positioned) return Read::Failed;  // reported, if at all, when the face began
  if (cursor.reader->findPrim(cursor.readPosition, id, record)) return Read::Found;
  if (cursor.readPosition.error().empty()) return Read::Missing;
  reportUnreadable(cursor);
  return Read::Failed;
}

void VrFXBakeFiles::reportUnreadable(const VrFXBakeCursor& cursor) {
  VR_ERROR("Failed to read primitive on face " + std::to_string(cursor.face) + " from VPD file: " + cursor.readerPath);
}

void VrFXBakeFiles::write(VrFXBakeCursor& cursor, unsigned id, const std::vector<float>& record) const {
  if (!cursor.writer) return;
  if (!cursor.writer->writePrim(cursor.writePosition, id, record))
    VR_ERROR("Failed to write primitive on face " + std::to_string(cursor.face) + " to VPD file: " +
             cursor.writer->path());
}
