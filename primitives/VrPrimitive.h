#pragma once
// VrPrimitive: the base of the generated primitive kinds. It holds the attributes every kind
// shares (length, width, depth, lean, regions, interpolation method), the ordered FX module
// stack that reshapes its primitives, and the primitive context of the serial path.
//
// `makeGeometry` builds one primitive into a context in a fixed order: the surface frame, the
// guides and weights, the kind's geometry (`mkGeometry`), then the FX stack. Attributes, guides
// and the stack change on the main thread only; during generation the primitive is read-only and
// `makeGeometryInParallel` may run on many workers at once, each with its own context.

#include "expressions/VrExpression.h"
#include "primitives/VrBasePrimitive.h"
#include "primitives/VrPrimitiveContext.h"

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

class VrFXModule;

class VrPrimitive : public VrBasePrimitive {
 public:
  /// A primitive of a kind this build knows by name only: it holds the attributes it is given
  /// (read from a file or set one by one) and builds no geometry of its own.
  explicit VrPrimitive(VrDescription* description);
  ~VrPrimitive() override;

  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  /// The expression object of an expression attribute ("length", "width", "offU", ...); null for
  /// other attributes.
  virtual const VrExpression* attrExpression(const std::string& name) const;
  /// Whether everything a back end reads of the built primitive in `context` (CVs, sizes) is a
  /// finite number.
  virtual bool finiteGeometry(VrPrimitiveContext& context) const;
  /// The name of the first expression attribute that is not a finite number at (u, v) on the
  /// context's face, to say why `finiteGeometry` failed; "CVs" when every attribute is finite
  /// (an FX module, say, made the CVs).
  std::string nonFiniteAttribute(const VrPrimitiveContext& context, double u, double v) const;
  /// Copies every attribute of `other` that it holds, through `setAttr`.
  void copyAttrs(const VrPrimitive* other);

  /// @name Contexts
  /// @{
  /// The context of the serial path.
  VrPrimitiveContext& context() { return *primContext; }
  const VrPrimitiveContext& context() const { return *primContext; }
  /// A fresh context of the kind, for a worker.
  virtual std::unique_ptr<VrPrimitiveContext> createContext() const;
  /// A copy of `context` of the same kind, for a worker.
  std::unique_ptr<VrPrimitiveContext> cloneContext(const VrPrimitiveContext& context) const {
    return context.cloneContext();
  }
  /// @}

  /// @name A pass over the description
  /// @{
  /// Before a pass: builds the guides' reach maps (silently) and initialises the FX modules:
  /// with an active "BakedGroomManagerFXModule" whose `doBake` is false, the modules in front of
  /// it are switched off and "FileGenerator" (with the old generator's attributes and `inputDir`
  /// from the manager's `bakeDir`) becomes the generator; then every module gets its
  /// `initDescription`, `initModule` and its state on the serial context.
  virtual void initDescription();
  /// Before a worker's share of a pass: every active module puts its state on `context`.
  virtual void initDescriptionInParallel(VrPrimitiveContext& context);
  /// Whether every active module is thread safe, so that workers may build primitives at once.
  bool canRunInParallel() const;
  /// After a pass: finishes the FX modules.
  virtual void finishDescription();
  /// After a worker's share: drops the context's module records and pipe data.
  virtual void finishDescriptionInParallel(VrPrimitiveContext& context);
  /// Runs `beginPatchFace` (`endPatchFace`) of every active module, in stack order.
  void beginPatchFaceModules(VrPrimitiveContext& context, const VrPatch* patch, int face);
  void endPatchFaceModules(VrPrimitiveContext& context, const VrPatch* patch, int face);
  /// @}

