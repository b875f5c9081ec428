#include "primitives/VrGuide.h"

#include "document/VrPalette.h"

void VrGuide::setId(VrPalette* palette) {
  if (!palette) return;
  palette->setMaxGuideId(palette->maxGuideId() + 1);
  guideId = std::to_string(palette->maxGuideId());
}
