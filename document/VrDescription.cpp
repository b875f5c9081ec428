#include "document/VrDescription.h"

#include "base/VrMessage.h"
#include "base/VrModules.h"
#include "base/vrutilCodec.h"
#include "base/vrutilName.h"
#include "document/VrCollectionFile.h"
#include "document/VrPalette.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

namespace {

// Use counts of description ids, indexed by id.
std::vector<unsigned>& idUseCounts() {
  static std::vector<unsigned> counts(1, 0);
  return counts;
}

unsigned firstFreeId() {
  const auto& counts = idUseCounts();
  for (size_t i = 0; i < counts.size(); ++i)
    if (counts[i] == 0) return static_cast<unsigned>(i);
  return static_cast<unsigned>(counts.size());
}

struct LodCamera {
  double x = 0.0, y = 0.0, z = 0.0, scale = 1.0;
};
LodCamera& lodCamera() {
  static LodCamera camera;
  return camera;
}

constexpr const char* widthCoefficientText =
    "clamp(((rand()>$lodMinDensity)?(remap($lodScreenSizeFactor,1,rand()*(1-$lodCullFade),"
    "$lodCullFade,1)):1)*1/($lodMinDensity*(1-$lodScreenSizeFactor)+$lodScreenSizeFactor),0,"
    "$lodMaxWidthRatio)";

// Old attribute names and the names that replaced them.
struct Renamed {
  const char* oldName;
  const char* newName;
};
constexpr Renamed renamedAttrs[] = {
    {"lodAverageWidth", "averageWidth"}, {"lodPixelCullSize", "pixelCullSize"},
    {"lodPixelFadeSize", "pixelFadeSize"}, {"lodCullFade", "cullFade"},
    {"lodMinDensity", "minDensity"},     {"lodCullWidth", "cullWidthRatio"},
    {"lodMaxWidthRatio", "maxWidthRatio"}, {"igroom", "groom"}};

std::string addressText(const void* pointer) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%p", pointer);
  std::string text = buffer;
  return text.compare(0, 2, "0x") == 0 ? text.substr(2) : text;
}

}  // namespace

VrDescription::VrDescription()
    : VrObject(nullptr),
      strayExpr("strayInternal", typeName(), this, "rand() < 0.1", "float"),
      screenSizeExpr("lodScreenSizeFactor", "description", this, "0.0", "float"),
      widthCoefficientExpr("lodWidthCoefficient", "description", this, widthCoefficientText,
                           "float") {
  setAttr("name", "Unnamed");
  setAttr("flipNormals", "false", "bool");
  setAttr("strayPercentage", "0.0", "expr");
  setAttr("lodFlag", "false", "bool");
  setAttr("averageWidth", "1.0", "float");
  setAttr("pixelCullSize", "0.0", "float");
  setAttr("pixelFadeSize", "20.0", "float");
  setAttr("cullFade", "0.1", "float");
  setAttr("minDensity", "0.01", "float");
  setAttr("cullWidthRatio", "0.01", "float");
  setAttr("maxWidthRatio", "20.0", "float");
  setAttr("groom", "", "float");

  const unsigned freeId = firstFreeId();
  id = 0;
  ++idUseCounts()[0];
  setAttr("descriptionId", vrutil::itoa(static_cast<int>(freeId)), "int");
}

VrDescription::~VrDescription() {
  clearPatches();
  clearObjects();
  auto& counts = idUseCounts();
  if (id < counts.size() && counts[id] > 0) --counts[id];
  if (collection && !collection->removeDescription(this))
    VR_ERROR("Could not remove description from collection.");
}

bool VrDescription::setClampedFloat(const std::string& name, const std::string& value,
                                    double& member, double low, double high) {
  double parsed = 0.0;
  const bool ok = floatAttr(name, value, parsed);
  member = std::min(std::max(parsed, low), high);
  return ok;
}

