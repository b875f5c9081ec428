#include "primitives/VrPrimitiveContext.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "fxmodules/VrFXModule.h"
#include "generators/VrGenerator.h"
#include "geometry/SgCurve.h"
#include "geometry/VrPatch.h"

VrPrimitiveContext::VrPrimitiveContext(VrDescription* description) : VrBasePrimitiveContext(description) {}

VrPrimitiveContext::~VrPrimitiveContext() = default;

VrPrimitiveContext::VrPrimitiveContext(const VrPrimitiveContext& other)
    : VrBasePrimitiveContext(other),
      length(other.length),
      width(other.width),
      depth(other.depth),
      lengthDirty(other.lengthDirty),
      cvAttrValues(other.cvAttrValues),
      cvAttrLocations(other.cvAttrLocations),
      samples(other.samples),
      pipe(other.pipe),
      generatorRecord(other.generatorRecord) {
  moduleRecords.reserve(other.moduleRecords.size());
  for (const ModuleRecord& r : other.moduleRecords)
    moduleRecords.push_back(ModuleRecord{r.module, r.record ? r.record->clone() : nullptr});
}

VrPrimitiveContext& VrPrimitiveContext::operator=(const VrPrimitiveContext& other) {
  if (this == &other) return *this;
  VrPrimitiveContext copy(other);
  VrBasePrimitiveContext::operator=(copy);
  length = copy.length;
  width = copy.width;
  depth = copy.depth;
  lengthDirty = copy.lengthDirty;
  cvAttrValues = copy.cvAttrValues;
  cvAttrLocations = copy.cvAttrLocations;
  samples = copy.samples;
  pipe = copy.pipe;
  moduleRecords = std::move(copy.moduleRecords);
  generatorRecord = copy.generatorRecord;
  return *this;
}

double VrPrimitiveContext::cLength() {
  if (lengthDirty) overrideCLength(computeLength());
  return length;
}

double VrPrimitiveContext::computeLength() { return SgCurve::length(cGeom()); }

const VrGenerator* VrPrimitiveContext::displacingGenerator() const {
  const VrDescription* desc = description();
  return desc ? generatorCast(desc->activeGenerator()) : nullptr;
}

bool VrPrimitiveContext::evalGeomWithDisplacement(int index, double u, double v) {
  // The displaced surface: the active generator says how the surface is moved.
  const VrGenerator* generator = displacingGenerator();
  Slot& s = slot(index);
  const bool ref = index == 2;
  if (!generator)
    return cPatch()->evalGeom(u, v, cFaceId(), nullptr, false, nullptr, nullptr, s.point, s.normal, s.dPdu,
                              s.dPdv, ref, false);
  return cPatch()->evalGeom(u, v, cFaceId(), &generator->displacement(), generator->vectorDisplacement(),
                            &generator->bump(), &generator->offset(), s.point, s.normal, s.dPdu, s.dPdv, ref,
                            false);
}

bool VrPrimitiveContext::displacementMovesNothing() const {
  const VrPatch* patch = cPatch();
  if (patch && patch->description() && patch->description()->flipNormals()) return false;
  const VrGenerator* generator = displacingGenerator();
  if (!generator) return true;
  if (generator->vectorDisplacement()) return false;
  auto zero = [](const VrExpression& e) { return e.isFoldedConstant() && e.eval(0.0, 0.0, 0).x == 0.0; };
  return zero(generator->displacement()) && zero(generator->bump()) && zero(generator->offset());
}

void VrPrimitiveContext::packCVAttrs(std::vector<float>& floats, VrDict<Location>& map) {
  floats.clear();
  map.clear();
  for (auto it = cvAttrValues.begin(); it != cvAttrValues.end(); ++it) {
    const std::vector<SgVec3T<double>>& values = it.value();
    Location where{static_cast<unsigned>(floats.size()), static_cast<unsigned>(values.size() * 3)};
    for (const SgVec3T<double>& x : values) {
      floats.push_back(static_cast<float>(x.x));
      floats.push_back(static_cast<float>(x.y));
      floats.push_back(static_cast<float>(x.z));
    }
    map[it.key()] = where;
  }
  cvAttrLocations = map;
}

