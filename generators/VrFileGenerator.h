#pragma once
// VrFileGenerator: renders a baked groom back. Every geometry has a ".vpd" file under `inputDir`
// (as the file renderer bakes it, block "BakedGroom"); each record is a finished primitive: its
// id, location, CVs and CV attributes. The generator puts them into the primitive context as
// they are, lets the primitive add what it derives from its attributes (width, taper), runs the
// FX modules that are still active (those after a baked-groom manager) and emits. Nothing is
// built from guides or attributes, so the primitives are the baked ones, with their ids.
//
// CVs are read back from the space they were baked in: object space as they are, surface space
// onto the frame of the surface at the location (so a surface-space bake follows an animated
// surface), world space through the inverse of the collection's world matrix.

#include "generators/VrVpdReadingGenerator.h"

class VrFileGeneratorContext : public VrVpdGeneratorContext {};

class VrFileGenerator : public VrVpdReadingGenerator {
 public:
  explicit VrFileGenerator(VrDescription* description);
  ~VrFileGenerator() override;

  std::string typeName() const override { return "FileGenerator"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  /// The base's pairs, then the file of every patch under "Point".
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;

  bool canRunInParallel() const override { return true; }
  std::unique_ptr<VrGeneratorContext> newGeneratorContext() const override;
  /// Also takes the primitive type the files must hold from the active primitive.
  void initDescription() override;
  void genPrimitives(int face, const std::vector<VrPatch*>& patches, double start, double percent) override;
  void genPrimitivesInParallel(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches,
                               double start, double percent) override;
  /// Builds nothing: the primitive came from the file. With level of detail on, a spline's width
  /// takes the location's width factor. False for a culled primitive.
  bool fillGeometryInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face) override;

  /// With a trailing separator.
  const std::string& inputDir() const { return inputDirectory; }
  /// The primitive type the files must hold: 2 card, 3 sphere, 4 archive, 1 anything else.
  int primKind() const { return kind; }

 private:
  /// Puts one record (long enough for its CVs) into the context of every motion sample.
  void loadRecord(VrPrimitiveContext& context, const std::vector<float>& values, const VpdReader& reader,
                  std::uint32_t id, const std::vector<VrPatch*>& patches);

  std::string inputDirectory;
  int kind = 1;
};
