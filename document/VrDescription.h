#pragma once
// VrDescription: one groom or instance set of a collection. It owns every object made for it
// (keyed by module name) and designates four of them active (primitive, generator, renderer and
// previewer); it owns the patches that bind it to geometry, its id, the level-of-detail settings
// and the stray expression. Main thread only, except the expression evaluations.

#include "base/VrDict.h"
#include "base/VrObject.h"
#include "expressions/VrExpression.h"

#include <map>
#include <string>
#include <vector>

class VrPalette;
class VrPatch;
class VrPrimitive;

class VrDescription : public VrObject {
 public:
  VrDescription();
  ~VrDescription() override;

  std::string typeName() const override { return "Description"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  /// The base's pairs, then those of the active primitive, generator, renderer, and of the
  /// previewer when it differs from the renderer.
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  /// Writes the collection's `vrDataPath` and `vrProjectPath`, for readers of a single
  /// description.
  bool exportExtraAttr(std::ostream& out) const override;
  /// `vrDataPath` and `vrProjectPath` lines are skipped on reading: the collection has them.
  bool isExtraAttr(const std::string& name) const override;
  bool attrWrittenEmpty(const std::string& name) const override {
    return name == "groom" && groomWrittenEmpty();
  }

  /// @name Objects
  /// @{
  /// The object made for `module`, creating it through the module registry; null on failure.
  VrObject* addObject(const std::string& module);
  VrObject* getObject(const std::string& module) const;
  /// The module name of the index-th object in dictionary order; false past the end.
  bool objectName(int index, std::string& module) const;
  unsigned numObjects() const { return objects.size(); }
  /// Makes the module active as primitive, generator or renderer by its name; false when it
  /// cannot be created.
  bool setActive(const std::string& module);
  /// The name must hold "Renderer"; false with an Error otherwise.
  bool setPreviewer(const std::string& module);
  /// Deletes every object that is not active; the previewer too when `deletePreviewer`.
  void cleanObjects(bool deletePreviewer);
  VrPrimitive* activePrimitive() const { return primitive; }
  VrObject* activeGenerator() const { return generator; }
  /// The previewer when `preview` is set and there is one, else the renderer.
  VrObject* activeRenderer(bool preview = false) const;
  VrObject* activePreviewer() const { return previewer; }
  void setActiveRenderer(VrObject* renderer) { this->renderer = renderer; }
  /// Sets the previewer directly (null: none), for a caller that renders through another back end
  /// for a while.
  void setActivePreviewer(VrObject* previewer) { this->previewer = previewer; }
  /// @}

  /// @name Patches (owned, ordered by name)
  /// @{
  /// Takes ownership; a patch of a name already present replaces the entry, without deleting
  /// the old patch.
  void addPatch(VrPatch* patch);
  VrPatch* patch(const std::string& name) const;
  /// Deletes the patch; false for an empty or unknown name (a warning for the latter).
  bool removePatch(const std::string& name);
  /// Re-keys a patch; false when `oldName` is unknown.
  bool changePatchName(const std::string& oldName, const std::string& newName);
  void clearPatches();
  const std::map<std::string, VrPatch*>& patches() const { return patchMap; }
  unsigned numPatches() const { return static_cast<unsigned>(patchMap.size()); }
  /// @}

  /// @name Persistence (collection file blocks)
  /// @{
  /// Writes every object's block (a primitive followed by its FX modules), the texture block and
  /// the "Active" and "Preview" lines. False when an object cannot be written.
  bool exportObjects(std::ostream& out) const;
  /// Writes the "MapTextures" block when any attribute has a texture linked.
  bool exportTexMap(std::ostream& out) const;
  /// Writes the "Patches" block: every patch with its guides.
  bool exportPatches(std::ostream& out) const;
  /// Writes one patch with its guides; false when there is no patch of that name.
  bool exportPatch(const std::string& name, std::ostream& out) const;
  /// Reads patch blocks up to "endPatches"; false on an unknown token or a broken patch.
  bool importPatches(std::istream& in);
  /// Reads one "Patch" block (the token itself already read); false when it is broken.
  bool importPatch(std::istream& in);
  /// Reads the lines of a "MapTextures" block up to "endAttrs".
  bool importTexMap(std::istream& in);
  /// @}

  /// @name Level of detail and stray primitives
  /// @{
  bool lodFlag() const { return lod; }
  double lodMinDensity() const { return minDensity; }
  double lodFadeOutRange() const { return cullFade; }
  double lodCullWidthRatio() const { return cullWidthRatio; }
  double lodPixelFadeSize() const { return pixelFadeSize; }
  double lodPixelCullSize() const { return pixelCullSize; }
  double lodMaxWidthRatio() const { return maxWidthRatio; }
  VrExpression& lodScreenSizeFactor() { return screenSizeExpr; }
  VrExpression& lodWidthCoefficient() { return widthCoefficientExpr; }
  double lodAdjustment() const { return lodAdjust; }
  void setLodAdjustment(double value) { lodAdjust = value; }
  /// Rebuilds the screen-size expression from the camera position and scale below.
  void setLodScreenSizeFactor();
  static void setLodCamera(double x, double y, double z, double scale);
  VrExpression& strayInternal() { return strayExpr; }
  bool flipNormals() const { return flip; }
  /// @}

  /// @name Identity and ownership
  /// @{
  unsigned descriptionId() const { return id; }
  /// Moves this description's use of an id to `newId`; two descriptions may share an id.
  void setDescriptionId(unsigned newId);
  /// How many descriptions use `id` now.
  static unsigned descriptionIdUseCount(unsigned id);
  unsigned index() const { return position; }
  void setIndex(unsigned index) { position = index; }
  VrPalette* palette() const { return collection; }
  void setPalette(VrPalette* palette) { collection = palette; }
  /// Motion samples: descriptions of later time samples of this one (not owned).
  void addSample(VrDescription* sample) { samples.push_back(sample); }
  /// Forgets a sample; false when it is not one of this description's.
  bool removeSample(const VrDescription* sample);
  VrDescription* sample(unsigned index) const {
    return index < samples.size() ? samples[index] : nullptr;
  }
  unsigned numSamples() const { return static_cast<unsigned>(samples.size()); }
  /// True when the "groom" attribute is written empty: the active spline primitive interpolates
  /// from guides ("iMethod" 1).
  bool groomWrittenEmpty() const;
  /// @}

  /// @name Modifier hammers, set from outside
  /// @{
  bool useHammer() const { return hammer; }
  void setUseHammer(bool on) { hammer = on; }
  const std::string& lengthHammer() const { return lengthHammerText; }
  void setLengthHammer(const std::string& text) { lengthHammerText = text; }
  const std::string& widthHammer() const { return widthHammerText; }
  void setWidthHammer(const std::string& text) { widthHammerText = text; }
  const std::string& depthHammer() const { return depthHammerText; }
  void setDepthHammer(const std::string& text) { depthHammerText = text; }
  const std::string& taperHammer() const { return taperHammerText; }
  void setTaperHammer(const std::string& text) { taperHammerText = text; }
  /// @}

 protected:
  void setName(const std::string& value) override;
  void clearObjects();

 private:
  void writePatchWithGuides(std::ostream& out, const VrPatch* patch) const;
  bool setClampedFloat(const std::string& name, const std::string& value, double& member,
                       double low, double high);

  VrPalette* collection = nullptr;
  VrDict<VrObject*> objects;
  VrPrimitive* primitive = nullptr;
  VrObject* generator = nullptr;
  VrObject* renderer = nullptr;
  VrObject* previewer = nullptr;
  bool flip = false;
  std::map<std::string, VrPatch*> patchMap;
  unsigned id = 0;
  bool hammer = false;
  std::string lengthHammerText, widthHammerText, depthHammerText, taperHammerText;
  VrExpression strayExpr;
  std::vector<VrDescription*> samples;
  bool lod = false;
  double minDensity = 0.01;
  double cullFade = 0.1;
  double cullWidthRatio = 0.01;
  double pixelFadeSize = 20.0;
  double pixelCullSize = 0.0;
  double maxWidthRatio = 20.0;
  VrExpression screenSizeExpr;
  VrExpression widthCoefficientExpr;
  double lodAdjust = 1.0;
  unsigned position = 0;
};
