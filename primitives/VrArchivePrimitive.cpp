#include "primitives/VrArchivePrimitive.h"

#include "base/VrMessage.h"
#include "base/vrutilCodec.h"
#include "base/vrutilString.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "geometry/VrPatch.h"
#include "io/VrImportGeometry.h"
#include "primitives/VrGuideRepair.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace {

constexpr const char* objectWord = "ArchivePrimitive";
constexpr double sizeFloor = vrutil::primitiveSizeFloor;
// The group number times this plus the level is a file key.
constexpr double keyMultiplier = 100.0;

const char* const twistDefault = "$a=0.0;#-180.0,180.0\\n$a";
const char* const frameDefault = "$a=0;#0,100\\n$a";
const char* const aIndexDefault = "pick(rand(),0,$aCount-1)";
const char* const aLODDefault =
    "$lowDistance=30.0;#0.0,50.0\\n$mediumDistance=10.0;#0.0,50.0\\nd=length(cam-P);\\nret=0;\\n"
    "if( d>$lowDistance ){ret=2;}\\nelse if( d>$mediumDistance ){ret=1;}\\nret\\n";

// Index expressions and the words of their reports, by slot.
struct SlotNames {
  const char* attribute;
  const char* defaultText;
  const char* invalidPrefix;
};
const SlotNames slotNames[VrArchivePrimitive::NumSlots] = {
    {"loIndex", "$aIndex*$aMul + 2 + 3", "Invalid loIndex given: "},
    {"medIndex", "$aIndex*$aMul + 1 + 3", "Invalid medIndex given: "},
    {"hiIndex", "$aIndex*$aMul + 0 + 3", "Invalid hiIndex given: "},
    {"proxyIndex", "$aIndex*$aMul + $aLOD", "Invalid proxyIndex given: "},
};

// Pixel-area attributes of the renderer's slots: low, medium, high.
struct RangeNames {
  const char* lower;
  const char* upper;
  const char* lowerDefault;
  const char* upperDefault;
};
const RangeNames rangeNames[3] = {
    {"lodLoLower", "lodLoUpper", "0", "2500"},
    {"lodMedLower", "lodMedUpper", "10000", "40000"},
    {"lodHiLower", "lodHiUpper", "62500", "160000"},
};

const std::string emptyText;
const std::vector<std::string> noNames;

bool slotTextInUse(const std::string& text) {
  const std::string stripped = vrutil::stripWhitespace(text);
  return !stripped.empty() && stripped[0] != '#';
}

}  // namespace

VrArchivePrimitive::VrArchivePrimitive(VrDescription* description)
    : VrPrimitive(description, std::make_unique<VrArchivePrimitiveContext>(description)),
      twistExpression("twist", objectWord, description, twistDefault, "float"),
      frameExpression("frame", objectWord, description, frameDefault, "float"),
      hiIndexExpression("hiIndex", objectWord, description, slotNames[High].defaultText, "float"),
      medIndexExpression("medIndex", objectWord, description, slotNames[Medium].defaultText, "float"),
      loIndexExpression("loIndex", objectWord, description, slotNames[Low].defaultText, "float"),
      proxyIndexExpression("proxyIndex", objectWord, description, slotNames[Proxy].defaultText, "float"),
      aIndexExpression("aIndex", objectWord, description, aIndexDefault, "float"),
      aLODExpression("aLOD", objectWord, description, aLODDefault, "float") {
  setAttr("twist", twistDefault, "expr");
  setAttr("files", "", "string");
  for (Slot slot : {High, Medium, Low, Proxy}) setAttr(slotNames[slot].attribute, slotNames[slot].defaultText, "expr");
  setAttr("aIndex", aIndexDefault, "expr");
  setAttr("aLOD", aLODDefault, "expr");
  for (const RangeNames& r : rangeNames) {
    setAttr(r.lower, r.lowerDefault, "int");
    setAttr(r.upper, r.upperDefault, "int");
  }
  setAttr("aCount", "0", "int");
  setAttr("archiveSize", "1.0", "float");
  setAttr("frame", frameDefault, "expr");
  declared = true;
}