bool VrDescription::setAttr(const std::string& name, const std::string& value,
                            const std::string& type, const std::string& enumStrings) {
  if (VrObject::setAttr(name, value, type, enumStrings)) return true;

  constexpr double unbounded = 1e300;
  if (name == "flipNormals") return boolAttr(name, value, flip);
  if (name == "strayPercentage") {
    strayExpr.setExpression("( rand() * 100 ) < ( " + value + "\\n )");
    return true;
  }
  if (name == "lodFlag") return boolAttr(name, value, lod);
  if (name == "averageWidth" || name == "groom") return true;
  if (name == "pixelCullSize") return setClampedFloat(name, value, pixelCullSize, 0.0, unbounded);
  if (name == "pixelFadeSize") return setClampedFloat(name, value, pixelFadeSize, 0.0, unbounded);
  if (name == "cullFade") return setClampedFloat(name, value, cullFade, 0.0, 1.0);
  if (name == "minDensity") return setClampedFloat(name, value, minDensity, 0.0, 1.0);
  if (name == "cullWidthRatio") return setClampedFloat(name, value, cullWidthRatio, 0.0, 1.0);
  if (name == "maxWidthRatio") return setClampedFloat(name, value, maxWidthRatio, 1.0, unbounded);
  if (name == "descriptionId") {
    unsigned parsed = 0;
    const bool ok = uintAttr(name, value, parsed);
    setDescriptionId(parsed);
    return ok;
  }
  for (const Renamed& renamed : renamedAttrs) {
    if (name == renamed.oldName) {
      remAttr(name);
      const bool undefinedGroom = name == "igroom" && value == "undefined";
      return setAttr(renamed.newName, undefinedGroom ? std::string() : value, "float", "");
    }
  }
  return false;
}

void VrDescription::setName(const std::string& value) {
  std::string newName = vrutil::stripNameSpace(vrutil::sgObjName(value));
  if (collection) newName = vrutil::objNameSpace(collection->name()) + newName;
  if (newName == name()) return;
  VR_DEBUG(1, vrmsg::CatDescription, "Name set to: " + newName);
  objName = newName;
}

void VrDescription::setDescriptionId(unsigned newId) {
  auto& counts = idUseCounts();
  if (id < counts.size() && counts[id] > 0) --counts[id];
  id = newId;
  if (counts.size() <= newId) counts.resize(static_cast<size_t>(newId) + 1, 0);
  ++counts[newId];
}

unsigned VrDescription::descriptionIdUseCount(unsigned id) {
  const auto& counts = idUseCounts();
  return id < counts.size() ? counts[id] : 0;
}

void VrDescription::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrObject::getExternalContext(pairs, prefix);
  if (primitive) primitive->getExternalContext(pairs, prefix);
  if (generator) generator->getExternalContext(pairs, prefix);
  if (renderer) renderer->getExternalContext(pairs, prefix);
  if (previewer && previewer != renderer) previewer->getExternalContext(pairs, prefix);
}

bool VrDescription::removeSample(const VrDescription* sample) {
  auto found = std::find(samples.begin(), samples.end(), sample);
  if (found == samples.end()) return false;
  samples.erase(found);
  return true;
}

bool VrDescription::exportExtraAttr(std::ostream& out) const {
  std::string projectPath;
  if (collection) collection->getAttr("vrProjectPath", projectPath);
  out << "\tvrDataPath\t\t" << (collection ? collection->vrDataPathStr() : std::string()) << '\n';
  out << "\tvrProjectPath\t\t" << projectPath << '\n';
  return true;
}

bool VrDescription::isExtraAttr(const std::string& name) const {
  return name == "vrDataPath" || name == "vrProjectPath";
}

VrObject* VrDescription::addObject(const std::string& module) {
  if (VrObject** existing = objects.find(module)) {
    VR_DEBUG(5, vrmsg::CatDescription,
             "Reusing object in description: 0x" + addressText(*existing));
    return *existing;
  }
  VrObject* object = static_cast<VrObject*>(VrCreateObject(module, this));
  if (!object) return nullptr;
  VR_DEBUG(1, vrmsg::CatDescription, "Adding object to description: 0x" + addressText(object));
  objects.insert(module, object);
  return object;
}

VrObject* VrDescription::getObject(const std::string& module) const {
  VrObject* const* found = objects.find(module);
  return found ? *found : nullptr;
}

bool VrDescription::objectName(int index, std::string& module) const {
  if (index < 0) return false;
  int i = 0;
  for (auto it = objects.begin(); it != objects.end(); ++it, ++i) {
    if (i == index) {
      module = it.key();
      return true;
    }
  }
  return false;
}

