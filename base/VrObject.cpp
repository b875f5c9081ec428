#include "base/VrObject.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "base/vrutilString.h"
#include "expressions/VrExpression.h"

#include <cerrno>
#include <cstdlib>
#include <istream>
#include <limits>
#include <ostream>
#include <strings.h>

namespace {

constexpr const char* customPrefix = "custom_";
constexpr size_t customPrefixLength = 7;

bool isCustomName(const std::string& name) { return name.compare(0, customPrefixLength, customPrefix) == 0; }

// Splits "custom_<type>_<short>". Without the second underscore the type is the whole rest and
// the short name the whole name; the answer is then false.
bool splitCustomName(const std::string& name, std::string& type, std::string& shortName) {
  const size_t underscore = name.find('_', customPrefixLength);
  if (underscore == std::string::npos) {
    type = name.substr(customPrefixLength);
    shortName = name;
    return false;
  }
  type = name.substr(customPrefixLength, underscore - customPrefixLength);
  shortName = name.substr(underscore + 1);
  return true;
}

bool equalsNoCase(const std::string& a, const char* b) { return strcasecmp(a.c_str(), b) == 0; }

}  // namespace

VrObject::VrObject(VrDescription* description) : objName("Unnamed"), ownerDescription(description) {}

VrObject::~VrObject() = default;

const std::string& VrObject::attr(unsigned i) const {
  return i < attrOrder.size() ? attrOrder[i] : attrOrder.back();
}

bool VrObject::getAttr(const std::string& name, std::string& value) const {
  const VrAttribute* record = attrs.find(name);
  if (!record) return false;
  value = record->value;
  return true;
}

bool VrObject::getAttr(const std::string& name, std::string& value, std::string& type) const {
  const VrAttribute* record = attrs.find(name);
  if (!record) return false;
  value = record->value;
  type = record->type;
  return true;
}

std::vector<std::string> VrObject::getEnumStrings(const std::string& name) const {
  std::vector<std::string> labels;
  const VrAttribute* record = attrs.find(name);
  if (!record) return labels;
  const std::string& joined = record->enumStrings;
  size_t start = 0;
  while (start <= joined.size() && !joined.empty()) {
    const size_t colon = joined.find(':', start);
    labels.push_back(joined.substr(start, colon - start));
    if (colon == std::string::npos) break;
    start = colon + 1;
  }
  return labels;
}

bool VrObject::setAttr(const std::string& name, const std::string& value, const std::string& type,
                       const std::string& enumStrings) {
  if (VrAttribute* record = attrs.find(name)) {
    record->value = value;
    record->hasTexture = false;
  } else {
    attrs.insert(name, VrAttribute{value, type, enumStrings, false, std::string()});
    attrOrder.push_back(name);
  }

  if (name == "name") {
    setName(value);
    attrs.find(name)->value = this->name();
    return true;
  }
  if (isCustomName(name)) {
    setCustomAttr(name, value);
    return true;
  }
  return false;
}

void VrObject::setCustomAttr(const std::string& name, const std::string& value) {
  std::string type, shortName;
  splitCustomName(name, type, shortName);
  if (std::shared_ptr<VrExpression>* existing = customs.find(shortName)) {
    (*existing)->setType(type);
    (*existing)->setExpression(value);
    return;
  }
  customs.insert(shortName, std::make_shared<VrExpression>(shortName, typeName(), ownerDescription,
                                                           value, type));
}

void VrObject::setName(const std::string& value) { objName = vrutil::sgObjName(value); }

bool VrObject::enabledCustomAttr(const std::string& shortName) const {
  const std::shared_ptr<VrExpression>* found = customs.find(shortName);
  if (!found) {
    VR_ERROR("Failed to find custom attribute: " + shortName);
    return false;
  }
  return (*found)->expression().compare(0, 2, "##") != 0;
}

bool VrObject::removeCustomAttr(const std::string& name) {
  std::string type, shortName;
  if (!splitCustomName(name, type, shortName)) {
    VR_ERROR("Tried to remove a custom attribute with invalid format: " + name);
    return false;
  }
  return customs.erase(shortName);
}

bool VrObject::remAttr(const std::string& name) {
  attrs.erase(name);
  if (isCustomName(name) && !removeCustomAttr(name)) return false;
  for (auto it = attrOrder.begin(); it != attrOrder.end(); ++it) {
    if (*it == name) {
      attrOrder.erase(it);
      break;
    }
  }
  return true;
}

void VrObject::remAttrs(const std::set<std::string>& names) {
  for (const std::string& name : names) {
    attrs.erase(name);
    if (isCustomName(name)) removeCustomAttr(name);
  }
  std::vector<std::string> kept;
  kept.reserve(attrOrder.size());
  for (const std::string& name : attrOrder)
    if (!names.count(name)) kept.push_back(name);
  attrOrder.swap(kept);
}

void VrObject::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  for (auto it = customs.begin(); it != customs.end(); ++it)
    it.value()->getExternalContext(pairs, prefix + it.key());
}

bool VrObject::getTexture(const std::string& name, std::string& text) const {
  const VrAttribute* record = attrs.find(name);
  if (!record) return false;
  text = record->hasTexture ? record->texture : std::string();
  return true;
}

bool VrObject::setTexture(const std::string& name, const std::string& text) {
  VrAttribute* record = attrs.find(name);
  if (!record) return false;
  record->texture = text;
  record->hasTexture = true;
  return true;
}

void VrObject::setTexMap(const std::string& name, const std::string& text) {
  if (!attrs.contains(name)) {
    attrs.insert(name, VrAttribute{std::string(), "float", std::string(), false, std::string()});
    attrOrder.push_back(name);
  }
  setTexture(name, text);
}

