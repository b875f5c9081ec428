#pragma once
// VrFXExprAttr: one float expression attribute of an FX module, with whether it varies along
// the primitive (uses "t"), and the location a module evaluates its expressions at.
// Set on the main thread; `at` may run on many workers at once.

#include "expressions/VrExpression.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitiveContext.h"

#include <string>

/// Where a module evaluates its expressions for one primitive: the context's (u, v), face and
/// patch name.
struct VrFXLocation {
  explicit VrFXLocation(const VrPrimitiveContext& context)
      : u(context.cu(false)),
        v(context.cv(false)),
        face(context.cFaceId()),
        patchName(context.cPatch() ? &context.cPatch()->name() : nullptr) {}
  VrFXLocation(double u, double v, int face, const std::string* patchName)
      : u(u), v(v), face(face), patchName(patchName) {}
  double u, v;
  int face;
  const std::string* patchName;
};

/// The variables that modules set, as handles: "t", the parameter along the primitive, set per
/// CV; "clumpLength", the length of the clump guide, set per primitive.
inline const VrExpression::ThreadVariable& vrFXTVariable() {
  static const VrExpression::ThreadVariable t("t");
  return t;
}
inline const VrExpression::ThreadVariable& vrFXClumpLengthVariable() {
  static const VrExpression::ThreadVariable clumpLength("clumpLength");
  return clumpLength;
}

class VrFXExprAttr {
 public:
  /// `objectWord` is the module's type word: it seeds `rand` apart from other modules'.
  VrFXExprAttr(const std::string& name, const std::string& objectWord, VrDescription* description,
               const std::string& text)
      : expr(name, objectWord, description, text, "float") {
    set(text);
  }
  /// Main thread only. The variables that modules set per primitive or per CV ("t",
  /// "clumpLength", and `alsoDeclared` when given) are declared while the text is parsed, so
  /// that a text using them parses.
  void set(const std::string& text, const std::string& alsoDeclared = "") {
    const std::string moduleVariables[] = {"t", "clumpLength", alsoDeclared};
    expr.setExpression(text);
    for (const std::string& name : moduleVariables)
      if (!name.empty()) VrExpression::setThreadVariable(name, 0.0);
    expr.isValid();
    usesT = expr.usesVar("t");
    for (const std::string& name : moduleVariables)
      if (!name.empty()) VrExpression::removeThreadVariable(name);
    // A text without variables or system functions has one value: worked out once here, it
    // costs nothing per primitive.
    constant = !usesT && expr.isConstant();
    if (constant) constantValue = expr.eval(0.0, 0.0, 0)[0];
  }
  double at(const VrFXLocation& where) const {
    return constant ? constantValue : expr.eval(where.u, where.v, where.face, where.patchName)[0];
  }
  const std::string& name() const { return expr.name(); }

  VrExpression expr;
  /// Evaluate per CV, with "t" set to i/(n-1).
  bool usesT = false;

 private:
  bool constant = false;
  double constantValue = 0.0;
};