VrArchivePrimitive::~VrArchivePrimitive() = default;

VrExpression* VrArchivePrimitive::slotExpression(Slot slot) {
  return const_cast<VrExpression*>(&static_cast<const VrArchivePrimitive*>(this)->slotExpression(slot));
}

const VrExpression& VrArchivePrimitive::slotExpression(Slot slot) const {
  switch (slot) {
    case Low:
      return loIndexExpression;
    case Medium:
      return medIndexExpression;
    case High:
      return hiIndexExpression;
    default:
      return proxyIndexExpression;
  }
}

bool VrArchivePrimitive::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                 const std::string& enumStrings) {
  if (VrPrimitive::setAttr(name, value, type, enumStrings)) return true;
  if (name.compare(0, 8, "archive_") == 0) return setPerGroupAttr(name, value);
  for (VrExpression* e : {&twistExpression, &frameExpression, &hiIndexExpression, &medIndexExpression,
                          &loIndexExpression, &proxyIndexExpression, &aIndexExpression, &aLODExpression}) {
    if (e->name() == name) {
      e->setExpression(value);
      return true;
    }
  }
  if (name == "files") {
    // While the attributes are declared the list is empty; parsing it would declare `aCount`
    // out of order.
    if (declared) processFiles();
    return true;
  }
  for (size_t i = 0; i < 3; ++i) {
    if (name == rangeNames[i].lower) return uintAttr(name, value, ranges[i].lower);
    if (name == rangeNames[i].upper) return uintAttr(name, value, ranges[i].upper);
  }
  if (name == "aCount") return uintAttr(name, value, archiveCount);
  if (name == "archiveSize") return floatAttr(name, value, sizeOfArchive);
  return false;
}

bool VrArchivePrimitive::setPerGroupAttr(const std::string& name, const std::string& value) {
  // "archive_" type "_" attribute "[" group "]"; the type is always taken as "vector".
  const size_t second = name.find('_', 8);
  const size_t bracket = name.find('[');
  if (second == std::string::npos || bracket == std::string::npos || bracket <= second) return true;
  const std::string attribute = name.substr(second + 1, bracket - second - 1);
  const bool isOverride =
      (hasAttr(attribute) || attribute == "_archiveFrame") && attribute.compare(0, 8, "archive_") != 0;
  // An override goes to the group of the primitive made last, as the groups of a file are
  // read in the order its attributes stand; a value of the group to the group in the name.
  const uint32_t groupNumber = isOverride ? static_cast<const VrArchivePrimitiveContext&>(context()).group
                                          : static_cast<uint32_t>(std::max(vrutil::arrayindex(name), 0));
  const std::string& groupName = list.groupName(static_cast<int>(groupNumber));
  GroupExpressions& held = perGroup[groupName];
  auto& table = isOverride ? held.overrides : held.customs;
  std::shared_ptr<VrExpression>& expression = table[attribute];
  if (expression)
    expression->setExpression(value);
  else
    expression = std::make_shared<VrExpression>(attribute, typeName(), description(), value, "vector");
  anyOverride = anyOverride || isOverride;
  return true;
}

void VrArchivePrimitive::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrPrimitive::getExternalContext(pairs, prefix);
  for (const VrExpression* e : {&twistExpression, &frameExpression, &hiIndexExpression, &medIndexExpression,
                                &loIndexExpression, &proxyIndexExpression, &aIndexExpression, &aLODExpression})
    e->getExternalContext(pairs, prefix + e->name());
  for (const auto& entries : list.entries())
    for (const VrArchiveEntry& entry : entries.second)
      if (!entry.path.empty()) pairs.emplace_back(prefix + "files", entry.path);
}

