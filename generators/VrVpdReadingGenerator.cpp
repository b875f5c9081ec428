#include "generators/VrVpdReadingGenerator.h"

#include "base/vrutilPath.h"
#include "primitives/VrPrimitiveContext.h"

VrVpdGeneratorContext* VrVpdReadingGenerator::fileState(VrPrimitiveContext& context) {
  if (isSerialContext(context)) return &serialState;
  return dynamic_cast<VrVpdGeneratorContext*>(context.generatorContext());
}

void VrVpdReadingGenerator::initDescription() {
  VrGenerator::initDescription();
  serialState.reset();
}

void VrVpdReadingGenerator::initDescriptionInParallel(VrPrimitiveContext& context) {
  VrGenerator::initDescriptionInParallel(context);
  if (VrVpdGeneratorContext* state = fileState(context)) state->reset();
}

void VrVpdReadingGenerator::finishDescription() {
  VrGenerator::finishDescription();
  serialState.reset();
}

void VrVpdReadingGenerator::finishDescriptionInParallel(VrPrimitiveContext& context) {
  VrGenerator::finishDescriptionInParallel(context);
  if (VrVpdGeneratorContext* state = fileState(context)) state->reset();
}

bool VrVpdReadingGenerator::setPointFileAttr(const std::string& name, const std::string& value,
                                             std::string& directory) {
  if (name == "pointDir") {
    directory = vrutil::validPath(value);
    return true;
  }
  if (name == "ptLength") return true;  // accepted and ignored
  if (name == "inputDir") {
    remAttr(name);
    return setAttr("pointDir", value, "string");
  }
  return false;
}
