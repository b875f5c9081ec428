#include "renderers/VrArchiveGeometry.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "primitives/VrArchivePrimitive.h"

int VrArchiveGeometry::chooseKey(const VrArchivePrimitive* archive, const VrPrimitiveContext& context,
                                 Preference preference) {
  using A = VrArchivePrimitive;
  static const A::Slot lightest[] = {A::Proxy, A::Low, A::Medium, A::High};
  static const A::Slot finest[] = {A::High, A::Medium, A::Low, A::Proxy};
  if (!archive) return -1;
  for (A::Slot slot : preference == Preference::Lightest ? lightest : finest) {
    const int key = A::slotKey(slot, context);
    for (unsigned i = 0; key >= 0 && i < archive->archiveFiles().count(key); ++i)
      if (!archive->fileNameOfLod(key, i, true).empty()) return key;
  }
  return -1;
}

std::vector<VrArchiveSource> VrArchiveGeometry::sources(const VrArchivePrimitive& archive, int key) {
  std::vector<VrArchiveSource> files;
  for (unsigned i = 0; i < archive.archiveFiles().count(key); ++i) {
    const VrArchiveEntry* entry = archive.archiveFiles().entry(key, i);
    if (!entry) break;
    if (entry->useBox) return {};
    if (!entry->path.empty()) files.push_back({entry->path, entry->objects});
  }
  return files;
}

double VrArchiveGeometry::timeOf(const VrArchivePrimitive& archive, double frame) {
  const VrPalette* palette = archive.description() ? archive.description()->palette() : nullptr;
  const double rate = palette ? palette->framesPerSecond() : 24.0;
  return rate > 0.0 ? frame / rate : 0.0;
}

const VrArchiveMesh* VrArchiveGeometry::mesh(const VrArchivePrimitive& archive, int key, double frame,
                                             const std::string& fallback) {
  const std::vector<VrArchiveSource> files = sources(archive, key);
  if (files.empty()) return nullptr;
  auto id = std::make_pair(VrArchiveMesh::keyOf(files), frame);
  auto found = meshes.find(id);
  if (found != meshes.end()) return found->second.get();
  auto mesh = std::make_unique<VrArchiveMesh>();
  std::string failed;
  if (!mesh->read(files, timeOf(archive, frame), failed)) {
    VR_WARNING(1, "The archive file " + failed + " has no mesh that can be read; its archives are " + fallback + ".");
    mesh.reset();
  }
  return meshes.emplace(std::move(id), std::move(mesh)).first->second.get();
}
