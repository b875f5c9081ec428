#pragma once
// Reads the curves schema (AbcGeom_Curve_v2): one point list for many curves, the vertex count
// of each, the curve type, wrap and basis, and optionally widths, uv, normals, weights, orders
// and knots (for NURBS curves of varying order).

#include "io/alembic/VrAbcGeomBase.h"
#include "io/alembic/VrAbcGeomParam.h"
#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcSchema.h"

#include <cstdint>
#include <vector>

class VrAbcCurves {
 public:
  /// The stored numbers: type cubic 0, linear 1, variable order 2; wrap non-periodic 0,
  /// periodic 1; basis none 0, bezier 1, b-spline 2, catmull-rom 3, hermite 4, power 5.
  struct Sample {
    VrAbcGeomBase::Sample points;
    std::vector<int32_t> numVertices;
    uint8_t type = 0;
    uint8_t wrap = 0;
    uint8_t basis = 0;
    bool hasWeights = false;
    std::vector<float> weights;
    bool hasOrders = false;
    std::vector<uint8_t> orders;
    bool hasKnots = false;
    std::vector<float> knots;
    bool hasWidths = false;
    VrAbcGeomParam::Sample widths;
    bool hasUvs = false;
    VrAbcGeomParam::Sample uvs;
    bool hasNormals = false;
    VrAbcGeomParam::Sample normals;
  };

  bool open(const VrAbcObject& object);

  uint32_t numSamples() const { return base.positions().numSamples(); }
  const VrAbcTimeSampling& timeSampling() const { return base.positions().timeSampling(); }
  VrAbcSchema::Variance topologyVariance() const;
  const VrAbcGeomBase& geometry() const { return base; }
  /// The arbitrary parameters compound (".arbGeomParams"), invalid when there is none.
  const VrAbcCompoundProperty& arbGeomParams() const { return arbitrary; }

  bool read(uint32_t index, Sample& out) const;

  static const char* typeName(uint8_t type);
  static const char* wrapName(uint8_t wrap);
  static const char* basisName(uint8_t basis);

 private:
  VrAbcGeomBase base;
  VrAbcArrayProperty numVertices;
  VrAbcScalarProperty basisAndType;
  VrAbcArrayProperty weights, orders, knots;
  VrAbcGeomParam widths, uv, normals;
  VrAbcCompoundProperty arbitrary;
};
