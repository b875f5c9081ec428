#include "document/VrCollectionFile.h"

#include "base/VrAtomicFile.h"
#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "base/vrutilPath.h"
#include "base/vrutilString.h"
#include "document/VrDescription.h"
#include "document/VrFileReaderImpl.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "io/VrImportGeometry.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

namespace {

// State that lives across the reads of one multi-sample import.
struct ImportState {
  VrPalette* base = nullptr;
  std::map<std::string, std::vector<VrPatch*>> patches;
};

ImportState& importState() {
  static ImportState state;
  return state;
}

std::string stripColons(std::string nameSpace) {
  if (!nameSpace.empty() && nameSpace.front() == ':') nameSpace.erase(0, 1);
  if (!nameSpace.empty() && nameSpace.back() == ':') nameSpace.pop_back();
  return nameSpace;
}

bool attachSampleDescription(VrDescription* description) {
  VrPalette* base = importState().base;
  if (!base) {
    VR_ERROR("No base collection found for motion sample.");
    return false;
  }
  VrDescription* baseDescription = base->description(description->name());
  if (!baseDescription) {
    VR_ERROR("Could not find base description " + description->name() + " in base collection " +
             base->name());
    return false;
  }
  VR_DEBUG(1, vrmsg::CatFile, "Attaching description " + description->name() + " as a motion sample.");
  baseDescription->addSample(description);
  return true;
}

// Reads the collection file's tokens into `palette`, which is made by the "Palette" token.
// Returns true only when the end of the file was reached without an error.
class CollectionReader {
 public:
  CollectionReader(std::istream& in, const std::string& nameSpace, int sample)
      : in(in), nameSpace(nameSpace), sample(sample) {}

  bool run() {
    std::string token, line;
    while (in >> token) {
      VR_DEBUG(3, vrmsg::CatFile, "Token=" + token);
      if (!handle(token, line)) return false;
    }
    return true;
  }

  VrPalette* palette = nullptr;
  std::vector<VrPatch*> patchesRead;

 private:
  bool handle(const std::string& token, std::string& line) {
    if (token[0] == '#') {
      vrutil::safeGetline(in, line);
      return true;
    }
    if (token == "FileVersion") return vrfile::readFileVersion(in);
    if (token == "Palette") return readPalette();
    if (token == "Description") return readDescription();
    if (token == "Active" || token == "Preview") {
      if (!description) {
        VR_ERROR(token == "Active" ? "Reached an Active token without finding a description."
                                   : "Reached a Previewer token without finding a description.");
        return false;
      }
      std::string module;
      if (!(in >> module)) return vrfile::reportEndInside("an " + token + " line");
      if (token == "Active")
        description->setActive(module);
      else
        description->setPreviewer(module);
      return true;
    }
    if (vrfile::isObjectToken(token)) {
      if (!description) {
        VR_ERROR("Reached a " + token + " token without finding a description.");
        return false;
      }
      return vrfile::importObjectBlock(description, token, in, nameSpace, primitive) != nullptr;
    }
    if (vrfile::isFXModuleToken(token)) {
      if (!primitive) {
        VR_ERROR("Reached a " + token + " token without finding a primitive.");
        return false;
      }
      return vrfile::importFXModuleBlock(primitive, token, in, nameSpace);
    }
    if (token == "Patches") {
      if (!palette) {
        VR_ERROR("Reached a Patches token without finding a collection.");
        return false;
      }
      VrDescription* owner = VrImportPatches(in, palette, false);
      if (!owner) return false;
      for (const auto& entry : owner->patches()) patchesRead.push_back(entry.second);
      VR_DEBUG(1, vrmsg::CatFile, "Done importing patches for: " + owner->name());
      return true;
    }
    if (token == "MapTextures") {
      if (!description) {
        VR_ERROR("Reached a " + token + " token without finding a description.");
        return false;
      }
      return description->importTexMap(in);
    }
    VR_ERROR("Unrecognized token: " + token + " in VrImport.");
    return false;
  }

