#pragma once
// VrSeExpr: the parsed form of one expression text in the expression library. It binds the
// system's variables and functions by name, and counts `rand` call sites so that each one draws
// its own stable stream. Every thread evaluates its own VrSeExpr (the library's evaluator keeps
// its registers in the parsed expression); copies are made by parsing the same text again, which
// gives every copy the same call-site numbers. Only this file and the function table include the
// expression library.

#include <KSeExpr/ExprNode.h>
#include <KSeExpr/Expression.h>

#include "geometry/SgVec3T.h"

#include <string>
#include <vector>

class VrExpression;

class VrSeExpr : public KSeExpr::Expression {
 public:
  /// `desiredDim` is 1 for "float" expressions, 3 for vectors.
  VrSeExpr(VrExpression* owner, const std::string& text, int desiredDim);
  ~VrSeExpr() override;

  KSeExpr::ExprVarRef* resolveVar(const std::string& name) const override;
  KSeExpr::ExprFunc* resolveFunc(const std::string& name) const override;

  VrExpression* expression() const { return owner; }
  /// The VrSeExpr that a parse-tree node belongs to, or null.
  static const VrSeExpr* of(const KSeExpr::ExprNode* node);

  /// @name Call-site numbering of `rand`, counted while the text is prepared
  /// @{
  int randInstance() const { return randCounter; }
  void setRandInstance(int n) const { randCounter = n; }
  int nextRandInstance() const { return randCounter++; }
  /// @}

  /// True when the text calls a function of the system's table or a collection expression,
  /// which makes its value depend on the location even with no variable in it.
  bool callsSystemFunction() const { return systemCalls; }

  /// @name Map names of the `map` and `vmap` calls, registered when the text is prepared
  /// @{
  void addMapName(const std::string& name) const { maps.push_back(name); }
  const std::vector<std::string>& mapNames() const { return maps; }
  /// @}

  /// @name The primitive being built where the calling thread evaluates (see the variables)
  /// @{
  /// Its unit U, unit V and normal at (u, v) on the animated surface; false without a primitive
  /// or without a patch.
  static bool primitiveFrame(double u, double v, SgVec3T<double>& U, SgVec3T<double>& V, SgVec3T<double>& N);
  /// The guides' attribute `name` at its location (VrPrimitive::getAttrValueInParallel); false
  /// without a primitive or when the guides lack it.
  static bool guidesAttr(const std::string& name, SgVec3T<double>& value);
  /// @}

  /// The errors of the last preparation, one English line each.
  std::string errorText() const;

 private:
  VrExpression* owner;
  mutable int randCounter = 0;
  mutable bool systemCalls = false;
  mutable std::vector<std::string> maps;
};

#include "geometry/SgVec3T.h"

/// Process-wide custom variables, read by expressions as `$name`. Set on the main thread while
/// no evaluation runs.
namespace vrexpr {
void setCustomVariable(const std::string& name, const SgVec3T<double>& value);
/// Sets the variable for the calling thread only, without the process-wide lock: for values a
/// worker changes per primitive or per CV, which no other thread may see.
void setThreadCustomVariable(const std::string& name, const SgVec3T<double>& value);
void removeThreadCustomVariable(const std::string& name);
/// The slot of a thread variable's name, the same on every thread; setting a variable by its
/// slot looks no name up.
int threadVariableSlot(const std::string& name);
void setThreadCustomVariable(int slot, const SgVec3T<double>& value);
void removeThreadCustomVariable(int slot);
bool getCustomVariable(const std::string& name, SgVec3T<double>& value);
void removeCustomVariable(const std::string& name);
void removeAllCustomVariables();
}  // namespace vrexpr
