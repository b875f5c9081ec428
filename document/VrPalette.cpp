#include "document/VrPalette.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "base/vrutilPath.h"
#include "base/vrutilString.h"
#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/vrutilFiles.h"

#include <algorithm>

namespace {
VrDict<VrPalette*>& registeredPalettes() {
  static VrDict<VrPalette*> palettes;
  return palettes;
}
}  // namespace

VrPalette::VrPalette() : VrObject(nullptr) {
  setAttr("name", "Unnamed");
  setAttr("parent", "");
  setAttr("vrDataPath", "Undefined", "string");
  setAttr("vrProjectPath", "Undefined", "string");
  setAttr("vrDogTag", "");
  // Two unnamed collections collide here; the later one takes the entry.
  registeredPalettes()["Unnamed"] = this;
}

VrPalette::~VrPalette() {
  VrForgetImported(this);
  for (VrPalette* sample : samples) delete sample;
  samples.clear();
  // Each description releases itself from this collection as it is destroyed.
  while (!descriptions.empty()) delete descriptions.front();
  auto& palettes = registeredPalettes();
  if (VrPalette** entry = palettes.find(name()); entry && *entry == this) palettes.erase(name());
  delete snapshotCollection;
}

bool VrPalette::setAttr(const std::string& name, const std::string& value, const std::string& type,
                        const std::string& enumStrings) {
  if (VrObject::setAttr(name, value, type, enumStrings)) return true;
  if (name == "parent" || name == "vrProjectPath" || name == "vrDogTag") return true;
  if (name == "vrDataPath") {
    setDataPath(value);
    return true;
  }
  return false;
}

void VrPalette::setDataPath(const std::string& value) {
  dataPathString.clear();
  if (!vrutil::stoss(vrutil::forwardSlashes(value), dataPathList, ";")) return;
  for (std::string& directory : dataPathList) {
    directory = vrutil::validPath(directory);
    if (!dataPathString.empty()) dataPathString += ';';
    dataPathString += directory;
  }
  vrutil::clearFileCache();
}

void VrPalette::setName(const std::string& value) {
  const std::string newName = vrutil::sgObjName(value);
  if (newName == name()) return;
  auto& palettes = registeredPalettes();
  const bool newNameTaken = palettes.contains(newName);
  if (!palettes.contains(name())) {
    VR_ERROR("Failed to find collection " + name() + " in dictionary.");
  } else {
    palettes.erase(name());
    // On a collision the other collection keeps the entry and this one stays unlisted.
    if (!newNameTaken) palettes.insert(newName, this);
  }
  VR_DEBUG(1, vrmsg::CatCollection, "Name set to: " + newName);
  objName = newName;
  if (snapshotCollection && snapshotCollection != this) snapshotCollection->objName = newName;
}

bool VrPalette::addDescription(VrDescription* description) {
  if (!description) return false;
  if (std::find(descriptions.begin(), descriptions.end(), description) != descriptions.end())
    return false;
  descriptions.push_back(description);
  description->setPalette(this);
  return true;
}

bool VrPalette::removeDescription(const std::string& name) {
  for (auto it = descriptions.begin(); it != descriptions.end(); ++it) {
    if ((*it)->name() == name) {
      (*it)->setPalette(nullptr);
      descriptions.erase(it);
      return true;
    }
  }
  return false;
}

bool VrPalette::removeDescription(const VrDescription* description) {
  auto found = std::find(descriptions.begin(), descriptions.end(), description);
  if (found == descriptions.end()) return false;
  (*found)->setPalette(nullptr);
  descriptions.erase(found);
  return true;
}

VrDescription* VrPalette::description(const std::string& name) const {
  for (VrDescription* description : descriptions)
    if (description->name() == name) return description;
  return nullptr;
}

VrDescription* VrPalette::description(unsigned index) const {
  return index < descriptions.size() ? descriptions[index] : nullptr;
}

VrPalette* VrPalette::palette(const std::string& name) {
  VrPalette** found = registeredPalettes().find(name);
  return found ? *found : nullptr;
}

const VrDict<VrPalette*>& VrPalette::palettes() { return registeredPalettes(); }

bool VrPalette::removeSample(const VrPalette* sample) {
  auto found = std::find(samples.begin(), samples.end(), sample);
  if (found == samples.end()) return false;
  samples.erase(found);
  return true;
}

void VrPalette::setSnapshot(VrPalette* snapshot) {
  if (snapshot == snapshotCollection) return;
  delete snapshotCollection;
  snapshotCollection = snapshot;
}

void VrPalette::setWorld(const double matrix[4][4]) { worldXform = SgXform3T<double>(&matrix[0][0]); }

void VrPalette::setWorldInverse(const double matrix[4][4]) {
  worldInverseXform = SgXform3T<double>(&matrix[0][0]);
}

const std::shared_ptr<VrExpression>& VrPalette::namedAttr(const std::string& shortName) const {
  static const std::shared_ptr<VrExpression> none;
  const std::shared_ptr<VrExpression>* found = customAttrs().find(shortName);
  return found ? *found : none;
}
