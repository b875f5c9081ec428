#pragma once
// VrBasePrimitive: the part of a primitive that holds its description's guides. Guides are
// values in one list; each knows its patch. Main thread only.

#include "base/VrObject.h"
#include "geometry/SgBox3T.h"
#include "primitives/VrGuide.h"
#include "primitives/VrGuideInterpolation.h"

#include <iosfwd>
#include <vector>

class VrPatch;
class VrPrimitiveContext;

class VrBasePrimitive : public VrObject {
 public:
  explicit VrBasePrimitive(VrDescription* description) : VrObject(description) {}

  /// @name Guides
  /// @{
  unsigned numGuides() const { return static_cast<unsigned>(guides.size()); }
  VrGuide& guide(unsigned index) { return guides[index]; }
  const VrGuide& guide(unsigned index) const { return guides[index]; }
  /// The guide with that id text, or null.
  const VrGuide* guide(const std::string& id) const;
  /// Resizes the guide list to n guides.
  void setGuideCount(unsigned n) { guides.resize(n); }
  void reserveGuideSpace(unsigned n) { guides.reserve(n); }
  VrGuide& addGuide() {
    guides.emplace_back();
    return guides.back();
  }
  /// Removes the guides bound to `patch`.
  void stripGuidePatch(const VrPatch* patch);
  /// Appends copies of the other primitive's guides; false with an Error without one.
  bool newCopiedGuides(const VrBasePrimitive* other);
  /// Number of guides on one patch.
  unsigned numGuidesOn(const VrPatch* patch) const;
  /// Box of a guide's CVs as they stand on the surface; invalid for a bad index or no CVs.
  virtual SgBox3T<double> guideBoundingBox(unsigned index) const;
  /// The fewest CVs a guide of the kind may have.
  virtual unsigned minGuideCVCount() const { return 2; }
  /// Gives a new guide the kind's default CVs: two, one unit along the exported normal.
  virtual void defaultGuideGeom(VrGuide& guide) const;
  /// True when `cvs` can shape a primitive of the kind: at least `minGuideCVCount` CVs.
  virtual bool verifyGuideGeom(const std::vector<SgVec3T<double>>& cvs) const {
    return cvs.size() >= minGuideCVCount();
  }
  /// @}

  /// @name Interpolation
  /// Reach maps are built once per pass by `setupInterpolation`; afterwards guides are
  /// read-only and `findGuidesAndWeightsInParallel` may run on many workers, each with its own
  /// context.
  /// @{
  /// 0: attribute interpolation (no guide weights), 1: CV interpolation.
  int iMethod() const { return interpMethod; }
  void setIMethod(int method) { interpMethod = method; }
  /// Places every guide's root and CVs on its patch through `prepGuideCGeom`; answers the
  /// number placed.
  unsigned transformGuidesToSurface();
  /// Places one guide's root frame and CVs (`cGuideGeom`) on its patch; false for an index past
  /// the end or a guide that cannot be placed (it stays off the surface).
  virtual bool prepGuideCGeom(unsigned index);
  /// Clears the serial context's face, places the guides and builds reach maps and candidates.
  virtual void setupInterpolation(bool silent);
  /// Rebuilds reach maps and candidate lists of the guides on the surface; a non-empty
  /// `connectivityFile` receives the reach maps.
  virtual void initInterpolation(const std::string& connectivityFile);
  void clearCandidates();
  bool hasCandidates() const { return candidatesAssociated; }
  const VrGuideCandidates& candidates() const { return candidateTable; }
  /// The candidate list of a face, or null.
  const std::vector<int>* candidates(const std::string& patchName, int face) const;
  /// Guides and weights at (u, v) of the context's face, into the context.
  virtual void findGuidesAndWeightsInParallel(VrPrimitiveContext& context, double u, double v);
  virtual void findGuidesAndWeights(double u, double v);
  void calcCVWeightsInParallel(VrPrimitiveContext& context, double u, double v);
  void calcCVWeights(double u, double v);
  /// Region id of a location; 0 without regions.
  virtual unsigned guideRegion(double u, double v, int face, const std::string& patchName) const;
  /// Weight of guides of another region at a location; 1.0 without regions.
  virtual double guideRegionMask(double u, double v, int face, const std::string& patchName) const;
  /// Results of the serial context (empty for a primitive without one).
  const std::vector<double>& weight() const;
  double weight(unsigned i) const { return weight()[i]; }
  double weightN() const;
  const std::vector<int>& activeGuides() const;
  /// @}

  /// @name Guide blocks of a collection file
  /// @{
  /// Writes the "Guides" block of the guides on `patch`; nothing when there are none.
  bool exportGuides(std::ostream& out, const VrPatch* patch) const;
  /// Reads a guide count and that many guides onto `patch`; `fileVersion` selects the CV form.
  bool importGuides(std::istream& in, const VrPatch* patch, unsigned fileVersion);
  /// @}

 private:
  // The serial context of the concrete primitive, or null.
  VrPrimitiveContext* serialContext() const;

  std::vector<VrGuide> guides;
  VrGuideCandidates candidateTable;
  bool candidatesAssociated = false;
  int interpMethod = 1;
};
