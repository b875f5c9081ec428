#include "io/alembic/VrAbcXformWriter.h"

#include "io/alembic/VrAbcSchema.h"
#include "io/alembic/VrAbcXform.h"

bool VrAbcXformWriter::create(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) {
  *this = VrAbcXformWriter();
  const std::string title = VrAbcSchema::title(VrAbcSchema::Kind::Xform);
  const std::string compoundName = VrAbcSchema::compoundName(VrAbcSchema::Kind::Xform);
  VrAbcMetaData objectMeta, schemaMeta, matrixMeta;
  objectMeta.set("schema", title);
  objectMeta.set("schemaObjTitle", title + ":" + compoundName);
  schemaMeta.set("schema", title);
  matrixMeta.set("interpretation", "matrix");
  obj = parent.createChild(name, objectMeta);
  VrAbcCompoundWriter* schema = obj ? obj->properties().createCompound(compoundName, schemaMeta) : nullptr;
  if (!schema) return false;
  inherits = schema->createScalar(".inherits", VrAbcMetaData(), VrAbcDataType{VrAbcPod::Bool, 1}, timeSampling);
  ops = schema->createScalar(".ops", VrAbcMetaData(), VrAbcDataType{VrAbcPod::Uint8, 1}, timeSampling);
  vals = schema->createScalar(".vals", matrixMeta, VrAbcDataType{VrAbcPod::Float64, 16}, timeSampling);
  return inherits && ops && vals;
}

bool VrAbcXformWriter::write(const double matrix[16], bool inheritsParent) {
  if (!vals) return false;
  // An operation byte holds the type in its high four bits and a hint in the low ones.
  const uint8_t op = static_cast<uint8_t>(VrAbcXform::Matrix << 4);
  const uint8_t flag = inheritsParent ? 1 : 0;
  if (!inherits->setSample(&flag, 1) || !ops->setSample(&op, 1) || !vals->setSample(matrix, 1)) return false;
  ++samples;
  return true;
}
