#include "io/alembic/VrAbcCurves.h"

namespace {

template <class T>
bool readArray(const VrAbcCompoundProperty& schema, const VrAbcArrayProperty& prop, uint32_t index,
               std::vector<T>& out) {
  uint32_t at = 0;
  return VrAbcSchema::clampIndex(schema, prop.path(), index, prop.numSamples(), at) && prop.readAs(at, out);
}

}  // namespace

const char* VrAbcCurves::typeName(uint8_t type) {
  switch (type) {
    case 0: return "cubic";
    case 1: return "linear";
    case 2: return "variableOrder";
    default: return "unknown";
  }
}

const char* VrAbcCurves::wrapName(uint8_t wrap) {
  switch (wrap) {
    case 0: return "nonperiodic";
    case 1: return "periodic";
    default: return "unknown";
  }
}

const char* VrAbcCurves::basisName(uint8_t basis) {
  switch (basis) {
    case 0: return "nobasis";
    case 1: return "bezier";
    case 2: return "bspline";
    case 3: return "catmullrom";
    case 4: return "hermite";
    case 5: return "power";
    default: return "unknown";
  }
}

bool VrAbcCurves::open(const VrAbcObject& object) {
  *this = VrAbcCurves();
  VrAbcCompoundProperty schema;
  if (!VrAbcSchema::openCompound(object, VrAbcSchema::Kind::Curves, schema) || !base.open(schema) ||
      !VrAbcSchema::typedArray(schema, "nVertices", VrAbcPod::Int32, 1, nullptr, numVertices))
    return false;
  const VrAbcPropertyHeader* bt = schema.findHeader("curveBasisAndType");
  if (!bt || !bt->isScalar() || vrabc::podBytes(bt->dataType.pod) != 1 || bt->dataType.extent != 4)
    return schema.fail(schema.path() + "/curveBasisAndType: missing, or not four bytes");
  if (!schema.scalar("curveBasisAndType", basisAndType)) return false;
  if (schema.findHeader("w") && !VrAbcSchema::typedArray(schema, "w", VrAbcPod::Float32, 1, nullptr, weights))
    return false;
  if (schema.findHeader("uv") && !uv.open(schema, "uv", VrAbcPod::Float32, 2, "vector")) return false;
  if (schema.findHeader("N") && !normals.open(schema, "N", VrAbcPod::Float32, 3, "normal")) return false;
  if (schema.findHeader("width") && !widths.open(schema, "width", VrAbcPod::Float32, 1, nullptr)) return false;
  if (schema.findHeader(".orders") &&
      !VrAbcSchema::typedArray(schema, ".orders", VrAbcPod::Uint8, 1, nullptr, orders))
    return false;
  if (schema.findHeader(".knots") &&
      !VrAbcSchema::typedArray(schema, ".knots", VrAbcPod::Float32, 1, nullptr, knots))
    return false;
  if (schema.findHeader(".arbGeomParams") && !schema.compound(".arbGeomParams", arbitrary)) return false;
  return true;
}

VrAbcSchema::Variance VrAbcCurves::topologyVariance() const {
  const bool pointsConstant = base.positions().isConstant() && (!weights.valid() || weights.isConstant());
  if (pointsConstant && numVertices.isConstant() && basisAndType.isConstant())
    return VrAbcSchema::Variance::Constant;
  if (numVertices.isConstant() && basisAndType.isConstant()) return VrAbcSchema::Variance::Homogeneous;
  return VrAbcSchema::Variance::Heterogeneous;
}

bool VrAbcCurves::read(uint32_t index, Sample& out) const {
  const VrAbcCompoundProperty& schema = base.compound();
  if (!base.read(index, out.points) || !readArray(schema, numVertices, index, out.numVertices))
    return false;
  uint32_t at = 0;
  VrAbcSample bt;
  if (!VrAbcSchema::clampIndex(schema, basisAndType.path(), index, basisAndType.numSamples(), at) ||
      !basisAndType.read(at, bt))
    return false;
  out.type = bt.bytes[0];
  out.wrap = bt.bytes[1];
  out.basis = bt.bytes[2];
  out.hasWeights = weights.valid();
  out.hasOrders = orders.valid();
  out.hasKnots = knots.valid();
  out.weights.clear();
  out.orders.clear();
  out.knots.clear();
  if ((out.hasWeights && !readArray(schema, weights, index, out.weights)) ||
      (out.hasOrders && !readArray(schema, orders, index, out.orders)) ||
      (out.hasKnots && !readArray(schema, knots, index, out.knots)))
    return false;
  out.hasWidths = widths.valid();
  out.hasUvs = uv.valid();
  out.hasNormals = normals.valid();
  return (!out.hasWidths || widths.read(index, out.widths)) && (!out.hasUvs || uv.read(index, out.uvs)) &&
         (!out.hasNormals || normals.read(index, out.normals));
}
