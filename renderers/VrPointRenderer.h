#pragma once
// VrPointRenderer: writes the locations a description's generator chooses into one ".vuv" file
// per patch, under `outputDir` (default "${DESC}/Points/"): block "Location", one record per
// primitive of u, v and the point on the surface at sample 0. No geometry is built for it
// (`needsGeometry` answers false). The file handling, the threads and the failure rules are
// those of `VrPatchFileRenderer`.

#include "renderers/VrPatchFileRenderer.h"

class VrPointRenderer : public VrPatchFileRenderer {
 public:
  explicit VrPointRenderer(VrDescription* description);

  std::string typeName() const override { return "PointRenderer"; }
  bool needsGeometry() const override { return false; }

 protected:
  std::string fileSuffix() const override { return ".vuv"; }
  Vpd::Header fileHeader(const VrPatch& patch) const override;
  bool recordValues(VrPrimitiveContext& context, double u, double v, std::vector<float>& values,
                    SgBox3T<double>& box) override;
};