  /// @name Building primitives
  /// @{
  /// Builds the primitive at (u, v) of the context's face into `context`: the frame, guides and
  /// weights, lengths reset to 1, the kind's geometry and the FX stack up to (not including)
  /// `fxModule` (null: every module). A refused primitive has the context's culled flag set.
  void makeGeometryInParallel(VrPrimitiveContext& context, double u, double v, VrFXModule* fxModule);
  /// The same on the serial context.
  void makeGeometry(double u, double v, VrFXModule* fxModule) {
    makeGeometryInParallel(*primContext, u, v, fxModule);
  }
  /// The kind's geometry at (u, v); the base makes none.
  virtual void mkGeometryInParallel(VrPrimitiveContext& context, double u, double v);
  void mkGeometry(double u, double v) { mkGeometryInParallel(*primContext, u, v); }
  /// Completes a primitive whose CVs came from elsewhere (a baked groom): what the kind's
  /// building adds beside the CVs, such as width and taper, from its attributes at (u, v), the
  /// width times `widthFactor`. The base marks the length as depending on the CVs.
  virtual void completeGivenGeometryInParallel(VrPrimitiveContext& context, double u, double v,
                                               double widthFactor) const;
  /// Runs the active modules in stack order, each followed by `postApplyFX`. Stops with true
  /// at `stopAt` (the state before that module) or once the primitive is culled (a module that
  /// answers false culls it). A module that changes the CV count has the count restored, every
  /// module of the stack switched off for the rest of the pass, and an Error; the answer is
  /// then false, as it is when `postApplyFX` answers false.
  bool applyFXModulesInParallel(VrPrimitiveContext& context, VrFXModule* stopAt);
  bool applyFXModules(VrFXModule* stopAt) { return applyFXModulesInParallel(*primContext, stopAt); }
  /// After each module: lets the kind mark what depends on the new shape. The base does
  /// nothing and answers false, which ends the stack.
  virtual bool postApplyFxInParallel(VrPrimitiveContext& context);
  bool postApplyFX() { return postApplyFxInParallel(*primContext); }
  /// CVs of a primitive after the modules' rebuild; the base has none. A primitive's own count is
  /// `cGeom().size()` of its context (a spline from guides has the guides' count).
  virtual unsigned finalCVCount() const { return 0; }
  /// The greatest of `finalCVCount` and the CV counts of the guides: room for any primitive.
  unsigned maximumCVCount() const;
  /// @}

  /// @name Shared attributes (the kind clamps the leans `offU`/`offV` to [-1, 1] when it uses them)
  /// @{
  const VrExpression& lengthExpr() const { return lengthExpression; }
  const VrExpression& widthExpr() const { return widthExpression; }
  const VrExpression& depthExpr() const { return depthExpression; }
  const VrExpression& offUExpr() const { return offUExpression; }
  const VrExpression& offVExpr() const { return offVExpression; }
  const VrExpression& offNExpr() const { return offNExpression; }
  const VrExpression& aboutNExpr() const { return aboutNExpression; }
  const VrExpression& regionMaskExpr() const { return regionMaskExpression; }
  const std::string& regionMap() const { return regionMapName; }
  bool useCache() const { return useCacheFlag; }
  bool liveMode() const { return liveModeFlag; }
  const std::string& cacheFileName() const { return cacheFile; }
  /// @}

  /// @name Interpolation
  /// @{
  /// Regions off; with CV interpolation the guides may come from the cache and regions follow
  /// `regionMask` and `regionMap`; then the base setup. "Invalid interpolation method." for a
  /// method other than 0 and 1.
  void setupInterpolation(bool silent) override;
  unsigned guideRegion(double u, double v, int face, const std::string& patchName) const override;
  double guideRegionMask(double u, double v, int face, const std::string& patchName) const override;
  /// With `useCache` on, replaces the guides' CVs (and CV attributes) with the curves of the
  /// guide cache `guideCacheFile()` at the collection's frame. False with `useCache` off; false
  /// with an Error, the guides left as they were, when the file is missing or unreadable.
  virtual bool overrideGuidesWithCache();
  /// `cacheFileName` with its macros expanded; a name that does not stand as it is is looked up
  /// along the collection's data path.
  std::string guideCacheFile() const;
  /// @}

  /// @name Per-CV attributes
  /// The registry of names and types lives on the primitive; the values live in each context.
  /// @{
  /// Registers the attribute and gives `context` (null: the serial one) one value per CV;
  /// answers the values.
  std::vector<SgVec3T<double>>* addCVAttr(const std::string& name, const std::string& type,
                                          VrPrimitiveContext* context = nullptr);
  /// The values of a registered attribute of that type, or null.
  std::vector<SgVec3T<double>>* getCVAttr(const std::string& name, const std::string& type,
                                          VrPrimitiveContext* context = nullptr);
  /// Names and types of the registered attributes.
  const VrDict<std::string>& cvAttrTypes() const { return cvAttrTypeNames; }
  /// Names of the registered attributes of kind "point", in registry order: the attributes that
  /// move with the CVs when a module turns or bends the primitive.
  std::vector<std::string> animatableCVAttrs() const;
  /// The values of those attributes that `context` holds, in the same order.
  std::vector<std::vector<SgVec3T<double>>*> animatableCVAttrs(VrPrimitiveContext& context) const;
  /// @}

