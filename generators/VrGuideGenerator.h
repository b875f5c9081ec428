#pragma once
// VrGuideGenerator: one primitive at the root of every guide, to see what the guides make. On a
// face it walks the active primitive's guides in order and takes those bound to this patch and
// face; ids count them. With motion samples the location is read from each sample's guide of the
// same index in turn, so the last sample that has one decides.
//
// A pass over the description indexes the guides by patch and face once (`initDescription`), so
// a face finds its guides without walking the whole list; outside a pass, or when the guide
// list changed since, the list is walked.

#include "generators/VrGenerator.h"

class VrGuideGenerator : public VrGenerator {
 public:
  explicit VrGuideGenerator(VrDescription* description);

  std::string typeName() const override { return "GuideGenerator"; }
  /// Also indexes the active primitive's guides by patch and face.
  void initDescription() override;
  void finishDescription() override;

  bool canRunInParallel() const override { return true; }
  void genPrimitives(int face, const std::vector<VrPatch*>& patches, double start, double percent) override;
  void genPrimitivesInParallel(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches,
                               double start, double percent) override;

 private:
  /// The indices of the guides bound to (patch name, face), in list order.
  std::vector<unsigned> guidesOn(const VrPrimitive& guides, const std::string& patchName, int face) const;

  struct Entry {
    std::string patch;
    int face;
    unsigned index;
  };
  // Sorted by (patch, face, index); valid for `indexedOwner` holding `indexedCount` guides.
  std::vector<Entry> index;
  const VrPrimitive* indexedOwner = nullptr;
  unsigned indexedCount = 0;
};