const VrExpression* VrArchivePrimitive::attrExpression(const std::string& name) const {
  for (const VrExpression* e : {&twistExpression, &frameExpression, &hiIndexExpression, &medIndexExpression,
                                &loIndexExpression, &proxyIndexExpression, &aIndexExpression, &aLODExpression})
    if (e->name() == name) return e;
  return VrPrimitive::attrExpression(name);
}

std::unique_ptr<VrPrimitiveContext> VrArchivePrimitive::createContext() const {
  return std::make_unique<VrArchivePrimitiveContext>(description());
}

void VrArchivePrimitive::processFiles() {
  const std::map<int, VrArchiveGroup> oldGroups = list.groups();
  std::string text;
  getAttr("files", text);
  VrDescription* desc = description();
  list.parse(text, [desc](const std::string& listed) {
    // A name that stands as it is is taken; others are looked up along the data path, quietly:
    // a missing file is reported once when a pass begins, not at every edit.
    std::error_code error;
    if (std::filesystem::is_regular_file(listed, error)) return listed;
    std::string found;
    if (desc && vrutil::findFileInVrDataPath(found, listed, "", desc, "", true)) return found;
    return std::string();
  });

  // Per-group attributes follow their group's name: a group that is new here gets the
  // expressions held for its name, a number that is gone loses its attributes.
  for (const auto& group : list.groups()) {
    const std::string number = std::to_string(group.first);
    const bool coloured = !group.second.color.empty();
    if (coloured) setAttr("archive__aColor[" + number + "]", group.second.color, "vector");
    if (oldGroups.count(group.first)) continue;
    auto held = perGroup.find(group.second.name);
    if (held == perGroup.end()) continue;
    for (const auto* table : {&held->second.overrides, &held->second.customs})
      for (const auto& expression : *table)
        if (!(coloured && expression.first == "aColor"))
          VrObject::setAttr("archive__" + expression.first + "[" + number + "]", expression.second->expression(),
                            "vector");
  }
  std::set<std::string> gone;
  for (const std::string& attribute : attrNames()) {
    if (attribute.compare(0, 8, "archive_") != 0) continue;
    const int number = vrutil::arrayindex(attribute);
    if (oldGroups.count(number) && !list.groups().count(number)) gone.insert(attribute);
  }
  remAttrs(gone);
  setAttr("aCount", std::to_string(list.groupCount()), "int", "");
}

void VrArchivePrimitive::initDescription() {
  VrPrimitive::initDescription();
  processFiles();
  if (list.empty()) VR_ERROR("Archive files list is empty.");
  for (const auto& entries : list.entries())
    for (const VrArchiveEntry& entry : entries.second)
      if (entry.path.empty())
        VR_ERROR("Archive file " + entry.listed + " (group " + std::to_string(entries.first / 100) + ", level " +
                 std::to_string(entries.first % 100) + ") was not found along the data path.");
  for (Slot slot : {Low, Medium, High, Proxy}) {
    invalidKeys[slot].clear();
    std::string text;
    getAttr(slotNames[slot].attribute, text);
    enabled[slot] = slotTextInUse(text);
  }
  readArchiveBoxes();
}

void VrArchivePrimitive::finishDescription() {
  for (Slot slot : {Low, Medium, High, Proxy}) {
    if (invalidKeys[slot].empty()) continue;
    std::vector<int> keys(invalidKeys[slot].begin(), invalidKeys[slot].end());
    std::sort(keys.begin(), keys.end());
    std::string joined;
    for (int key : keys) joined += (joined.empty() ? "" : ", ") + std::to_string(key);
    VR_ERROR(slotNames[slot].invalidPrefix + joined);
    invalidKeys[slot].clear();
  }
  VrPrimitive::finishDescription();
}

