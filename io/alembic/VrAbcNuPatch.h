#pragma once
// Reads the NURBS surface schema (AbcGeom_NuPatch_v2): a grid of nu x nv control points, the
// orders and knot vectors in u and v, optional weights (a rational surface), uv, normals and
// trim curves.

#include "io/alembic/VrAbcGeomBase.h"
#include "io/alembic/VrAbcGeomParam.h"
#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcSchema.h"

#include <cstdint>
#include <vector>

class VrAbcNuPatch {
 public:
  struct Sample {
    VrAbcGeomBase::Sample points;
    int32_t numU = 0, numV = 0, uOrder = 0, vOrder = 0;
    std::vector<float> uKnots, vKnots;
    bool hasWeights = false;
    std::vector<float> weights;
    bool hasTrim = false;
    int32_t trimNumLoops = 0;
    std::vector<int32_t> trimNumCurves, trimNumVertices, trimOrders;
    std::vector<float> trimKnots, trimMin, trimMax, trimU, trimV, trimW;
    bool hasUvs = false;
    VrAbcGeomParam::Sample uvs;
    bool hasNormals = false;
    VrAbcGeomParam::Sample normals;
  };

  bool open(const VrAbcObject& object);

  uint32_t numSamples() const { return base.positions().numSamples(); }
  const VrAbcTimeSampling& timeSampling() const { return base.positions().timeSampling(); }
  VrAbcSchema::Variance topologyVariance() const;
  bool hasTrimCurve() const { return trim; }
  const VrAbcGeomBase& geometry() const { return base; }
  const VrAbcCompoundProperty& arbGeomParams() const { return arbitrary; }

  bool read(uint32_t index, Sample& out) const;

 private:
  bool trimTopologyConstant() const;
  bool trimTopologyHomogeneous() const;

  VrAbcGeomBase base;
  VrAbcScalarProperty numU, numV, uOrder, vOrder;
  VrAbcArrayProperty uKnot, vKnot, weights;
  VrAbcGeomParam uv, normals;
  bool trimProps = false;
  bool trim = false;
  VrAbcScalarProperty trimNumLoops;
  VrAbcArrayProperty trimNumCurves, trimNumVertices, trimOrder, trimKnot, trimMin, trimMax, trimU, trimV, trimW;
  VrAbcCompoundProperty arbitrary;
};
