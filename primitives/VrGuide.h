#pragma once
// VrGuide: one hand-shaped sample of what primitives look like, rooted at (u, v) of a face of a
// patch. A value held in its primitive's guide list. Its CVs are kept as imported; the first CV
// is the root, which comes back from the binding.

#include "geometry/SgVec3T.h"

#include <cstdlib>
#include <string>
#include <vector>

class VrPatch;
class VrPalette;

class VrGuide {
 public:
  const std::string& id() const { return guideId; }
  /// The number of the id's text.
  int intId() const { return std::atoi(guideId.c_str()); }
  void setId(const std::string& id) { guideId = id; }
  /// Takes a fresh id from the collection's guide counter.
  void setId(VrPalette* palette);

  double blend() const { return blendValue; }
  void setBlend(double blend) { blendValue = blend; }
  const VrPatch* patch() const { return guidePatch; }
  void setPatch(const VrPatch* patch) { guidePatch = patch; }
  int faceId() const { return face; }
  void setFaceId(int id) { face = id; }
  double patchU() const { return u; }
  double patchV() const { return v; }
  void setU(double value) { u = value; }
  void setV(double value) { v = value; }
  const std::string& interpolation() const { return interp; }
  void setInterpolation(const std::string& text) { interp = text; }

  /// The CVs as imported, root first.
  const std::vector<SgVec3T<double>>& iOrigGuideGeom() const { return origGeom; }
  void setOrigIGeom(std::vector<SgVec3T<double>> cvs) { origGeom = std::move(cvs); }

  bool enabledInExporting() const { return exporting; }
  void enableInExporting(bool on) { exporting = on; }

 private:
  std::string guideId;
  double blendValue = 0.0;
  const VrPatch* guidePatch = nullptr;
  int face = 0;
  double u = 0.0;
  double v = 0.0;
  std::string interp;
  std::vector<SgVec3T<double>> origGeom;
  bool exporting = true;
};
