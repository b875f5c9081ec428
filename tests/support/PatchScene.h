#pragma once
// A collection with one description and one bound subdivision patch named "body": the stage of
// the tests of primitives and of what reads them.

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"

#include <memory>
#include <string>
#include <utility>

namespace vrtest {

struct PatchScene {
  /// The patch stands on `animatedSurface`; `referenceSurface` is its rest pose (null: the same).
  /// A non-empty `descriptionName` names the description.
  explicit PatchScene(std::unique_ptr<SgSubdSurface> animatedSurface,
                      std::unique_ptr<SgSubdSurface> referenceSurface = nullptr,
                      const std::string& descriptionName = "")
      : palette(new VrPalette),
        description(new VrDescription),
        reference(std::move(referenceSurface)),
        animated(std::move(animatedSurface)) {
    palette->addDescription(description);
    if (!descriptionName.empty()) description->setAttr("name", descriptionName);
    patch = new VrSubdPatch(description);
    patch->setName("body");
    description->addPatch(patch);
    patch->bindGeometry(reference.get(), animated.get(), false);
  }
  ~PatchScene() { patch->unbindGeometry(); }
  PatchScene(const PatchScene&) = delete;
  PatchScene& operator=(const PatchScene&) = delete;

  std::unique_ptr<VrPalette> palette;
  VrDescription* description;  // owned by the palette
  std::unique_ptr<SgSubdSurface> reference, animated;
  VrSubdPatch* patch;  // owned by the description
};

}  // namespace vrtest
