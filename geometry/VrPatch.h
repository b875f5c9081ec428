#pragma once
// VrPatch: one bound piece of geometry of a description, identified by the geometry's name. It
// knows the faces that grow primitives, the primitives culled by hand, per-patch custom values
// and animation-curve records. Owned by its description; main thread only. Surface binding and
// evaluation are added by the patch kinds.

#include "base/VrDict.h"
#include "geometry/SgBox3T.h"
#include "geometry/SgVec3T.h"

#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <vector>

class SgSurface;
class VrDescription;
class VrExpression;

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

  /// @name Geometry, implemented by the patch kinds. `ref` true reads the reference (rest)
  /// surface, false the animated one. Faces are logical ids; u, v in [0, 1]. Every operation
  /// answers false or 0 on an unbound patch.
  /// @{
  virtual bool isBound() const { return false; }
  /// True when the reference surface differs from the animated one.
  virtual bool isReferenced() const { return false; }
  /// Binds surfaces (a null `reference` means the animated one for both); with `convertFaceIds`
  /// the face ids are in the cage's numbering and are converted. Errors for a null `animated`.
  virtual void bindGeometry(SgSurface* reference, SgSurface* animated, bool convertFaceIds);
  virtual void unbindGeometry() {}
  virtual SgBox3T<double> boundingBox(int face, bool ref) const;
  virtual SgBox3T<double> boundingBox(bool ref) const;
  virtual std::vector<int> origFaceIds() const { return faces; }
  virtual int numGeomFaces() const { return 0; }
  virtual void origToLogical(int face, std::vector<int>& ids, bool clear) const;
  virtual void logicalToOrig(int face, std::vector<int>& ids, bool clear) const;
  virtual double calculateSubAreas(int face, int grid, int& nu, int& nv, std::vector<double>& areas) const;
  virtual double area(int face) const;
  virtual double lengthU(double t, int face) const;
  virtual double lengthV(double t, int face) const;
  virtual bool evalUV(int face, double u, double v, double& s, double& t) const;
  /// The texel grid of a face for painting at `density` texels per unit (0: 10 per unit):
  /// powers of two up to 4096 each; answers resU * resV.
  virtual unsigned computeFaceResolution(unsigned short& resU, unsigned short& resV, int face,
                                         double density) const;
  /// Pairs (resU, resV) of `faces` appended to `res`; answers the total in megatexels.
  virtual double computeFaceResolution(std::vector<unsigned short>& res, const std::vector<int>& faces,
                                       double density) const;
  /// Point, normal (normalised dPdu x dPdv) and derivatives, without any correction.
  virtual bool pureEvalGeom(double u, double v, int face, SgVec3T<double>& P, SgVec3T<double>& N,
                            SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref) const;
  virtual bool pureEvalCurvature(double u, double v, int face, double& k1, double& k2, bool ref) const;
  /// @}

  /// @name Evaluation
  /// @{
  /// The point only.
  bool evalGeom(double u, double v, int face, SgVec3T<double>& P, bool ref) const;
  /// Point, normal and tangents made perpendicular about N (each turned by half the correction,
  /// lengths kept); N and dPdu negated when the description flips normals. With `squared`
  /// false the tangents are left as the surface gives them, for `squareTangents` to finish when
  /// they are needed.
  bool evalGeom(double u, double v, int face, SgVec3T<double>& P, SgVec3T<double>& N,
                SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref, bool squared = true) const;
  /// Turns dPdv by half the deviation of the tangents from a right angle about N, and dPdu by
  /// the other half the other way: the last step of `evalGeom`.
  static void squareTangents(const SgVec3T<double>& N, SgVec3T<double>& dPdu, SgVec3T<double>& dPdv);
  /// As `evalGeom`, with dPdu and dPdv unit length and dPdu = dPdv x N.
  bool evalFrame(double u, double v, int face, SgVec3T<double>& P, SgVec3T<double>& N,
                 SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref) const;
  bool evalCurvature(double u, double v, int face, double& k1, double& k2, bool ref) const;
  /// The displaced point: displacement (`dispExpr`, along N, or a vector with `vectorFlag`),
  /// bump and offset expressions evaluated at (u, v) of this patch's face; any may be null.
  /// Derivatives and normal come from one-sided-at-the-edge differences with step 0.01.
  /// `squared` as above.
  bool evalGeom(double u, double v, int face, const VrExpression* dispExpr, bool vectorFlag,
                const VrExpression* bumpExpr, const VrExpression* offsetExpr, SgVec3T<double>& P,
                SgVec3T<double>& N, SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref,
                bool squared = true) const;
  /// True when any logical face of the original face `face` grows primitives.
  bool hasOrigFaceId(int face) const;
  /// @}

  /// @name Access
  /// @{
  const std::string& name() const { return patchName; }
  /// Stores the geometry's name without its name space; the description's patch map follows.
  void setName(const std::string& name);
  VrDescription* description() const { return owner; }
  /// The patch's place among its description's patches.
  unsigned index() const { return patchIndex; }
  void setIndex(unsigned index) { patchIndex = index; }
  /// Growing faces, kept sorted.
  unsigned numFaces() const { return static_cast<unsigned>(faces.size()); }
  int faceId(int i) const { return faces[static_cast<size_t>(i)]; }
  const std::vector<int>& faceIds() const { return faces; }
  void setFaceIds(std::vector<int> ids);
  std::vector<int>& mutableFaceIds() { return faces; }
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
