#include "document/vrapi.h"

#include "base/VrConfig.h"
#include "base/VrMessage.h"
#include "base/VrModules.h"
#include "document/VrCollectionFile.h"
#include "document/VrDelta.h"
#include "document/VrDescription.h"
#include "document/VrDescriptionFile.h"
#include "document/VrPalette.h"
#include "document/vrutil.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <initializer_list>

namespace vrapi {

namespace {

// What a call needs its names to resolve to.
enum class Need { Collection, Description, Primitive, Object };

// One facade call: the string arguments it was given, in order, for its failure message, and
// what its names resolved to.
class Call {
 public:
  Call(std::initializer_list<std::string> arguments) : args(arguments) {}

  // Sends the call's one Error: the key's text with the call's arguments. Returns the empty
  // result of the call.
  template <class Result = bool>
  Result fail(const char* key) const {
    const std::string text = vrLocName(key, arg(0), arg(1), arg(2), arg(3), arg(4), arg(5),
                                       arg(6), arg(7), arg(8), arg(9));
    VR_ERROR(text.empty() ? std::string(key) : text);
    return Result();
  }

  // Finds what `need` asks for, filling the members on the way, or fails with `key`. A null key
  // on an object lets vrutil::getObject report what is missing.
  bool resolve(Need need, const char* key, const std::string& collectionName,
               const std::string& descriptionName = "", const std::string& objectName = "") {
    if (need == Need::Object) {
      object = key ? vrutil::findObject(collectionName, descriptionName, objectName)
                   : vrutil::getObject(collectionName, descriptionName, objectName);
      return object || (key && fail(key));
    }
    collection = VrPalette::palette(collectionName);
    if (collection && need != Need::Collection) description = collection->description(descriptionName);
    if (description && need == Need::Primitive) primitive = description->activePrimitive();
    const bool found = need == Need::Collection    ? collection != nullptr
                       : need == Need::Description ? description != nullptr
                                                   : primitive != nullptr;
    return found || fail(key);
  }

  VrPalette* collection = nullptr;
  VrDescription* description = nullptr;
  VrPrimitive* primitive = nullptr;
  VrObject* object = nullptr;

 private:
  const std::string& arg(size_t i) const {
    static const std::string none;
    return i < args.size() ? args[i] : none;
  }

