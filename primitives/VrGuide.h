#pragma once
// VrGuide: one hand-shaped sample of what primitives look like, rooted at (u, v) of a face of a
// patch. A value held in its primitive's guide list. Its CVs are kept as imported; the first CV
// is the root, which comes back from the binding.

#include "base/VrDict.h"
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
  /// Re-reads the stored reach map text with the new widening.
  void setBlend(double blend);
  const VrPatch* patch() const { return guidePatch; }
  void setPatch(const VrPatch* patch) { guidePatch = patch; }
  int faceId() const { return face; }
  void setFaceId(int id) { face = id; }
  double patchU() const { return u; }
  double patchV() const { return v; }
  void setU(double value) { u = value; }
  void setV(double value) { v = value; }
  unsigned region() const { return regionId; }
  void setRegion(unsigned id) { regionId = id; }

  /// @name Reach map
  /// radius[0] is the overall reach; radius[k + 1] is the reach in the direction angle[k].
  /// Angles are pseudo-angles in [0, 4), sorted. delta[0] is the reciprocal of the wrap-around
  /// gap, delta[k] that of the gap between angle[k - 1] and angle[k].
  /// @{
  const std::vector<double>& radius() const { return radii; }
  const std::vector<double>& angle() const { return angles; }
  const std::vector<double>& delta() const { return deltas; }
  /// The largest reach in any direction.
  double maxRadius() const;
  /// The reach map as text, free of the blend: radius[0] / s, then ":angle:radius / s" per
  /// direction, s = max(blend + 1, 1), each number as "%.16e". Text that is not a reach map
  /// (empty, or a word from an old file) comes back as it was given.
  std::string interpolation() const;
  /// Reads the text of `interpolation()` (fields split at ':' and ','), widens the radii by s,
  /// keeps radius[0] at no less than 0.001 * s and recomputes the gaps.
  void setInterpolation(const std::string& text);
  /// @}

  /// @name Geometry
  /// @{
  /// The CVs as imported, root first.
  const std::vector<SgVec3T<double>>& iOrigGuideGeom() const { return origGeom; }
  void setOrigIGeom(std::vector<SgVec3T<double>> cvs) { origGeom = std::move(cvs); }
  /// The interpolated form (offsets from the root in the root's frame).
  const std::vector<SgVec3T<double>>& iGuideGeom() const { return interpGeom; }
  void setIGeom(std::vector<SgVec3T<double>> cvs) { interpGeom = std::move(cvs); }
  /// The CVs as they stand on the surface.
  const std::vector<SgVec3T<double>>& cGuideGeom() const { return surfaceGeom; }
  std::vector<SgVec3T<double>>& cGuideGeom() { return surfaceGeom; }
  /// Root frame; `ref` true selects the reference surface.
  const SgVec3T<double>& cGuideP(bool ref) const { return rootP[ref ? 0 : 1]; }
  const SgVec3T<double>& cGuideN(bool ref) const { return rootN[ref ? 0 : 1]; }
  const SgVec3T<double>& cGuideTangent(bool ref) const { return rootT[ref ? 0 : 1]; }
  const SgVec3T<double>& cGuideBinormal(bool ref) const { return rootB[ref ? 0 : 1]; }
  void setRootFrame(bool ref, const SgVec3T<double>& P, const SgVec3T<double>& N,
                    const SgVec3T<double>& tangent, const SgVec3T<double>& binormal);
  /// Evaluates the root frame on the guide's patch (reference and animated) and places the CVs
  /// in it; false, leaving the guide off the surface, when the patch is missing or fails.
  bool patchFrame(int face);
  const SgVec3T<double>& exportedNormal() const { return expN; }
  const SgVec3T<double>& exportedUTangent() const { return expU; }
  const SgVec3T<double>& exportedVTangent() const { return expV; }
  void setExportedNormal(const SgVec3T<double>& n) { expN = n; }
  void setExportedUTangent(const SgVec3T<double>& t) { expU = t; }
  void setExportedVTangent(const SgVec3T<double>& t) { expV = t; }
  VrDict<std::vector<float>>& guideCVAttrs() { return cvAttrs; }
  const VrDict<std::vector<float>>& guideCVAttrs() const { return cvAttrs; }
  VrDict<SgVec3T<double>>& guideCustomAttrs() { return customAttrs; }
  const VrDict<SgVec3T<double>>& guideCustomAttrs() const { return customAttrs; }
  bool transformedToSurface() const { return onSurface; }
  void setTransformedToSurface(bool on) { onSurface = on; }
  /// @}

  bool enabledInExporting() const { return exporting; }
  void enableInExporting(bool on) { exporting = on; }

 private:
  std::string guideId;
  double blendValue = 0.0;
  const VrPatch* guidePatch = nullptr;
  int face = 0;
  double u = 0.0;
  double v = 0.0;
  unsigned regionId = 0;
  std::string interp;
  bool interpIsMap = false;
  std::vector<double> radii{0.001};
  std::vector<double> angles;
  std::vector<double> deltas;
  std::vector<SgVec3T<double>> surfaceGeom;
  std::vector<SgVec3T<double>> interpGeom;
  std::vector<SgVec3T<double>> origGeom;
  SgVec3T<double> rootP[2], rootN[2], rootT[2], rootB[2];
  SgVec3T<double> expN{0.0, 1.0, 0.0};
  SgVec3T<double> expU{1.0, 0.0, 0.0};
  SgVec3T<double> expV{0.0, 0.0, 1.0};
  VrDict<std::vector<float>> cvAttrs;
  VrDict<SgVec3T<double>> customAttrs;
  bool onSurface = false;
  bool exporting = true;
};
