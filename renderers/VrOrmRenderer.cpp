#include "renderers/VrOrmRenderer.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/vrutilFiles.h"
#include "primitives/VrPrimitive.h"
#include "io/output/VrInstanceRecord.h"

namespace {

void writeCVs(std::ostream& out, const char* command, int face, unsigned id, const std::vector<SgVec3T<double>>& cvs) {
  out << command << ' ' << face << ' ' << id << ' ' << cvs.size();
  for (const SgVec3T<double>& cv : cvs) out << ' ' << cv.x << ' ' << cv.y << ' ' << cv.z;
  out << '\n';
}

void writeMatrix(std::ostream& out, const char* command, int face, unsigned id, const VrInstanceRecord& r) {
  const SgVec3T<double> rows[3] = {r.aim * r.scale.x, r.up * r.scale.y, r.aim.cross(r.up) * r.scale.z};
  out << command << ' ' << face << ' ' << id;
  for (const SgVec3T<double>& row : rows) out << ' ' << row.x << ' ' << row.y << ' ' << row.z << " 0";
  out << ' ' << r.position.x << ' ' << r.position.y << ' ' << r.position.z << " 1\n";
}

}  // namespace

VrOrmRenderer::VrOrmRenderer(VrDescription* description) : VrRenderer(description) {
  setAttr("outputDir", "", "string");
  setAttr("outputInstances", "true", "bool");
}

VrOrmRenderer::~VrOrmRenderer() = default;

bool VrOrmRenderer::setAttr(const std::string& name, const std::string& value, const std::string& type,
                            const std::string& enumStrings) {
  if (VrRenderer::setAttr(name, value, type, enumStrings)) return true;
  if (name == "outputDir") {
    outDir = value;
    return true;
  }
  if (name == "outputInstances") return boolAttr(name, value, instances);
  return false;
}

bool VrOrmRenderer::okToEmit(int sample, double, double) { return sample == 0; }

void VrOrmRenderer::initDescription() {
  VrRenderer::initDescription();
  failedFlag = false;
  archiveImported = false;
  if (out.is_open()) out.close();
  const std::string name = description() ? description()->name() : std::string();
  path = outDir + name + ".orm";
  if (!vrutil::expandOutputFileName(path, "", description(), "", true)) {
    failedFlag = true;
    return;
  }
  out.clear();
  out.open(path, std::ios::out | std::ios::trunc);
  if (!out) {
    VR_ERROR("Failed to open orm file: " + path);
    failedFlag = true;
    return;
  }
  out.precision(9);
  out << "orm 1\ngroup " << name << "Dump\n";
}

void VrOrmRenderer::emitPrimitive(int sample, double, double, int face, const std::vector<VrPatch*>&) {
  VrPrimitive* primitive = description() ? description()->activePrimitive() : nullptr;
  if (failedFlag || sample != 0 || !primitive) return;
  const VrPrimitiveContext& context = primitive->context();
  const std::string kind = primitive->typeName();
  if (kind == "SplinePrimitive" || kind == "CardPrimitive" || kind == "SpherePrimitive") {
    const char* command = kind == "SplinePrimitive" ? "curve" : kind == "CardPrimitive" ? "card" : "sphere";
    writeCVs(out, command, face, context.id(), context.cGeom());
  } else if (kind == "ArchivePrimitive") {
    VrInstanceRecord record;
    if (!VrInstanceFrame(context.cGeom(), record)) return;
    if (instances && !archiveImported) {
      out << "import archive\n";
      archiveImported = true;
    }
    writeMatrix(out, instances ? "instance" : "copy", face, context.id(), record);
  } else {
    VR_ERROR("Unsupported primitive type: " + kind);
    failedFlag = true;
    return;
  }
  SgBox3T<double> box;
  for (const SgVec3T<double>& cv : context.cGeom()) box.extend(cv);
  mergeEmittedBox(box);
  incrEmitCount();
}

void VrOrmRenderer::finishDescription() {
  if (out.is_open()) {
    out << "end\n";
    out.close();
  }
  VrRenderer::finishDescription();
}
