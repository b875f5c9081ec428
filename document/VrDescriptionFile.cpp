#include "document/VrDescriptionFile.h"

#include "base/VrAtomicFile.h"
#include "base/VrMessage.h"
#include "base/VrVersion.h"
#include "base/vrutilPath.h"
#include "base/vrutilString.h"
#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrFileReaderImpl.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "fxmodules/VrFXModule.h"
#include "primitives/VrPrimitive.h"

#include <fstream>
#include <memory>
#include <vector>

namespace {

void setFixed(std::ostream& out) {
  out.setf(std::ios::fixed, std::ios::floatfield);
  out.precision(16);
}

// The objects a description file carries, in file order. A preset takes the modules only when
// asked, and of those only the ones that go into presets.
std::vector<const VrObject*> exportedObjects(const VrDescription* description, bool asPreset = false,
                                             bool withModules = true) {
  std::vector<const VrObject*> objects{description};
  if (VrPrimitive* primitive = description->activePrimitive()) {
    objects.push_back(primitive);
    if (withModules)
      for (const VrFXModule* module : primitive->modules())
        if (!asPreset || module->includedInPreset()) objects.push_back(module);
  }
  if (description->activeGenerator()) objects.push_back(description->activeGenerator());
  if (description->activeRenderer()) objects.push_back(description->activeRenderer());
  if (description->activePreviewer()) objects.push_back(description->activePreviewer());
  return objects;
}

// The collection's "custom_" attributes that some attribute of `objects` calls by short name.
std::vector<std::pair<std::string, std::string>> usedGlobalExpressions(
    const VrPalette* palette, const std::vector<const VrObject*>& objects) {
  std::vector<std::pair<std::string, std::string>> used;
  if (!palette) return used;
  for (const std::string& attrName : palette->attrNames()) {
    if (attrName.compare(0, 7, "custom_") != 0) continue;
    const size_t underscore = attrName.find('_', 7);
    const std::string shortName = underscore == std::string::npos ? attrName : attrName.substr(underscore + 1);
    bool inUse = false;
    for (const VrObject* object : objects) {
      for (const std::string& name : object->attrNames()) {
        std::string value, type;
        object->getAttr(name, value, type);
        if (VrExpression(name, object->typeName(), object->description(), value, type).usesFunc(shortName)) {
          inUse = true;
          break;
        }
      }
      if (inUse) break;
    }
    std::string value;
    palette->getAttr(attrName, value);
    if (inUse) used.emplace_back(attrName, value);
  }
  return used;
}

void writeGlobalExpressions(std::ostream& out, const VrDescription* description,
                            const std::vector<const VrObject*>& objects) {
  const auto used = usedGlobalExpressions(description->palette(), objects);
  if (used.empty()) return;
  out << "\nPalExprs\t" << used.size() << '\n';
  for (const auto& expression : used) out << '\t' << expression.first << '\t' << expression.second << '\n';
}

// Every CV of every guide, in object space: the shapes without the binding.
void writeGuideShapes(std::ostream& out, const VrPrimitive* primitive) {
  if (!primitive || primitive->numGuides() == 0) return;
  out << "\nGuides\t" << primitive->numGuides() << '\n';
  for (unsigned g = 0; g < primitive->numGuides(); ++g) {
    const auto& cvs = primitive->guide(g).iOrigGuideGeom();
    out << "\tCVs\t" << cvs.size() << '\n';
    for (const auto& cv : cvs) out << '\t' << cv.x << ' ' << cv.y << ' ' << cv.z << '\n';
  }
}

// Writes through `write` to a temporary file renamed onto `path` when all went well.
template <class Write>
bool writeFileAtomically(const std::string& path, Write write) {
  vrutil::createDir(path, true);
  VrAtomicFile file(path);
  if (!file.ok()) {
    VR_ERROR("Failed to open file: " + path);
    return false;
  }
  return write(file.out()) && file.commit();
}

// The kind of groom a preset carries: shaped by guides, by a groom, or by attributes alone.
const char* presetKind(const VrDescription* description) {
  const VrPrimitive* primitive = description->activePrimitive();
  if (primitive && primitive->iMethod() == 1) return "Guide";
  std::string groom;
  if (description->getAttr("groom", groom) && !groom.empty()) return "Groom";
  return "AttrExpr";
}

// A module read into a stack that already holds its name takes the smallest positive number
// that frees it, so that every module of the stack stays addressable by name.
void settleModuleName(const VrPrimitive& primitive, VrFXModule& module) {
  const std::string wanted = module.name();
  const auto taken = [&](const std::string& name) {
    for (const VrFXModule* other : primitive.modules())
      if (other != &module && other->name() == name) return true;
    return false;
  };
  if (!taken(wanted)) return;
  for (unsigned n = 1;; ++n) {
    if (!taken(wanted + std::to_string(n))) {
      module.setAttr("name", wanted + std::to_string(n));
      return;
    }
  }
}

// Keeps a clashing global expression: the new text, then the old one commented out behind it.
std::string mergeClashingExpression(const std::string& newText, std::string oldText) {
  std::string commented;
  for (size_t i = 0; i < oldText.size(); ++i) {
    if (oldText.compare(i, 2, "\\n") == 0) {
      commented += "\\n###";
      ++i;
    } else {
      commented += oldText[i] == ';' ? ' ' : oldText[i];
    }
  }
  return newText + "\\n### " + commented;
}

class DescriptionReader {
 public:
  DescriptionReader(VrPalette* palette, std::istream& in, bool replace)
      : palette(palette), in(in), replace(replace) {}

