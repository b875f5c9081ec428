#pragma once
// VrGuideGenerator: one primitive at the root of every guide, to see what the guides make. On a
// face it walks the active primitive's guides in order and takes those bound to this patch and
// face; ids count them. With motion samples the location is read from each sample's guide of the
// same index in turn, so the last sample that has one decides.

#include "generators/VrGenerator.h"

class VrGuideGenerator : public VrGenerator {
 public:
  explicit VrGuideGenerator(VrDescription* description);

  std::string typeName() const override { return "GuideGenerator"; }

  bool canRunInParallel() const override { return true; }
  void genPrimitives(int face, const std::vector<VrPatch*>& patches, double start, double percent) override;
  void genPrimitivesInParallel(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches,
                               double start, double percent) override;
};