bool VrDescription::setActive(const std::string& module) {
  VrObject* object = getObject(module);
  if (!object) object = addObject(module);
  if (!object) return false;

  if (module.find("Primitive") != std::string::npos) {
    auto* newPrimitive = dynamic_cast<VrPrimitive*>(object);
    if (!newPrimitive) {
      VR_ERROR("Object: " + module + " is not a primitive.");
      return false;
    }
    // Guides follow the active primitive.
    if (primitive && primitive != newPrimitive) {
      newPrimitive->newCopiedGuides(primitive);
      primitive->setGuideCount(0);
    }
    primitive = newPrimitive;
  } else if (module.find("Generator") != std::string::npos) {
    generator = object;
  } else if (module.find("Renderer") != std::string::npos) {
    renderer = object;
  }
  VR_DEBUG(1, vrmsg::CatDescription, module + " made active.");
  return true;
}

bool VrDescription::setPreviewer(const std::string& module) {
  if (module.find("Renderer") == std::string::npos) {
    VR_ERROR("Object: " + module + " is not a valid previewer.");
    return false;
  }
  VrObject* object = addObject(module);
  if (!object) return false;
  previewer = object;
  VR_DEBUG(1, vrmsg::CatDescription, module + " made active previewer.");
  return true;
}

VrObject* VrDescription::activeRenderer(bool preview) const {
  return preview && previewer ? previewer : renderer;
}

void VrDescription::cleanObjects(bool deletePreviewer) {
  std::vector<std::string> doomed;
  for (auto it = objects.begin(); it != objects.end(); ++it) {
    VrObject* object = it.value();
    const bool active = object == primitive || object == generator || object == renderer;
    if (active || (object == previewer && !deletePreviewer)) continue;
    doomed.push_back(it.key());
  }
  for (const std::string& module : doomed) {
    VrObject* object = *objects.find(module);
    if (object == previewer) previewer = nullptr;
    objects.erase(module);
    delete object;
  }
}

void VrDescription::clearObjects() {
  for (auto it = objects.begin(); it != objects.end(); ++it) delete it.value();
  objects.clear();
  primitive = nullptr;
  generator = renderer = previewer = nullptr;
}

void VrDescription::addPatch(VrPatch* patch) {
  if (!patch) return;
  VR_DEBUG(3, vrmsg::CatDescription,
           "Adding patch " + patch->name() + " to description " + name());
  patchMap[patch->name()] = patch;
}

VrPatch* VrDescription::patch(const std::string& name) const {
  auto found = patchMap.find(name);
  return found == patchMap.end() ? nullptr : found->second;
}

bool VrDescription::removePatch(const std::string& patchName) {
  if (patchName.empty()) return false;
  auto found = patchMap.find(patchName);
  if (found == patchMap.end()) {
    VR_WARNING(1, "Failed to find patch " + patchName + " in description " + name());
    return false;
  }
  if (primitive) primitive->stripGuidePatch(found->second);
  VrForgetImportedPatch(found->second);
  delete found->second;
  patchMap.erase(found);
  return true;
}

bool VrDescription::changePatchName(const std::string& oldName, const std::string& newName) {
  auto found = patchMap.find(oldName);
  if (found == patchMap.end()) return false;
  VrPatch* patch = found->second;
  patchMap.erase(found);
  patch->setName(newName);
  patchMap[newName] = patch;
  return true;
}

void VrDescription::clearPatches() {
  for (auto& entry : patchMap) {
    if (primitive) primitive->stripGuidePatch(entry.second);
    VrForgetImportedPatch(entry.second);
    delete entry.second;
  }
  patchMap.clear();
}

void VrDescription::setLodCamera(double x, double y, double z, double scale) {
  lodCamera() = LodCamera{x, y, z, scale};
}

void VrDescription::setLodScreenSizeFactor() {
  const LodCamera& camera = lodCamera();
  screenSizeExpr.setExpression(
      "clamp(($initialWidth/2.0*2048.0/length($Pgw-[" + vrutil::ftoa(camera.x) + "," +
      vrutil::ftoa(camera.y) + "," + vrutil::ftoa(camera.z) + "])*" + vrutil::ftoa(camera.scale) +
      "-$lodPixelCullSize)/($lodPixelFadeSize-$lodPixelCullSize),0.0001,1)");
}

bool VrDescription::groomWrittenEmpty() const {
  if (!primitive || primitive->typeName() != "SplinePrimitive") return false;
  std::string method;
  return primitive->getAttr("iMethod", method) && method == "1";
}
