#include "io/alembic/VrAbcGeomParamWriter.h"

bool VrAbcGeomParamWriter::create(VrAbcCompoundWriter& parent, const std::string& name, VrAbcDataType type,
                                  const char* interpretation, VrAbcScope scope, bool isIndexed,
                                  uint32_t timeSampling) {
  vals = nullptr;
  indices = nullptr;
  VrAbcMetaData meta;
  meta.set("geoScope", VrAbcGeomParam::scopeCode(scope));
  meta.set("isGeomParam", "true");
  meta.set("podName", vrabc::podName(type.pod));
  meta.set("podExtent", std::to_string(type.extent));
  meta.set("arrayExtent", "1");
  meta.set("interpretation", interpretation ? interpretation : "");
  if (!isIndexed) {
    vals = parent.createArray(name, meta, type, timeSampling);
    return vals != nullptr;
  }
  VrAbcCompoundWriter* compound = parent.createCompound(name, meta);
  if (!compound) return false;
  vals = compound->createArray(".vals", meta, type, timeSampling);
  indices = compound->createArray(".indices", VrAbcMetaData(), VrAbcDataType{VrAbcPod::Uint32, 1}, timeSampling);
  if (!vals || !indices) vals = indices = nullptr;
  return vals != nullptr;
}

bool VrAbcGeomParamWriter::write(const void* values, uint64_t numValues, bool given, const uint32_t* index,
                                 uint64_t numIndices) {
  if (!vals) return false;
  if (!given) return vals->setFromPrevious() && (!indices || indices->setFromPrevious());
  if (!vals->setSample(values, numValues)) return false;
  return !indices || indices->setSample(index, numIndices);
}

bool VrAbcGeomParamWriter::write(const VrAbcSpool& spool) {
  if (!vals) return false;
  if (indices) return false;
  return vals->setSample(spool);
}

bool VrAbcGeomParamWriter::writeStrings(const std::vector<std::string>& texts, const VrAbcSpool& indexSpool) {
  return vals && indices && vals->setStrings(texts) && indices->setSample(indexSpool);
}

bool VrAbcGeomParamWriter::writeEmpty() {
  if (!vals) return false;
  return vals->setSample(nullptr, 0) && (!indices || indices->setSample(nullptr, 0));
}

bool VrAbcGeomParamWriter::writeSpooled(VrAbcCompoundWriter* parent, const std::vector<VrAbcSpooledParam>& params,
                                        bool first, uint32_t timeSampling, std::vector<VrAbcGeomParamWriter>& writers) {
  if (first) {
    for (const VrAbcSpooledParam& p : params) {
      writers.emplace_back();
      if (!parent || !writers.back().create(*parent, p.name, p.type, p.interpretation, p.scope, false, timeSampling))
        return false;
    }
  } else if (!params.empty() && params.size() != writers.size()) {
    return parent && parent->fail("the arbitrary parameters must be the same on every sample");
  }
  for (size_t i = 0; i < writers.size(); ++i) {
    const VrAbcSpool* values = i < params.size() ? params[i].values : nullptr;
    if (!(values ? writers[i].write(*values) : writers[i].write(nullptr, 0, false))) return false;
  }
  return true;
}