  // True when the end of the stream was reached without an error.
  bool run() {
    std::string token, line;
    while (in >> token) {
      VR_DEBUG(3, vrmsg::CatFile, "Token=" + token);
      if (!handle(token, line)) return false;
    }
    return in.eof();
  }

  VrDescription* description = nullptr;

 private:
  bool handle(const std::string& token, std::string& line) {
    if (token[0] == '#') {
      vrutil::safeGetline(in, line);
      return true;
    }
    if (token == "FileVersion") return vrfile::readFileVersion(in);
    if (token == "Palette") {
      VR_ERROR("This stream is a Vorn collection file and not one produced via the exportDescription api. Aborting.");
      return false;
    }
    if (token == "Description") return readDescription();
    if (vrfile::isObjectToken(token)) {
      if (!description) {
        VR_ERROR("Reached a " + token + " token without finding a description.");
        return false;
      }
      if (!vrfile::importObjectBlock(description, token, in, "", primitive)) return false;
      makeActive(token);
      return true;
    }
    if (vrfile::isFXModuleToken(token)) {
      if (!primitive) {
        VR_ERROR("Reached a " + token + " token without finding a primitive.");
        return false;
      }
      return vrfile::importFXModuleBlock(primitive, token, in, "");
    }
    if (token == "MapTextures") {
      if (!description) {
        VR_ERROR("Reached a " + token + " token without finding a description.");
        return false;
      }
      return description->importTexMap(in);
    }
    if (token == "PalExprs") return readGlobalExpressions();
    if (token == "Guides") return readGuideShapes();
    if (token == "Patches") return readPatches();
    if (token == "VornPresetType") {  // kind and library version: nothing to keep
      vrutil::safeGetline(in, line);
      return true;
    }
    VR_ERROR("Unrecognized token: " + token + " in VrImportDescription.");
    return false;
  }

  bool readDescription() {
    if (description) {
      VR_ERROR("Found multiple descriptions in the same stream.");
      return false;
    }
    VR_DEBUG(1, vrmsg::CatFile, "Importing description");
    description = new VrDescription;
    if (!description->importObj(in, "")) {
      vrfile::reportCutShort("Description");
      return false;
    }
    settleName();
    palette->addDescription(description);
    VR_DEBUG(1, vrmsg::CatFile, "Done importing description: " + description->name());
    return true;
  }

