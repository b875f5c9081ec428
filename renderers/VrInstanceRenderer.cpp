#include "renderers/VrInstanceRenderer.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <cmath>

VrInstanceRenderer::VrInstanceRenderer(VrDescription* description, const std::string& objectWord)
    : VrRenderer(description),
      randInt(new VrExpression("randIntInternal", objectWord, description, "rand(0,65535)->ceil()", "float")),
      randFloat(new VrExpression("randFloatInternal", objectWord, description, "rand()", "float")) {}

bool VrInstanceRenderer::okToEmit(int sample, double, double) { return sample == 0; }

void VrInstanceRenderer::initDescription() {
  failedFlag = false;
  VrRenderer::initDescription();
}

bool VrInstanceRenderer::keeps(double, double, int, const std::string*) { return true; }

bool VrInstanceRenderer::makeRecord(VrPrimitiveContext& context, double u, double v, int face, const VrPatch& patch,
                                    VrInstanceRecord& record) const {
  if (!VrInstanceFrame(context.cGeom(), record)) return false;
  const VrDescription* desc = description();
  record.id = context.id();
  record.descId = desc ? desc->descriptionId() : 0;
  const double randomInt = randInt->eval(u, v, face, &patch.name()).x;
  record.randInt = std::isfinite(randomInt) ? static_cast<std::int64_t>(randomInt) : 0;
  record.randFloat = randFloat->eval(u, v, face, &patch.name()).x;
  record.archiveIndex = desc && desc->activePrimitive() ? VrArchiveSlotInUse(*desc->activePrimitive()) : -1;
  record.u = u;
  record.v = patch.typeName() == "NurbsPatch" ? 1.0 - v : v;
  record.faceId = face;
  record.geomId = patch.index();
  return true;
}

void VrInstanceRenderer::emitPrimitive(int sample, double u, double v, int face,
                                       const std::vector<VrPatch*>& patches) {
  VrPrimitive* primitive = description() ? description()->activePrimitive() : nullptr;
  VrPatch* patch = patches.empty() ? nullptr : patches[0];
  if (failedFlag || sample != 0 || !primitive || !patch || !keeps(u, v, face, &patch->name())) return;
  VrPrimitiveContext& context = primitive->context();
  SgBox3T<double> box;
  for (const SgVec3T<double>& cv : context.cGeom()) box.extend(cv);
  mergeEmittedBox(box);
  incrEmitCount();

  const std::string kind = primitive->typeName();
  if (kind == "ArchivePrimitive") {
    VrInstanceRecord record;
    if (!makeRecord(context, u, v, face, *patch, record)) {
      VR_WARNING(1, "Archive primitive " + std::to_string(context.id()) + " of face " + std::to_string(face) +
                        " has no instance frame (fewer than four CVs); not exported.");
      return;
    }
    if (!writeInstance(record)) {
      failedFlag = true;
      return;
    }
    patch->cullPrim(face, context.id());
    return;
  }
  const char* const refused[][2] = {
      {"CardPrimitive", "Card"}, {"SpherePrimitive", "Sphere"}, {"SplinePrimitive", "Spline"}};
  for (const auto& entry : refused) {
    if (kind == entry[0]) {
      VR_ERROR(std::string(entry[1]) + " primitive not yet supported by " + typeName() + ".");
      failedFlag = true;
      return;
    }
  }
  VR_ERROR("Unsupported primitive type: " + kind);
  failedFlag = true;
}