void VrArchivePrimitive::readArchiveBoxes() {
  boxesByKey.clear();
  const VrPalette* palette = description() ? description()->palette() : nullptr;
  const double time = palette ? palette->frame() / palette->framesPerSecond() : 0.0;
  std::map<std::string, SgBox3T<double>> byFile;
  for (const auto& entries : list.entries()) {
    SgBox3T<double>& keyBox = boxesByKey[entries.first];
    for (const VrArchiveEntry& entry : entries.second) {
      if (entry.path.empty()) continue;
      const std::string fileKey = entry.path + "|" + [&] {
        std::string joined;
        for (const std::string& object : entry.objects) joined += object + ",";
        return joined;
      }();
      auto known = byFile.find(fileKey);
      if (known == byFile.end()) {
        SgBox3T<double> box;
        CacheUtilHandle handle(entry.path);
        if (auto* alembic = dynamic_cast<AlembicUtil*>(handle.getCacheUtil())) alembic->boundingBox(time, entry.objects, box);
        known = byFile.emplace(fileKey, box).first;
      }
      if (known->second.valid) keyBox.unite(known->second);
    }
  }
}

bool VrArchivePrimitive::archiveBox(const VrPrimitiveContext& context, SgBox3T<double>& box) const {
  box = SgBox3T<double>();
  for (Slot slot : {Low, Medium, High, Proxy}) {
    auto found = boxesByKey.find(slotKey(slot, context));
    if (found != boxesByKey.end() && found->second.valid) box.unite(found->second);
  }
  return box.valid;
}

double VrArchivePrimitive::setArchiveSize() {
  processFiles();
  const VrPalette* palette = description() ? description()->palette() : nullptr;
  const double time = palette ? palette->frame() / palette->framesPerSecond() : 0.0;
  double size = 1.0;
  for (const auto& entries : list.entries()) {
    for (const VrArchiveEntry& entry : entries.second) {
      if (entry.path.empty()) continue;
      CacheUtilHandle handle(entry.path);
      auto* alembic = dynamic_cast<AlembicUtil*>(handle.getCacheUtil());
      SgBox3T<double> box;
      if (!alembic || !alembic->boundingBox(time, entry.objects, box) || !box.valid) continue;
      // The last file that could be read decides, not the largest.
      size = std::max({box.size.x, box.size.y, box.size.z});
    }
  }
  const float single = static_cast<float>(size);
  setAttr("archiveSize", vrutil::ftoa(single), "float");
  return single;
}

int VrArchivePrimitive::slotKey(Slot slot, const VrPrimitiveContext& context) {
  const auto* archive = dynamic_cast<const VrArchivePrimitiveContext*>(&context);
  return archive && slot < NumSlots ? archive->slotKeys[slot] : -1;
}

const std::string& VrArchivePrimitive::fileNameOfLod(int key, unsigned i, bool full) const {
  const VrArchiveEntry* entry = list.entry(key, i);
  return entry ? (full ? entry->path : entry->baseName) : emptyText;
}

const std::string& VrArchivePrimitive::fileName(Slot slot, unsigned i, bool full,
                                                const VrPrimitiveContext& context) const {
  return fileNameOfLod(slotKey(slot, context), i, full);
}

const std::string& VrArchivePrimitive::materialNameOfLod(int key, unsigned i) const {
  const VrArchiveEntry* entry = list.entry(key, i);
  return entry ? entry->material : emptyText;
}

const std::string& VrArchivePrimitive::materialName(Slot slot, unsigned i, const VrPrimitiveContext& context) const {
  return materialNameOfLod(slotKey(slot, context), i);
}

const std::vector<std::string>& VrArchivePrimitive::objectNamesOfLod(int key, unsigned i) const {
  const VrArchiveEntry* entry = list.entry(key, i);
  return entry ? entry->objects : noNames;
}

const std::vector<std::string>& VrArchivePrimitive::objectNames(Slot slot, unsigned i,
                                                                const VrPrimitiveContext& context) const {
  return objectNamesOfLod(slotKey(slot, context), i);
}