void VrObject::getTexMap(std::vector<std::string>& lines) const {
  VR_DEBUG(1, vrmsg::CatFile, "Exporting textures " + typeName());
  std::string owner;
  if (!getAttr("name", owner)) owner = typeName();
  owner = vrutil::stripNameSpace(owner);  // read back into whatever name space the file goes
  for (auto it = attrs.begin(); it != attrs.end(); ++it)
    if (it.value().hasTexture) lines.push_back(owner + "\t" + it.key() + "\t" + it.value().texture);
}

const char* VrObject::tabsFor(const std::string& attrName) {
  if (attrName.size() < 8) return "\t\t\t";
  if (attrName.size() < 16) return "\t\t";
  return "\t";
}

bool VrObject::leftOutOfPreset(const std::string& name, const VrAttribute& record) const {
  // Names travel always: they are written without name space and read back into the target's.
  if (name == "name" || name == "parent" || name == "groom") return false;
  const bool isString = record.type == "string";
  if (!(isString && !attrIsForcedInPreset(name)) && record.type != "expr") return false;
  const VrExpression expression(name, typeName(), ownerDescription, record.value, record.type);
  if (isString) return !expression.isValid();
  return expression.usesFunc("patchAttr") || expression.usesFunc("map");
}

void VrObject::writeBlockBody(std::ostream& out, bool preset) const {
  for (const std::string& name : attrOrder) {
    const VrAttribute* record = attrs.find(name);
    if (!record) continue;
    if (preset && leftOutOfPreset(name, *record)) continue;
    std::string value = record->value;
    if (name == "name" || name == "parent") {
      value = vrutil::stripNameSpace(value);
    } else if (name == "groom") {
      if (preset) value = vrutil::stripNameSpace(value);
      if (attrWrittenEmpty(name)) value.clear();
    }
    out << '\t' << name << tabsFor(name) << value << '\n';
  }
}

bool VrObject::exportObj(std::ostream& out) const {
  VR_DEBUG(1, vrmsg::CatFile, "Exporting object " + typeName());
  out << '\n' << typeName() << '\n';
  writeBlockBody(out, false);
  if (exportExtraAttr(out)) out << "\tendAttrs\n";
  return out.good();
}

bool VrObject::exportObjAsPreset(std::ostream& out) const {
  out << '\n' << typeName() << '\n';
  writeBlockBody(out, true);
  out << "\tendAttrs\n";
  return out.good();
}

bool VrObject::importObj(std::istream& in, const std::string& nameSpace) {
  std::string token;
  std::string line;
  while (in >> token) {
    if (token == "endAttrs") break;
    VR_DEBUG(5, vrmsg::CatFile, "Token: " + token);
    if (token[0] == '#' || isExtraAttr(token)) {
      vrutil::safeGetline(in, line);
      continue;
    }
    vrutil::safeGetline(in, line);
    std::string value = vrutil::stripWhitespace(line, false);
    if (!hasAttr(token) && !isCustomName(token)) {
      VR_WARNING(3, "Found token [" + token + "] which isnt recognized by object [" + typeName() +
                        "] Attempting conversion/cleanup.");
    }
    if (token == "name" || token == "parent") {
      const std::string stripped = vrutil::stripNameSpace(value);
      if (!stripped.empty() && !nameSpace.empty()) value = nameSpace + ":" + stripped;
    }
    if (!setAttr(token, value, "float", "")) {
      VR_WARNING(3, "Unable to process token [" + token + "] for object object [" + typeName() +
                        "] Carrying it forward unchanged.");
    }
  }
  return in.good();
}

void VrObject::resetToCanonical(const std::string& name, const char* canonical) {
  if (VrAttribute* record = attrs.find(name)) {
    record->value = canonical;
    record->hasTexture = false;
  }
}

bool VrObject::boolAttr(const std::string& name, const std::string& value, bool& out) {
  if (equalsNoCase(value, "true") || equalsNoCase(value, "on") || equalsNoCase(value, "one") ||
      value == "1") {
    out = true;
    return true;
  }
  if (equalsNoCase(value, "false") || equalsNoCase(value, "off") || equalsNoCase(value, "zero") ||
      value == "0") {
    out = false;
    return true;
  }
  out = false;
  resetToCanonical(name, "false");
  return false;
}

namespace {
// strtol over the whole text; false when nothing or not everything was consumed or out of range.
bool parseLong(const std::string& text, long& out) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  out = std::strtol(text.c_str(), &end, 10);
  return errno == 0 && end == text.c_str() + text.size();
}
}  // namespace

bool VrObject::intAttr(const std::string& name, const std::string& value, int& out) {
  long parsed = 0;
  if (parseLong(value, parsed) && parsed >= std::numeric_limits<int>::min() &&
      parsed <= std::numeric_limits<int>::max()) {
    out = static_cast<int>(parsed);
    return true;
  }
  resetToCanonical(name, "0");
  return false;
}

bool VrObject::uintAttr(const std::string& name, const std::string& value, unsigned& out) {
  long parsed = 0;
  if (parseLong(value, parsed) && parsed >= 0 && parsed <= std::numeric_limits<unsigned>::max()) {
    out = static_cast<unsigned>(parsed);
    return true;
  }
  resetToCanonical(name, "0");
  return false;
}

bool VrObject::floatAttr(const std::string& name, const std::string& value, double& out) {
  if (!value.empty()) {
    char* end = nullptr;
    const double parsed = std::strtod(value.c_str(), &end);
    if (end == value.c_str() + value.size()) {
      out = parsed;
      return true;
    }
  }
  out = 0.0;
  resetToCanonical(name, "0.0");
  return false;
}
