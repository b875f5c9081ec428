#pragma once
// VrPointGenerator: primitives at locations written earlier, one ".vuv" file per geometry under
// `pointDir` (as the point renderer writes them). A location keeps the id it has in the file, so
// a groom scattered once, edited elsewhere and read back keeps every primitive's identity.

#include "generators/VrVpdReadingGenerator.h"

class VrPointGeneratorContext : public VrVpdGeneratorContext {};

class VrPointGenerator : public VrVpdReadingGenerator {
 public:
  explicit VrPointGenerator(VrDescription* description);
  ~VrPointGenerator() override;

  std::string typeName() const override { return "PointGenerator"; }
  /// Also takes the old name `inputDir` for `pointDir`.
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  /// The base's pairs, then the file of every patch under "Point".
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;

  bool canRunInParallel() const override { return true; }
  std::unique_ptr<VrGeneratorContext> newGeneratorContext() const override;
  void genPrimitives(int face, const std::vector<VrPatch*>& patches, double start, double percent) override;
  void genPrimitivesInParallel(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches,
                               double start, double percent) override;

  /// With a trailing separator.
  const std::string& pointDir() const { return pointDirectory; }

 private:
  std::string pointDirectory;
};
