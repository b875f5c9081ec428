#include "io/alembic/VrAbcGeomParam.h"

#include "io/alembic/VrAbcSchema.h"

#include <algorithm>

VrAbcScope VrAbcGeomParam::scopeFromMetaData(const VrAbcMetaData& meta) {
  const std::string code = meta.get("geoScope");
  if (code == "con") return VrAbcScope::Constant;
  if (code == "uni") return VrAbcScope::Uniform;
  if (code == "var") return VrAbcScope::Varying;
  if (code == "vtx") return VrAbcScope::Vertex;
  if (code == "fvr") return VrAbcScope::FaceVarying;
  return VrAbcScope::Unknown;
}

const char* VrAbcGeomParam::scopeName(VrAbcScope scope) {
  switch (scope) {
    case VrAbcScope::Constant: return "constant";
    case VrAbcScope::Uniform: return "uniform";
    case VrAbcScope::Varying: return "varying";
    case VrAbcScope::Vertex: return "vertex";
    case VrAbcScope::FaceVarying: return "facevarying";
    case VrAbcScope::Unknown: return "unknown";
  }
  return "unknown";
}

const char* VrAbcGeomParam::scopeCode(VrAbcScope scope) {
  switch (scope) {
    case VrAbcScope::Constant: return "con";
    case VrAbcScope::Uniform: return "uni";
    case VrAbcScope::Varying: return "var";
    case VrAbcScope::Vertex: return "vtx";
    case VrAbcScope::FaceVarying: return "fvr";
    case VrAbcScope::Unknown: return "";
  }
  return "";
}

bool VrAbcGeomParam::open(const VrAbcCompoundProperty& parent, const std::string& name,
                          VrAbcPod pod, int extent, const char* interpretation) {
  *this = VrAbcGeomParam();
  const VrAbcPropertyHeader* h = parent.findHeader(name);
  if (!h) return parent.fail(parent.path() + "/" + name + ": no such parameter");
  if (h->isCompound()) {
    VrAbcCompoundProperty compound;
    if (!parent.compound(name, compound)) return false;
    if (!VrAbcSchema::typedArray(compound, ".indices", VrAbcPod::Uint32, 1, nullptr, idx) ||
        !VrAbcSchema::typedArray(compound, ".vals", pod, extent, interpretation, vals)) {
      vals = VrAbcArrayProperty();
      return false;
    }
    isIndexed = true;
    parentCompound = compound;
  } else {
    if (!VrAbcSchema::typedArray(parent, name, pod, extent, interpretation, vals)) return false;
    parentCompound = parent;
  }
  paramScope = scopeFromMetaData(vals.header().metaData);
  return true;
}

uint32_t VrAbcGeomParam::numSamples() const {
  if (!isIndexed) return vals.numSamples();
  return std::max(vals.numSamples(), idx.numSamples());
}

bool VrAbcGeomParam::read(uint32_t index, Sample& out) const {
  out.indexed = isIndexed;
  out.scope = paramScope;
  out.indices.clear();
  uint32_t at = 0;
  if (!VrAbcSchema::clampIndex(parentCompound, vals.path(), index, vals.numSamples(), at) ||
      !vals.read(at, out.values))
    return false;
  if (isIndexed) {
    if (!VrAbcSchema::clampIndex(parentCompound, idx.path(), index, idx.numSamples(), at) ||
        !idx.readAs(at, out.indices))
      return false;
  }
  return true;
}