  /// @name Per-primitive values in packed form
  /// What a baked primitive needs besides its CVs and CV attributes. The base layout is
  /// (width, depth); a kind may append its own values. `versionAttrs` names the layout, so that
  /// a reader of baked files can tell whether it understands them.
  /// @{
  /// Appends the context's values to `floats`.
  virtual void packAttrs(const VrPrimitiveContext& context, std::vector<float>& floats) const;
  /// Reads the values packed from `offset` on into `context` and advances `offset`; false with a
  /// warning, the context untouched, when fewer than `packedAttrCount()` floats are left.
  virtual bool unpackAttrs(VrPrimitiveContext& context, const std::vector<float>& floats,
                           size_t& offset) const;
  /// Floats written by `packAttrs` for one primitive.
  virtual unsigned packedAttrCount() const { return 2; }
  /// The version of the packed layout.
  virtual unsigned versionAttrs() const { return 1; }
  /// @}

  /// @name Colour
  /// @{
  /// `CsExpr` at the location, or with CV interpolation the guide colours blended by weight.
  SgVec3T<double> evalColorInParallel(VrPrimitiveContext& context, double u, double v, int face,
                                      const std::string* patchName) const;
  SgVec3T<double> evalColor(double u, double v, int face, const std::string* patchName) const {
    return evalColorInParallel(*primContext, u, v, face, patchName);
  }
  /// An attribute of the guides at the context's location: the sum over the active guides of
  /// each one's custom value `name` times its weight, times weightN. False when no guide reaches
  /// the location or one of those reaching it lacks the attribute.
  bool getAttrValueInParallel(const VrPrimitiveContext& context, const std::string& name, SgVec3T<double>& value) const;
  bool getAttrValue(const std::string& name, SgVec3T<double>& value) const {
    return getAttrValueInParallel(*primContext, name, value);
  }
  /// Sum over the active guides of colour times weight, times weightN. A guide's colour is the
  /// guide colour expression at its root, or its kept colour while the colour cache is on.
  SgVec3T<double> evalInterpGuideColor(const VrPrimitiveContext& context) const;
  /// Sets the guide colour expression (type "color", default "[1,1,1]"); the colour cache is
  /// left as it is.
  void setGuideColorExpression(const std::string& text) { guideColorExpression.setExpression(text); }
  /// With `on`, evaluates every guide's colour once and keeps it, so that interpolation reads
  /// no expression per primitive; off forgets the kept colours. A pass turns it on for CV
  /// interpolation and off at its end. Main thread only.
  void setColorCache(bool on);
  bool colorCacheOn() const { return colorCacheFlag; }
  /// @}

  /// @name Wires and baked geometry
  /// @{
  /// The wire list `_wireNames`, names separated by ':'; false when it is empty.
  bool wireNames(std::string& names) const;
  /// The wire list as names.
  std::vector<std::string> wireNameList() const;
  /// Makes the wire list from the guides: the id of each guide enabled in exporting, in guide
  /// order (each such guide is written as one wire curve).
  void setWireNames();
  /// Stores `names` as the wire list.
  void setWireNames(const std::vector<std::string>& names);
  /// The box of the patch geometry the primitives were baked against; invalid until set.
  const SgBox3T<double>& originalPatchBBox() const { return originalBox; }
  void setOriginalPatchBBox(const SgVec3T<double>& min, const SgVec3T<double>& max) {
    originalBox = SgBox3T<double>::fromCorners(min, max);
  }
  /// @}

  /// @name Lean and direction
  /// @{
  /// Turns the lean (tiltU, tiltV) in the frame (N, U, V) into a direction and appends the CV
  /// `root` + direction · length to `cvs`. Lean 0 points along N, 1 lies in the tangent plane
  /// and 2 points against N; `isFirst` maps the square [-1, 1]² onto the disc first. `aboutN`
  /// (degrees) turns U and V about N first, `twist` (degrees) turns the new frame about the
  /// direction, `tiltN` (degrees) turns the direction and U towards each other. On return N, U
  /// and V are the frame of the new segment (N the direction).
  static void orient(const SgVec3T<double>& root, SgVec3T<double>& N, SgVec3T<double>& U, SgVec3T<double>& V,
                     double tiltU, double tiltV, double tiltN, double aboutN, double length,
                     std::vector<SgVec3T<double>>& cvs, bool isFirst, double twist = 0.0);
  /// `orient` without lean, turn or twist, for a chain whose tangents nobody reads afterwards:
  /// appends the CV that `orient` appends and leaves N as it leaves it, but turns no tangents.
  static void growAlongNormal(const SgVec3T<double>& root, SgVec3T<double>& N, double length,
                              std::vector<SgVec3T<double>>& cvs) {
    N.normalize();
    cvs.push_back(root + N * length);
  }
  /// Reads the lean (tiltU, tiltV) back from the first segment of `cvs` in the frame (N, U, V);
  /// undoes the disc mapping with `isFirst`. False for fewer than two CVs or a zero segment.
  static bool findOrient(const std::vector<SgVec3T<double>>& cvs, const SgVec3T<double>& N,
                         const SgVec3T<double>& U, const SgVec3T<double>& V, double& tiltU, double& tiltV,
                         bool isFirst);
  /// @}