bool VrArchivePrimitive::useBBox(Slot slot, unsigned i, const VrPrimitiveContext& context) const {
  const VrArchiveEntry* entry = list.entry(slotKey(slot, context), i);
  return entry && entry->useBox;
}

void VrArchivePrimitive::materialNames(std::set<std::string>& names) const {
  for (const auto& entries : list.entries())
    for (const VrArchiveEntry& entry : entries.second)
      if (!entry.material.empty()) names.insert(entry.material);
}

unsigned VrArchivePrimitive::size(Slot slot, const VrPrimitiveContext& context) const {
  const int key = slotKey(slot, context);
  return key < 0 ? 0u : list.count(key);
}

int VrArchivePrimitive::slotForPixelArea(double area) const {
  int below = -1, above = -1;
  for (Slot slot : {Low, Medium, High}) {
    if (!enabled[slot]) continue;
    const PixelRange& r = ranges[slot];
    if (area >= r.lower && area <= r.upper) return slot;
    if (area > r.upper && (below < 0 || r.upper >= ranges[below].upper)) below = slot;
    if (area < r.lower && (above < 0 || r.lower <= ranges[above].lower)) above = slot;
  }
  if (below < 0 || above < 0) return below < 0 ? above : below;
  // In the gap between two ranges: the nearer one, the lower slot at the midpoint.
  return area - ranges[below].upper <= ranges[above].lower - area ? below : above;
}

const VrArchivePrimitive::GroupExpressions* VrArchivePrimitive::groupExpressions(uint32_t group) const {
  if (perGroup.empty()) return nullptr;
  auto found = perGroup.find(list.groupName(static_cast<int>(group)));
  return found == perGroup.end() ? nullptr : &found->second;
}

bool VrArchivePrimitive::applyPerArchiveExpression(const VrArchivePrimitiveContext& context, double u, double v,
                                                   const std::string& name, double& value) const {
  if (!anyOverride) return false;
  const GroupExpressions* held = groupExpressions(context.group);
  if (!held) return false;
  auto found = held->overrides.find(name);
  if (found == held->overrides.end()) return false;
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  VrExpression::setThreadVariable(name, value);
  value = found->second->eval(u, v, context.cFaceId(), patchName).x;
  VrExpression::removeThreadVariable(name);
  return true;
}

void VrArchivePrimitive::applyPerArchiveCustomExpressions(const VrArchivePrimitiveContext& context, double u,
                                                          double v) const {
  const GroupExpressions* held = groupExpressions(context.group);
  if (!held) return;
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  for (const auto& custom : held->customs)
    VrExpression::setThreadVariable(custom.first, custom.second->eval(u, v, context.cFaceId(), patchName));
}

void VrArchivePrimitive::mkGeometryInParallel(VrPrimitiveContext& base, double u, double v) {
  auto& context = static_cast<VrArchivePrimitiveContext&>(base);
  context.slotKeys = {{-1, -1, -1, -1}};
  if (list.empty()) {
    context.setCullPrim(true);
    return;
  }
  const int face = context.cFaceId();
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  // The variables that an archive's expressions read, set per primitive.
  static const struct {
    VrExpression::ThreadVariable count{"aCount"}, archiveSize{"archiveSize"}, size{"aSize"}, index{"aIndex"},
        lod{"aLOD"}, multiplier{"aMul"};
  } variables;
  VrExpression::setThreadVariable(variables.count, static_cast<double>(archiveCount));
  const double group = std::trunc(aIndexExpression.eval(u, v, face, patchName).x);
  const double lod = std::trunc(aLODExpression.eval(u, v, face, patchName).x);
  context.group = static_cast<uint32_t>(std::max(group, 0.0));
  VrExpression::setThreadVariable(variables.archiveSize, sizeOfArchive);
  VrExpression::setThreadVariable(variables.size, sizeOfArchive);
  VrExpression::setThreadVariable(variables.index, group);
  VrExpression::setThreadVariable(variables.lod, lod);
  VrExpression::setThreadVariable(variables.multiplier, keyMultiplier);
  applyPerArchiveCustomExpressions(context, u, v);

  if (iMethod() == 1)
    mkGeometryFromGuides(context, u, v);
  else
    mkGeometryFromAttrs(context, u, v);

  evalIndex(context, u, v, High, "hiIndex");
  evalIndex(context, u, v, Medium, "medIndex");
  evalIndex(context, u, v, Low, "loIndex");
  evalIndex(context, u, v, Proxy, "proxyIndex");

  double frame = frameExpression.eval(u, v, face, patchName).x;
  applyPerArchiveExpression(context, u, v, "_archiveFrame", frame);
  context.archiveFrame = frame;
  if (context.cLength() < 0.0001 || context.cWidth() < 0.0001 || context.cDepth() < 0.0001)
    context.setCullPrim(true);
}

