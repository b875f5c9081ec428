#pragma once
// The painted-map functions of the expression language: `map` (a per-face texture read at the
// nearest texel), `vmap` (per-vertex values stored as 2 by 2 faces, interpolated) and
// `triplanar` (one tiling picture projected along the three axes). They share the way a map's
// name becomes a file for the patch being evaluated and the calling thread's texture cache
// (`VrExpression::getPtex`). Registered by the function table of VrExprFunctions.

namespace KSeExpr {
class ExprFuncSimple;
}

namespace vrexpr {

enum class MapKind { Map, VertexMap, TriPlanar };

/// The singleton of each map function.
KSeExpr::ExprFuncSimple& mapFunction(MapKind kind);

}  // namespace vrexpr
