#pragma once
// VrVpdReadingGenerator: the part shared by the generators that read a file per geometry (point
// and baked-groom files, and the random generator's extra points). It keeps the file state of
// the serial path, finds the state of a worker in its generator record, and closes the file
// when a pass over the description starts and ends.

#include "generators/VrGenerator.h"
#include "generators/VrVpdGeneratorContext.h"

class VrVpdReadingGenerator : public VrGenerator {
 public:
  using VrGenerator::VrGenerator;

  void initDescription() override;
  void initDescriptionInParallel(VrPrimitiveContext& context) override;
  void finishDescription() override;
  void finishDescriptionInParallel(VrPrimitiveContext& context) override;

 protected:
  /// The file state of the context's path: the generator's own on the serial path, the
  /// worker's record otherwise (null when the record is not one).
  VrVpdGeneratorContext* fileState(VrPrimitiveContext& context);
  /// The attributes of the generators that read ".vuv" files: `pointDir` (cleaned into
  /// `directory`), `ptLength` (accepted and ignored) and `inputDir`, the old name of `pointDir`.
  /// True when `name` is one of them.
  bool setPointFileAttr(const std::string& name, const std::string& value, std::string& directory);

 private:
  VrVpdGeneratorContext serialState;
};