  // A description of the same name in the collection is replaced, or this one is renamed.
  void settleName() {
    const std::string wanted = description->name();
    if (!palette->description(wanted)) return;
    if (replace) {
      delete palette->description(wanted);
      return;
    }
    for (unsigned n = 1;; ++n) {
      const std::string candidate = wanted + std::to_string(n);
      if (!palette->description(candidate)) {
        description->setAttr("name", candidate);
        return;
      }
    }
  }

  void makeActive(const std::string& token) {
    if (token.find("Renderer") != std::string::npos && sawRenderer) {
      description->setPreviewer(token);
      return;
    }
    if (token.find("Renderer") != std::string::npos) sawRenderer = true;
    description->setActive(token);
  }

  // The patches of a description file belong to the description read, whatever its name
  // became in the collection.
  bool readPatches() {
    std::string fileName;
    unsigned guideCount = 0;
    if (!description || !(in >> fileName)) return false;
    if (VRImportFileVersion > 14 && !(in >> guideCount)) return false;
    return description->importPatches(in);
  }

  bool readGlobalExpressions() {
    unsigned count = 0;
    if (!(in >> count)) return false;
    std::string name, line;
    for (unsigned i = 0; i < count; ++i) {
      if (!(in >> name)) return false;
      vrutil::safeGetline(in, line);
      const std::string text = vrutil::stripWhitespace(line);
      std::string old;
      if (palette->getAttr(name, old) && old != text) {
        palette->setAttr(name, mergeClashingExpression(text, old));
        VR_WARNING(1, "Clash on global expression [" + name + "]. Old value stored as comment.");
      } else {
        palette->setAttr(name, text);
      }
    }
    return true;
  }

  bool readGuideShapes() {
    unsigned count = 0;
    if (!primitive || !(in >> count)) return false;
    std::string token;
    for (unsigned g = 0; g < count; ++g) {
      unsigned cvCount = 0;
      if (!(in >> token) || token != "CVs" || !(in >> cvCount)) return false;
      std::vector<SgVec3T<double>> cvs;
      for (unsigned i = 0; i < cvCount; ++i) {
        SgVec3T<double> cv;
        if (!(in >> cv.x >> cv.y >> cv.z)) return false;
        cvs.push_back(cv);
      }
      primitive->addGuide().setOrigIGeom(std::move(cvs));
    }
    return true;
  }

  VrPalette* palette;
  std::istream& in;
  bool replace;
  VrPrimitive* primitive = nullptr;
  bool sawRenderer = false;
};

}  // namespace

bool VrExportDescription(VrDescription* description, std::ostream& out, bool withGuides,
                         bool withPatches) {
  if (!description) return false;
  setFixed(out);
  VrExportHeader(out, "Description");
  const std::vector<const VrObject*> objects = exportedObjects(description);
  for (const VrObject* object : objects)
    if (!object->exportObj(out)) return false;
  description->exportTexMap(out);
  writeGlobalExpressions(out, description, objects);
  if (withGuides) writeGuideShapes(out, description->activePrimitive());
  if (withPatches) description->exportPatches(out);
  return out.good();
}

bool VrExportDescription(VrDescription* description, const std::string& path, bool withGuides) {
  VR_DEBUG(1, vrmsg::CatFile, "Exporting Description into file: " + path);
  return writeFileAtomically(path, [&](std::ostream& out) {
    return VrExportDescription(description, out, withGuides, false);
  });
}

