#pragma once
// VrPrimitiveContext: the record of the primitive being made at one location, as generators,
// primitives, FX modules, renderers and expressions read it. On top of the frame, identity, CVs
// and guide weights of `VrBasePrimitiveContext` it holds the primitive's length, width and depth,
// its per-CV attributes, the contexts of the other motion samples, values one module hands to a
// later one, a record per FX module, and the generator and renderer records of the worker.
//
// Each primitive owns one context for the serial path (`VrPrimitive::context()`); a parallel
// render gives every worker a clone of the kind (`VrPrimitive::cloneContext`), so that nothing
// per location is shared between threads. Sample contexts and worker records are not owned; the
// module records are, and a clone copies them.

#include "base/VrDict.h"
#include "base/VrExactCast.h"
#include "primitives/VrBasePrimitiveContext.h"

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

class VrFXModule;
class VrFXModuleContext;
class VrGenerator;
class VrGeneratorContext;

class VrPrimitiveContext : public VrBasePrimitiveContext {
 public:
  /// Where one CV attribute stands in a packed float array: `size` floats from `offset`
  /// (three per CV).
  struct Location {
    unsigned offset = 0;
    unsigned size = 0;
  };
  using CVAttrs = VrDict<std::vector<SgVec3T<double>>>;

  explicit VrPrimitiveContext(VrDescription* description = nullptr);
  ~VrPrimitiveContext() override;
  /// A copy is a worker's clone: it shares the description, patch, sample contexts and records
  /// and copies the module records.
  VrPrimitiveContext(const VrPrimitiveContext& other);
  VrPrimitiveContext& operator=(const VrPrimitiveContext& other);

  /// A new context of the same kind holding a copy of this one.
  std::unique_ptr<VrPrimitiveContext> cloneContext() const {
    return std::unique_ptr<VrPrimitiveContext>(static_cast<VrPrimitiveContext*>(cloneContextImp()));
  }

  /// @name Length, width and depth
  /// @{
  /// The stored length, or `computeLength()` when it is marked dirty (the result is stored).
  double cLength();
  double cWidth() const { return width; }
  double cDepth() const { return depth; }
  /// Marks the length as depending on the current CVs.
  void dirtyCLength() { lengthDirty = true; }
  bool isLengthDirty() const { return lengthDirty; }
  /// Stores the length and clears the dirty mark.
  void overrideCLength(double value) {
    length = value;
    lengthDirty = false;
  }
  void overrideCWidth(double value) { width = value; }
  void overrideCDepth(double value) { depth = value; }
  /// @}

  /// @name Per-CV attributes by name, one entry per CV
  /// @{
  const CVAttrs& cvAttrs() const { return cvAttrValues; }
  CVAttrs& getCVAttrs() { return cvAttrValues; }
  /// The values of one attribute, or null.
  std::vector<SgVec3T<double>>* cvAttr(const std::string& name) { return cvAttrValues.find(name); }
  const VrDict<Location>& cvAttrsLoc() const { return cvAttrLocations; }
  /// Writes every attribute as floats (x, y, z per CV) into `floats`, replacing its contents, and
  /// records in `map` (and in `cvAttrsLoc`) where each one stands.
  void packCVAttrs(std::vector<float>& floats, VrDict<Location>& map);
  /// Reads attributes back from an array packed with `map`; attributes named in the map are
  /// created as needed. False (and a warning) when the map points past the end of `floats`.
  bool unpackCVAttrs(const std::vector<float>& floats, const VrDict<Location>& map);
  /// The form of a baked record, where a file's key ids name the attributes: appends, for each
  /// attribute with an id in `keyToId`, the id, the number of floats n, then the n floats (x, y,
  /// z per CV). Attributes without an id are left out.
  void packCVAttrs(std::vector<float>& floats, const std::unordered_map<std::string, int>& keyToId) const;
  /// Reads `count` floats in that form back; `keyNames[id]` names the attribute of key id. False
  /// (and a warning) for an unknown id or an entry running past the end; the attributes read
  /// before it stay.
  bool unpackCVAttrs(const float* floats, size_t count, const std::vector<std::string>& keyNames);
  /// @}

  /// @name Motion samples: the contexts of the other samples, sample 1 first (not owned)
  /// @{
  void addSample(VrPrimitiveContext* context) { samples.push_back(context); }
  void clearSamples() { samples.clear(); }
  /// Null past the end.
  VrPrimitiveContext* sample(unsigned i) const { return i < samples.size() ? samples[i] : nullptr; }
  unsigned numSamples() const { return static_cast<unsigned>(samples.size()); }
  /// @}

  /// @name Pipe data: named values one module leaves for a later one
  /// @{
  void setPipeData(const std::string& name, const std::vector<SgVec3T<double>>& values);
  /// Null when nothing is stored under that name.
  const std::vector<SgVec3T<double>>* getPipeData(const std::string& name) const { return pipe.find(name); }
  bool removePipeData(const std::string& name) { return pipe.erase(name); }
  void removeAllPipeData() { pipe.clear(); }
  /// @}

  /// @name Module records, one per FX module of the stack (owned)
  /// @{
  /// Stores the record of `module` (replacing an earlier one).
  void addModuleContext(const VrFXModule* module, std::unique_ptr<VrFXModuleContext> record);
  /// Null when the module has none.
  VrFXModuleContext* fxModuleContext(const VrFXModule* module) const;
  void removeAllModuleContext();
  /// @}

  /// @name Records of the worker (not owned)
  /// @{
  VrGeneratorContext* generatorContext() const { return generatorRecord; }
  void setGeneratorContext(VrGeneratorContext* record) { generatorRecord = record; }
  /// @}

 protected:
  VrBasePrimitiveContext* cloneContextImp() const override { return new VrPrimitiveContext(*this); }
  /// The expression form of the surface with the active generator's displacement, bump and
  /// offset.
  bool evalGeomWithDisplacement(int slot, double u, double v) override;
  /// No flipped normals (which only the plain frame takes), no vector displacement, and
  /// displacement, bump and offset constants known to be zero.
  bool displacementMovesNothing() const override;
  /// The length of the current CVs (the spline through them).
  virtual double computeLength();

 private:
  struct ModuleRecord {
    const VrFXModule* module = nullptr;
    std::unique_ptr<VrFXModuleContext> record;
  };
  // The description's active generator as a VrGenerator, or null.
  const VrGenerator* displacingGenerator() const;

  double length = 1.0;
  double width = 1.0;
  double depth = 1.0;
  bool lengthDirty = false;
  CVAttrs cvAttrValues;
  VrDict<Location> cvAttrLocations;
  std::vector<VrPrimitiveContext*> samples;
  VrDict<std::vector<SgVec3T<double>>> pipe;
  std::vector<ModuleRecord> moduleRecords;
  VrGeneratorContext* generatorRecord = nullptr;
  mutable VrRememberedCast<const VrGenerator> generatorCast;
};
