#pragma once
// VrBasePrimitive: the part of a primitive that holds its description's guides. Guides are
// values in one list; each knows its patch. Main thread only.

#include "document/VrObject.h"
#include "primitives/VrGuide.h"

#include <iosfwd>
#include <vector>

class VrPatch;

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
  /// @}

  /// @name Guide blocks of a collection file
  /// @{
  /// Writes the "Guides" block of the guides on `patch`; nothing when there are none.
  bool exportGuides(std::ostream& out, const VrPatch* patch) const;
  /// Reads a guide count and that many guides onto `patch`; `fileVersion` selects the CV form.
  bool importGuides(std::istream& in, const VrPatch* patch, unsigned fileVersion);
  /// @}

 private:
  std::vector<VrGuide> guides;
};