bool VrPrimitiveContext::unpackCVAttrs(const std::vector<float>& floats, const VrDict<Location>& map) {
  for (auto it = map.begin(); it != map.end(); ++it) {
    const Location& where = it.value();
    if (where.size % 3 != 0 || static_cast<size_t>(where.offset) + where.size > floats.size()) {
      VR_WARNING(1, "CV attribute " + it.key() + " lies outside the packed values; not unpacked.");
      return false;
    }
  }
  for (auto it = map.begin(); it != map.end(); ++it) {
    const Location& where = it.value();
    std::vector<SgVec3T<double>>& values = cvAttrValues[it.key()];
    values.resize(where.size / 3);
    const float* f = floats.data() + where.offset;
    for (size_t i = 0; i < values.size(); ++i, f += 3) values[i] = SgVec3T<double>(f[0], f[1], f[2]);
  }
  cvAttrLocations = map;
  return true;
}

void VrPrimitiveContext::packCVAttrs(std::vector<float>& floats,
                                     const std::unordered_map<std::string, int>& keyToId) const {
  for (auto it = cvAttrValues.begin(); it != cvAttrValues.end(); ++it) {
    const auto id = keyToId.find(it.key());
    if (id == keyToId.end()) continue;
    const std::vector<SgVec3T<double>>& values = it.value();
    floats.push_back(static_cast<float>(id->second));
    floats.push_back(static_cast<float>(values.size() * 3));
    for (const SgVec3T<double>& x : values) {
      floats.push_back(static_cast<float>(x.x));
      floats.push_back(static_cast<float>(x.y));
      floats.push_back(static_cast<float>(x.z));
    }
  }
}

bool VrPrimitiveContext::unpackCVAttrs(const float* floats, size_t count, const std::vector<std::string>& keyNames) {
  size_t at = 0;
  while (at < count) {
    // Written as comparisons that a NaN fails.
    const bool whole = count - at >= 2 && floats[at] >= 0.0f && floats[at] < static_cast<float>(keyNames.size()) &&
                       floats[at + 1] >= 0.0f && floats[at + 1] <= static_cast<float>(count - at - 2);
    const size_t id = whole ? static_cast<size_t>(floats[at]) : 0;
    const size_t n = whole ? static_cast<size_t>(floats[at + 1]) : 0;
    if (!whole || n % 3 != 0) {
      VR_WARNING(1, "Packed CV attributes are damaged at value " + std::to_string(at) + "; the rest is not unpacked.");
      return false;
    }
    std::vector<SgVec3T<double>>& values = cvAttrValues[keyNames[id]];
    values.resize(n / 3);
    const float* f = floats + at + 2;
    for (size_t i = 0; i < values.size(); ++i, f += 3) values[i] = SgVec3T<double>(f[0], f[1], f[2]);
    at += 2 + n;
  }
  return true;
}

void VrPrimitiveContext::setPipeData(const std::string& name, const std::vector<SgVec3T<double>>& values) {
  std::vector<SgVec3T<double>>& stored = pipe[name];
  stored.assign(values.begin(), values.end());
}

void VrPrimitiveContext::addModuleContext(const VrFXModule* module, std::unique_ptr<VrFXModuleContext> record) {
  for (ModuleRecord& r : moduleRecords) {
    if (r.module == module) {
      r.record = std::move(record);
      return;
    }
  }
  moduleRecords.push_back(ModuleRecord{module, std::move(record)});
}

VrFXModuleContext* VrPrimitiveContext::fxModuleContext(const VrFXModule* module) const {
  for (const ModuleRecord& r : moduleRecords)
    if (r.module == module) return r.record.get();
  return nullptr;
}

void VrPrimitiveContext::removeAllModuleContext() { moduleRecords.clear(); }
