#include "document/VrDelta.h"

#include "base/VrAtomicFile.h"
#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "base/vrutilPath.h"
#include "base/vrutilString.h"
#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrFileReaderImpl.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

// Fields of a delta line are separated by four blanks; the patch line uses tabs.
constexpr const char* Sep = "    ";

// An object's name as delta files write it: without its path and name space.
std::string bareName(const std::string& name) {
  return vrutil::stripNameSpace(vrutil::sgObjName(name));
}

bool contains(const std::string& text, const char* word) {
  return text.find(word) != std::string::npos;
}

bool isModuleType(const std::string& type) { return contains(type, "FXModule"); }

// The FX module of the stack whose name, stripped, is `name` stripped.
VrFXModule* findModule(const VrPrimitive* primitive, const std::string& name) {
  if (!primitive) return nullptr;
  const std::string wanted = bareName(name);
  for (VrFXModule* module : primitive->modules())
    if (bareName(module->name()) == wanted) return module;
  return nullptr;
}

// The description's patch whose name, stripped, is `name` stripped.
VrPatch* findPatch(const VrDescription& description, const std::string& name) {
  const std::string wanted = vrutil::stripNameSpace(name);
  for (const auto& entry : description.patches())
    if (vrutil::stripNameSpace(entry.second->name()) == wanted) return entry.second;
  return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Writing

// Writes the lines that turn `original` into `current`. Every refusal sends its Error and
// answers false; the caller then throws the file away.
class DeltaWriter {
 public:
  DeltaWriter(std::ostream& out, VrPalette& original, VrPalette& current)
      : out(out), original(original), current(current) {}

  bool write() {
    if (!diffObject(current, original, "Palette")) return false;
    if (original.numDescriptions() != current.numDescriptions()) {
      VR_ERROR("Number of descriptions in collections do not agree.");
      return false;
    }
    const std::string nameSpace = vrutil::objNameSpace(current.name());
    for (unsigned i = 0; i < original.numDescriptions(); ++i) {
      VrDescription& before = *original.description(i);
      const std::string label = vrutil::stripNameSpace(before.name());
      const std::string name = nameSpace + label;
      VrDescription* now = current.description(name);
      if (!now) {
        VR_ERROR("Failed to find description " + name + " in the current collection.");
        return false;
      }
      if (!diffDescription(before, *now, label)) return false;
    }
    return true;
  }

 private:
  bool diffDescription(VrDescription& before, VrDescription& now, const std::string& label) {
    if (!diffObject(now, before, label) || !diffPatches(before, now, label)) return false;
    if (!diffActive(before, before.activePrimitive(), now.activePrimitive(), label, true) ||
        !diffActive(before, before.activeGenerator(), now.activeGenerator(), label, false) ||
        !diffActive(before, before.activeRenderer(false), now.activeRenderer(false), label, false) ||
        !diffActive(before, before.activePreviewer(), now.activePreviewer(), label, false))
      return false;
    return diffModules(before.activePrimitive(), now.activePrimitive(), label);
  }

  // One line per attribute of `now` whose value differs from `before`'s or that `before` lacks.
  // An attribute only `before` has cannot be written: a delta never removes one.
  bool diffObject(const VrObject& now, const VrObject& before, const std::string& label) {
    const bool ofCollection = label == "Palette";
    for (const std::string& attribute : now.attrNames()) {
      std::string value, old;
      now.getAttr(attribute, value);
      const bool hadIt = before.getAttr(attribute, old);
      if (attribute == "name" && hadIt) {
        if (bareName(old) != bareName(value)) {
          VR_ERROR("Object names dont match. [" + now.typeName() + " : " + bareName(old) + " -> " +
                   bareName(value) + "]");
          return false;
        }
        continue;
      }
      if (hadIt && old == value) continue;
      if (ofCollection) {
        if (attribute == "vrProjectPath") continue;
        if (attribute == "parent" && hadIt && bareName(old) == bareName(value)) continue;
        if (attribute == "vrDataPath") {
          std::string front;
          if (!addedInFront(value, hadIt ? old : std::string(), front)) {
            VR_ERROR("You are not supposed to change/edit the " + attribute +
                     " in the base collection. Please only add to the front of the existing path. "
                     "Abort extracting delta file.");
            return false;
          }
          value = front;
        }
      }
      writeAttrLine(now, label, attribute, value);
    }
    return true;
  }

  // The directories put in front of the base's data path, without the ';' that joins them to
  // it. False when `now` does not keep `before` whole at its end.
  static bool addedInFront(const std::string& now, const std::string& before, std::string& front) {
    if (before.empty()) {
      front = now;
      return true;
    }
    if (now.size() <= before.size() || now.compare(now.size() - before.size(), before.size(), before) != 0)
      return false;
    std::string added = now.substr(0, now.size() - before.size());
    if (added.back() != ';') return false;
    added.pop_back();
    front = added;
    return true;
  }

  void writeAttrLine(const VrObject& object, const std::string& label, const std::string& attribute,
                     const std::string& value) {
    const std::string type = object.typeName();
    out << label << Sep;
    if (label != "Palette" && type != "Description") {
      out << type << Sep;
      if (isModuleType(type)) out << bareName(object.name()) << Sep;
    }
    out << attribute << Sep << value << '\n';
  }

  bool diffPatches(const VrDescription& before, const VrDescription& now, const std::string& label) {
    if (before.numPatches() != now.numPatches()) {
      VR_ERROR("Number of patches bound to " + label + " in the two collections dont agree.");
      return false;
    }
    for (const auto& entry : now.patches()) {
      const VrPatch& patch = *entry.second;
      const std::string name = vrutil::stripNameSpace(patch.name());
      const VrPatch* old = findPatch(before, name);
      if (!old) {
        VR_ERROR("Failed to find patch " + name + " in original description " + label);
        return false;
      }
      if (old->numFaces() != patch.numFaces()) {
        VR_ERROR("Number of faces dont agree in patch " + name + " of description " + label);
        return false;
      }
      if (!diffCulled(*old, patch, name, label)) return false;
    }
    return true;
  }

  bool diffCulled(const VrPatch& before, const VrPatch& now, const std::string& name,
                  const std::string& label) {
    const VrPatch::CulledPrims& was = before.culledPrims();
    const VrPatch::CulledPrims& is = now.culledPrims();
    const std::string notPresent =
        " is not present in the current " + current.name() + " versions culling. Unculling not supported.";
    for (const auto& face : was) {
      if (face.second.empty()) continue;
      const auto found = is.find(face.first);
      if (found == is.end() || found->second.empty()) {
        VR_ERROR("FaceId " + std::to_string(face.first) + " of patch " + name + notPresent);
        return false;
      }
      for (unsigned id : face.second) {
        if (!found->second.count(id)) {
          VR_ERROR("PrimId " + std::to_string(id) + " of faceId " + std::to_string(face.first) +
                   " of patch " + name + notPresent);
          return false;
        }
      }
    }
    for (const auto& face : is) {
      const auto old = was.find(face.first);
      std::vector<unsigned> added;
      for (unsigned id : face.second)
        if (old == was.end() || !old->second.count(id)) added.push_back(id);
      if (added.empty()) continue;
      out << "Patch\tculledPrims\t" << label << '\t' << name << '\t' << face.first << '\t'
          << added.size() << '\t';
      for (size_t i = 0; i < added.size(); ++i) out << (i ? " " : "") << added[i];
      out << '\n';
    }
    return true;
  }

  // An active object of another type is a "SetActive" line, then the differences from the
  // object of that type the original description makes (a fresh one, or the one it already
  // holds).
  bool diffActive(VrDescription& before, VrObject* was, const VrObject* is, const std::string& label,
                  bool isPrimitive) {
    if (!is) return true;
    const std::string type = is->typeName();
    const VrObject* compareWith = was;
    if (!was || was->typeName() != type) {
      if (isPrimitive) {
        VR_ERROR("Active primitives types do not agree. [" + label + " : " +
                 (was ? was->typeName() : std::string()) + " -> " + type + "]");
        return false;
      }
      out << "SetActive" << Sep << label << Sep << type << '\n';
      compareWith = before.addObject(type);
      if (!compareWith) {
        VR_ERROR("Failed to diff new active object. [" + label + " : " + type + "]");
        return false;
      }
    }
    return diffObject(*is, *compareWith, label);
  }

  // Stacks compared place by place. Modules are added at the end of a stack, so from the first
  // place whose module differs on, every place is removed and added anew: a module that happens
  // to match further down must still move behind the ones added before it.
  bool diffModules(const VrPrimitive* before, const VrPrimitive* now, const std::string& label) {
    if (!before || !now) return true;
    const std::string primitiveType = before->typeName();
    const std::vector<VrFXModule*>& was = before->modules();
    const std::vector<VrFXModule*>& is = now->modules();
    const size_t common = std::min(was.size(), is.size());
    size_t firstDiffering = 0;
    while (firstDiffering < common && was[firstDiffering]->typeName() == is[firstDiffering]->typeName() &&
           bareName(was[firstDiffering]->name()) == bareName(is[firstDiffering]->name()))
      ++firstDiffering;
    for (size_t i = 0; i < firstDiffering; ++i)
      if (!diffObject(*is[i], *was[i], label)) return false;
    for (size_t i = firstDiffering; i < common; ++i) {
      writeRemove(label, primitiveType, *was[i]);
      writeAddBlock(label, primitiveType, *is[i]);
    }
    for (size_t i = common; i < is.size(); ++i) writeAddBlock(label, primitiveType, *is[i]);
    for (size_t i = common; i < was.size(); ++i) writeRemove(label, primitiveType, *was[i]);
    return true;
  }

  void writeRemove(const std::string& label, const std::string& primitiveType, const VrFXModule& module) {
    out << "RemoveFXModule" << Sep << label << Sep << primitiveType << Sep << bareName(module.name()) << '\n';
  }

  void writeAddBlock(const std::string& label, const std::string& primitiveType, const VrFXModule& module) {
    const std::string type = module.typeName();
    const std::string name = bareName(module.name());
    out << "AddFXModule" << Sep << label << Sep << primitiveType << Sep << type << Sep << name << '\n';
    for (const std::string& attribute : module.attrNames()) {
      if (attribute == "name") continue;
      std::string value;
      module.getAttr(attribute, value);
      out << label << Sep << type << Sep << name << Sep << attribute << Sep << value << '\n';
    }
  }

  std::ostream& out;
  VrPalette& original;
  VrPalette& current;
};

// ---------------------------------------------------------------------------------------------
// Reading

// The words of one line, split at whitespace, and the rest of the line behind them.
class Words {
 public:
  explicit Words(const std::string& line) : text(line) {}

  // The next word; an empty word at the end of the line.
  std::string next() {
    static const char* blanks = " \t\r\n\v\f";
    const size_t begin = text.find_first_not_of(blanks, at);
    if (begin == std::string::npos) {
      at = text.size();
      return std::string();
    }
    size_t end = text.find_first_of(blanks, begin);
    if (end == std::string::npos) end = text.size();
    at = end;
    return text.substr(begin, end - begin);
  }

  // What follows the words read so far, stripped of whitespace.
  std::string rest() const { return vrutil::stripWhitespace(text.substr(at)); }

 private:
  const std::string& text;
  size_t at = 0;
};

// Applies the lines of one delta file to a collection. A line handler answers false only for
// the Errors that end the read.
class DeltaReader {
 public:
  DeltaReader(VrPalette& collection, const std::string& path)
      : collection(collection), path(path), nameSpace(vrutil::objNameSpace(collection.name())) {}

  bool run(std::istream& in) {
    std::string line;
    while (vrutil::safeGetline(in, line)) {
      if (!handle(line)) return false;
    }
    if (in.bad()) {
      VR_ERROR("Failed to read delta file: " + path);
      return false;
    }
    return true;
  }

 private:
  bool handle(const std::string& line) {
    Words words(line);
    const std::string first = words.next();
    if (first.empty() || first[0] == '#') return true;
    VR_DEBUG(3, vrmsg::CatFile, "Delta line: " + line);
    // Only the lines right behind an add block's head can belong to the module just added.
    following = added;
    added = nullptr;
    if (first == "FileVersion") return fileVersion(words);
    if (first == "Palette") return collectionAttr(words);
    if (first == "Patch") return culledPrims(words);
    if (first == "RemoveFXModule") return removeModule(words);
    if (first == "AddFXModule") return addModule(words);
    if (first == "SetActive") return setActive(words);
    return objectAttr(first, words);
  }

  bool abort(const std::string& text) const {
    VR_ERROR(text + ". Abort applying delta: " + path);
    return false;
  }

  VrDescription* findDescription(const std::string& name) const {
    return collection.description(nameSpace + vrutil::stripNameSpace(name));
  }

  bool descriptionMissing(const std::string& name) const {
    return abort("Failed to find description " + name + " in collection " + collection.name());
  }

  bool fileVersion(Words& words) {
    const std::string version = words.rest();
    VR_DEBUG(1, vrmsg::CatFile, "Delta file Version: " + version);
    std::istringstream in(version);
    return vrfile::readFileVersion(in);
  }

  bool collectionAttr(Words& words) {
    const std::string attribute = words.next();
    const std::string value = words.rest();
    if (attribute != "vrDataPath") {
      VR_WARNING(1, "Attribute " + attribute + " is not a valid collection attribute. Ignored.");
      return true;
    }
    std::string base;
    collection.getAttr(attribute, base);
    collection.setAttr(attribute, base.empty() ? value : value + ";" + base, "string", "");
    return true;
  }

  bool culledPrims(Words& words) {
    if (words.next() != "culledPrims") {
      VR_ERROR("Unrecognized token after Patch in delta file " + path);
      return true;
    }
    const std::string descriptionName = words.next();
    const std::string patchName = words.next();
    VrDescription* description = findDescription(descriptionName);
    if (!description) return descriptionMissing(descriptionName);
    VrPatch* patch = findPatch(*description, patchName);
    if (!patch)
      return abort("Failed to find patch " + patchName + " in description " + descriptionName);
    std::istringstream in(words.rest());
    int face = 0;
    long count = 0;
    if (!(in >> face >> count) || count < 0) {
      VR_WARNING(1, "Failed to read the culled primitives of patch " + patchName + " in delta file: " + path);
      return true;
    }
    unsigned id = 0;
    for (long i = 0; i < count && in >> id; ++i) patch->cullPrim(face, id);
    return true;
  }

  // The description and the active primitive named by a module line, or an abort that starts
  // with `what` ("Could not add modifier.").
  bool moduleOwner(Words& words, const std::string& what, VrDescription*& description,
                   VrPrimitive*& primitive) {
    const std::string descriptionName = words.next();
    const std::string primitiveType = words.next();
    description = findDescription(descriptionName);
    if (!description)
      return abort(what + " Description " + descriptionName + " not found in collection " + collection.name());
    primitive = description->activePrimitive();
    if (!primitive || primitive->typeName() != primitiveType)
      return abort(what + " Primitive " + primitiveType + " is not active in description " +
                   descriptionName + " of collection " + collection.name());
    return true;
  }

  bool removeModule(Words& words) {
    VrDescription* description = nullptr;
    VrPrimitive* primitive = nullptr;
    if (!moduleOwner(words, "Could not remove modifier.", description, primitive)) return false;
    const std::string name = words.next();
    if (!primitive->removeFXModule(findModule(primitive, name))) moduleMissing(name, *description);
    return true;
  }

  bool addModule(Words& words) {
    VrDescription* description = nullptr;
    VrPrimitive* primitive = nullptr;
    if (!moduleOwner(words, "Could not add modifier.", description, primitive)) return false;
    const std::string type = words.next();
    const std::string name = words.next();
    VrFXModule* module = primitive->addFXModule(type);
    if (!module) {
      VR_ERROR("Failed to add modifier " + name + " to description");
      return true;
    }
    module->setAttr("name", nameSpace + bareName(name));
    added = module;
    return true;
  }

  // GLRenderer is only ever the previewer; any other module goes through setActive.
  bool setActive(Words& words) {
    const std::string descriptionName = words.next();
    const std::string type = words.next();
    VrDescription* description = findDescription(descriptionName);
    if (!description) return descriptionMissing(descriptionName);
    if (type == "GLRenderer")
      description->setPreviewer(type);
    else
      description->setActive(type);
    return true;
  }

  void moduleMissing(const std::string& name, const VrDescription& description) const {
    VR_WARNING(1, "Failed to find modifier " + name + " in description " +
                      vrutil::stripNameSpace(description.name()) + " while reading delta: " + path);
  }

  // Checks that the object a line names is the active one of its kind.
  bool isActive(const VrObject* active, const std::string& type, const char* kind) const {
    if (active && active->typeName() == type) return true;
    VR_WARNING(1, std::string(kind) + " in delta file " + type + " is not active.");
    return false;
  }

  bool objectAttr(const std::string& descriptionName, Words& words) {
    VrDescription* description = findDescription(descriptionName);
    if (!description) return descriptionMissing(descriptionName);
    const std::string word = words.next();
    VrObject* target = nullptr;
    if (isModuleType(word)) {
      const std::string name = words.next();
      // The attribute lines of an add block set the new module, also while a module of the same
      // name that the block replaces is still in the stack.
      if (following && following->description() == description && following->typeName() == word &&
          bareName(following->name()) == bareName(name)) {
        added = following;
        target = following;
      } else {
        target = findModule(description->activePrimitive(), name);
      }
      if (!target) {
        moduleMissing(name, *description);
        return true;
      }
    } else if (contains(word, "Primitive")) {
      if (!isActive(description->activePrimitive(), word, "Primitive")) return true;
      target = description->activePrimitive();
    } else if (contains(word, "Generator")) {
      if (!isActive(description->activeGenerator(), word, "Generator")) return true;
      target = description->activeGenerator();
    } else if (word == "GLRenderer") {
      if (!isActive(description->activePreviewer(), word, "Previewer")) return true;
      target = description->activePreviewer();
    } else if (contains(word, "Renderer")) {
      if (!isActive(description->activeRenderer(false), word, "Renderer")) return true;
      target = description->activeRenderer(false);
    } else if (word == "Description") {
      target = description;
    } else if (description->hasAttr(word) || word.rfind("custom_", 0) == 0) {
      // The description's own attributes are written without an object word.
      return setAttr(*description, word, words.rest());
    } else {
      VR_WARNING(1, "Unknown token [" + word + "] found in delta file: " + path);
      return true;
    }
    const std::string attribute = words.next();
    return setAttr(*target, attribute, words.rest());
  }

  bool setAttr(VrObject& target, const std::string& attribute, const std::string& value) {
    // A false answer is common: objects of modules without behaviour keep their values as text.
    if (attribute.empty() || !target.setAttr(attribute, value, "float", ""))
      VR_WARNING(3, "Failed to set attribute " + attribute + " to object " + target.typeName() +
                        " in delta: " + path);
    return true;
  }

  VrPalette& collection;
  std::string path;
  std::string nameSpace;
  VrFXModule* added = nullptr;      // the module of the add block being read
  VrFXModule* following = nullptr;  // the same, while the line after it is handled
};

}  // namespace