void VrArchivePrimitive::evalIndex(VrArchivePrimitiveContext& context, double u, double v, Slot slot,
                                   const char* name) const {
  double key = 0.0;
  context.slotKeys[slot] = -1;
  if (enabled[slot]) {
    const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
    key = std::trunc(slotExpression(slot).eval(u, v, context.cFaceId(), patchName).x);
    const int asKey = static_cast<int>(std::clamp(key, -2147483648.0, 2147483647.0));
    if (list.hasKey(asKey))
      context.slotKeys[slot] = asKey;
    else
      invalidKeys[slot].insert(asKey);
  }
  VrExpression::setThreadVariable(name, key);
}

VrSpherePrimitive::Shape VrArchivePrimitive::evalShape(const VrArchivePrimitiveContext& context, double u, double v,
                                                       bool withLean) const {
  const int face = context.cFaceId();
  const std::string* patchName = context.cPatch() ? &context.cPatch()->name() : nullptr;
  auto at = [&](const VrExpression& e) { return e.eval(u, v, face, patchName).x; };
  // Sizes are floored before a group's override and again after it.
  auto size = [&](const VrExpression& e, const char* name) {
    double value = std::max(at(e), sizeFloor);
    if (applyPerArchiveExpression(context, u, v, name, value)) value = std::max(value, sizeFloor);
    return value;
  };
  auto turn = [&](double value, const char* name) {
    applyPerArchiveExpression(context, u, v, name, value);
    return value;
  };
  VrSpherePrimitive::Shape shape;
  shape.length = size(lengthExpr(), "length");
  shape.width = size(widthExpr(), "width");
  shape.depth = size(depthExpr(), "depth");
  if (withLean) {
    shape.lean.offU = turn(std::clamp(at(offUExpr()), -1.0, 1.0), "offU");
    shape.lean.offV = turn(std::clamp(at(offVExpr()), -1.0, 1.0), "offV");
  }
  shape.lean.twist = turn(at(twistExpression), "twist");
  shape.lean.offN = turn(at(offNExpr()), "offN");
  shape.lean.aboutN = turn(at(aboutNExpr()), "aboutN");
  return shape;
}

void VrArchivePrimitive::mkGeometryFromAttrs(VrArchivePrimitiveContext& context, double u, double v) const {
  VrSpherePrimitive::placeFromAttrs(context, u, v, evalShape(context, u, v, true));
}

bool VrArchivePrimitive::prepGuideCGeom(unsigned index) {
  if (index >= numGuides()) return false;
  vrguide::readyGuideCVs(*this, guide(index), "archive", &VrSpherePrimitive::straightenControlPoints);
  return VrPrimitive::prepGuideCGeom(index);
}

void VrArchivePrimitive::mkGeometryFromGuides(VrArchivePrimitiveContext& context, double u, double v) const {
  if (context.activeGuides.empty()) {
    context.getGeom().assign(finalCVCount(), context.cP(u, v, false));
    context.setCullPrim(true);
    return;
  }
  VrSpherePrimitive::placeFromGuides(*this, context, u, v, evalShape(context, u, v, false));
}
