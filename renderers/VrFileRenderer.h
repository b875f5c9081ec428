#pragma once
// VrFileRenderer: bakes the primitives of a description into one ".vpd" file per patch, under
// `outputDir` (default "${DESC}/Bake/"). A record is u, v, the primitive's CVs in the chosen
// coordinate space and, while baking, its CV attributes tagged with the file's key ids. The file
// handling, the threads and the failure rules are those of `VrPatchFileRenderer`. `startFrame`
// and `endFrame` are kept as attributes and do not change what is written.

#include "renderers/VrPatchFileRenderer.h"

class VrFileRenderer : public VrPatchFileRenderer {
 public:
  explicit VrFileRenderer(VrDescription* description);

  std::string typeName() const override { return "FileRenderer"; }

  /// Also takes the primitive type and the CV count of the records from the active primitive.
  void initDescription() override;

  /// @name What is written
  /// @{
  /// 0 world (CVs through the collection's world matrix), 1 object (as the primitive holds them,
  /// the initial value), 2 surface (relative to the surface point, on the frame cU, cN, cV at the
  /// primitive's location), 3 reserved: refused with "Not yet supported".
  int coordSpace() const { return space; }
  void setCoordSpace(int value) { space = value; }
  /// On: block "BakedGroom" with the CV attributes; off: block "Paint3d", CVs only.
  bool bakeFlag() const { return bake; }
  void setBakeFlag(bool on) { bake = on; }
  /// The file's primitive type: 2 card, 3 sphere, 4 archive, 1 anything else.
  Vpd::PrimType primType() const { return type; }
  /// @}

 protected:
  std::string fileSuffix() const override { return ".vpd"; }
  Vpd::Header fileHeader(const VrPatch& patch) const override;
  bool recordValues(VrPrimitiveContext& context, double u, double v, std::vector<float>& values,
                    SgBox3T<double>& box) override;

 private:
  Vpd::PrimType type = Vpd::SplinePrimitive;
  int space = 1;
  bool bake = true;
  unsigned cvCount = 0;
};
