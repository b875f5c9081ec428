#pragma once
// VrArchivePrimitive: places instances of ready-made geometry files. Each primitive is a small
// frame told by the sphere's four control points (root, tip, width and depth handles); the
// archive list (`files`, see VrArchiveFiles.h) arranges the files in groups, a group holding
// one key per level of detail, and expressions pick the group (`aIndex`) and the key of each of
// the four slots: low, medium and high for renderers that choose by pixel area, and proxy (by
// default chosen by distance through `aLOD`) for previews and renderers without such choice.
//
// Per-group values: an attribute "archive_<type>_<name>[<group>]" holds an expression. Named
// after an attribute of this primitive, it overrides that attribute for the group ($<name>
// reads the ordinary value); otherwise it is a value of the group offered to expressions as
// $<name> while the group's primitives are made.
//
// Attributes and the list change on the main thread only; `mkGeometryInParallel` touches only
// the context it is given, and unknown keys are gathered in concurrent sets that the end of a
// pass reports once.

#include "geometry/SgBox3T.h"
#include "primitives/VrArchiveFiles.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrSpherePrimitive.h"

#include <tbb/concurrent_unordered_set.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// The archive's context: the primitive record plus the archive frame, the key of each slot (-1
/// for none) and the group.
class VrArchivePrimitiveContext : public VrPrimitiveContext {
 public:
  explicit VrArchivePrimitiveContext(VrDescription* description = nullptr) : VrPrimitiveContext(description) {}

  double archiveFrame = 0.0;
  std::array<int32_t, 4> slotKeys = {{-1, -1, -1, -1}};
  uint32_t group = 0;

 protected:
  VrBasePrimitiveContext* cloneContextImp() const override { return new VrArchivePrimitiveContext(*this); }
};

class VrArchivePrimitive : public VrPrimitive {
 public:
  /// The level-of-detail slots.
  enum Slot { Low = 0, Medium = 1, High = 2, Proxy = 3, NumSlots = 4 };
  /// The pixel-area range in which a renderer shows a slot's file.
  struct PixelRange {
    unsigned lower = 0, upper = 0;
  };

  explicit VrArchivePrimitive(VrDescription* description);
  ~VrArchivePrimitive() override;

  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  std::string typeName() const override { return "ArchivePrimitive"; }
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  const VrExpression* attrExpression(const std::string& name) const override;
  std::unique_ptr<VrPrimitiveContext> createContext() const override;
  /// The archive list travels with a preset.
  bool attrIsForcedInPreset(const std::string& name) const override { return name == "files"; }

  /// @name A pass
  /// @{
  /// Parses the list ("Archive files list is empty." when it holds no file, one Error per file
  /// not found), decides which slots are in use and reads the box of every listed file.
  void initDescription() override;
  /// Reports the unknown keys of each slot once, ascending.
  void finishDescription() override;
  /// @}

  /// @name Geometry
  /// @{
  void mkGeometryInParallel(VrPrimitiveContext& context, double u, double v) override;
  unsigned finalCVCount() const override { return VrSpherePrimitive::NumControlPoints; }
  unsigned minGuideCVCount() const override { return VrSpherePrimitive::NumControlPoints; }
  void defaultGuideGeom(VrGuide& guide) const override { VrSpherePrimitive::unitGuideGeom(guide); }
  /// The working CVs of the guide, straightened as a sphere's, then placed on the surface.
  bool prepGuideCGeom(unsigned index) override;
  /// @}

