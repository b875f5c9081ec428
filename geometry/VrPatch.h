#pragma once
// VrPatch: one bound piece of geometry of a description, identified by the geometry's name. It
// knows the faces that grow primitives, the primitives culled by hand, per-patch custom values
// and animation-curve records. Owned by its description; main thread only. Surface binding and
// evaluation are added by the patch kinds.

#include "document/VrDict.h"
#include "geometry/SgVec3T.h"

#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <vector>

class VrDescription;

class VrPatch {
 public:
  /// Animation curves of one name on this patch (used by the animated wire modules).
  struct AnimCurves {
    std::vector<std::vector<SgVec3T<double>>> wires;
    std::vector<std::string> wireNames;
    bool guideAnimation = false;
  };
  using CulledPrims = std::map<int, std::set<unsigned>>;

  explicit VrPatch(VrDescription* description) : owner(description) {}
  virtual ~VrPatch() = default;
  VrPatch(const VrPatch&) = delete;
  VrPatch& operator=(const VrPatch&) = delete;

  /// "NurbsPatch" or "SubdPatch".
  virtual std::string typeName() const = 0;
  /// True when an animated surface is bound.
  virtual bool isBound() const { return false; }

  /// @name Access
  /// @{
  const std::string& name() const { return patchName; }
  void setName(const std::string& name) { patchName = name; }
  VrDescription* description() const { return owner; }
  /// The patch's place among its description's patches.
  unsigned index() const { return patchIndex; }
  void setIndex(unsigned index) { patchIndex = index; }
  /// Growing faces, kept sorted.
  unsigned numFaces() const { return static_cast<unsigned>(faces.size()); }
  int faceId(int i) const { return faces[static_cast<size_t>(i)]; }
  const std::vector<int>& faceIds() const { return faces; }
  void setFaceIds(std::vector<int> ids);
  void sortFaceIds();
  bool hasFaceId(int face) const;
  VrDict<SgVec3T<double>>& customAttrs() { return customValues; }
  const VrDict<AnimCurves>& animCurves() const { return curves; }
  /// False when the patch has no custom value of that name.
  bool getAttrValue(const std::string& name, SgVec3T<double>& value) const;
  /// @}

  /// @name Culling by hand
  /// @{
  void cullPrim(int face, unsigned id) { culled[face].insert(id); }
  void unCullPrim(int face, unsigned id);
  bool isCulled(int face, unsigned id) const;
  void cullReset() { culled.clear(); }
  const CulledPrims& culledPrims() const { return culled; }
  /// @}

  /// @name Persistence
  /// @{
  /// Writes the patch block (type, name, faces, culled primitives, animation curve names).
  bool exportObj(std::ostream& out) const;
  /// Reads tokens up to "endObject"; an unknown token is an Error and ends the read with false.
  bool importObj(std::istream& in);
  /// Reads the value of one token of a patch block; false for an unknown token.
  bool processToken(const std::string& token, std::istream& in);
  /// @}

 private:
  std::string patchName = "Unnamed";
  VrDescription* owner;
  CulledPrims culled;
  std::vector<int> faces;
  VrDict<SgVec3T<double>> customValues;
  VrDict<AnimCurves> curves;
  unsigned patchIndex = 0;
};
