#include "document/vrutilObject.h"

#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "primitives/VrPrimitive.h"

#include <cstdlib>

namespace vrutil {

namespace {

VrObject* lookup(const std::string& collection, const std::string& description,
                 const std::string& object, bool report) {
  VrPalette* palette = VrPalette::palette(collection);
  if (!palette) {
    if (report) VR_ERROR("Vorn collection not found. [" + collection + "]");
    return nullptr;
  }
  if (description.empty()) return palette;

  VrDescription* owner = palette->description(description);
  if (!owner) {
    if (report) VR_ERROR("Vorn description not found. [" + description + "]");
    return nullptr;
  }
  if (object.empty()) return owner;

  if (VrObject* found = owner->getObject(object)) return found;
  if (const VrPrimitive* primitive = owner->activePrimitive())
    if (VrFXModule* module = primitive->findFXModule(object)) return module;
  if (object == palette->name()) return palette;
  if (report) VR_ERROR("Object not found: [" + object + "]");
  return nullptr;
}

// The settings behind the pseudo-attributes, which stand for VrTaskManager, not for an object.
enum class Threading { None, All, Patch, Collision };

Threading threadingAttr(const std::string& attribute) {
  if (attribute == "Multithreading") return Threading::All;
  if (attribute == "MultithreadingPatch") return Threading::Patch;
  if (attribute == "MultithreadingCollision") return Threading::Collision;
  return Threading::None;
}

}  // namespace

VrObject* getObject(const std::string& collection, const std::string& description,
                    const std::string& object) {
  return lookup(collection, description, object, true);
}

VrObject* findObject(const std::string& collection, const std::string& description,
                     const std::string& object) {
  return lookup(collection, description, object, false);
}

std::string getAttr(const std::string& attribute, const std::string& collection,
                    const std::string& description, const std::string& object) {
  switch (threadingAttr(attribute)) {
    case Threading::All: return VrTaskManager::multithreadingEnabled() ? "1" : "0";
    case Threading::Patch: return VrTaskManager::patchMultithreading() ? "1" : "0";
    case Threading::Collision: return VrTaskManager::collisionMultithreading() ? "1" : "0";
    case Threading::None: break;
  }
  const VrObject* found = findObject(collection, description, object);
  if (!found) {
    VR_ERROR("Call to getAttr failed.");
    return std::string();
  }
  std::string value;
  found->getAttr(attribute, value);
  return value;
}

bool setAttr(const std::string& attribute, const std::string& value,
             const std::string& collection, const std::string& description,
             const std::string& object) {
  const Threading threading = threadingAttr(attribute);
  if (threading != Threading::None) {
    const bool on = std::atoi(value.c_str()) == 1;
    if (threading == Threading::All) VrTaskManager::setMultithreading(on);
    if (threading == Threading::All || threading == Threading::Patch)
      VrTaskManager::setPatchMultithreading(on);
    if (threading == Threading::All || threading == Threading::Collision)
      VrTaskManager::setCollisionMultithreading(on);
    return true;
  }
  VrObject* found = findObject(collection, description, object);
  if (!found) {
    VR_ERROR("Call to setAttr failed.");
    return false;
  }
  if (!found->hasAttr(attribute)) return false;
  // The answer of setAttr only says whether a subclass handled the name; the value is stored.
  found->setAttr(attribute, value, "float", "");
  return true;
}

bool setTexture(const std::string& attribute, const std::string& value,
                const std::string& collection, const std::string& description,
                const std::string& object) {
  VrObject* found = findObject(collection, description, object);
  if (!found) {
    VR_ERROR("Call to setTexture failed.");
    return false;
  }
  return found->setTexture(attribute, value);
}

std::string getTexture(const std::string& attribute, const std::string& collection,
                       const std::string& description, const std::string& object) {
  const VrObject* found = findObject(collection, description, object);
  if (!found) {
    VR_ERROR("Call to getTexture failed.");
    return std::string();
  }
  std::string text;
  found->getTexture(attribute, text);
  return text;
}

std::string palette(const std::string& descriptionName) {
  const VrDict<VrPalette*>& collections = VrPalette::palettes();
  for (auto it = collections.begin(); it != collections.end(); ++it) {
    const VrPalette* collection = it.value();
    if (collection && collection->description(descriptionName)) return collection->name();
  }
  VR_ERROR("Could not find Vorn collection: [" + descriptionName + "]");
  return std::string();
}

}  // namespace vrutil
