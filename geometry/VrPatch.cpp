#include "geometry/VrPatch.h"

#include "document/VrDescription.h"
#include "document/VrMessage.h"
#include "document/vrutilName.h"
#include "primitives/VrBasePrimitive.h"

#include <algorithm>
#include <istream>
#include <ostream>

void VrPatch::setFaceIds(std::vector<int> ids) {
  faces = std::move(ids);
  sortFaceIds();
}

void VrPatch::sortFaceIds() { std::sort(faces.begin(), faces.end()); }

bool VrPatch::hasFaceId(int face) const { return std::binary_search(faces.begin(), faces.end(), face); }

bool VrPatch::getAttrValue(const std::string& name, SgVec3T<double>& value) const {
  const SgVec3T<double>* found = customValues.find(name);
  if (!found) return false;
  value = *found;
  return true;
}

void VrPatch::unCullPrim(int face, unsigned id) {
  auto found = culled.find(face);
  if (found == culled.end()) return;
  found->second.erase(id);
  if (found->second.empty()) culled.erase(found);
}

bool VrPatch::isCulled(int face, unsigned id) const {
  auto found = culled.find(face);
  return found != culled.end() && found->second.count(id) != 0;
}

bool VrPatch::exportObj(std::ostream& out) const {
  const std::string type = typeName();
  out << "Patch\t" << type.substr(0, type.size() >= 5 ? type.size() - 5 : 0) << '\n';
  out << "\tname\t\t" << vrutil::stripNameSpace(patchName) << '\n';
  out << "\tfaceIds\t\t" << faces.size();
  for (int face : faces) out << ' ' << face;
  out << '\n';
  if (!culled.empty()) {
    out << "\tculledPrims\t" << culled.size();
    for (const auto& entry : culled) {
      out << '\t' << entry.first << ' ' << entry.second.size() << ' ';
      for (unsigned id : entry.second) out << ' ' << id;
    }
    out << '\n';
  }
  out << "\tanimCurves\t" << curves.size() << '\t';
  for (auto it = curves.begin(); it != curves.end(); ++it) out << ' ' << it.key();
  out << '\n';
  return out.good();
}

bool VrPatch::importObj(std::istream& in) {
  std::string token;
  while (in >> token) {
    if (token == "endObject") return true;
    VR_DEBUG(5, vrmsg::CatPatch, "   Patch Token: " + token);
    if (!processToken(token, in)) {
      VR_ERROR("Unrecognized token: " + token + " in Patch import.");
      return false;
    }
    if (in.fail()) {
      VR_ERROR("Unable to read the value of " + token + " in Patch import.");
      return false;
    }
  }
  VR_ERROR("The file ends inside the patch " + patchName + ".");
  return false;
}

bool VrPatch::processToken(const std::string& token, std::istream& in) {
  if (token == "name") {
    std::string value;
    in >> value;
    patchName = value;
    return true;
  }
  if (token == "faceIds") {
    long count = 0;
    in >> count;
    std::vector<int> ids;
    int face = 0;
    for (long i = 0; i < count && in >> face; ++i) ids.push_back(face);
    setFaceIds(std::move(ids));
    return true;
  }
  if (token == "culledPrims") {
    culled.clear();
    long entries = 0;
    in >> entries;
    for (long e = 0; e < entries && in; ++e) {
      int face = 0;
      long n = 0;
      in >> face >> n;
      unsigned id = 0;
      for (long i = 0; i < n && in >> id; ++i) culled[face].insert(id);
    }
    return true;
  }
  if (token == "animCurves") {
    long count = 0;
    in >> count;
    std::string name;
    for (long i = 0; i < count && in >> name; ++i) curves[name];
    return true;
  }
  if (token == "Guides") {
    std::string word;
    in >> word;
    VrDescription* desc = description();
    auto* primitive = desc ? dynamic_cast<VrBasePrimitive*>(desc->getObject(word + "Primitive")) : nullptr;
    if (!primitive) {
      VR_ERROR(word + " guide has no associated primitive in " + patchName + "  Was primitive exported?");
      return false;
    }
    VR_DEBUG(2, vrmsg::CatPatch,
             VRImportFileVersion >= 15 ? "New style guide import." : "Old style guide import.");
    const bool ok = primitive->importGuides(in, this, VRImportFileVersion);
    VR_DEBUG(2, vrmsg::CatPatch, "Done importing guides.");
    return ok;
  }
  return false;
}
