#include "io/alembic/VrAbcSchema.h"

#include <algorithm>

namespace {

const VrAbcSchema::Kind knownKinds[] = {
    VrAbcSchema::Kind::Xform,   VrAbcSchema::Kind::PolyMesh, VrAbcSchema::Kind::SubD,
    VrAbcSchema::Kind::Curves,  VrAbcSchema::Kind::NuPatch,  VrAbcSchema::Kind::Points,
    VrAbcSchema::Kind::Camera,  VrAbcSchema::Kind::FaceSet,  VrAbcSchema::Kind::Light};

std::string describeType(VrAbcPod pod, int extent) {
  std::string text = vrabc::podName(pod);
  if (extent > 1) text += "[" + std::to_string(extent) + "]";
  return text;
}

bool checkHeader(const VrAbcCompoundProperty& parent, const std::string& name, VrAbcPropertyKind kind,
                 VrAbcPod pod, int extent, const char* interpretation) {
  const VrAbcPropertyHeader* h = parent.findHeader(name);
  const std::string path = parent.path() + "/" + name;
  if (!h) return parent.fail(path + ": the schema needs this property and it is missing");
  if (h->kind != kind || h->dataType.pod != pod || h->dataType.extent != extent)
    return parent.fail(path + ": expected " + std::string(kind == VrAbcPropertyKind::Array ? "an array" : "a scalar") +
                       " of " + describeType(pod, extent) + ", found " +
                       describeType(h->dataType.pod, h->dataType.extent));
  if (interpretation && h->metaData.get("interpretation") != interpretation)
    return parent.fail(path + ": expected the interpretation \"" + interpretation + "\", found \"" +
                       h->metaData.get("interpretation") + "\"");
  return true;
}

}  // namespace

const char* VrAbcSchema::kindName(Kind kind) {
  switch (kind) {
    case Kind::Xform: return "Xform";
    case Kind::PolyMesh: return "PolyMesh";
    case Kind::SubD: return "SubD";
    case Kind::Curves: return "Curves";
    case Kind::NuPatch: return "NuPatch";
    case Kind::Points: return "Points";
    case Kind::Camera: return "Camera";
    case Kind::FaceSet: return "FaceSet";
    case Kind::Light: return "Light";
    case Kind::Other: return "other";
    case Kind::None: return "none";
  }
  return "other";
}

const char* VrAbcSchema::title(Kind kind) {
  switch (kind) {
    case Kind::Xform: return "AbcGeom_Xform_v3";
    case Kind::PolyMesh: return "AbcGeom_PolyMesh_v1";
    case Kind::SubD: return "AbcGeom_SubD_v1";
    case Kind::Curves: return "AbcGeom_Curve_v2";
    case Kind::NuPatch: return "AbcGeom_NuPatch_v2";
    case Kind::Points: return "AbcGeom_Points_v1";
    case Kind::Camera: return "AbcGeom_Camera_v1";
    case Kind::FaceSet: return "AbcGeom_FaceSet_v1";
    case Kind::Light: return "AbcGeom_Light_v1";
    case Kind::Other:
    case Kind::None: return "";
  }
  return "";
}

const char* VrAbcSchema::compoundName(Kind kind) {
  switch (kind) {
    case Kind::Xform: return ".xform";
    case Kind::FaceSet: return ".faceset";
    default: return ".geom";
  }
}

const char* VrAbcSchema::baseType(Kind kind) {
  switch (kind) {
    case Kind::PolyMesh:
    case Kind::SubD:
    case Kind::Curves:
    case Kind::NuPatch:
    case Kind::Points:
    case Kind::FaceSet: return "AbcGeom_GeomBase_v1";
    default: return "";
  }
}

const char* VrAbcSchema::varianceName(Variance variance) {
  switch (variance) {
    case Variance::Constant: return "constant";
    case Variance::Homogeneous: return "homogeneous";
    case Variance::Heterogeneous: return "heterogeneous";
  }
  return "heterogeneous";
}

VrAbcSchema::Kind VrAbcSchema::strictKind(const VrAbcMetaData& meta) {
  const std::string objTitle = meta.get("schemaObjTitle");
  const std::string schema = meta.get("schema");
  for (Kind kind : knownKinds) {
    const std::string wanted = std::string(title(kind)) + ":" + compoundName(kind);
    if (objTitle == wanted || schema == wanted) return kind;
  }
  return schema.empty() ? Kind::None : Kind::Other;
}

VrAbcSchema::Kind VrAbcSchema::titleKind(const std::string& schemaTitle) {
  for (Kind kind : knownKinds)
    if (schemaTitle == title(kind)) return kind;
  return Kind::Other;
}

bool VrAbcSchema::openCompound(const VrAbcObject& object, Kind kind, VrAbcCompoundProperty& out) {
  VrAbcCompoundProperty top;
  if (!object.properties(top)) return false;
  return top.compound(compoundName(kind), out);
}

bool VrAbcSchema::typedArray(const VrAbcCompoundProperty& parent, const std::string& name,
                             VrAbcPod pod, int extent, const char* interpretation,
                             VrAbcArrayProperty& out) {
  out = VrAbcArrayProperty();
  if (!checkHeader(parent, name, VrAbcPropertyKind::Array, pod, extent, interpretation)) return false;
  return parent.array(name, out);
}

bool VrAbcSchema::typedScalar(const VrAbcCompoundProperty& parent, const std::string& name,
                              VrAbcPod pod, int extent, const char* interpretation,
                              VrAbcScalarProperty& out) {
  out = VrAbcScalarProperty();
  if (!checkHeader(parent, name, VrAbcPropertyKind::Scalar, pod, extent, interpretation)) return false;
  return parent.scalar(name, out);
}

bool VrAbcSchema::clampIndex(const VrAbcCompoundProperty& schema, const std::string& path,
                             uint32_t index, uint32_t numSamples, uint32_t& out) {
  if (numSamples == 0) return schema.fail(path + ": the property has no samples to read");
  out = std::min(index, numSamples - 1);
  return true;
}

uint32_t VrAbcSchema::maxChildSamples(const VrAbcCompoundProperty& compound) {
  uint32_t most = 0;
  for (size_t i = 0; i < compound.numProperties(); ++i) {
    const VrAbcPropertyHeader& h = compound.propertyHeader(i);
    if (!h.isCompound()) most = std::max(most, h.numSamples);
  }
  return most;
}
