#include "generators/VrPointGenerator.h"

#include "base/VrMessage.h"
#include "geometry/VrPatch.h"
#include "io/vpd/VpdReader.h"
#include "primitives/VrPrimitive.h"

VrPointGenerator::VrPointGenerator(VrDescription* description) : VrVpdReadingGenerator(description) {
  setAttr("pointDir", "${DESC}/Points/", "string");
  setAttr("ptLength", "1.0", "float");
}

VrPointGenerator::~VrPointGenerator() = default;

bool VrPointGenerator::setAttr(const std::string& name, const std::string& value, const std::string& type,
                               const std::string& enumStrings) {
  if (VrVpdReadingGenerator::setAttr(name, value, type, enumStrings)) return true;
  return setPointFileAttr(name, value, pointDirectory);
}

void VrPointGenerator::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrVpdReadingGenerator::getExternalContext(pairs, prefix);
  VrVpdGeneratorContext::listFiles(pairs, prefix + "Point", VrVpdGeneratorContext::pointFiles, pointDirectory,
                                   description());
}

std::unique_ptr<VrGeneratorContext> VrPointGenerator::newGeneratorContext() const {
  return std::make_unique<VrPointGeneratorContext>();
}

void VrPointGenerator::genPrimitives(int face, const std::vector<VrPatch*>& patches, double start, double percent) {
  if (primitive) genPrimitivesInParallel(primitive->context(), face, patches, start, percent);
}

void VrPointGenerator::genPrimitivesInParallel(VrPrimitiveContext& context, int face,
                                               const std::vector<VrPatch*>& patches, double start,
                                               double percent) {
  VrVpdGeneratorContext* state = fileState(context);
  if (patches.empty() || !patches[0] || !state) return;
  VpdReader* reader = state->readerForFace(VrVpdGeneratorContext::pointFiles, Vpd::PointPrimitive, pointDirectory,
                                           patches[0]->name(), description(), face);
  if (!reader) return;
  const unsigned culledBefore = culledOnFace(context);
  const std::uint64_t inFile = reader->numPrims();
  const unsigned generated = offerRecordLocations(context, *reader, true, start, percent, face, patches);
  if (!reader->error().empty()) {
    VR_ERROR(reader->error());
    state->setErrOccurred();
  }
  if (VRStatsLevel >= 3)
    vrmessage(vrmsg::Stats | vrmsg::CatGenerator | 3, "", 0,
              std::to_string(inFile) + " points in file, " + std::to_string(generated) + " generated, " +
                  std::to_string(culledOnFace(context) - culledBefore) + " culled.");
}