  std::vector<std::string> args;
};

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// "custom_..." or "archive_..." with something behind the prefix.
bool isCustomAttrName(const std::string& name) {
  return (startsWith(name, "custom_") && name.size() > 7) ||
         (startsWith(name, "archive_") && name.size() > 8);
}

template <class Keep>
std::vector<std::string> attrNamesOf(const std::string& collection, const std::string& description,
                                     const std::string& object, Keep keep) {
  Call call{collection, description, object};
  std::vector<std::string> names;
  if (!call.resolve(Need::Object, nullptr, collection, description, object)) return names;
  for (const std::string& name : call.object->attrNames())
    if (keep(name)) names.push_back(name);
  return names;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Collections

bool createPalette(const std::string& name) {
  if (name.empty() || VrPalette::palette(name)) return false;
  auto* collection = new VrPalette;
  collection->setAttr("name", name);
  return true;
}

bool deletePalette(const std::string& name) {
  Call call{name};
  if (!call.resolve(Need::Collection, "rCouldNotDeleteCollection", name)) return false;
  delete call.collection;
  return true;
}

std::vector<std::string> palettes() {
  std::vector<std::string> names;
  const VrDict<VrPalette*>& collections = VrPalette::palettes();
  for (auto it = collections.begin(); it != collections.end(); ++it) names.push_back(it.key());
  std::sort(names.begin(), names.end());
  return names;
}

std::string palette(const std::string& descriptionName) { return vrutil::palette(descriptionName); }

// ---------------------------------------------------------------------------------------------
// Descriptions

std::string createDescription(const std::string& collection, const std::string& description,
                              const std::string& primitive, const std::string& generator,
                              const std::string& renderer, const std::string& method) {
  Call call{collection, description, primitive, generator, renderer, method};
  if (collection.empty()) return call.fail<std::string>("rNoPaletteName");
  if (description.empty()) return call.fail<std::string>("rNoDescriptionName");
  createPalette(collection);
  if (!call.resolve(Need::Collection, "rNoPaletteName", collection)) return std::string();

  const std::string base =
      vrutil::objNameSpace(call.collection->name()) + vrutil::stripNameSpace(description);
  std::string name = base;
  for (unsigned suffix = 1; call.collection->description(name); ++suffix)
    name = base + std::to_string(suffix);

  auto* made = new VrDescription;
  call.collection->addDescription(made);
  made->setAttr("name", name);

  const char* failure = nullptr;
  if (!made->setActive(primitive + "Primitive")) failure = "rInvalidPrimitive";
  else if (!made->setActive(generator + "Generator")) failure = "rInvalidGenerator";
  else if (!made->setActive(renderer + "Renderer")) failure = "rInvalidRenderer";
  else if (!made->setPreviewer("GLRenderer")) failure = "rInvalidPreviewer";
  else if (method != "Attribute" && method != "Guides") failure = "rInvalidInterpolation";
  if (failure) {
    delete made;  // leaves the collection
    return call.fail<std::string>(failure);
  }
  made->activePrimitive()->setAttr("iMethod", method == "Guides" ? "1" : "0", "enum",
                                   "Attribute:CV");
  return made->name();
}

bool deleteDescription(const std::string& collection, const std::string& description) {
  Call call{collection, description};
  if (!call.resolve(Need::Description, "rCouldNotDeleteDescription", collection, description))
    return false;
  delete call.description;  // leaves the collection
  return true;
}

std::vector<std::string> descriptions(const std::string& collection) {
  Call call{collection};
  std::vector<std::string> names;
  if (!call.resolve(Need::Collection, "rCouldNotFindCollection", collection)) return names;
  for (unsigned i = 0; i < call.collection->numDescriptions(); ++i)
    names.push_back(call.collection->description(i)->name());
  return names;
}

std::vector<std::string> objects(const std::string& collection, const std::string& description,
                                 bool activeOnly) {
  Call call{collection, description};
  std::vector<std::string> names;
  if (!call.resolve(Need::Description, "rCouldNotGetObjects", collection, description))
    return names;
  const VrDescription& owner = *call.description;
  if (activeOnly) {
    const std::initializer_list<const VrObject*> active = {
        owner.activePrimitive(), owner.activeGenerator(), owner.activeRenderer(),
        owner.activePreviewer()};
    for (const VrObject* object : active) {
      if (object && std::find(names.begin(), names.end(), object->typeName()) == names.end())
        names.push_back(object->typeName());
    }
    return names;
  }
  std::string module;
  for (int i = 0; owner.objectName(i, module); ++i) names.push_back(module);
  return names;
}

std::string getActive(const std::string& collection, const std::string& description,
                      const std::string& kind) {
  Call call{collection, description, kind};
  if (!call.resolve(Need::Description, "rCouldNotFindActiveType", collection, description))
    return std::string();
  const VrDescription& owner = *call.description;
  const VrObject* active = nullptr;
  if (kind == "Primitive") active = owner.activePrimitive();
  else if (kind == "Generator") active = owner.activeGenerator();
  else if (kind == "Renderer") active = owner.activeRenderer(false);
  else if (kind == "Previewer") active = owner.activePreviewer();
  else return call.fail<std::string>("rUnknownTypeGiven");
  if (!active) return call.fail<std::string>("rCouldNotFindActiveType");
  return active->typeName();
}

bool setActive(const std::string& collection, const std::string& description,
               const std::string& module, bool previewer) {
  Call call{collection, description, module};
  // isBaseNameEmpty answers true when the base name is NOT empty.
  if (!vrutil::isBaseNameEmpty(module)) return call.fail("rCouldNotSetActiveType");
  if (!call.resolve(Need::Description, "rCouldNotSetActiveType", collection, description))
    return false;
  if (previewer) {
    if (module != "GLRenderer") return call.fail("rPreviewerMustBeGL");
    if (!call.description->setPreviewer(module)) return call.fail("rCouldNotSetActiveOfType");
    return true;
  }
  if (module == "GLRenderer") return call.fail("rRendererMustBeGL");
  if (!call.description->setActive(module)) return call.fail("rCouldNotSetActiveOfType");
  return true;
}

// ---------------------------------------------------------------------------------------------
// Attributes

std::vector<std::string> attrs(const std::string& collection, const std::string& description,
                               const std::string& object) {
  return attrNamesOf(collection, description, object,
                     [](const std::string& name) { return !startsWith(name, "custom_"); });
}

std::vector<std::string> allAttrs(const std::string& collection, const std::string& description,
                                  const std::string& object) {
  return attrNamesOf(collection, description, object, [](const std::string&) { return true; });
}

std::vector<std::string> customAttrs(const std::string& collection,
                                     const std::string& description, const std::string& object) {
  return attrNamesOf(collection, description, object, [](const std::string& name) {
    return startsWith(name, "custom_") || startsWith(name, "archive_");
  });
}

bool attrExists(const std::string& attribute, const std::string& collection,
                const std::string& description, const std::string& object) {
  Call call{attribute, collection, description, object};
  if (!call.resolve(Need::Object, "rCallToAttrExists", collection, description, object))
    return false;
  return call.object->hasAttr(attribute);
}

std::string getAttr(const std::string& attribute, const std::string& collection,
                    const std::string& description, const std::string& object) {
  return vrutil::getAttr(attribute, collection, description, object);
}

bool setAttr(const std::string& attribute, const std::string& value,
             const std::string& collection, const std::string& description,
             const std::string& object) {
  return vrutil::setAttr(attribute, value, collection, description, object);
}

bool setTextureAttr(const std::string& attribute, const std::string& value,
                    const std::string& collection, const std::string& description,
                    const std::string& object) {
  return vrutil::setTexture(attribute, value, collection, description, object);
}

bool addCustomAttr(const std::string& attribute, const std::string& collection,
                   const std::string& description, const std::string& object) {
  if (!isCustomAttrName(attribute)) {
    VR_ERROR("Could not add custom attribute [" + attribute + "]");
    return false;
  }
  VrObject* target = vrutil::findObject(collection, description, object);
  if (!target) {
    std::string names;
    for (const std::string* name : {&collection, &description, &object})
      if (!name->empty()) names += (names.empty() ? "" : ", ") + *name;
    VR_ERROR("Call to addCustomAttr failed. [" + names + "]");
    return false;
  }
  if (target->hasAttr(attribute)) {
    const std::string& addressed =
        !object.empty() ? object : !description.empty() ? description : collection;
    VR_ERROR("Call to addCustomAttr failed. " + attribute + " already exists. [" + addressed + "]");
    return false;
  }
  target->setAttr(attribute, "0.0", "float", "");
  return true;
}

bool remCustomAttr(const std::string& attribute, const std::string& collection,
                   const std::string& description, const std::string& object) {
  VrObject* target =
      isCustomAttrName(attribute) ? vrutil::findObject(collection, description, object) : nullptr;
  if (!target || !target->hasAttr(attribute) || !target->remAttr(attribute)) {
    VR_ERROR("Could not remove custom attribute [" + attribute + "]");
    return false;
  }
  return true;
}

std::vector<std::string> getAttrFromFile(const std::string& attribute, const std::string& object,
                                         const std::string& file) {
  return VrGetAttr(attribute, object, file);
}

std::vector<std::string> availableModules() {
  std::vector<std::string> names;
  VrGetRegisteredModules(names);
  return names;
}

// ---------------------------------------------------------------------------------------------
// FX modules

std::vector<std::string> fxModules(const std::string& collection, const std::string& description) {
  Call call{collection, description};
  std::vector<std::string> names;
  if (!call.resolve(Need::Primitive, "rCouldNotFindFxModules", collection, description))
    return names;
  for (const VrFXModule* module : call.primitive->modules()) names.push_back(module->name());
  return names;
}

std::string fxModuleType(const std::string& collection, const std::string& description,
                         const std::string& module) {
  Call call{collection, description, module};
  if (!call.resolve(Need::Primitive, "rCouldNotFindModifierType", collection, description))
    return std::string();
  const VrFXModule* found = call.primitive->findFXModule(module);
  if (!found) return call.fail<std::string>("rCouldNotFindModifierType");
  return found->typeName();
}

std::string addFXModule(const std::string& collection, const std::string& description,
                        const std::string& type, const std::string& name) {
  Call call{collection, description, type, name};
  if (!call.resolve(Need::Primitive, "rCouldNotAddModifierType", collection, description))
    return std::string();
  VrFXModule* module = call.primitive->addFXModule(type);
  if (!module) return call.fail<std::string>("rCouldNotAddModifierType");
  if (!name.empty()) module->setAttr("name", name);
  return module->name();
}

bool fxModuleIncludedInPreset(const std::string& collection, const std::string& description,
                              const std::string& module) {
  Call call{collection, description, module};
  if (!call.resolve(Need::Primitive, "rCouldNotFindModifierForPreset", collection, description))
    return false;
  const VrFXModule* found = call.primitive->findFXModule(module);
  if (!found) return call.fail("rCouldNotFindModifierForPreset");
  return found->includedInPreset();
}

bool removeFXModule(const std::string& collection, const std::string& description,
                    const std::string& module) {
  Call call{collection, description, module};
  if (!call.resolve(Need::Primitive, "rCouldNotRemoveModifierType", collection, description))
    return false;
  if (!call.primitive->removeFXModule(module)) return call.fail("rFxModuleNotFound");
  return true;
}

bool moveFXModule(const std::string& collection, const std::string& description,
                  const std::string& module, int step) {
  Call call{collection, description, module};
  if (!call.resolve(Need::Primitive, "rCouldNotMoveModifierType", collection, description))
    return false;
  int index = 0;
  if (!call.primitive->findFXModule(module, &index)) return call.fail("rFxModuleNotFoundMove");
  const long long last = static_cast<long long>(call.primitive->modules().size()) - 1;
  const long long position = std::clamp(static_cast<long long>(index) + step, 0LL, last);
  return call.primitive->moveFXModule(module, static_cast<int>(position));
}

// ---------------------------------------------------------------------------------------------
// Bound geometry and culled primitives

std::vector<std::string> boundGeometry(const std::string& collection,
                                       const std::string& description) {
  Call call{collection, description};
  std::vector<std::string> names;
  if (!call.resolve(Need::Description, "rCouldNotReturnBoundGeo", collection, description))
    return names;
  for (const auto& entry : call.description->patches()) names.push_back(entry.first);
  return names;
}

std::vector<int> boundFaces(const std::string& collection, const std::string& description,
                            const std::string& patch, bool flag) {
  (void)flag;
  Call call{collection, description, patch};
  if (!call.resolve(Need::Description, "rCouldNotReturnBoundFace", collection, description))
    return {};
  const VrPatch* found = call.description->patch(patch);
  if (!found) return call.fail<std::vector<int>>("rCouldNotReturnBoundFaceNotFound");
  return found->faceIds();
}

std::vector<std::string> culledPrimPatches(const std::string& collection,
                                           const std::string& description) {
  Call call{collection, description};
  std::vector<std::string> names;
  if (!call.resolve(Need::Description, "rCouldNotReturnPatches", collection, description))
    return names;
  for (const auto& entry : call.description->patches()) {
    const VrPatch::CulledPrims& culled = entry.second->culledPrims();
    if (std::any_of(culled.begin(), culled.end(), [](const auto& face) { return !face.second.empty(); }))
      names.push_back(entry.first);
  }
  return names;
}

std::vector<int> culledPrimFaces(const std::string& collection, const std::string& description,
                                 const std::string& patch) {
  Call call{collection, description, patch};
  if (!call.resolve(Need::Description, "rCouldNotReturnPatchIds", collection, description))
    return {};
  const VrPatch* found = call.description->patch(patch);
  if (!found) return call.fail<std::vector<int>>("rCouldNotReturnPatchNotFound");
  std::vector<int> faces;
  for (const auto& entry : found->culledPrims())
    if (!entry.second.empty()) faces.push_back(entry.first);
  return faces;
}

std::vector<int> culledPrims(const std::string& collection, const std::string& description,
                             const std::string& patch, int face) {
  Call call{collection, description, patch};
  if (!call.resolve(Need::Description, "rCouldNotReturnCulledPrims", collection, description))
    return {};
  const VrPatch* found = call.description->patch(patch);
  if (!found) return call.fail<std::vector<int>>("rCouldNotReturnPatchNotFound");
  std::vector<int> ids;
  const auto onFace = found->culledPrims().find(face);
  if (onFace != found->culledPrims().end())
    for (unsigned id : onFace->second) ids.push_back(static_cast<int>(id));
  return ids;
}

// ---------------------------------------------------------------------------------------------
// Guides

bool initInterpolation(const std::string& collection, const std::string& description,
                       const std::string& object) {
  Call call{collection, description, object};
  if (!call.resolve(Need::Description, "rCouldNotInitInterpolation", collection, description))
    return false;
  VrObject* named = object.empty() ? call.description->activePrimitive() : call.description->getObject(object);
  auto* primitive = dynamic_cast<VrBasePrimitive*>(named);
  if (!primitive) return call.fail("rCouldNotInitInterpolation");
  primitive->transformGuidesToSurface();
  primitive->initInterpolation("");
  return true;
}

// ---------------------------------------------------------------------------------------------
// Files

std::string importPalette(const std::string& file, const std::string& deltas,
                          const std::string& nameSpace) {
  Call call{file, deltas, nameSpace};
  if (file.empty()) return call.fail<std::string>("rSpecifyFileName");
  VrPalette* imported = VrImport(file, nameSpace, 0u);
  if (!imported) return call.fail<std::string>("rFailedToImportCollectionFromFile");
  // A collection whose name is taken was left out of the dictionary by its rename.
  if (VrPalette::palette(imported->name()) != imported) {
    delete imported;
    return call.fail<std::string>("rTriedToImportDuplicate");
  }
  std::vector<std::string> deltaFiles;
  vrutil::stoss(deltas, deltaFiles, " \t");
  if (!VrApplyDeltas(imported, deltaFiles)) {
    delete imported;
    return call.fail<std::string>("rFailedToApplyDelta");
  }
  if (!VrCreateSnapshot(imported)) call.fail("rFailedToCreateSnapshot");
  return imported->name();
}

bool exportPalette(const std::string& collection, const std::string& file) {
  Call call{collection, file};
  if (file.empty()) return call.fail("rYouMustSpecifyAFileName");
  if (!call.resolve(Need::Collection, "rCouldNotExportCollection", collection)) return false;
  if (!VrExportPalette(call.collection, file)) return call.fail("rCouldNotExportCollection");
  return true;
}

std::string importDescription(const std::string& collection, const std::string& file) {
  Call call{collection, file};
  if (file.empty()) return call.fail<std::string>("rSpecifyFileNameError");
  if (!call.resolve(Need::Collection, "rCouldNotImportDescription", collection))
    return std::string();
  const VrDescription* imported = VrImportDescription(call.collection, file, false);
  if (!imported) return call.fail<std::string>("rFailedToImportDescription");
  return imported->name();
}

bool exportDescription(const std::string& collection, const std::string& description,
                       const std::string& file, bool withGuides) {
  Call call{collection, description, file};
  if (file.empty()) return call.fail("rSpecifyFileNameExportDesc");
  if (!call.resolve(Need::Description, "rCouldNotExportDesc", collection, description))
    return false;
  if (!VrExportDescription(call.description, file, withGuides)) return call.fail("rCouldNotExportDesc");
  return true;
}

std::string importDescriptionAsPreset(const std::string& collection, const std::string& file) {
  Call call{collection, file};
  if (file.empty()) return call.fail<std::string>("rSpecifyFileNameError");
  if (!call.resolve(Need::Collection, "rCouldNotImportDescAsPreset", collection)) return std::string();
  const VrDescription* imported = VrImportDescriptionAsPreset(call.collection, file);
  if (!imported) return call.fail<std::string>("rFailedToImportDescAsPreset");
  return imported->name();
}

bool exportDescriptionAsPreset(const std::string& collection, const std::string& description,
                               const std::string& file, bool withGuides, bool withModules) {
  Call call{collection, description, file};
  if (file.empty()) return call.fail("rSpecifyFileNameExportDescAsPreset");
  if (!call.resolve(Need::Description, "rCouldNotExportDescAsPreset", collection, description))
    return false;
  if (!VrExportDescriptionAsPreset(call.description, file, withGuides, withModules))
    return call.fail("rCouldNotExportDescAsPreset");
  return true;
}

std::string importFXModule(const std::string& collection, const std::string& description,
                           const std::string& file) {
  Call call{collection, description, file};
  if (file.empty()) return call.fail<std::string>("rFileNameImportModifier");
  if (!call.resolve(Need::Primitive, "rCouldNotImportModifier", collection, description))
    return std::string();
  const VrFXModule* imported = VrImportFXModule(call.description, file);
  if (!imported) return call.fail<std::string>("rCouldNotImportModifierFile");
  return imported->name();
}

bool exportFXModule(const std::string& collection, const std::string& description,
                    const std::string& module, const std::string& file) {
  Call call{collection, description, module, file};
  if (file.empty()) return call.fail("rModifierExportFileName");
  if (!call.resolve(Need::Primitive, "rCouldNotFindModifier", collection, description))
    return false;
  const VrFXModule* found = call.primitive->findFXModule(module);
  if (!found) return call.fail("rCouldNotFindModifier");
  return VrExportFXModule(found, file);
}

// ---------------------------------------------------------------------------------------------
// Deltas and snapshots

bool initSnapshot(const std::string& collection) {
  Call call{collection};
  if (!call.resolve(Need::Collection, "rFailedSnapshotCollectionNotFound", collection)) return false;
  if (!VrCreateSnapshot(call.collection)) return call.fail("rFailedToCreateSnapshot");
  return true;
}

bool canCreateDelta(const std::string& collection) {
  Call call{collection};
  if (!call.resolve(Need::Collection, "rFailedCanCreateDeltaCollectionNotFound", collection))
    return false;
  return call.collection->snapshot() != nullptr;
}

int createDelta(const std::string& collection, const std::string& file) {
  Call call{collection, file};
  if (!call.resolve(Need::Collection, "rFailedDeltaCollectionNotFound", collection)) return -1;
  if (!call.collection->snapshot()) {
    call.fail("rFailedDeltaSnapshotNotFound");
    return -1;
  }
  return VrDeltaPalettes(call.collection->snapshot(), call.collection, file);
}

bool applyDelta(const std::string& collection, const std::string& file) {
  Call call{collection, file};
  if (!call.resolve(Need::Collection, "rPaletteDoesNotExist", collection)) return false;
  return VrApplyDelta(call.collection, file);
}

// ---------------------------------------------------------------------------------------------
// File names and text

std::string findFileInVrDataPath(const std::string& file, const std::string& geometry,
                                 const std::string& collection, const std::string& description) {
  Call call{file, geometry, collection, description};
  if (!call.resolve(Need::Description, "rCouldNotFindFileInDataPath", collection, description))
    return std::string();
  std::string found;
  if (!vrutil::findFileInVrDataPath(found, file, geometry, call.description, "", true))
    return call.fail<std::string>("rCouldNotFindFileInDataPath");
  return found;
}

std::string expandFilepath(const std::string& text, const std::string& description,
                           bool isDirectory, bool createDirs, const std::string& geometry,
                           const std::string& fxModule) {
  return vrutil::expandFilepath(text, description, isDirectory, createDirs, geometry, fxModule);
}

std::string fileCleanup(const std::string& text) {
  std::string cleaned = text;
  vrutil::fileCleanup(cleaned);
  return cleaned;
}

std::string prepForAttribute(const std::string& text) { return vrutil::prepForAttribute(text); }
std::string prepForEditor(const std::string& text) { return vrutil::prepForEditor(text); }
std::string stripNameSpace(const std::string& text) { return vrutil::stripNameSpace(text); }
std::string objNameSpace(const std::string& text) { return vrutil::objNameSpace(text); }
std::string objBaseNameSpace(const std::string& text) { return vrutil::objBaseNameSpace(text); }

// ---------------------------------------------------------------------------------------------
// Installation and configuration

std::string rootDir() { return vrutil::rootDir(); }
std::string iconDir() { return vrutil::iconDir(); }
std::string version() { return vrutil::version(); }
std::string docsDir() { return VrConfig::state().docs(); }
std::string globalRepo() { return VrConfig::state().globalRepo(); }
std::string localRepo() { return VrConfig::state().localRepo(); }
std::string userRepo() { return VrConfig::state().userRepo(); }
std::string promoteFunc() { return VrConfig::state().promoteFunc(); }
std::string getProjectPath() { return VrConfig::state().getProjectPath(); }
void setProjectPath(const std::string& path) { VrConfig::state().setProjectPath(path); }
void initConfig(const std::string& projectPath) { VrConfig::state().init(projectPath); }

// ---------------------------------------------------------------------------------------------
// Message levels

int getMessageLevel(const std::string& kind) {
  if (kind == "debug") return static_cast<int>(VRDebugLevel);
  if (kind == "warning") return static_cast<int>(VRWarningLevel);
  if (kind == "stats") return static_cast<int>(VRStatsLevel);
  if (kind == "quitOnError") return VRQuitOnError ? 1 : 0;
  return 0;
}

bool setMessageLevel(const std::string& kind, int level) {
  const unsigned limited = static_cast<unsigned>(std::clamp(level, 0, 5));
  if (kind == "debug") VRDebugLevel = limited;
  else if (kind == "warning") VRWarningLevel = limited;
  else if (kind == "stats") VRStatsLevel = limited;
  else if (kind == "quitOnError") VRQuitOnError = level != 0;
  else return false;
  return true;
}

}  // namespace vrapi
