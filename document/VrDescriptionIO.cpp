// The blocks a description writes into and reads from collection files: its objects, texture
// links, active choices and patches with their guides.

#include "document/VrDescription.h"

#include "base/VrMessage.h"
#include "base/VrModules.h"
#include "base/vrutilName.h"
#include "base/vrutilString.h"
#include "document/VrFileReaderImpl.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <istream>
#include <memory>
#include <ostream>

bool VrDescription::exportObjects(std::ostream& out) const {
  VR_DEBUG(1, vrmsg::CatFile, "Exporting objects for " + name());
  for (auto it = objects.begin(); it != objects.end(); ++it) {
    const VrObject* object = it.value();
    if (!object) {
      VR_ERROR("Null pointer to object.");
      return false;
    }
    object->exportObj(out);
    if (const auto* asPrimitive = dynamic_cast<const VrPrimitive*>(object)) {
      if (!asPrimitive->exportFXModules(out)) VR_ERROR("Unable to export Modifiers.");
    }
  }
  exportTexMap(out);
  out << '\n';
  if (primitive) out << "\tActive\t" << primitive->typeName() << '\n';
  if (generator) out << "\tActive\t" << generator->typeName() << '\n';
  if (renderer) out << "\tActive\t" << renderer->typeName() << '\n';
  if (previewer) out << "\tPreview\t" << previewer->typeName() << '\n';
  return out.good();
}

bool VrDescription::exportTexMap(std::ostream& out) const {
  std::vector<std::string> lines;
  for (auto it = objects.begin(); it != objects.end(); ++it) it.value()->getTexMap(lines);
  if (primitive) primitive->getFXTextures(lines);
  if (lines.empty()) return out.good();
  out << "\nMapTextures\n";
  for (const std::string& line : lines) out << '\t' << line << '\n';
  out << "\tendAttrs\n";
  return out.good();
}

bool VrDescription::importTexMap(std::istream& in) {
  std::string token, attribute, line;
  while (in >> token) {
    if (token == "endAttrs") return true;
    if (token[0] == '#') {
      vrutil::safeGetline(in, line);
      continue;
    }
    VR_DEBUG(5, vrmsg::CatFile, "Token: " + token);
    in >> attribute;
    vrutil::safeGetline(in, line);
    const std::string text = vrutil::stripWhitespace(line);
    if (VrObject* object = getObject(token)) {
      if (object->hasAttr(attribute))
        object->setTexMap(attribute, text);
      else
        VR_WARNING(3, "Found token [" + attribute + "] which isn't recognized by object [" + token +
                          "] Skipped.");
      continue;
    }
    VrPrimitive* owner = primitive;
    if (!owner) {
      for (auto it = objects.begin(); it != objects.end() && !owner; ++it)
        owner = dynamic_cast<VrPrimitive*>(it.value());
    }
    // Module names are written without their name space; the modules of this description carry
    // its name space.
    if (!owner || (!owner->setFXTexture(token, attribute, text) &&
                   !owner->setFXTexture(vrutil::objNameSpace(name()) + token, attribute, text)))
      VR_WARNING(3, "Found token [" + token + "] which isn't recognized by description [" +
                        typeName() + "] Skipped.");
  }
  return false;
}

// The guides rooted on a patch: the active primitive's first, then those that other primitives
// still hold (a file may give guides to a primitive that is not active), so that none are lost.
void VrDescription::writePatchWithGuides(std::ostream& out, const VrPatch* patch) const {
  patch->exportObj(out);
  if (primitive) primitive->exportGuides(out, patch);
  for (auto it = objects.begin(); it != objects.end(); ++it) {
    const auto* other = dynamic_cast<const VrBasePrimitive*>(it.value());
    if (other && other != primitive) other->exportGuides(out, patch);
  }
  out << "endObject\n";
}

bool VrDescription::exportPatches(std::ostream& out) const {
  out << "\nPatches\t" << vrutil::stripNameSpace(name()) << '\t'
      << (primitive ? primitive->numGuides() : 0u) << '\n';
  for (const auto& entry : patchMap) writePatchWithGuides(out, entry.second);
  out << "endPatches\n";
  return out.good();
}

bool VrDescription::exportPatch(const std::string& patchName, std::ostream& out) const {
  const VrPatch* found = patch(patchName);
  if (!found) return false;
  writePatchWithGuides(out, found);
  return out.good();
}

bool VrDescription::importPatch(std::istream& in) {
  std::string type;
  if (!(in >> type)) return vrfile::reportEndInside("a Patch line");
  VR_DEBUG(3, vrmsg::CatDescription, "Patchtype: " + type);
  // Patches are made only by the patch families; anything else is refused before creation.
  std::unique_ptr<VrPatch> created;
  if (type == "Nurbs" || type == "Subd")
    created.reset(static_cast<VrPatch*>(VrCreateObject(type + "Patch", this)));
  if (!created) {
    VR_ERROR("Failed to create patch.");
    return false;
  }
  if (!created->importObj(in)) {
    // Guides read before the failure must not outlive their patch.
    for (auto it = objects.begin(); it != objects.end(); ++it)
      if (auto* asPrimitive = dynamic_cast<VrPrimitive*>(it.value()))
        asPrimitive->stripGuidePatch(created.get());
    return false;
  }
  // A second patch of one name replaces the first, which goes with its guides.
  if (patch(created->name())) removePatch(created->name());
  addPatch(created.release());
  return true;
}

bool VrDescription::importPatches(std::istream& in) {
  std::string token, line;
  while (in >> token) {
    if (token == "endPatches") return true;
    if (token[0] == '#') {
      vrutil::safeGetline(in, line);
    } else if (token == "Patch") {
      if (!importPatch(in)) return false;
    } else {
      VR_ERROR("Unrecognized token: " + token + " in Description Patches import.");
      return false;
    }
  }
  return vrfile::reportEndInside("a Patches block");
}
