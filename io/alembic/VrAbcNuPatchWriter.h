#pragma once
// Writes a NURBS surface (AbcGeom_NuPatch_v2): nu x nv control points (u varying fastest),
// orders and knot vectors in u and v, and, for a rational surface, one weight per control
// point. One sample per call; what is not given repeats the previous sample.

#include "io/alembic/VrAbcGeomBaseWriter.h"
#include "io/alembic/VrAbcGeomParamWriter.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <string>

class VrAbcNuPatchWriter {
 public:
  struct Sample {
    VrAbcView<float> positions;  ///< x, y, z per control point; needed in the first sample
    int32_t numU = 0, numV = 0, uOrder = 0, vOrder = 0;  ///< stored with every sample
    VrAbcView<float> uKnots;     ///< numU + uOrder values; needed in the first sample
    VrAbcView<float> vKnots;
    VrAbcView<float> weights;    ///< one per control point: a rational surface
    VrAbcView<float> uvs;
    VrAbcScope uvScope = VrAbcScope::Vertex;
    VrAbcView<float> normals;
    VrAbcScope normalScope = VrAbcScope::Vertex;
  };

  bool create(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling);
  /// Writes the next sample; false with an Error when the first sample lacks points or knots,
  /// or the counts disagree (points != nu * nv, knots != count + order).
  bool write(const Sample& sample);
  uint32_t numSamples() const { return base.numSamples(); }
  VrAbcObjectWriter* object() const { return base.object(); }
  VrAbcCompoundWriter* arbGeomParams() { return base.arbGeomParams(); }

 private:
  VrAbcGeomBaseWriter base;
  VrAbcPropertyWriter* numU = nullptr;
  VrAbcPropertyWriter* numV = nullptr;
  VrAbcPropertyWriter* uOrder = nullptr;
  VrAbcPropertyWriter* vOrder = nullptr;
  VrAbcPropertyWriter* uKnot = nullptr;
  VrAbcPropertyWriter* vKnot = nullptr;
  VrAbcPropertyWriter* weights = nullptr;
  VrAbcGeomParamWriter uvs, normals;
};