  bool readPalette() {
    if (palette) {
      VR_ERROR("Found multiple collections in the same file.");
      return false;
    }
    nameSpace = stripColons(nameSpace);
    VR_DEBUG(1, vrmsg::CatFile, "Importing collection");
    palette = new VrPalette;
    if (sample != 0) {
      if (!importState().base) {
        VR_ERROR("No base collection found for motion sample.");
        return false;
      }
      importState().base->addSample(palette);
      attachedSample = true;
    }
    if (!palette->importObj(in, nameSpace)) {
      vrfile::reportCutShort("Palette");
      return false;
    }
    if (sample == 0) importState().base = palette;
    return true;
  }

  bool readDescription() {
    if (!palette) {
      VR_ERROR("Reached a description token without finding a collection.");
      return false;
    }
    VR_DEBUG(1, vrmsg::CatFile, "Importing description");
    description = new VrDescription;
    palette->addDescription(description);
    primitive = nullptr;
    if (!description->importObj(in, nameSpace)) {
      vrfile::reportCutShort("Description");
      return false;
    }
    VR_DEBUG(1, vrmsg::CatFile, "Done importing description: " + description->name());
    return sample == 0 || attachSampleDescription(description);
  }

 public:
  bool attachedSample = false;

 private:
  std::istream& in;
  std::string nameSpace;
  int sample;
  VrDescription* description = nullptr;
  VrPrimitive* primitive = nullptr;
};

// Undoes what a failed read attached to the base collection, then deletes what it made.
void discard(VrPalette* palette, bool attachedSample) {
  ImportState& state = importState();
  if (attachedSample && state.base) {
    state.base->removeSample(palette);
    for (unsigned i = 0; i < palette->numDescriptions(); ++i)
      if (VrDescription* base = state.base->description(palette->description(i)->name()))
        base->removeSample(palette->description(i));
  }
  delete palette;  // which also drops it from the import state
}

}  // namespace

void VrExportHeader(std::ostream& out, const std::string& fileType) {
  const char* user = std::getenv("USER");
  const std::time_t now = std::time(nullptr);
  char date[64] = "\n";
  ctime_r(&now, date);
  out << "# Vorn " << fileType << " File\n";
  out << "#\n";
  out << "# Version:  " << vrutil::version() << '\n';
  out << "# Author:   " << (user ? user : "") << '\n';
  out << "# Date:     " << date << '\n';
  out << "FileVersion " << VrCurrentFileVersion << '\n';
}

bool VrExportDescriptionData(std::ostream& out, VrDescription* description) {
  return description->exportPatches(out);
}

bool VrExportPalette(VrPalette* palette, std::ostream& out) {
  if (!palette) return false;
  out.setf(std::ios::fixed, std::ios::floatfield);
  out.precision(16);
  VrExportHeader(out, "Palette");
  bool ok = palette->exportObj(out);
  for (unsigned i = 0; i < palette->numDescriptions(); ++i) {
    VrDescription* description = palette->description(i);
    ok = description->exportObj(out) && ok;
    ok = description->exportObjects(out) && ok;
  }
  for (unsigned i = 0; i < palette->numDescriptions(); ++i)
    ok = VrExportDescriptionData(out, palette->description(i)) && ok;
  return ok && out.good();
}

bool VrExportPalette(VrPalette* palette, const std::string& path) {
  if (!palette) return false;
  VR_DEBUG(1, vrmsg::CatFile, "Exporting Collection file: " + path);
  vrutil::createDir(path, true);
  VrAtomicFile file(path);
  if (!file.ok()) {
    VR_ERROR("Failed to open file: " + path);
    return false;
  }
  if (!VrExportPalette(palette, file.out()) || !file.commit()) {
    VR_ERROR("Failed to write file: " + path);
    return false;
  }
  return true;
}

VrDescription* VrImportPatches(std::istream& in, VrPalette* palette, bool skipToken) {
  std::string token;
  if (!palette) return nullptr;
  if ((skipToken && !(in >> token)) || !(in >> token)) {
    vrfile::reportEndInside("the head of a Patches block");
    return nullptr;
  }
  const std::string name = vrutil::objNameSpace(palette->name()) + vrutil::stripNameSpace(token);
  VrDescription* description = palette->description(name);
  unsigned guideCount = 0;
  if (VRImportFileVersion > 14 && !(in >> guideCount)) {
    vrfile::reportEndInside("the head of a Patches block");
    return nullptr;
  }
  VR_DEBUG(2, vrmsg::CatFile, "Importing patches for: " + name);
  if (!description) {
    VR_ERROR("No description found named " + name + " to match Patches token.");
    return nullptr;
  }
  VrPrimitive* primitive = description->activePrimitive();
  // The count comes from the file: reserve no more than the text could hold.
  if (primitive && guideCount > primitive->numGuides() && guideCount < (1u << 20))
    primitive->reserveGuideSpace(guideCount);
  return description->importPatches(in) ? description : nullptr;
}