int VrDeltaPalettes(VrPalette* original, VrPalette* current, const std::string& path) {
  if (!original) {
    VR_ERROR("No 'original' collection given to compare against.");
    return -1;
  }
  if (!current) {
    VR_ERROR("No 'current' collection given to compare.");
    return -1;
  }
  if (!vrutil::createDir(path, true)) return -1;
  VrAtomicFile file(path);
  if (!file.ok()) {
    VR_ERROR("Failed to open file: " + path);
    return -1;
  }
  std::ostream& out = file.out();
  out.setf(std::ios::fixed, std::ios::floatfield);
  out.precision(16);
  VrExportHeader(out, "Delta");
  out << '\n';
  const std::streampos start = out.tellp();

  const bool written = DeltaWriter(out, *original, *current).write();
  const bool changed = out.tellp() != start;
  if (!written || !out.good() || !file.commit()) {
    if (written) VR_ERROR("Failed to write file: " + path);
    // A delta that does not describe the two collections must not stay behind: not even an
    // older one at the same path.
    std::remove(vrutil::convertPathSeperateToWindows(path).c_str());
    return -1;
  }
  return changed ? 1 : 0;
}

bool VrApplyDelta(VrPalette* collection, const std::string& path) {
  std::string file = path;
  vrutil::fileCleanup(file);
  if (file.empty()) return true;
  if (!collection) {
    VR_ERROR("No original collection given to apply delta: " + file);
    return false;
  }
  VR_DEBUG(1, vrmsg::CatFile, "Applying delta " + file + " to collection " + collection->name());
  std::error_code ec;
  std::ifstream in;
  if (!std::filesystem::is_directory(file, ec)) in.open(file, std::ios::binary);
  if (!in.is_open()) {
    VR_ERROR("Failed to open delta file: " + file);
    return false;
  }
  return DeltaReader(*collection, file).run(in);
}

bool VrApplyDeltas(VrPalette* collection, const std::vector<std::string>& paths) {
  for (const std::string& path : paths)
    if (!VrApplyDelta(collection, path)) return false;
  return true;
}

bool VrCreateSnapshot(VrPalette* collection) {
  if (!collection) return false;
  VR_DEBUG(1, vrmsg::CatCollection, "Creating snapshot for " + collection->name() + " into export stream.");
  std::stringstream stream;
  if (!VrExportPalette(collection, stream)) return false;
  VR_DEBUG(1, vrmsg::CatCollection, "Importing snapshot from stream as a copy.");
  // The copy takes the collection's name; the name is held, so the copy stays out of the
  // dictionary of collections.
  VrPalette* copy = VrImportAside(stream, vrutil::objNameSpace(collection->name()));
  if (!copy) return false;
  VR_DEBUG(1, vrmsg::CatCollection, "Cleaning snapshot of unused objects and guides.");
  for (unsigned i = 0; i < copy->numDescriptions(); ++i) {
    VrDescription* description = copy->description(i);
    description->cleanObjects(false);
    if (VrPrimitive* primitive = description->activePrimitive()) primitive->setGuideCount(0);
  }
  collection->setSnapshot(copy);
  return true;
}
