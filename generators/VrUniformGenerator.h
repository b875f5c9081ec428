#pragma once
// VrUniformGenerator: a regular grid of primitives on every face. A face of the reference
// surface is cut into countU x countV equal cells, as many as `spacing` fits along the face's
// middle iso-curves (at least one), and a primitive stands at the centre of each cell, u running
// fastest. Cells stay equal when `spacing` does not divide the face: they fall short of it or
// exceed it. Ids count the cells, so `percent` thins the grid without renumbering it.

#include "generators/VrGenerator.h"

class VrUniformGenerator : public VrGenerator {
 public:
  /// Spacings at or below this are taken as this.
  static constexpr double minSpacing = 0.001;

  explicit VrUniformGenerator(VrDescription* description);

  std::string typeName() const override { return "UniformGenerator"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;

  bool canRunInParallel() const override { return true; }
  void genPrimitives(int face, const std::vector<VrPatch*>& patches, double start, double percent) override;
  void genPrimitivesInParallel(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches,
                               double start, double percent) override;

  /// The distance between neighbouring primitives, in the units of the reference surface.
  double spacing() const { return spacingValue; }
  /// The cells across a face: (countU, countV).
  std::pair<int, int> gridSize(const VrPatch& patch, int face) const;

 private:
  double spacingValue = 1.0;
};