VrPalette* VrImport(std::istream& in, const std::string& nameSpace, int sample) {
  ImportState& state = importState();
  if (sample == 0) {
    state.base = nullptr;
    state.patches.clear();
    VrResetImportGeometry();  // a new base collection binds its geometry afresh
  }
  CollectionReader reader(in, nameSpace, sample);
  const bool ok = reader.run() && in.eof();
  if (ok && reader.palette) {
    for (VrPatch* patch : reader.patchesRead) state.patches[patch->name()].push_back(patch);
    VR_DEBUG(1, vrmsg::CatFile, "Done Importing collection file.");
    return reader.palette;
  }
  if (ok) VR_ERROR("No collection found in file.");
  if (reader.palette) discard(reader.palette, reader.attachedSample);
  return nullptr;
}

VrPalette* VrImport(const std::string& path, const std::string& nameSpace, unsigned sample) {
  std::string cleaned = path;
  vrutil::fileCleanup(cleaned);
  VR_DEBUG(1, vrmsg::CatFile, "Importing[" + std::to_string(sample) + "]: " + cleaned);
  std::ifstream in(cleaned, std::ios::binary);
  if (!in) {
    VR_ERROR("Failed to open file: " + cleaned);
    return nullptr;
  }
  return VrImport(in, nameSpace, static_cast<int>(sample));
}

VrPalette* VrImportAside(std::istream& in, const std::string& nameSpace) {
  const ImportState saved = importState();
  VrPalette* palette = VrImport(in, nameSpace, 0);
  importState() = saved;
  return palette;
}

const std::map<std::string, std::vector<VrPatch*>>& VrImportedPatches() { return importState().patches; }

void VrForgetImportedPatch(const VrPatch* patch) {
  // Searched by pointer, not by name: the patch may have been renamed since it was read.
  auto& patches = importState().patches;
  for (auto it = patches.begin(); it != patches.end();) {
    auto& list = it->second;
    list.erase(std::remove(list.begin(), list.end(), patch), list.end());
    it = list.empty() ? patches.erase(it) : std::next(it);
  }
}

void VrForgetImported(const VrPalette* palette) {
  ImportState& state = importState();
  if (state.base == palette) state.base = nullptr;
  for (auto it = state.patches.begin(); it != state.patches.end();) {
    auto& patches = it->second;
    patches.erase(std::remove_if(patches.begin(), patches.end(),
                                 [palette](const VrPatch* patch) {
                                   return patch->description() && patch->description()->palette() == palette;
                                 }),
                  patches.end());
    it = patches.empty() ? state.patches.erase(it) : std::next(it);
  }
}

namespace {
void collectAttr(const VrObject* object, const std::string& attribute, std::vector<std::string>& values) {
  std::string value;
  if (object && object->getAttr(attribute, value)) values.push_back(value);
}
}  // namespace

std::vector<std::string> VrGetAttr(const std::string& attribute, const std::string& object,
                                   const std::string& file) {
  std::vector<std::string> values;
  // Read on the side: the import state of the collections already open stays as it was.
  const ImportState saved = importState();
  VrPalette* palette = VrImport(file, "", 0u);
  importState() = saved;
  if (!palette) return values;
  if (object == "Palette") collectAttr(palette, attribute, values);
  for (unsigned i = 0; i < palette->numDescriptions(); ++i) {
    VrDescription* description = palette->description(i);
    if (object == "Description") {
      collectAttr(description, attribute, values);
    } else if (VrObject* found = description->getObject(object)) {
      collectAttr(found, attribute, values);
    } else if (VrPrimitive* primitive = description->activePrimitive()) {
      collectAttr(primitive->findFXModule(object), attribute, values);
    }
  }
  delete palette;
  return values;
}
