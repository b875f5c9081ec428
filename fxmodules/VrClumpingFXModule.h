#pragma once
// VrClumpingFXModule: pulls each spline towards its clump guide. The guide of a primitive is
// named by the module's region map (a Ptex map under `mapDir` whose texels hold encoded guide
// ids, id 0 meaning none); the guides are primitives of the same description grown at the
// points of the `.vuv` files under `pointDir`, with the stack in front of the module applied, so
// that several clumping modules in one stack clump the clumps of the earlier ones.
//
// Per primitive, in order: cut to the guide's `cut` length, copy of the guide's shape (weighted
// by the "break" CV values where primitive and guide stand in different guide regions), clump
// noise on the guide copy, then per CV clump (scaled by the control maps with `useControlMaps`),
// volumize, flatness, offset and curl in the guide's frame, turned by its twist and carried along
// its bends. Owned by its primitive; guides are read in `initDescription`
// and read-only afterwards, so `computeParallel` runs on any number of workers.

#include "fxmodules/VrClumpGuides.h"
#include "fxmodules/VrFXModule.h"

#include <string>
#include <vector>

class VrClumpingFXModule : public VrFXModule, public VrClumpGuides {
 public:
  explicit VrClumpingFXModule(VrDescription* description);
  ~VrClumpingFXModule() override;

  std::string typeName() const override { return "ClumpingFXModule"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;
  bool acceptsPrimitive(const std::string& primitiveType) const override {
    return primitiveType == "SplinePrimitive";
  }

  /// Builds the region expression and reads the guides of every patch; a patch without a point
  /// file is skipped with a Warning, an unreadable file with an Error.
  void initDescription(VrPrimitive* primitive) override;
  void finishDescription() override;
  void declareCVAttrs() override;
  bool computeParallel(VrPrimitiveContext& context) override;
  bool isThreadSafe() const override { return true; }
  std::unique_ptr<VrFXModuleContext> createModuleContext() const override;

  /// The point folder and the map folder with "${FXMODULE}" expanded (other macros are left to
  /// the file search).
  std::string pointDirectory() const;
  std::string mapDirectory() const;
  /// The point mask of guide scattering (`ptMask`) and the spread of region sizes
  /// (`radiusVariance`), both read at a guide root.
  const VrExpression* ptMaskExpr() const;
  const VrExpression* radiusVarianceExpr() const;
  /// The `twist` expression an older file's `twist` value becomes: the value's last statement
  /// wrapped as "(" + statement + "\n)*180.0 # auto converted", so a value in half turns reads
  /// in degrees.
  static std::string convertedTwist(const std::string& text);
  /// The text of the internal region expression.
  const std::string& regionExpressionText() const { return regionExpression.expression(); }
  /// The guide id that the region map holds at a location: guide i + 1, or 0 for none. Valid
  /// from `initDescription` on; safe from any number of workers.
  unsigned regionIdAt(double u, double v, int face, const std::string* patchName) const;
  /// Names of the CV attributes written with `cvAttr`: the clump amount and the guide copy.
  std::string amountAttrName() const { return name() + "Amount"; }
  std::string guideAttrName() const { return name() + "Guide"; }

 private:
  struct Expr;
  Expr* findExpr(const std::string& name);
  void readPatch(VrPrimitive* primitive, const VrPatch* patch);
  /// The clump amount's factor of the control maps at a primitive, in [0, 1].
  double controlAt(double u, double v, int face, const std::string* patchName) const;

  std::vector<Expr*> exprs;  // owned
  VrExpression regionExpression;
  VrExpression controlExpression;  // the control map, read with `useControlMaps`
  VrFXRamp clumpScale, copyScale, curlScale, offsetScale, flatnessScale, noiseScale;
  std::string pointDir, mapDir, controlMapDir;
  double guideLength = 1.0;  // `ptLength`
  VrExpression::ThreadVariable idVariable;  // fixed for a pass, as are the names
  std::string amountName, guideName;
  std::string regionMapName;     // the map the region expression reads, fixed for a pass
  bool directRegionMap = false;  // workers read it without the expression
  unsigned regionPass = 0;       // counts passes, so a worker's reader is made anew for each
  bool cvAttrOn = false;
  bool volumize = false;
  bool exportCurves = false;  // write the guides as curves when a pass begins
  bool useControlMaps = false;
  bool controlOn = false;  // `useControlMaps` for the pass under way
};