  /// @name FX module stack (owned, in stack order)
  /// @{
  const std::vector<VrFXModule*>& modules() const { return stack; }
  /// Creates a module of `type` through the module registry and appends it; null on failure.
  VrFXModule* addFXModule(const std::string& type);
  /// Deletes the first module of that name; false when there is none.
  bool removeFXModule(const std::string& name);
  /// Deletes this module of the stack; false when it is not in the stack.
  bool removeFXModule(const VrFXModule* module);
  /// The first module of that name (and its stack index), or null.
  VrFXModule* findFXModule(const std::string& name, int* index = nullptr) const;
  /// Every module whose `typeName` is `type`, in stack order; `indices` (when given) receives
  /// their stack indices.
  std::vector<VrFXModule*> findFXModules(const std::string& type, std::vector<int>* indices = nullptr) const;
  /// `name` when no module of the stack other than `except` carries it; otherwise `name`
  /// followed by the smallest positive number that no such module carries.
  std::string uniqueFXName(const std::string& name, const VrFXModule* except = nullptr) const;
  /// Records the `active` state of the modules from `start` on in `previous` (one entry per
  /// module, replacing its contents) and deactivates them.
  void deactivateFXModules(unsigned start, std::vector<bool>& previous);
  /// Gives module `start` + i the state `status[i]`; false when `status` reaches past the end of
  /// the stack (the modules that exist are still set).
  bool setFXModulesStatus(unsigned start, const std::vector<bool>& status);
  /// Stack index of the first active "BakedGroomManagerFXModule", or -1.
  int bakedGroomManagerPosition() const;
  /// Moves the first module of that name to `position`, clamped to the stack; false when there
  /// is none.
  bool moveFXModule(const std::string& name, int position);
  /// Writes one object block per module, in stack order.
  bool exportFXModules(std::ostream& out) const;
  /// With `withModules`, writes a preset block for each module that is `includedInPreset`, in
  /// stack order; without, writes nothing. False when a block could not be written.
  bool exportFXModulesAsPreset(std::ostream& out, bool withModules) const;
  /// Appends the texture lines of every module.
  void getFXTextures(std::vector<std::string>& lines) const;
  /// Links a texture to an attribute of the named module; false when no module has it.
  bool setFXTexture(const std::string& module, const std::string& attr, const std::string& text);
  /// Runs `initModule` of every active module (deactivating those that refuse) and
  /// `finishModule` at the end of the pass.
  virtual void initModules();
  virtual void finishModules();
  /// @}

 protected:
  /// For the kinds with behaviour: declares the shared attributes with their defaults, and
  /// `context` (of the kind) becomes the serial context.
  VrPrimitive(VrDescription* description, std::unique_ptr<VrPrimitiveContext> context);

 private:
  VrPrimitive(VrDescription* description, std::unique_ptr<VrPrimitiveContext> context, bool declare);
  void declareAttrs();
  void renumberModules();
  void applyBakedGroomManager();

  std::vector<VrFXModule*> stack;
  std::unique_ptr<VrPrimitiveContext> primContext;
  VrExpression lengthExpression;
  VrExpression widthExpression;
  VrExpression depthExpression;
  VrExpression offUExpression;
  VrExpression offVExpression;
  VrExpression offNExpression;
  VrExpression aboutNExpression;
  VrExpression regionMaskExpression;
  VrExpression regionExpression;
  VrExpression guideColorExpression;
  VrExpression colorExpression;
  std::string regionMapName;
  std::string cacheFile;
  bool useCacheFlag = false;
  bool liveModeFlag = true;
  bool regionsOn = false;
  bool colorCacheFlag = false;
  std::vector<SgVec3T<double>> guideColors;
  SgBox3T<double> originalBox;
  VrDict<std::string> cvAttrTypeNames;
};
