#pragma once
// The painted-map functions of the expression language: `map` (a per-face texture read at the
// nearest texel), `vmap` (per-vertex values stored as 2 by 2 faces, interpolated) and
// `triplanar` (one tiling picture projected along the three axes). They share the way a map's
// name becomes a file for the patch being evaluated and the calling thread's texture cache
// (`VrExpression::getPtex`). Registered by the function table of VrExprFunctions.

#include "geometry/SgVec3T.h"

#include <memory>
#include <string>

class VrDescription;
class VrPtexTexture;

namespace KSeExpr {
class ExprFuncSimple;
}

namespace vrexpr {

enum class MapKind { Map, VertexMap, TriPlanar };

/// The singleton of each map function.
KSeExpr::ExprFuncSimple& mapFunction(MapKind kind);

/// `map("name")` read from code, without an expression: at a location it gives what an
/// expression's map of that name gives there, failure value included. It keeps the file and the
/// calling thread's texture of the last patch, so a run of reads on one patch resolves nothing.
/// One reader per worker and per pass (a data path or file changed between passes is not seen).
class MapReader {
 public:
  /// `written` as the text between the quotes of map("...").
  explicit MapReader(const std::string& written);
  ~MapReader();
  /// False for a name with a collection macro, which resolves anew at every read.
  bool keepsItsFile() const { return !dynamic; }
  /// The map at (u, v) of `face` of the patch named `patchName` of `description`.
  SgVec3T<double> at(VrDescription* description, const std::string* patchName, int face, double u, double v);

 private:
  std::string name;
  bool dynamic;
  const std::string* lastPatch = nullptr;
  const VrDescription* lastDescription = nullptr;
  std::shared_ptr<VrPtexTexture> texture;
  bool flipV = false;
};

}  // namespace vrexpr