bool VrExportDescriptionAsPreset(VrDescription* description, std::ostream& out, bool withGuides,
                                 bool withModules) {
  if (!description) return false;
  setFixed(out);
  VrExportHeader(out, "Description Preset");
  out << "VornPresetType\t" << presetKind(description) << '\t' << vornLibraryVersion() << '\n';

  VrPrimitive* primitive = description->activePrimitive();
  if (!description->exportObjAsPreset(out)) return false;
  if (primitive && !(primitive->exportObjAsPreset(out) && primitive->exportFXModulesAsPreset(out, withModules)))
    return false;
  for (const VrObject* object :
       {description->activeGenerator(), description->activeRenderer(), description->activePreviewer()})
    if (object && !object->exportObjAsPreset(out)) return false;

  writeGlobalExpressions(out, description, exportedObjects(description, true, withModules));
  if (withGuides) writeGuideShapes(out, primitive);
  return out.good();
}

bool VrExportDescriptionAsPreset(VrDescription* description, const std::string& path, bool withGuides,
                                 bool withModules) {
  VR_DEBUG(1, vrmsg::CatFile, "Exporting Description into file: " + path);
  return writeFileAtomically(path, [&](std::ostream& out) {
    return VrExportDescriptionAsPreset(description, out, withGuides, withModules);
  });
}

VrDescription* VrImportDescriptionAsPreset(VrPalette* palette, const std::string& path) {
  return VrImportDescription(palette, path, false);
}

VrDescription* VrImportDescription(VrPalette* palette, std::istream& in, bool replace) {
  if (!palette) return nullptr;
  DescriptionReader reader(palette, in, replace);
  const bool ok = reader.run();
  if (ok && reader.description) {
    VR_DEBUG(1, vrmsg::CatFile, "Done importing description.");
    return reader.description;
  }
  if (ok) VR_ERROR("No description found in stream.");
  delete reader.description;  // releases itself from the collection
  return nullptr;
}

VrDescription* VrImportDescription(VrPalette* palette, const std::string& path, bool replace) {
  std::string cleaned = path;
  vrutil::fileCleanup(cleaned);
  std::ifstream in(cleaned, std::ios::binary);
  if (!in) {
    VR_ERROR("Failed to open file: " + cleaned);
    return nullptr;
  }
  return VrImportDescription(palette, in, replace);
}

bool VrExportFXModule(const VrFXModule* module, const std::string& path) {
  if (!module) return false;
  VR_DEBUG(1, vrmsg::CatFile, "Exporting FXModule into file: " + path);
  return writeFileAtomically(path, [&](std::ostream& out) {
    setFixed(out);
    VrExportHeader(out, "FX Module");
    return module->exportObj(out);
  });
}

VrFXModule* VrImportFXModule(VrDescription* description, const std::string& path) {
  VR_DEBUG(1, vrmsg::CatFile, "Importing Modifier from file: " + path);
  std::string cleaned = path;
  vrutil::fileCleanup(cleaned);
  std::ifstream in(cleaned, std::ios::binary);
  if (!in) {
    VR_ERROR("Failed to open file: " + path);
    return nullptr;
  }
  VrPrimitive* primitive = description ? description->activePrimitive() : nullptr;
  VrFXModule* module = nullptr;
  std::string token, line;
  while (in >> token) {
    if (token[0] == '#') {
      vrutil::safeGetline(in, line);
    } else if (token == "FileVersion") {
      if (!vrfile::readFileVersion(in)) return nullptr;
    } else if (token == "Palette" || token == "Description") {
      VR_ERROR("This file is a Vorn collection file and not one produced via the Modifier preset api. Aborting. [" +
               path + "]");
      return nullptr;
    } else if (vrfile::isFXModuleToken(token) && primitive && !module) {
      if (!vrfile::importFXModuleBlock(primitive, token, in, "")) return nullptr;
      module = primitive->modules().back();
    } else {
      VR_ERROR("Unrecognized token: " + token + " in VrImportFXModule.");
      if (module) primitive->removeFXModule(module);
      return nullptr;
    }
  }
  if (!module) {
    VR_ERROR("No Modifier found in file.");
    return nullptr;
  }
  settleModuleName(*primitive, *module);
  VR_DEBUG(1, vrmsg::CatFile, "Done importing Modifier.");
  return module;
}
