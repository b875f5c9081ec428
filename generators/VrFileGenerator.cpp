#include "generators/VrFileGenerator.h"

#include "base/VrMessage.h"
#include "base/vrutilPath.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/VrPatch.h"
#include "io/vpd/VpdReader.h"
#include "primitives/VrPrimitive.h"

namespace {

// The offset d from the surface point whose dot products with the unit tangents U, V and the
// normal N are (x, y, z) = (d.U, d.N, d.V): the rows U, N, V inverted through their cofactors.
// The tangents need not be orthogonal; a degenerate frame gives no offset.
SgVec3T<double> fromSurfaceFrame(const SgVec3T<double>& U, const SgVec3T<double>& N, const SgVec3T<double>& V,
                                 double x, double y, double z) {
  const SgVec3T<double> a = N.cross(V), b = V.cross(U), c = U.cross(N);
  const double det = U.dot(a);
  if (std::abs(det) < 1e-12) return SgVec3T<double>();
  return (a * x + b * y + c * z) * (1.0 / det);
}

}  // namespace

VrFileGenerator::VrFileGenerator(VrDescription* description) : VrVpdReadingGenerator(description) {
  setAttr("inputDir", "${DESC}/Bake/", "string");
}

VrFileGenerator::~VrFileGenerator() = default;

bool VrFileGenerator::setAttr(const std::string& name, const std::string& value, const std::string& type,
                              const std::string& enumStrings) {
  if (VrVpdReadingGenerator::setAttr(name, value, type, enumStrings)) return true;
  if (name == "inputDir") {
    inputDirectory = vrutil::validPath(value);
    return true;
  }
  return false;
}

void VrFileGenerator::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrVpdReadingGenerator::getExternalContext(pairs, prefix);
  VrVpdGeneratorContext::listFiles(pairs, prefix + "Point", VrVpdGeneratorContext::bakedFiles, inputDirectory,
                                   description());
}

std::unique_ptr<VrGeneratorContext> VrFileGenerator::newGeneratorContext() const {
  return std::make_unique<VrFileGeneratorContext>();
}

void VrFileGenerator::initDescription() {
  VrVpdReadingGenerator::initDescription();
  const VrDescription* desc = description();
  const VrPrimitive* active = desc ? desc->activePrimitive() : nullptr;
  const std::string type = active ? active->typeName() : std::string();
  kind = type == "CardPrimitive" ? 2 : type == "SpherePrimitive" ? 3 : type == "ArchivePrimitive" ? 4 : 1;
}

void VrFileGenerator::genPrimitives(int face, const std::vector<VrPatch*>& patches, double start, double percent) {
  if (primitive) genPrimitivesInParallel(primitive->context(), face, patches, start, percent);
}

void VrFileGenerator::loadRecord(VrPrimitiveContext& context, const std::vector<float>& values,
                                 const VpdReader& reader, std::uint32_t id, const std::vector<VrPatch*>& patches) {
  const size_t cvCount = reader.cvCount();
  const size_t attrsAt = 2 + 3 * cvCount;
  const double u = values[0], v = values[1];
  const Vpd::CoordSpace space = reader.coordSpace();
  const VrDescription* desc = description();
  const VrPalette* palette = desc ? desc->palette() : nullptr;
  for (size_t s = 0; s < patches.size(); ++s) {
    const VrDescription* sampleDesc = sampleDescription(static_cast<int>(s));
    VrPrimitive* samplePrimitive = sampleDesc ? sampleDesc->activePrimitive() : nullptr;
    VrPrimitiveContext* own = sampleContext(context, static_cast<int>(s));
    if (!samplePrimitive || !own) continue;
    own->setCullPrim(false);
    own->setId(id);
    const SgVec3T<double> P = own->cP(u, v, false);  // the frame first; the rest stands on it
    const SgVec3T<double> U = own->cU(u, v, false), N = own->cN(u, v, false), V = own->cV(u, v, false);
    std::vector<SgVec3T<double>>& cvs = own->getGeom();
    cvs.resize(cvCount);
    for (size_t i = 0; i < cvCount; ++i) {
      const float* xyz = &values[2 + 3 * i];
      const SgVec3T<double> cv(xyz[0], xyz[1], xyz[2]);
      if (space == Vpd::SurfaceSpace)
        cvs[i] = P + fromSurfaceFrame(U, N, V, cv.x, cv.y, cv.z);
      else if (space == Vpd::WorldSpace && palette)
        cvs[i] = palette->world().transformed(cv, false, true);
      else
        cvs[i] = cv;
    }
    if (values.size() > attrsAt) {
      if (space == Vpd::WorldSpace)
        VR_ERROR("Only CV data is supported for world space coordinate Space. No attribute data supported.");
      else
        own->unpackCVAttrs(values.data() + attrsAt, values.size() - attrsAt, reader.keyNames());
    }
    samplePrimitive->completeGivenGeometryInParallel(*own, u, v, 1.0);
    samplePrimitive->applyFXModulesInParallel(*own, nullptr);
  }
}

void VrFileGenerator::genPrimitivesInParallel(VrPrimitiveContext& context, int face,
                                              const std::vector<VrPatch*>& patches, double start, double percent) {
  VrVpdGeneratorContext* state = fileState(context);
  if (patches.empty() || !patches[0] || !state) return;
  VpdReader* reader = state->readerForFace(VrVpdGeneratorContext::bakedFiles, static_cast<Vpd::PrimType>(kind),
                                           inputDirectory, patches[0]->name(), description(), face);
  if (!reader) return;
  const std::string& patchName = patches[0]->name();
  const bool serial = isSerialContext(context);
  const unsigned culledBefore = culledOnFace(context);
  const std::uint64_t inFile = reader->numPrims();
  unsigned generated = 0;
  double acc = start;
  std::uint32_t id = 0;
  std::vector<float> values;
  while (reader->readPrim(id, values)) {
    context.setId(id);
    if (values.size() < 2 + 3 * static_cast<size_t>(reader->cvCount())) {
      VR_ERROR(Vpd::damagedMessage(state->fileName()));
      state->setErrOccurred();
      break;
    }
    const double u = values[0], v = values[1];
    if (!takeShare(acc, percent) || culledForRegion(context, u, v, face, patchName)) continue;
    loadRecord(context, values, *reader, id, patches);
    if (serial ? emitIfOk(u, v, face, patches) : emitIfOkInParallel(context, u, v, face, patches)) ++generated;
  }
  if (!reader->error().empty()) {
    VR_ERROR(reader->error());
    state->setErrOccurred();
  }
  if (VRStatsLevel >= 3)
    vrmessage(vrmsg::Stats | vrmsg::CatGenerator | 3, "", 0,
              "[" + patchName + "] " + std::to_string(inFile) + " prims in file, " + std::to_string(generated) +
                  " generated, " + std::to_string(culledOnFace(context) - culledBefore) + " culled.");
}

bool VrFileGenerator::fillGeometryInParallel(VrPrimitiveContext& context, int sample, double, double, int) {
  VrPrimitiveContext* own = sampleContext(context, sample);
  if (!own) return false;
  const VrDescription* desc = description();
  const VrDescription* sampleDesc = sampleDescription(sample);
  const VrPrimitive* samplePrimitive = sampleDesc ? sampleDesc->activePrimitive() : nullptr;
  if (desc && desc->lodFlag() && samplePrimitive && samplePrimitive->typeName() == "SplinePrimitive")
    own->overrideCWidth(own->cWidth() * own->lodAdjustment());
  return !own->cullPrim();
}
