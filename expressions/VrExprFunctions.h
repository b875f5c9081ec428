#pragma once
// The table of functions the system adds to the expression language: `rand`, `noise`,
// `frameArray`, `stray`, `shadow`, the alignment and distance functions, patch and guide
// attributes, the map readers, and `pal`, through which a call of a collection expression's
// name is evaluated.

#include <string>

namespace KSeExpr {
class ExprFunc;
}

namespace vrexpr {

/// The table's function of that name, or null.
KSeExpr::ExprFunc* findFunction(const std::string& name);
/// The function that evaluates collection expressions called by name.
KSeExpr::ExprFunc* collectionExpressionFunction();

/// The value functions give where they cannot produce one: three components of 0.001.
constexpr double failureValue = 0.001;

}  // namespace vrexpr