  /// @name The archive list
  /// @{
  /// Parses `files` again; keeps the per-group attributes with their groups (by name) and sets
  /// `aCount`.
  void processFiles();
  const VrArchiveFiles& archiveFiles() const { return list; }
  /// File `i` of the slot's key in `context` (of the given key): the full path or the base name.
  /// An empty text for an unknown key or index.
  const std::string& fileName(Slot slot, unsigned i, bool full, const VrPrimitiveContext& context) const;
  const std::string& fileNameOfLod(int key, unsigned i, bool full) const;
  const std::string& materialName(Slot slot, unsigned i, const VrPrimitiveContext& context) const;
  const std::string& materialNameOfLod(int key, unsigned i) const;
  const std::vector<std::string>& objectNames(Slot slot, unsigned i, const VrPrimitiveContext& context) const;
  const std::vector<std::string>& objectNamesOfLod(int key, unsigned i) const;
  bool useBBox(Slot slot, unsigned i, const VrPrimitiveContext& context) const;
  /// Every material of every entry.
  void materialNames(std::set<std::string>& names) const;
  /// How many entries stand under the slot's key; 0 for no key.
  unsigned size(Slot slot, const VrPrimitiveContext& context) const;
  /// The key of the slot in a context (-1 for none; any context, the archive's or not).
  static int slotKey(Slot slot, const VrPrimitiveContext& context);
  /// Whether a slot's index expression is in use this pass.
  bool slotEnabled(Slot slot) const { return enabled[slot]; }
  /// The pixel-area range of a renderer's slot (low, medium, high).
  PixelRange pixelRange(Slot slot) const { return slot < Proxy ? ranges[slot] : PixelRange(); }
  /// The slot a renderer shows at `area` pixels: the enabled pixel slot whose range holds it;
  /// between two ranges the nearer range's slot (the lower one at the midpoint); beyond the outer
  /// ranges the outer slot. -1 when no pixel slot is enabled.
  int slotForPixelArea(double area) const;
  /// Sets `archiveSize` to the largest axis of the box of the last listed file that could be
  /// read at the collection's frame (1.0 when none) and answers it.
  double setArchiveSize();
  double archiveSize() const { return sizeOfArchive; }
  /// The box of the files under the context's keys, in the files' own space, read when the pass
  /// began; false when none of them has a box.
  bool archiveBox(const VrPrimitiveContext& context, SgBox3T<double>& box) const;
  /// @}

 protected:
  void mkGeometryFromAttrs(VrArchivePrimitiveContext& context, double u, double v) const;
  void mkGeometryFromGuides(VrArchivePrimitiveContext& context, double u, double v) const;
  /// The sizes and turns at (u, v), each passed through the group's overrides; the leans
  /// `offU` and `offV` only `withLean`.
  VrSpherePrimitive::Shape evalShape(const VrArchivePrimitiveContext& context, double u, double v,
                                     bool withLean) const;
  void evalIndex(VrArchivePrimitiveContext& context, double u, double v, Slot slot, const char* name) const;
  /// The group's override of `name` applied to `value`; false (value untouched) without one.
  bool applyPerArchiveExpression(const VrArchivePrimitiveContext& context, double u, double v,
                                 const std::string& name, double& value) const;
  void applyPerArchiveCustomExpressions(const VrArchivePrimitiveContext& context, double u, double v) const;

 private:
  /// The expressions a group holds, kept by the group's name.
  struct GroupExpressions {
    std::map<std::string, std::shared_ptr<VrExpression>> overrides;
    std::map<std::string, std::shared_ptr<VrExpression>> customs;
  };

  bool setPerGroupAttr(const std::string& name, const std::string& value);
  const GroupExpressions* groupExpressions(uint32_t group) const;
  VrExpression* slotExpression(Slot slot);
  const VrExpression& slotExpression(Slot slot) const;
  void readArchiveBoxes();

  VrExpression twistExpression;
  VrExpression frameExpression;
  VrExpression hiIndexExpression;
  VrExpression medIndexExpression;
  VrExpression loIndexExpression;
  VrExpression proxyIndexExpression;
  VrExpression aIndexExpression;
  VrExpression aLODExpression;
  VrArchiveFiles list;
  std::map<std::string, GroupExpressions> perGroup;
  bool anyOverride = false;
  bool declared = false;
  std::array<PixelRange, 3> ranges;
  unsigned archiveCount = 0;
  double sizeOfArchive = 1.0;
  std::array<bool, NumSlots> enabled = {{true, true, true, true}};
  mutable std::array<tbb::concurrent_unordered_set<int>, NumSlots> invalidKeys;
  std::map<int, SgBox3T<double>> boxesByKey;
};
